// How often one thing comes (a table, a sub-table, a PID's PCRs or PTSs), measured in packet
// positions and judged in seconds once the bit rate is known.
#pragma once

#include <cstdint>
#include <vector>

#include "streamcheck/StreamReport.h"

namespace mox::streamcheck {

// Packet positions to seconds at the multiplex's bit rate (0: not known yet).
struct Timebase {
    double bitRate = 0;
    bool known() const { return bitRate > 0; }
    double seconds(uint64_t packets) const;
};

class Repetition {
  public:
    // Largest allowed gap between occurrences (0: none), and the smallest gap between the end of
    // one occurrence and the start of the next (0: none).
    explicit Repetition(double maxSeconds = 0, double minSeconds = 0)
        : mMaxSeconds(maxSeconds), mMinSeconds(minSeconds) {}

    // From `packet` on it is expected: a gap counts from there until the first occurrence.
    void arm(uint64_t packet);
    bool armed() const { return mArmed; }
    // An occurrence from packet `first` to packet `last`. `forMax` false: it counts only for the
    // smallest gap (EIT p/f: section 1 keeps the sub-table's spacing, section 0 its presence).
    void occur(uint64_t first, uint64_t last, const Timebase& timebase, bool forMax = true);

    // The gaps beyond the limits so far, with the one still open at `now`.
    uint64_t errors(uint64_t now, const Timebase& timebase) const;
    Interval interval(const Timebase& timebase) const;

  private:
    struct Gap {
        uint64_t packets;
        bool tooShort;  // a min-gap measurement; else a max-gap one
    };
    bool judge(const Gap& gap, const Timebase& timebase) const;
    void record(const Gap& gap, const Timebase& timebase);

    // Gaps seen before the bit rate was known wait to be judged (a bounded number).
    static constexpr size_t kMaxPending = 1024;

    double mMaxSeconds;
    double mMinSeconds;
    bool mArmed = false;
    bool mSeen = false;     // an occurrence counted for the max since arming
    bool mSeenAny = false;  // an occurrence of any kind
    uint64_t mLastForMax = 0;
    uint64_t mLastEnd = 0;
    uint64_t mCount = 0;
    uint64_t mLargest = 0;
    uint64_t mSmallest = 0;
    bool mHasInterval = false;
    uint64_t mErrors = 0;
    std::vector<Gap> mPending;
};

}  // namespace mox::streamcheck
