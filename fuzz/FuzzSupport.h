// What the fuzzers share: frontend settings of any alternative built from the input, the one
// service a fuzzer process keeps, and the end of an input (no scan thread outlives it).
#pragma once

#include <android/hardware/tv/tuner/1.0/IFrontendCallback.h>
#include <android/hardware/tv/tuner/1.0/types.h>
#include <fuzzer/FuzzedDataProvider.h>

#include <type_traits>

#include "tuner/Tuner.h"

namespace fuzz {

namespace hal = ::android::hardware::tv::tuner::V1_0;

template <typename E>
E anyEnum(FuzzedDataProvider& input) {
    return static_cast<E>(input.ConsumeIntegral<std::underlying_type_t<E>>());
}

// Settings holding any alternative; the three the service translates get every field from the
// input, the others a frequency.
hal::FrontendSettings anySettings(FuzzedDataProvider& input);

// A client callback that checks every scan message it gets (one frequency per FREQUENCY
// message, progress at most 100).
::android::sp<hal::IFrontendCallback> checkingCallback();

// Waits until a scan the frontend runs has ended by itself (in virtual time, at once).
void waitForScanEnd(const ::android::sp<hal::IFrontend>& frontend);

// The process's one Tuner, discovered on the fixed box (fuzzers share the service the way a
// device process does, so nothing they create is unreachable).
const ::android::sp<hal::implementation::Tuner>& service();

// Closes and stops every frontend of the service from this thread, which waits for every scan
// thread, so no driver call or callback comes after the input.
void settleService();

}  // namespace fuzz
