#include "StreamHealth.h"

#include <algorithm>
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

std::vector<Count> thirdPriority(const ::mox::streamcheck::StreamReport& r) {
    return {{"NIT_actual_error", r.third.nitActualError},
            {"SDT_actual_error", r.third.sdtActualError},
            {"EIT_actual_error", r.third.eitActualError},
            {"TDT_error", r.third.tdtError}};
}

uint64_t sum(const std::vector<Count>& counts) {
    uint64_t total = 0;
    for (const Count& c : counts) total += c.value;
    return total;
}

void appendCounts(std::string& text, const char* title, const std::vector<Count>& counts) {
    text += title;
    text += "\n";
    char line[80];
    for (const Count& c : counts) {
        std::snprintf(line, sizeof line, "  %-34s %llu\n", c.name,
                      static_cast<unsigned long long>(c.value));
        text += line;
    }
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
    appendCounts(text, "TR 101 290 first priority", firstPriority(r));
    appendCounts(text, "TR 101 290 second priority", secondPriority(r));
    appendCounts(text, "TR 101 290 third priority (SI repetition)", thirdPriority(r));
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
    JsonObject third;
    for (const Count& c : thirdPriority(r)) third.add(c.name, c.value);
    return JsonObject()
            .add("milliseconds", uint64_t(seconds * 1000))
            .add("packets", r.totalPackets)
            .add("bitRate", uint64_t(bitsPerSecond(r.totalPackets, seconds)))
            .addRaw("pids", jsonArray(pids))
            .addRaw("firstPriority", first.str())
            .addRaw("secondPriority", second.str())
            .addRaw("thirdPriority", third.str())
            .str();
}

std::string streamHealthLine(const ::mox::streamcheck::StreamReport& r, double seconds) {
    const uint64_t pcr = r.second.pcrRepetitionError + r.second.pcrDiscontinuityIndicatorError +
                         r.second.pcrAccuracyError;
    char line[200];
    std::snprintf(line, sizeof line,
                  "stream %.2f Mbit/s  sync %llu  PAT %llu  CC %llu  PMT %llu  TEI %llu  CRC %llu  "
                  "PCR %llu  SI %llu",
                  bitsPerSecond(r.totalPackets, seconds) / 1e6,
                  static_cast<unsigned long long>(r.first.tsSyncLoss + r.first.syncByteError),
                  static_cast<unsigned long long>(r.first.patError),
                  static_cast<unsigned long long>(r.first.continuityCountError),
                  static_cast<unsigned long long>(r.first.pmtError),
                  static_cast<unsigned long long>(r.second.transportError),
                  static_cast<unsigned long long>(r.second.crcError),
                  static_cast<unsigned long long>(pcr),
                  static_cast<unsigned long long>(sum(thirdPriority(r))));
    return line;
}

::mox::streamcheck::StreamReport packetsSince(const ::mox::streamcheck::StreamReport& now,
                                              const ::mox::streamcheck::StreamReport& before) {
    ::mox::streamcheck::StreamReport r = now;
    r.totalPackets = now.totalPackets - std::min(now.totalPackets, before.totalPackets);
    r.packetsPerPid.clear();
    for (const auto& [pid, packets] : now.packetsPerPid) {
        const auto earlier = before.packetsPerPid.find(pid);
        const uint64_t then = earlier == before.packetsPerPid.end() ? 0 : earlier->second;
        if (packets > then) r.packetsPerPid[pid] = packets - then;
    }
    return r;
}

}  // namespace tunerctl
