// How tunerctl shows each status the service answers: a name for people, a key for JSON, and the
// value in both forms. A figure the service does not measure (it answers a fixed value) is shown
// as not available, as the Linux DVB tools show a statistic whose scale is "not available".
#pragma once

#include <android/hardware/tv/tuner/1.0/types.h>

#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tunerctl {

namespace hal = ::android::hardware::tv::tuner::V1_0;

struct StatusField {
    hal::FrontendStatusType type;
    std::string name;  // e.g. "SNR"
    std::string key;   // e.g. "snrDb"
    std::string text;  // e.g. "24.6 dB", or "not available"
    std::string json;  // a JSON value: a number, string, boolean, array or null
};

// The status types tunerctl shows, in the order it shows them: the figures first, then every
// other type of the interface.
std::vector<hal::FrontendStatusType> displayOrder();

// The name a person reads for the type, e.g. "SNR".
std::string statusName(hal::FrontendStatusType type);

// The frontend's listed types, in display order.
std::vector<hal::FrontendStatusType> listedInDisplayOrder(
        const std::vector<hal::FrontendStatusType>& listed);

// One field per answered status, in answer order; types named in notMeasured (by their
// enumerator name) read as not available.
std::vector<StatusField> statusFields(const std::vector<hal::FrontendStatus>& statuses,
                                      const std::set<std::string>& notMeasured);

// The fields as one JSON object of stable keys.
std::string statusFieldsJson(const std::vector<StatusField>& fields);

// The demodulator's lock in the answer; nullopt when it does not say.
std::optional<bool> demodLocked(const std::vector<hal::FrontendStatus>& statuses);

inline constexpr const char* kNotAvailable = "not available";

}  // namespace tunerctl
