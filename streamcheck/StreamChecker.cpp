#include "streamcheck/StreamChecker.h"

#include <libdvbv5/crc32.h>

namespace mox::streamcheck {

namespace {

// The PIDs and table ids DVB fixes (ISO/IEC 13818-1, EN 300 468).
constexpr uint16_t kPatPid = 0x0000;
constexpr uint16_t kCatPid = 0x0001;
constexpr uint16_t kNitPid = 0x0010;
constexpr uint16_t kSdtPid = 0x0011;
constexpr uint16_t kEitPid = 0x0012;
constexpr uint16_t kTimePid = 0x0014;
constexpr uint8_t kStuffingTable = 0x72;  // ST: may stand in for any SI section

// TR 101 290's limits, in seconds.
constexpr double kPatMax = 0.5;                // 1.3: PAT at least every 0.5 s
constexpr double kPmtMax = 0.5;                // 1.5: each PMT at least every 0.5 s
constexpr double kPcrMax = 0.040;              // 2.3a: PCR at least every 40 ms (DVB)
constexpr double kPtsMax = 0.700;              // 2.5: PTS at least every 700 ms
constexpr double kNitActualMax = 10;           // 3.1.a
constexpr double kSdtActualMax = 2;            // 3.5.a
constexpr double kEitPresentFollowingMax = 2;  // 3.6.a, per service (sub-table)
constexpr double kTdtMax = 30;                 // 3.8
// EN 300 468 / TS 101 211: at least 25 ms from the last byte of a section to the first byte of
// the next one of the same sub-table (PID, table_id, table_id_extension), any section number.
constexpr double kSectionSpacingMin = 0.025;

// Sync as TR 101 290 reckons it: acquired after 5 good sync bytes in a row, lost after 2 bad.
constexpr int kSyncAcquire = 5;
constexpr int kSyncLose = 2;

// The tables whose CRC TR 101 290 checks (CRC_error): PAT, CAT, PMT, NIT, SDT, BAT, EIT, TOT.
bool crcChecked(uint8_t table) {
    return table <= 0x02 || table == 0x40 || table == 0x41 || table == 0x42 || table == 0x46 ||
           table == 0x4A || (table >= 0x4E && table <= 0x6F) || table == 0x73;
}

// Stream ids whose PES packets have no optional header (ISO/IEC 13818-1 table 2-21): no PTS.
bool hasPesHeader(uint8_t streamId) {
    switch (streamId) {
        case 0xBC:
        case 0xBE:
        case 0xBF:
        case 0xF0:
        case 0xF1:
        case 0xF2:
        case 0xF8:
        case 0xFF:
            return false;
        default:
            return true;
    }
}

bool isFixedSectionPid(uint16_t pid) {
    return pid == kPatPid || pid == kCatPid || pid == kNitPid || pid == kSdtPid || pid == kEitPid ||
           pid == kTimePid;
}

uint64_t sum(const std::map<uint16_t, Repetition>& timers, uint64_t now, const Timebase& tb) {
    uint64_t errors = 0;
    for (const auto& [key, timer] : timers) errors += timer.errors(now, tb);
    return errors;
}

std::map<uint16_t, Interval> intervals(const std::map<uint16_t, Repetition>& timers,
                                       const Timebase& tb) {
    std::map<uint16_t, Interval> out;
    for (const auto& [key, timer] : timers) out[key] = timer.interval(tb);
    return out;
}

}  // namespace

StreamChecker::StreamChecker(Options options)
    : mOptions(options),
      mPids(kNullPid + 1),
      mPat(kPatMax),
      mNitActual(kNitActualMax, kSectionSpacingMin),
      mSdtActual(kSdtActualMax, kSectionSpacingMin),
      mTdt(kTdtMax, kSectionSpacingMin) {
    // The stream must bring these from its first packet on.
    mPat.arm(0);
    mNitActual.arm(0);
    mSdtActual.arm(0);
    mTdt.arm(0);
}

Timebase StreamChecker::timebase() const {
    if (mOptions.bitRate > 0) return Timebase{static_cast<double>(mOptions.bitRate)};
    if (mFirstPcrPid < 0) return Timebase{};
    return Timebase{mPcrClocks.at(static_cast<uint16_t>(mFirstPcrPid)).measuredBitRate()};
}

void StreamChecker::packets(const uint8_t* bytes, size_t size) {
    size_t at = 0;
    for (; size - at >= kPacketSize; at += kPacketSize) packet(bytes + at, kPacketSize);
    if (at < size) packet(bytes + at, size - at);
}

void StreamChecker::packet(const uint8_t* bytes, size_t size) {
    const uint64_t index = mPacket++;
    if (bytes == nullptr || size != kPacketSize) {
        ++mFirst.tsSyncLoss;
        mInSync = false;
        mGoodSyncs = 0;
        mBadSyncs = 0;
        return;
    }
    if (bytes[0] != kSyncByte) {
        ++mFirst.syncByteError;
        mGoodSyncs = 0;
        if (++mBadSyncs >= kSyncLose && mInSync) {
            ++mFirst.tsSyncLoss;
            mInSync = false;
        }
        return;
    }
    mBadSyncs = 0;
    if (!mInSync && ++mGoodSyncs >= kSyncAcquire) mInSync = true;

    PacketHeader header;
    const bool whole = parsePacket(bytes, header);
    const uint16_t pid = header.pid;
    ++mPids[pid].packets;
    if (!whole) ++mMalformedPackets;
    if (header.transportError) ++mSecond.transportError;
    if (const auto presence = mPresence.find(pid); presence != mPresence.end()) {
        presence->second.occur(index, index, timebase());
    }
    if (header.scrambling != 0) {
        // PSI is never scrambled; scrambled data needs a CAT to find its entitlements.
        if (pid == kPatPid) ++mFirst.patError;
        if (mPmt.count(pid) != 0) ++mFirst.pmtError;
        if (!mTables.tables().catSeen) ++mSecond.catError;
    }
    const Continuity counter = continuity(header);

    const bool sectionPid = isSectionPid(pid);
    // A corrupt or lost packet leaves the section under way incomplete.
    if (sectionPid && (counter == Continuity::Lost || header.transportError || !whole)) {
        mAssemblers[pid].lose();
    }
    if (header.transportError || !whole || counter == Continuity::Repeat) return;
    if (header.hasPcr) pcr(header, index);
    if (!header.hasPayload() || header.scrambling != 0) return;
    if (sectionPid) {
        mSections.clear();
        mAssemblers[pid].push(header.payload, header.payloadSize, header.unitStart, index,
                              mSections);
        // Handling a section may change which PIDs carry sections: work on a copy.
        const std::vector<Section> completed = std::move(mSections);
        for (const Section& s : completed) section(pid, s, index);
    } else if (header.unitStart && mElementaryPids.count(pid) != 0) {
        pes(header, index);
    }
}

StreamChecker::Continuity StreamChecker::continuity(const PacketHeader& header) {
    if (header.pid == kNullPid) return Continuity::Ok;  // its counter means nothing
    PidState& state = mPids[header.pid];
    // The discontinuity_indicator allows the counter to start anew.
    if (header.discontinuity) state.counterKnown = false;
    // Packets without payload do not advance the counter.
    if (!header.hasPayload()) return Continuity::Ok;
    if (!state.counterKnown) {
        state.counterKnown = true;
        state.counter = header.continuityCounter;
        state.repeats = 0;
        return Continuity::Ok;
    }
    if (header.continuityCounter == state.counter) {
        // One repetition of a packet is allowed; a packet that comes a third time is an error.
        if (++state.repeats >= 2) ++mFirst.continuityCountError;
        return Continuity::Repeat;
    }
    const bool next = header.continuityCounter == ((state.counter + 1) & 0xF);
    state.counter = header.continuityCounter;
    state.repeats = 0;
    if (next) return Continuity::Ok;
    ++mFirst.continuityCountError;
    return Continuity::Lost;
}

void StreamChecker::pcr(const PacketHeader& header, uint64_t index) {
    if (mFirstPcrPid < 0) mFirstPcrPid = header.pid;
    const PcrClock::Result result = mPcrClocks[header.pid].add(
            index, header.pcr, header.discontinuity, static_cast<double>(mOptions.bitRate));
    if (result == PcrClock::Result::Jump) ++mSecond.pcrDiscontinuityIndicatorError;
    if (result == PcrClock::Result::Inaccurate) ++mSecond.pcrAccuracyError;
    mPcrRepetition.try_emplace(header.pid, kPcrMax).first->second.occur(index, index, timebase());
}

void StreamChecker::pes(const PacketHeader& header, uint64_t index) {
    const uint8_t* p = header.payload;
    const size_t n = header.payloadSize;
    // packet_start_code_prefix, stream_id, length, '10' flags, PTS_DTS_flags, header length, PTS
    if (n < 14 || p[0] != 0 || p[1] != 0 || p[2] != 1 || !hasPesHeader(p[3])) return;
    if ((p[6] & 0xC0) != 0x80 || (p[7] & 0x80) == 0 || p[8] < 5) return;
    mPts.try_emplace(header.pid, kPtsMax).first->second.occur(index, index, timebase());
}

bool StreamChecker::isSectionPid(uint16_t pid) const {
    return isFixedSectionPid(pid) || mPmt.count(pid) != 0;
}

void StreamChecker::section(uint16_t pid, const Section& s, uint64_t index) {
    const std::vector<uint8_t>& b = s.bytes;
    const uint8_t table = b[0];
    const bool syntax = (b[1] & 0x80) != 0;
    // The fixed fields: a long header and CRC, a TOT's time, loop length and CRC, a TDT's time.
    const size_t least = syntax ? 12 : table == 0x73 ? 14 : table == 0x70 ? 8 : 3;
    // Every table with a CRC but the TOT has the long header.
    const bool longHeaderMissing = crcChecked(table) && table != 0x73 && !syntax;
    if (b.size() < least || longHeaderMissing) {
        ++mMalformedSections;
        return;
    }
    if (crcChecked(table) && (syntax || table == 0x73)) {
        // Over the whole section with its CRC, the CRC-32 of MPEG comes out 0.
        std::vector<uint8_t> copy = b;
        if (dvb_crc32(copy.data(), copy.size(), 0xFFFFFFFF) != 0) {
            ++mSecond.crcError;
            return;
        }
    }
    const Timebase tb = timebase();
    switch (pid) {
        case kPatPid:
            if (table != 0x00) {
                ++mFirst.patError;
                return;
            }
            mPat.occur(s.firstPacket, s.lastPacket, tb);
            if (mTables.pat(s)) followReferences(index);
            return;
        case kCatPid:
            if (table != 0x01) {
                ++mSecond.catError;
                return;
            }
            mTables.cat();
            return;
        case kNitPid:
            if (table == 0x40) {
                mNitActual.occur(s.firstPacket, s.lastPacket, tb);
                mTables.nitActual(s);
            } else if (table != 0x41 && table != kStuffingTable) {
                ++mThird.nitActualError;
            }
            return;
        case kSdtPid:
            if (table == 0x42) {
                mSdtActual.occur(s.firstPacket, s.lastPacket, tb);
                if (mTables.sdt(s)) followReferences(index);
            } else if (table == 0x46) {
                mTables.sdt(s);
            } else if (table != 0x4A && table != kStuffingTable) {
                ++mThird.sdtActualError;
            }
            return;
        case kEitPid:
            if (table == 0x4E) {
                const uint16_t service = static_cast<uint16_t>((b[3] << 8) | b[4]);
                auto& timer =
                        mEitPresentFollowing
                                .try_emplace(service, kEitPresentFollowingMax, kSectionSpacingMin)
                                .first->second;
                // Section 0 (the present event) must come every 2 s; both keep the spacing.
                timer.occur(s.firstPacket, s.lastPacket, tb, b[6] == 0);
                mTables.eitPresentFollowingActual(s);
            } else if (table < 0x4F || table > 0x6F) {
                if (table != kStuffingTable) ++mThird.eitActualError;
            }
            return;
        case kTimePid:
            if (table == 0x70) {
                mTdt.occur(s.firstPacket, s.lastPacket, tb);
                mTables.time(s);
            } else if (table == 0x73) {
                mTot.occur(s.firstPacket, s.lastPacket, tb);
                mTables.time(s);
            } else if (table != kStuffingTable) {
                ++mThird.tdtError;
            }
            return;
        default:
            // A PMT PID may carry other private sections too.
            if (const auto timer = mPmt.find(pid); timer != mPmt.end() && table == 0x02) {
                timer->second.occur(s.firstPacket, s.lastPacket, tb);
                if (mTables.pmt(pid, s)) followReferences(index);
            }
            return;
    }
}

void StreamChecker::followReferences(uint64_t index) {
    const Tables& tables = mTables.tables();
    const Timebase tb = timebase();
    std::set<uint16_t> pmtPids;
    std::set<uint16_t> programs;
    if (tables.pat) {
        for (const auto& [program, pid] : tables.pat->programs) {
            if (program == 0) continue;  // the network PID, not a PMT
            pmtPids.insert(pid);
            programs.insert(program);
        }
    }
    for (auto it = mPmt.begin(); it != mPmt.end();) {
        if (pmtPids.count(it->first) != 0) {
            ++it;
            continue;
        }
        mRetiredPmtErrors += it->second.errors(mPacket, tb);
        if (!isFixedSectionPid(it->first)) mAssemblers.erase(it->first);
        it = mPmt.erase(it);
    }
    for (uint16_t pid : pmtPids) mPmt.try_emplace(pid, kPmtMax).first->second.arm(index);

    std::set<uint16_t> elementary;
    for (const auto& [program, pmt] : tables.pmts) {
        if (programs.count(program) == 0) continue;
        for (const ElementaryStream& es : pmt.streams) elementary.insert(es.pid);
        if (pmt.pcrPid != kNullPid) {
            mPcrRepetition.try_emplace(pmt.pcrPid, kPcrMax).first->second.arm(index);
        }
    }
    for (auto it = mPresence.begin(); it != mPresence.end();) {
        if (elementary.count(it->first) != 0) {
            ++it;
            continue;
        }
        mRetiredPidErrors += it->second.errors(mPacket, tb);
        it = mPresence.erase(it);
    }
    for (uint16_t pid : elementary) {
        mPresence.try_emplace(pid, mOptions.pidTimeoutSeconds).first->second.arm(index);
    }
    mElementaryPids = std::move(elementary);

    // A service the SDT says has EIT present/following must have it every 2 s.
    if (tables.sdtActual) {
        for (const auto& [id, service] : tables.sdtActual->services) {
            if (!service.eitPresentFollowing) continue;
            mEitPresentFollowing.try_emplace(id, kEitPresentFollowingMax, kSectionSpacingMin)
                    .first->second.arm(index);
        }
    }
}

StreamReport StreamChecker::report() const {
    const Timebase tb = timebase();
    const uint64_t now = mPacket;
    StreamReport r;
    r.first = mFirst;
    r.first.patError += mPat.errors(now, tb);
    r.first.pmtError += mRetiredPmtErrors + sum(mPmt, now, tb);
    r.first.pidError += mRetiredPidErrors + sum(mPresence, now, tb);
    r.second = mSecond;
    r.second.pcrRepetitionError += sum(mPcrRepetition, now, tb);
    r.second.ptsError += sum(mPts, now, tb);
    r.third = mThird;
    r.third.nitActualError += mNitActual.errors(now, tb);
    r.third.sdtActualError += mSdtActual.errors(now, tb);
    r.third.eitActualError += sum(mEitPresentFollowing, now, tb);
    r.third.tdtError += mTdt.errors(now, tb);

    r.repetitions.pat = mPat.interval(tb);
    r.repetitions.pmt = intervals(mPmt, tb);
    r.repetitions.nitActual = mNitActual.interval(tb);
    r.repetitions.sdtActual = mSdtActual.interval(tb);
    r.repetitions.eitPresentFollowingActual = intervals(mEitPresentFollowing, tb);
    r.repetitions.tdt = mTdt.interval(tb);
    r.repetitions.tot = mTot.interval(tb);
    r.repetitions.pcr = intervals(mPcrRepetition, tb);
    r.repetitions.pts = intervals(mPts, tb);

    r.tables = mTables.tables();
    r.totalPackets = now;
    for (size_t pid = 0; pid < mPids.size(); ++pid) {
        if (mPids[pid].packets != 0)
            r.packetsPerPid[static_cast<uint16_t>(pid)] = mPids[pid].packets;
    }
    r.bitRate = tb.bitRate;
    if (mFirstPcrPid >= 0) {
        r.measuredBitRate = mPcrClocks.at(static_cast<uint16_t>(mFirstPcrPid)).measuredBitRate();
    }
    r.durationSeconds = tb.seconds(now);
    r.malformedPackets = mMalformedPackets;
    r.malformedSections = mMalformedSections;
    for (const auto& [pid, assembler] : mAssemblers) r.malformedSections += assembler.malformed();
    r.problems = mTables.problems();
    r.problemCount = mTables.problemCount();
    return r;
}

}  // namespace mox::streamcheck
