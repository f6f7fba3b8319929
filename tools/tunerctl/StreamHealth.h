// What a person sees of a transport stream's health: its bit rate, the rate of each PID (as
// dvbv5-zap -m shows them) and the first- and second-priority counts of ETSI TR 101 290.
#pragma once

#include <string>

#include "streamcheck/StreamReport.h"

namespace tunerctl {

// `seconds`: how long the stream was watched (the rates are over that time).
std::string streamHealthText(const ::mox::streamcheck::StreamReport& report, double seconds);
std::string streamHealthJson(const ::mox::streamcheck::StreamReport& report, double seconds);

}  // namespace tunerctl
