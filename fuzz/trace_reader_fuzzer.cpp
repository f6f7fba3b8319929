// Any bytes as a trace file: the reader accepts it or names a line and what is wrong; it never
// crashes, and what it accepts holds records of the sizes their functions have.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "recorder/DriverFunctions.h"
#include "replay/Trace.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    mox::trace::Trace trace;
    std::string error;
    if (!mox::trace::parseTrace(text, "fuzz", trace, error)) {
        if (error.rfind("fuzz:", 0) != 0) abort();  // every error names the file and line
        return 0;
    }
    for (const auto& r : trace.records) {
        if (r.kind != mox::trace::TraceRecord::Kind::Driver) continue;
        const auto& info = mox::trace::infoOf(r.function);
        if (r.out.size() != info.outSize) abort();
        if (r.in.size() != (info.inSize != 0 ? info.inSize : info.outSize)) abort();
    }
    return 0;
}
