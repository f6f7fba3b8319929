#include "DescramblingKeys.h"

#include <algorithm>

#include "demux/Limits.h"

namespace android::hardware::tv::tuner::V1_0::implementation {
namespace {

constexpr uint8_t kScramblingBits = 0xC0;  // transport_scrambling_control in header byte 3
constexpr uint8_t kAdaptationBit = 0x20;
constexpr uint8_t kPayloadBit = 0x10;

}  // namespace

std::optional<uint32_t> DescramblingKeys::attach() {
    for (uint32_t id = 0; id < kMaxSlots; ++id) {
        if (!mSlots[id]) {
            mSlots[id].emplace();
            return id;
        }
    }
    return std::nullopt;
}

void DescramblingKeys::detach(uint32_t slot) {
    if (slot < kMaxSlots) mSlots[slot].reset();
}

void DescramblingKeys::clear() {
    for (auto& s : mSlots) s.reset();
}

DescramblingKeys::Slot* DescramblingKeys::slot(uint32_t id) {
    return id < kMaxSlots && mSlots[id] ? &*mSlots[id] : nullptr;
}

void DescramblingKeys::setKey(uint32_t id, const ControlWord& word) {
    if (Slot* s = slot(id)) s->key = word;
}

Result DescramblingKeys::addPid(uint32_t id, uint16_t pid) {
    Slot* s = slot(id);
    if (s == nullptr) return Result::INVALID_STATE;
    if (std::find(s->pids.begin(), s->pids.end(), pid) != s->pids.end()) return Result::SUCCESS;
    if (s->pids.size() >= kMaxPidsPerSlot) return Result::UNAVAILABLE;
    s->pids.push_back(pid);
    return Result::SUCCESS;
}

Result DescramblingKeys::removePid(uint32_t id, uint16_t pid) {
    Slot* s = slot(id);
    if (s == nullptr) return Result::INVALID_STATE;
    auto it = std::find(s->pids.begin(), s->pids.end(), pid);
    if (it == s->pids.end()) return Result::INVALID_ARGUMENT;
    s->pids.erase(it);
    return Result::SUCCESS;
}

bool DescramblingKeys::descramble(uint16_t pid, uint8_t* packet) {
    const ControlWord* word = nullptr;
    for (const auto& s : mSlots) {
        if (s && s->key && std::find(s->pids.begin(), s->pids.end(), pid) != s->pids.end()) {
            word = &*s->key;
            break;
        }
    }
    if (word == nullptr) return false;
    const uint8_t flags = packet[3];
    size_t start = 4;
    if (flags & kAdaptationBit) start = 5 + size_t{packet[4]};
    if (start > mox::demux::kTsPacketSize) return false;
    if (flags & kPayloadBit) {
        // The word starts over at the payload's first byte, after any adaptation field.
        for (size_t i = start; i < mox::demux::kTsPacketSize; ++i) {
            packet[i] ^= (*word)[(i - start) % word->size()];
        }
    }
    packet[3] = static_cast<uint8_t>(flags & ~kScramblingBits);
    return true;
}

}  // namespace android::hardware::tv::tuner::V1_0::implementation
