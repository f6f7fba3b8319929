#include "StreamHealth.h"

#include <cstdio>
#include <vector>

#include "Output.h"

namespace tunerctl {

namespace {

struct Count {
    const char* name;
    uint64_t value;
};

std::vector<Count> firstPriority(const ::mox::streamcheck::StreamReport& r) {
    return {{"TS_sync_loss", r.first.tsSyncLoss},
            {"Sync_byte_error", r.first.syncByteError},
            {"PAT_error", r.first.patError},
            {"Continuity_count_error", r.first.continuityCountError},
            {"PMT_error", r.first.pmtError},
            {"PID_error", r.first.pidError}};
}

std::vector<Count> secondPriority(const ::mox::streamcheck::StreamReport& r) {
    return {{"Transport_error", r.second.transportError},
            {"CRC_error", r.second.crcError},
            {"PCR_repetition_error", r.second.pcrRepetitionError},
            {"PCR_discontinuity_indicator_error", r.second.pcrDiscontinuityIndicatorError},
            {"PCR_accuracy_error", r.second.pcrAccuracyError},
            {"PTS_error", r.second.ptsError},
            {"CAT_error", r.second.catError}};
}

double bitsPerSecond(uint64_t packets, double seconds) {
    return seconds > 0 ? double(packets) * 188 * 8 / seconds : 0;
}

}  // namespace

std::string streamHealthText(const ::mox::streamcheck::StreamReport& r, double seconds) {
    char line[160];
    std::string text;
    std::snprintf(line, sizeof line, "stream    %.3f Mbit/s over %.1f s (%llu packets)\n",
                  bitsPerSecond(r.totalPackets, seconds) / 1e6, seconds,
                  static_cast<unsigned long long>(r.totalPackets));
    text += line;
    text += "PIDs\n";
    for (const auto& [pid, packets] : r.packetsPerPid) {
        std::snprintf(line, sizeof line, "  0x%04X  %10.1f kbit/s  %6.2f %%\n", pid,
                      bitsPerSecond(packets, seconds) / 1e3,
                      r.totalPackets ? 100.0 * double(packets) / double(r.totalPackets) : 0.0);
        text += line;
    }
    text += "TR 101 290 first priority\n";
    for (const Count& c : firstPriority(r)) {
        std::snprintf(line, sizeof line, "  %-34s %llu\n", c.name,
                      static_cast<unsigned long long>(c.value));
        text += line;
    }
    text += "TR 101 290 second priority\n";
    for (const Count& c : secondPriority(r)) {
        std::snprintf(line, sizeof line, "  %-34s %llu\n", c.name,
                      static_cast<unsigned long long>(c.value));
        text += line;
    }
    return text;
}

std::string streamHealthJson(const ::mox::streamcheck::StreamReport& r, double seconds) {
    std::vector<std::string> pids;
    for (const auto& [pid, packets] : r.packetsPerPid) {
        pids.push_back(JsonObject()
                               .add("pid", uint32_t{pid})
                               .add("packets", packets)
                               .add("bitRate", uint64_t(bitsPerSecond(packets, seconds)))
                               .str());
    }
    JsonObject first;
    for (const Count& c : firstPriority(r)) first.add(c.name, c.value);
    JsonObject second;
    for (const Count& c : secondPriority(r)) second.add(c.name, c.value);
    return JsonObject()
            .add("milliseconds", uint64_t(seconds * 1000))
            .add("packets", r.totalPackets)
            .add("bitRate", uint64_t(bitsPerSecond(r.totalPackets, seconds)))
            .addRaw("pids", jsonArray(pids))
            .addRaw("firstPriority", first.str())
            .addRaw("secondPriority", second.str())
            .str();
}

}  // namespace tunerctl
