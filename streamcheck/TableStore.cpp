#include "streamcheck/TableStore.h"

#include <cstdio>

namespace mox::streamcheck {

namespace {

uint16_t extensionOf(const Section& s) {
    return static_cast<uint16_t>((s.bytes[3] << 8) | s.bytes[4]);
}
bool isCurrent(const Section& s) {
    return (s.bytes[5] & 0x01) != 0;
}
uint8_t sectionNumberOf(const Section& s) {
    return s.bytes[6];
}

// Keeps `table` at the section's version: a new version starts the table's contents afresh.
template <typename Table>
void followVersion(Table& table, bool existed, uint8_t version, bool& fresh) {
    fresh = !existed || table.version != version;
    if (existed && table.version != version) ++table.versionChanges;
    table.version = version;
}

}  // namespace

bool TableStore::isNew(const Section& section) {
    const size_t n = section.bytes.size();
    const uint32_t crc = (uint32_t{section.bytes[n - 4]} << 24) |
                         (uint32_t{section.bytes[n - 3]} << 16) |
                         (uint32_t{section.bytes[n - 2]} << 8) | section.bytes[n - 1];
    const auto key =
            std::make_tuple(section.bytes[0], extensionOf(section), sectionNumberOf(section));
    const auto found = mDecoded.find(key);
    if (found != mDecoded.end() && found->second == crc) return false;
    if (mDecoded.size() >= kMaxRemembered) mDecoded.clear();
    mDecoded[key] = crc;
    return true;
}

void TableStore::addProblems(const char* table, uint16_t pid,
                             const std::vector<std::string>& problems) {
    for (const std::string& problem : problems) {
        ++mProblemCount;
        if (mProblems.size() >= kMaxProblems) continue;
        char where[48];
        snprintf(where, sizeof where, "%s on PID 0x%04X: ", table, pid);
        mProblems.push_back(where + problem);
    }
}

bool TableStore::pat(const Section& section) {
    if (!isCurrent(section) || !isNew(section)) return false;
    ProgramAssociation decoded;
    std::vector<std::string> problems;
    const bool ok = mDecoder.pat(section.bytes, decoded, problems);
    addProblems("PAT", 0x0000, problems);
    if (!ok) return false;
    const bool existed = mTables.pat.has_value();
    if (!existed) mTables.pat.emplace();
    ProgramAssociation& pat = *mTables.pat;
    bool fresh = false;
    followVersion(pat, existed, decoded.version, fresh);
    if (fresh || pat.transportStreamId != decoded.transportStreamId) pat.programs.clear();
    pat.transportStreamId = decoded.transportStreamId;
    for (const auto& [program, pid] : decoded.programs) pat.programs[program] = pid;
    return true;
}

bool TableStore::pmt(uint16_t pid, const Section& section) {
    if (!isCurrent(section) || !isNew(section)) return false;
    ProgramMap decoded;
    std::vector<std::string> problems;
    const bool ok = mDecoder.pmt(section.bytes, decoded, problems);
    addProblems("PMT", pid, problems);
    if (!ok) return false;
    const auto found = mTables.pmts.find(decoded.program);
    const bool existed = found != mTables.pmts.end();
    ProgramMap& pmt = mTables.pmts[decoded.program];
    const uint32_t changes = pmt.versionChanges + (existed && pmt.version != decoded.version);
    pmt = decoded;
    pmt.pid = pid;
    pmt.versionChanges = changes;
    return true;
}

bool TableStore::nitActual(const Section& section) {
    if (!isCurrent(section) || !isNew(section)) return false;
    NetworkInformation decoded;
    std::vector<std::string> problems;
    const bool ok = mDecoder.nit(section.bytes, decoded, problems);
    addProblems("NIT", 0x0010, problems);
    if (!ok) return false;
    const bool existed = mTables.nitActual.has_value();
    if (!existed) mTables.nitActual.emplace();
    NetworkInformation& nit = *mTables.nitActual;
    bool fresh = false;
    followVersion(nit, existed, decoded.version, fresh);
    if (fresh || nit.networkId != decoded.networkId) {
        nit.transportStreams.clear();
        nit.name.clear();
    }
    nit.networkId = decoded.networkId;
    if (!decoded.name.empty()) nit.name = decoded.name;
    for (auto& [id, ts] : decoded.transportStreams) nit.transportStreams[id] = std::move(ts);
    return true;
}

bool TableStore::sdt(const Section& section) {
    if (!isCurrent(section) || !isNew(section)) return false;
    ServiceDescription decoded;
    std::vector<std::string> problems;
    const bool ok = mDecoder.sdt(section.bytes, decoded, problems);
    addProblems("SDT", 0x0011, problems);
    if (!ok) return false;
    ServiceDescription* sdt = nullptr;
    bool existed = false;
    if (section.bytes[0] == 0x42) {
        existed = mTables.sdtActual.has_value();
        if (!existed) mTables.sdtActual.emplace();
        sdt = &*mTables.sdtActual;
    } else {
        existed = mTables.sdtOther.count(decoded.transportStreamId) != 0;
        sdt = &mTables.sdtOther[decoded.transportStreamId];
    }
    bool fresh = false;
    followVersion(*sdt, existed, decoded.version, fresh);
    if (fresh || sdt->transportStreamId != decoded.transportStreamId) sdt->services.clear();
    sdt->transportStreamId = decoded.transportStreamId;
    sdt->originalNetworkId = decoded.originalNetworkId;
    for (auto& [id, service] : decoded.services) sdt->services[id] = std::move(service);
    return true;
}

bool TableStore::eitPresentFollowingActual(const Section& section) {
    if (!isCurrent(section) || !isNew(section)) return false;
    PresentFollowing decoded;
    Event event;
    bool hasEvent = false;
    std::vector<std::string> problems;
    const bool ok = mDecoder.eit(section.bytes, decoded, event, hasEvent, problems);
    addProblems("EIT", 0x0012, problems);
    if (!ok) return false;
    const bool existed = mTables.eitPresentFollowingActual.count(decoded.serviceId) != 0;
    PresentFollowing& pf = mTables.eitPresentFollowingActual[decoded.serviceId];
    bool fresh = false;
    followVersion(pf, existed, decoded.version, fresh);
    if (fresh) {
        pf.present.reset();
        pf.following.reset();
    }
    pf.serviceId = decoded.serviceId;
    pf.transportStreamId = decoded.transportStreamId;
    pf.originalNetworkId = decoded.originalNetworkId;
    std::optional<Event>& slot = sectionNumberOf(section) == 0 ? pf.present : pf.following;
    if (sectionNumberOf(section) <= 1) {
        slot.reset();
        if (hasEvent) slot = event;
    }
    return true;
}

void TableStore::time(const Section& section) {
    int64_t utc = 0;
    std::vector<std::string> problems;
    const bool tdt = section.bytes[0] == 0x70;
    if (TableDecoder::time(section.bytes, utc, problems)) {
        (tdt ? mTables.tdtUtc : mTables.totUtc) = utc;
    }
    addProblems(tdt ? "TDT" : "TOT", 0x0014, problems);
}

}  // namespace mox::streamcheck
