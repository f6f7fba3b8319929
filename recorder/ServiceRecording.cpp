#include "recorder/ServiceRecording.h"

#include "tunerTrace.h"

namespace mox::trace {

android::sp<android::hardware::tv::tuner::V1_0::ITuner> recordedTuner(
        const android::sp<android::hardware::tv::tuner::V1_0::ITuner>& tuner) {
    if (activeSink() == nullptr) return tuner;
    return tuner::RecordingTuner::wrap(tuner, 0);
}

}  // namespace mox::trace
