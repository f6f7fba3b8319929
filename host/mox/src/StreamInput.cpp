#include "StreamInput.h"

#include <atomic>

namespace mox::host {
namespace {

std::atomic<StreamInput*> gInput{nullptr};

}  // namespace

void setStreamInput(StreamInput* input) {
    gInput.store(input);
}

StreamInput* streamInput() {
    return gInput.load();
}

}  // namespace mox::host
