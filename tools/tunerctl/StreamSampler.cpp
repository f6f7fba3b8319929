#include "StreamSampler.h"

#include "StreamHealth.h"
#include "TunerClient.h"

namespace tunerctl {

using Clock = std::chrono::steady_clock;

std::unique_ptr<StreamSampler> StreamSampler::open(const sp<hal::ITuner>& tuner,
                                                   uint32_t frontendId, std::string& error) {
    std::unique_ptr<StreamSampler> s(new StreamSampler());
    s->mSession = DemuxSession::open(tuner, error);
    if (!s->mSession || !s->mSession->bindFrontend(frontendId, error)) return nullptr;
    s->mRecorder = Recorder::start(s->mSession->demux(), {kWholeStream}, error);
    if (!s->mRecorder) return nullptr;
    s->mSampledAt = Clock::now();
    return s;
}

StreamSampler::~StreamSampler() {
    if (mRecorder) mRecorder->stop();
}

void StreamSampler::collect(std::chrono::milliseconds period) {
    const Clock::time_point end = Clock::now() + period;
    while (!interrupted() && Clock::now() < end) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
        mRecorder->pump(std::min(left, std::chrono::milliseconds(50)),
                        [&](const uint8_t* data, size_t size) { mChecker.packets(data, size); });
    }
}

StreamSampler::Sample StreamSampler::sample() {
    const Clock::time_point now = Clock::now();
    Sample s;
    const ::mox::streamcheck::StreamReport latest = mChecker.report();
    s.report = packetsSince(latest, mPrevious);
    s.seconds = std::chrono::duration<double>(now - mSampledAt).count();
    mPrevious = latest;
    mSampledAt = now;
    return s;
}

}  // namespace tunerctl
