// The key slots of one demux: each descrambler that takes the demux as its source holds a slot
// with its control word and the PIDs it clears. The demux owns the table and keeps it under its
// own lock, where its engine asks it to clear packets; descramblers change it only through the
// demux, so the table has no lock of its own and nothing in it points back at a descrambler.
#pragma once

#include <android/hardware/tv/tuner/1.0/types.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "demux/FilterSink.h"

namespace android::hardware::tv::tuner::V1_0::implementation {

class DescramblingKeys : public mox::demux::PacketDescrambler {
  public:
    // The key a CAS session hands over: the payload of a scrambled packet is mixed with it, the
    // payload's byte i with word[i % 8], for the even and the odd key alike.
    using ControlWord = std::array<uint8_t, 8>;
    // Descramblers one demux serves at once, and PIDs one descrambler clears.
    static constexpr size_t kMaxSlots = 16;
    static constexpr size_t kMaxPidsPerSlot = 64;

    // A new slot with no key and no PIDs; nothing when kMaxSlots are taken.
    std::optional<uint32_t> attach();
    void detach(uint32_t slot);
    // Every slot given up (the demux closed).
    void clear();

    void setKey(uint32_t slot, const ControlWord& word);
    // INVALID_STATE for a slot not attached; adding a PID twice keeps it once; UNAVAILABLE
    // past kMaxPidsPerSlot.
    Result addPid(uint32_t slot, uint16_t pid);
    // INVALID_ARGUMENT for a PID the slot does not clear.
    Result removePid(uint32_t slot, uint16_t pid);

    // The first slot with a key that clears the PID clears the packet.
    bool descramble(uint16_t pid, uint8_t* packet) override;

  private:
    struct Slot {
        std::optional<ControlWord> key;
        std::vector<uint16_t> pids;
    };
    Slot* slot(uint32_t id);

    std::array<std::optional<Slot>, kMaxSlots> mSlots;
};

}  // namespace android::hardware::tv::tuner::V1_0::implementation
