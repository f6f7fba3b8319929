// What a person sees of a transport stream's health: its bit rate, the rate of each PID (as
// dvbv5-zap -m shows them) and the counts of ETSI TR 101 290: first and second priority, and of
// the third the SI tables' repetition (a missing SDT shows there).
#pragma once

#include <string>

#include "streamcheck/StreamReport.h"

namespace tunerctl {

// `seconds`: how long the stream was watched (the rates are over that time).
std::string streamHealthText(const ::mox::streamcheck::StreamReport& report, double seconds);
std::string streamHealthJson(const ::mox::streamcheck::StreamReport& report, double seconds);
// One line of a watch: the bit rate and the counts, short.
std::string streamHealthLine(const ::mox::streamcheck::StreamReport& report, double seconds);

// `now` with the packet counts (total and per PID) of what came after `before`, the error
// counts as they are: a watch shows the rates of its last sample and the errors since it began.
::mox::streamcheck::StreamReport packetsSince(const ::mox::streamcheck::StreamReport& now,
                                              const ::mox::streamcheck::StreamReport& before);

}  // namespace tunerctl
