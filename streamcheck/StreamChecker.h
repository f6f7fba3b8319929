// An independent reader of an MPEG transport stream: the ETSI TR 101 290 measurements of
// priorities 1 to 3 and the PSI/SI tables' contents.
//
// Time is stream time: a packet's arrival is its position at the multiplex's constant bit rate
// (given, or measured from the PCRs of the first PID that carries them), as a TS analyser of a
// constant-rate stream reckons it. Not thread-safe: one thread feeds a checker.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <vector>

#include "streamcheck/Packet.h"
#include "streamcheck/PcrClock.h"
#include "streamcheck/Repetition.h"
#include "streamcheck/SectionAssembler.h"
#include "streamcheck/StreamReport.h"
#include "streamcheck/TableStore.h"

namespace mox::streamcheck {

struct Options {
    uint64_t bitRate = 0;          // bits/s of the multiplex; 0: measured from the PCRs
    double pidTimeoutSeconds = 5;  // PID_error: a PID a PMT references unseen for this long
};

class StreamChecker {
  public:
    explicit StreamChecker(Options options = {});

    // One packet of kPacketSize bytes; any other size counts as a sync loss (and one packet).
    void packet(const uint8_t* bytes, size_t size = kPacketSize);
    // Whole packets back to back, any count; bytes left over after the last whole packet count
    // as a sync loss.
    void packets(const uint8_t* bytes, size_t size);
    // What was seen so far; gaps still open at the last packet count when already too long.
    StreamReport report() const;

  private:
    enum class Continuity { Ok, Repeat, Lost };
    struct PidState {
        uint64_t packets = 0;
        uint8_t counter = 0;
        bool counterKnown = false;
        uint8_t repeats = 0;
    };

    Continuity continuity(const PacketHeader& header);
    void pcr(const PacketHeader& header, uint64_t index);
    void pes(const PacketHeader& header, uint64_t index);
    void section(uint16_t pid, const Section& section, uint64_t index);
    // The PIDs the PAT and PMTs reference now: their timers start or stop.
    void followReferences(uint64_t index);
    bool isSectionPid(uint16_t pid) const;
    Timebase timebase() const;

    Options mOptions;
    uint64_t mPacket = 0;  // packets so far; the next one's position
    bool mInSync = false;
    int mGoodSyncs = 0;
    int mBadSyncs = 0;

    FirstPriority mFirst;
    SecondPriority mSecond;
    ThirdPriority mThird;
    uint64_t mMalformedPackets = 0;
    uint64_t mMalformedSections = 0;

    std::vector<PidState> mPids;
    std::map<uint16_t, SectionAssembler> mAssemblers;
    std::vector<Section> mSections;  // scratch: what one packet completed
    TableStore mTables;

    Repetition mPat;
    std::map<uint16_t, Repetition> mPmt;       // by PMT PID
    std::map<uint16_t, Repetition> mPresence;  // by PID a PMT references
    Repetition mNitActual;
    Repetition mSdtActual;
    std::map<uint16_t, Repetition> mEitPresentFollowing;  // by service id
    Repetition mTdt;
    Repetition mTot;
    std::map<uint16_t, Repetition> mPcrRepetition;  // by PID
    std::map<uint16_t, Repetition> mPts;            // by PID
    std::map<uint16_t, PcrClock> mPcrClocks;        // by PID
    int mFirstPcrPid = -1;
    std::set<uint16_t> mElementaryPids;
    // Errors of timers stopped because the PAT or a PMT no longer references their PID.
    uint64_t mRetiredPmtErrors = 0;
    uint64_t mRetiredPidErrors = 0;
};

}  // namespace mox::streamcheck
