// Any bytes as a transport stream into the checker, then its report. The first byte chooses:
// bit 0, a given bit rate (else measured from the PCRs); bit 1, every packet's sync byte
// forced (so the fuzzer reaches past the sync check).
#include <cstddef>
#include <cstdint>
#include <vector>

#include "streamcheck/StreamChecker.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    mox::streamcheck::Options options;
    if (data[0] & 1) options.bitRate = 188 * 8 * 1000;
    std::vector<uint8_t> stream(data + 1, data + size);
    if (data[0] & 2) {
        for (size_t at = 0; at < stream.size(); at += mox::streamcheck::kPacketSize) {
            stream[at] = mox::streamcheck::kSyncByte;
        }
    }
    mox::streamcheck::StreamChecker checker(options);
    checker.packets(stream.data(), stream.size());
    const mox::streamcheck::StreamReport report = checker.report();
    // A report counts every packet slot it was given, whole or not.
    if (report.totalPackets != (stream.size() + 187) / 188) __builtin_trap();
    return 0;
}
