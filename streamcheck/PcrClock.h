// One PID's program clock references: jumps, accuracy against the multiplex's constant bit rate,
// and the bit rate they measure.
#pragma once

#include <cstdint>

namespace mox::streamcheck {

class PcrClock {
  public:
    enum class Result { First, Ok, Jump, Inaccurate };

    // A PCR in packet `packet`. `bitRate` 0: the accuracy is judged against a straight line
    // fitted to this PID's earlier PCRs (the rate they measure), else against that rate.
    Result add(uint64_t packet, uint64_t pcr, bool discontinuity, double bitRate);
    // Bits/s over the PCRs since the last new time base; 0 until two of them.
    double measuredBitRate() const;

    // 500 ns at 27 MHz: what a PCR may differ from where the constant rate puts it.
    static constexpr double kAccuracyTicks = 13.5;

  private:
    void restart(uint64_t packet, uint64_t pcr);

    // A least-squares line of ticks over bytes since the time base began, updated in the
    // numerically stable running form.
    struct Fit {
        double n = 0, meanX = 0, meanY = 0, cxx = 0, cxy = 0;
        void add(double x, double y);
        bool ready() const { return n >= 2 && cxx > 0; }
        double slope() const { return cxy / cxx; }
        double at(double x) const { return meanY + slope() * (x - meanX); }
    };

    bool mHave = false;
    uint64_t mLastPcr = 0;
    uint64_t mLastPacket = 0;
    uint64_t mBasePacket = 0;
    uint64_t mTicks = 0;  // since the time base began, unwrapped
    Fit mFit;
    double mLastRate = 0;  // the previous time base's rate, until this one measures its own
};

}  // namespace mox::streamcheck
