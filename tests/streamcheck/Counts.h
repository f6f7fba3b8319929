// Every TR 101 290 count of a report by its name, so a test states the whole picture: the
// counts it expects, and zero for all others.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "streamcheck/StreamReport.h"

inline std::map<std::string, uint64_t> countsOf(const mox::streamcheck::StreamReport& r) {
    return {
            {"TS_sync_loss", r.first.tsSyncLoss},
            {"Sync_byte_error", r.first.syncByteError},
            {"PAT_error", r.first.patError},
            {"Continuity_count_error", r.first.continuityCountError},
            {"PMT_error", r.first.pmtError},
            {"PID_error", r.first.pidError},
            {"Transport_error", r.second.transportError},
            {"CRC_error", r.second.crcError},
            {"PCR_repetition_error", r.second.pcrRepetitionError},
            {"PCR_discontinuity_indicator_error", r.second.pcrDiscontinuityIndicatorError},
            {"PCR_accuracy_error", r.second.pcrAccuracyError},
            {"PTS_error", r.second.ptsError},
            {"CAT_error", r.second.catError},
            {"NIT_actual_error", r.third.nitActualError},
            {"SDT_actual_error", r.third.sdtActualError},
            {"EIT_actual_error", r.third.eitActualError},
            {"TDT_error", r.third.tdtError},
    };
}

// The expected counts: those named, zero for the rest.
inline std::map<std::string, uint64_t> expectCounts(std::map<std::string, uint64_t> named) {
    std::map<std::string, uint64_t> all = countsOf(mox::streamcheck::StreamReport{});
    for (const auto& [name, count] : named) all.at(name) = count;
    return all;
}
