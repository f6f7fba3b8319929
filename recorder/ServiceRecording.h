// The service's side of recording a session: the tuner as clients reach it, wrapped so that their
// calls and the callbacks they are sent go to the trace when the process records one.
#pragma once

#include <android/hardware/tv/tuner/1.0/ITuner.h>

namespace mox::trace {

// tuner itself when nothing records, else its recording wrapper.
android::sp<android::hardware::tv::tuner::V1_0::ITuner> recordedTuner(
        const android::sp<android::hardware::tv::tuner::V1_0::ITuner>& tuner);

}  // namespace mox::trace
