// A frontend's whole stream read through a demux of this client and checked as it comes: what
// `status --stream` shows beside the RF figures, once or at every sample of a watch.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "DataPath.h"
#include "streamcheck/StreamChecker.h"

namespace tunerctl {

class StreamSampler {
  public:
    // A demux bound to the frontend with a whole-stream recording started; null with the reason.
    static std::unique_ptr<StreamSampler> open(const sp<hal::ITuner>& tuner, uint32_t frontendId,
                                               std::string& error);
    ~StreamSampler();
    StreamSampler(const StreamSampler&) = delete;
    StreamSampler& operator=(const StreamSampler&) = delete;

    // Reads the stream for `period`, less when Ctrl-C comes.
    void collect(std::chrono::milliseconds period);

    struct Sample {
        // Packet counts since the previous sample; error counts since the sampler opened.
        ::mox::streamcheck::StreamReport report;
        double seconds = 0;  // since the previous sample (or the opening)
    };
    Sample sample();

  private:
    StreamSampler() = default;
    std::unique_ptr<DemuxSession> mSession;
    std::unique_ptr<Recorder> mRecorder;
    ::mox::streamcheck::StreamChecker mChecker;
    ::mox::streamcheck::StreamReport mPrevious;
    std::chrono::steady_clock::time_point mSampledAt;
};

}  // namespace tunerctl
