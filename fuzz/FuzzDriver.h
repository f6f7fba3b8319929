// A driver whose every answer comes from the fuzzer's input: each call takes its result code and
// the bytes of the record it fills from the input, in call order. Once the input is used up every
// call succeeds and fills zeros.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <optional>

#include "driver/MoxTuner.h"

namespace fuzz {

// The answers for one input; calls made after endInput() (none should be) read nothing.
void beginInput(FuzzedDataProvider& input);
void endInput();

// When set, GetCapabilities answers this record with success instead of reading the input.
void setFixedCapabilities(std::optional<MOX_TunerCapability_t> capability);

// A record with two DVB-T/T2 channels, a DVB-C channel and a DVB-S/S2 channel with two LNBs.
MOX_TunerCapability_t boxCapabilities();

}  // namespace fuzz
