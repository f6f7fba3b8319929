#include "MultiplexTables.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <set>
#include <tuple>

#include "Output.h"
#include "streamcheck/TableStore.h"

namespace tunerctl {

namespace {

using Clock = std::chrono::steady_clock;

constexpr uint16_t kPatPid = 0x0000;
constexpr uint16_t kNitPid = 0x0010;
constexpr uint16_t kSdtPid = 0x0011;
constexpr uint8_t kPatTable = 0x00;
constexpr uint8_t kPmtTable = 0x02;
constexpr uint8_t kNitActualTable = 0x40;
constexpr uint8_t kSdtActualTable = 0x42;

// Which sections of each sub-table (table id, extension) came, against its last_section_number.
class SectionsSeen {
  public:
    void add(const std::vector<uint8_t>& s) {
        if (s.size() < 8) return;
        auto& entry = mSeen[{s[0], static_cast<uint16_t>(s[3] << 8 | s[4])}];
        entry.first = s[7];
        entry.second.insert(s[6]);
    }
    // Every sub-table of the table id has all its sections (and there is one at least).
    bool whole(uint8_t tableId) const {
        bool any = false;
        for (const auto& [key, entry] : mSeen) {
            if (std::get<0>(key) != tableId) continue;
            any = true;
            if (entry.second.size() != size_t{entry.first} + 1u) return false;
        }
        return any;
    }

  private:
    std::map<std::tuple<uint8_t, uint16_t>, std::pair<uint8_t, std::set<uint8_t>>> mSeen;
};

bool isVideo(uint8_t streamType) {
    // MPEG-1/2 video, MPEG-4 part 2, H.264, H.265.
    return streamType == 0x01 || streamType == 0x02 || streamType == 0x10 || streamType == 0x1B ||
           streamType == 0x24;
}

bool isAudio(uint8_t streamType) {
    // MPEG-1/2 audio, AAC (ADTS and LATM), AC-3 and E-AC-3 (ATSC's stream types).
    return streamType == 0x03 || streamType == 0x04 || streamType == 0x0F || streamType == 0x11 ||
           streamType == 0x81 || streamType == 0x87;
}

}  // namespace

TableTimeouts timeoutsFor(bool terrestrial) {
    TableTimeouts t;
    if (terrestrial) t.nit = std::chrono::milliseconds(12000);
    return t;
}

MultiplexTables readMultiplexTables(const sp<hal::IDemux>& demux, const TableTimeouts& timeouts,
                                    bool nit, const std::function<bool()>& stop,
                                    std::string& error) {
    MultiplexTables out;
    SectionTaps taps(demux);
    if (!taps.add(kPatPid, kPatTable, error) || !taps.add(kSdtPid, kSdtActualTable, error) ||
        (nit && !taps.add(kNitPid, kNitActualTable, error))) {
        return out;
    }
    const Clock::time_point started = Clock::now();
    Clock::time_point pmtStarted = Clock::time_point::max();
    sc::TableStore store;
    SectionsSeen seen;

    auto pmtsWhole = [&] {
        if (!store.tables().pat) return false;
        for (const auto& [program, pid] : store.tables().pat->programs) {
            if (program != 0 && store.tables().pmts.count(program) == 0) return false;
        }
        return true;
    };
    // What is still awaited, and until when.
    auto deadline = [&](Clock::time_point now, bool& done) {
        Clock::time_point until = Clock::time_point::min();
        auto await = [&](bool whole, Clock::time_point end) {
            if (!whole && now < end) until = std::max(until, end);
        };
        await(seen.whole(kPatTable), started + timeouts.pat);
        if (pmtStarted != Clock::time_point::max()) await(pmtsWhole(), pmtStarted + timeouts.pmt);
        await(seen.whole(kSdtActualTable), started + timeouts.sdt);
        if (nit) await(seen.whole(kNitActualTable), started + timeouts.nit);
        done = until == Clock::time_point::min();
        return until;
    };

    for (;;) {
        bool done = false;
        const Clock::time_point until = deadline(Clock::now(), done);
        if (done || stop()) break;
        const Clock::time_point wake =
                std::min(until, Clock::now() + std::chrono::milliseconds(100));
        const std::optional<SectionTaps::Received> got = taps.next(wake);
        if (!got || got->section.size() < 8) continue;
        sc::Section section;
        section.bytes = got->section;
        seen.add(section.bytes);
        switch (section.bytes[0]) {
            case kPatTable:
                store.pat(section);
                break;
            case kPmtTable:
                store.pmt(got->pid, section);
                break;
            case kSdtActualTable:
                store.sdt(section);
                break;
            case kNitActualTable:
                store.nitActual(section);
                break;
            default:
                break;
        }
        // The PAT names the PMTs: a filter for each, their time counted from now.
        if (section.bytes[0] == kPatTable && store.tables().pat) {
            for (const auto& [program, pid] : store.tables().pat->programs) {
                if (program == 0 || taps.has(pid, kPmtTable)) continue;
                if (!taps.add(pid, kPmtTable, error)) return out;
                if (pmtStarted == Clock::time_point::max()) pmtStarted = Clock::now();
            }
        }
    }
    out.tables = store.tables();
    out.problems = store.problems();
    if (!seen.whole(kPatTable)) out.missing.push_back("PAT");
    if (out.tables.pat) {
        for (const auto& [program, pid] : out.tables.pat->programs) {
            if (program != 0 && out.tables.pmts.count(program) == 0) {
                out.missing.push_back("PMT " + hex4(pid));
            }
        }
    }
    if (!seen.whole(kSdtActualTable)) out.missing.push_back("SDT");
    if (nit && !seen.whole(kNitActualTable)) out.missing.push_back("NIT");
    return out;
}

std::string serviceKind(uint8_t type) {
    switch (type) {
        case 0x01:  // digital television
        case 0x11:  // MPEG-2 HD
        case 0x16:  // H.264 SD
        case 0x19:  // H.264 HD
        case 0x1F:  // HEVC
            return "TV";
        case 0x02:  // digital radio sound
        case 0x0A:  // advanced codec radio
            return "radio";
        default:
            return "data";
    }
}

std::vector<FoundService> servicesOf(const sc::Tables& tables) {
    std::vector<FoundService> services;
    if (!tables.pat) return services;
    for (const auto& [program, pmtPid] : tables.pat->programs) {
        if (program == 0) continue;
        FoundService s;
        s.id = program;
        s.pmtPid = pmtPid;
        s.name = "service " + hex4(program);
        if (tables.sdtActual) {
            const auto named = tables.sdtActual->services.find(program);
            if (named != tables.sdtActual->services.end()) {
                if (!named->second.name.empty()) s.name = named->second.name;
                s.provider = named->second.provider;
                s.type = named->second.type;
                s.scrambled = named->second.freeCaMode;
            }
        }
        const auto pmt = tables.pmts.find(program);
        if (pmt != tables.pmts.end()) {
            s.pcrPid = pmt->second.pcrPid;
            for (const sc::ElementaryStream& es : pmt->second.streams) {
                (isVideo(es.type)   ? s.videoPids
                 : isAudio(es.type) ? s.audioPids
                                    : s.otherPids)
                        .push_back(es.pid);
            }
        }
        // Without an SDT entry, the streams tell what it is.
        if (s.type == 0) s.type = !s.videoPids.empty() ? 0x01 : !s.audioPids.empty() ? 0x02 : 0x0C;
        s.kind = serviceKind(s.type);
        services.push_back(std::move(s));
    }
    return services;
}

}  // namespace tunerctl
