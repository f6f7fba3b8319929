// A session trace as a replay reads it: every record checked when the file is read, so a bad
// trace ends with FILE:LINE and what is wrong before anything runs.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "recorder/DriverFunctions.h"

namespace mox::trace {

struct TraceRecord {
    enum class Kind { Driver, Call, Return, Callback, End };
    Kind kind = Kind::End;
    int line = 0;
    uint64_t timeUs = 0;
    uint32_t thread = 0;
    // A driver call.
    DriverFunction function = DriverFunction::Init;
    int64_t target = 0;
    int64_t value = 0;
    int32_t result = 0;
    std::string in;   // the record passed in; for a buffer the driver fills, zeros unless recorded
    std::string out;  // the record the driver filled
    // A client call, its return, or a callback.
    std::string method;  // "IFrontend.tune"
    uint32_t object = 0;
    nlohmann::json members;  // the arguments, or the results
    bool transportError = false;
    size_t returnIndex = SIZE_MAX;  // a call's return record, if the trace has it
    // The record as the trace has it, without its time and thread: what a divergence shows.
    std::string text;
};

struct Trace {
    std::string name;          // the file, as divergences name it
    std::string capabilities;  // the capability record of the header, empty when null
    std::vector<TraceRecord> records;
    bool ended = false;  // the recording process wrote its end record
};

// Reads text (the file `name`) into trace; on a bad trace returns false with "name:line: what".
bool parseTrace(const std::string& text, const std::string& name, Trace& trace, std::string& error);
bool readTrace(const std::string& path, Trace& trace, std::string& error);

// The channel a driver call keeps its order in: "tuner 0", "lnb 1", "path 16", "driver".
std::string channelOf(DriverFunction function, int64_t target);

}  // namespace mox::trace
