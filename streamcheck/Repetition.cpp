#include "streamcheck/Repetition.h"

#include <algorithm>

#include "streamcheck/Packet.h"

namespace mox::streamcheck {

double Timebase::seconds(uint64_t packets) const {
    return known() ? static_cast<double>(packets) * kPacketSize * 8 / bitRate : 0;
}

void Repetition::arm(uint64_t packet) {
    if (mArmed) return;
    mArmed = true;
    mSeen = false;
    mLastForMax = packet;
}

void Repetition::occur(uint64_t first, uint64_t last, const Timebase& timebase, bool forMax) {
    if (mSeenAny && mMinSeconds > 0 && first >= mLastEnd) {
        record(Gap{first - mLastEnd, true}, timebase);
    }
    if (forMax) {
        const uint64_t gap = last - std::min(last, mLastForMax);
        if (mArmed && mMaxSeconds > 0) record(Gap{gap, false}, timebase);
        // The largest and smallest intervals are between two occurrences only.
        if (mSeen) {
            if (!mHasInterval || gap > mLargest) mLargest = gap;
            if (!mHasInterval || gap < mSmallest) mSmallest = gap;
            mHasInterval = true;
        }
        mSeen = true;
        mArmed = true;
        mLastForMax = last;
        ++mCount;
    }
    mSeenAny = true;
    mLastEnd = last;
}

bool Repetition::judge(const Gap& gap, const Timebase& timebase) const {
    const double seconds = timebase.seconds(gap.packets);
    return gap.tooShort ? seconds < mMinSeconds : seconds > mMaxSeconds;
}

void Repetition::record(const Gap& gap, const Timebase& timebase) {
    if (!timebase.known()) {
        if (mPending.size() < kMaxPending) mPending.push_back(gap);
        return;
    }
    for (const Gap& pending : mPending) mErrors += judge(pending, timebase) ? 1 : 0;
    mPending.clear();
    mErrors += judge(gap, timebase) ? 1 : 0;
}

uint64_t Repetition::errors(uint64_t now, const Timebase& timebase) const {
    if (!timebase.known()) return mErrors;
    uint64_t errors = mErrors;
    for (const Gap& pending : mPending) errors += judge(pending, timebase) ? 1 : 0;
    if (mArmed && mMaxSeconds > 0 && now > mLastForMax &&
        judge(Gap{now - mLastForMax, false}, timebase)) {
        ++errors;
    }
    return errors;
}

Interval Repetition::interval(const Timebase& timebase) const {
    Interval interval;
    interval.count = mCount;
    if (mHasInterval) {
        interval.largestSeconds = timebase.seconds(mLargest);
        interval.smallestSeconds = timebase.seconds(mSmallest);
    }
    return interval;
}

}  // namespace mox::streamcheck
