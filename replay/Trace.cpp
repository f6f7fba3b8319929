#include "replay/Trace.h"

#include <fstream>
#include <sstream>

#include "recorder/TraceRecorder.h"
#include "tunerTraceRead.h"

namespace mox::trace {
namespace {

class LineError {
  public:
    explicit LineError(std::string what) : mWhat(std::move(what)) {}
    const std::string& what() const { return mWhat; }

  private:
    std::string mWhat;
};

uint64_t unsignedMember(const nlohmann::json& record, const char* name) {
    const auto it = record.find(name);
    if (it == record.end()) throw LineError(std::string("\"") + name + "\" is missing");
    if (!it->is_number_unsigned() && !(it->is_number_integer() && it->get<int64_t>() >= 0)) {
        throw LineError(std::string("\"") + name + "\" is not a whole number");
    }
    return it->get<uint64_t>();
}

int64_t integerMember(const nlohmann::json& record, const char* name) {
    const auto it = record.find(name);
    if (it == record.end()) throw LineError(std::string("\"") + name + "\" is missing");
    if (!it->is_number_integer())
        throw LineError(std::string("\"") + name + "\" is not an integer");
    if (it->is_number_unsigned() && it->get<uint64_t>() > INT64_MAX) {
        throw LineError(std::string("\"") + name + "\" is out of range");
    }
    return it->get<int64_t>();
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// The bytes of a hex member, which must be `size` bytes long.
std::string hexMember(const nlohmann::json& value, const char* name, size_t size) {
    if (!value.is_string()) throw LineError(std::string("\"") + name + "\" is not a hex string");
    const std::string& hex = value.get_ref<const std::string&>();
    std::string bytes;
    for (size_t i = 0; i + 1 < hex.size(); i += 2) {
        const int high = hexDigit(hex[i]);
        const int low = hexDigit(hex[i + 1]);
        if (high < 0 || low < 0) {
            throw LineError(std::string("\"") + name + "\" has a character that is not hex at " +
                            std::to_string(i + (high < 0 ? 0 : 1)));
        }
        bytes += static_cast<char>(high * 16 + low);
    }
    if (hex.size() % 2 != 0)
        throw LineError(std::string("\"") + name + "\" has an odd number of hex digits");
    if (bytes.size() != size) {
        throw LineError(std::string("\"") + name + "\" holds " + std::to_string(bytes.size()) +
                        " bytes; the record has " + std::to_string(size));
    }
    return bytes;
}

DriverFunction functionNamed(const std::string& name) {
    for (size_t i = 0; i < kDriverFunctionCount; ++i) {
        if (name == kDriverFunctions[i].name) return static_cast<DriverFunction>(i);
    }
    throw LineError("unknown driver function \"" + name + "\"");
}

void readDriver(const nlohmann::json& json, TraceRecord& r) {
    const auto& name = json.at("driver");
    if (!name.is_string()) throw LineError("\"driver\" is not a function's name");
    r.kind = TraceRecord::Kind::Driver;
    r.function = functionNamed(name.get<std::string>());
    const DriverFunctionInfo& info = infoOf(r.function);
    if (info.target != Target::None) r.target = integerMember(json, targetName(info.target));
    if (info.value != nullptr) r.value = integerMember(json, info.value);
    const int64_t result = integerMember(json, "result");
    if (result < INT32_MIN || result > INT32_MAX) throw LineError("\"result\" is out of range");
    r.result = static_cast<int32_t>(result);
    const auto in = json.find("in");
    const size_t inSize = info.inSize != 0 ? info.inSize : info.outSize;
    if (in != json.end()) {
        if (inSize == 0) throw LineError(std::string(info.name) + " passes no record");
        r.in = hexMember(*in, "in", inSize);
    } else if (info.inSize != 0) {
        throw LineError("\"in\" is missing");
    } else {
        r.in.assign(info.outSize, '\0');
    }
    if (info.outSize != 0) {
        const auto out = json.find("out");
        if (out == json.end()) throw LineError("\"out\" is missing");
        r.out = hexMember(*out, "out", info.outSize);
    }
}

const nlohmann::json& objectMember(const nlohmann::json& json, const char* name) {
    const auto it = json.find(name);
    if (it == json.end()) throw LineError(std::string("\"") + name + "\" is missing");
    if (!it->is_object()) throw LineError(std::string("\"") + name + "\" is not an object");
    return *it;
}

void readInterface(const nlohmann::json& json, TraceRecord& r, const char* kind) {
    const auto& method = json.at(kind);
    if (!method.is_string())
        throw LineError(std::string("\"") + kind + "\" is not a method's name");
    r.method = method.get<std::string>();
    const uint64_t object = unsignedMember(json, "object");
    if (object == 0 || object > UINT32_MAX) throw LineError("\"object\" is not an object's number");
    r.object = static_cast<uint32_t>(object);
    const bool isCallback =
            r.method.rfind("IFrontendCallback.", 0) == 0 || r.method.rfind("ILnbCallback.", 0) == 0;
    if (std::string(kind) == "callback") {
        r.kind = TraceRecord::Kind::Callback;
        if (!isCallback || !tuner::knownMethod(r.method)) {
            throw LineError("\"" + r.method + "\" is not a callback");
        }
        r.members = objectMember(json, "args");
        return;
    }
    if (isCallback || !tuner::knownMethod(r.method)) {
        throw LineError("unknown method \"" + r.method + "\"");
    }
    std::vector<android::sp<android::hidl::base::V1_0::IBase>> unused;
    std::string error;
    if (std::string(kind) == "call") {
        r.kind = TraceRecord::Kind::Call;
        r.members = objectMember(json, "args");
        if (!tuner::invoke(nullptr, r.method, r.members, false, unused, error)) {
            throw LineError("the arguments of " + r.method + " do not read: " + error);
        }
        return;
    }
    r.kind = TraceRecord::Kind::Return;
    if (json.contains("transportError")) {
        r.transportError = true;
        return;
    }
    r.members = objectMember(json, "results");
}

void readHeader(const std::string& line, Trace& trace) {
    const nlohmann::json header = nlohmann::json::parse(line, nullptr, false);
    if (header.is_discarded() || !header.is_object() || header.value("trace", "") != "mox-tuner") {
        throw LineError("not a trace: the first line does not name a mox-tuner trace");
    }
    const int64_t version = integerMember(header, "version");
    if (version > kFormatVersion) {
        throw LineError("format version " + std::to_string(version) +
                        " is newer than this replay reads (" + std::to_string(kFormatVersion) + ")");
    }
    if (version < 1)
        throw LineError("format version " + std::to_string(version) + " does not exist");
    const auto caps = header.find("capabilities");
    if (caps == header.end()) throw LineError("\"capabilities\" is missing");
    if (!caps->is_null()) {
        trace.capabilities =
                hexMember(*caps, "capabilities", infoOf(DriverFunction::GetCapabilities).outSize);
    }
}

void readRecord(const std::string& line, TraceRecord& r) {
    nlohmann::json json = nlohmann::json::parse(line, nullptr, false);
    if (json.is_discarded()) throw LineError("not a JSON record");
    if (!json.is_object()) throw LineError("a record is a JSON object");
    r.timeUs = unsignedMember(json, "t");
    const char* kinds[] = {"driver", "call", "return", "callback", "end"};
    const char* kind = nullptr;
    for (const char* k : kinds) {
        if (!json.contains(k)) continue;
        if (kind != nullptr)
            throw LineError(std::string("a record is one thing, not \"") + kind + "\" and \"" + k +
                            "\"");
        kind = k;
    }
    if (kind == nullptr)
        throw LineError("a record names a driver call, a call, a return, a callback or the end");
    if (std::string(kind) == "end") {
        r.kind = TraceRecord::Kind::End;
        return;
    }
    const uint64_t thread = unsignedMember(json, "thread");
    if (thread > UINT32_MAX) throw LineError("\"thread\" is out of range");
    r.thread = static_cast<uint32_t>(thread);
    if (std::string(kind) == "driver") {
        readDriver(json, r);
    } else {
        readInterface(json, r, kind);
    }
    // Shown as the trace has it, in its order, without time and thread.
    nlohmann::ordered_json shown = nlohmann::ordered_json::parse(line);
    shown.erase("t");
    shown.erase("thread");
    r.text = shown.dump();
}

// Each call's return: the next return on the same thread of the same method and object.
void pairCalls(Trace& trace) {
    auto& records = trace.records;
    for (size_t i = 0; i < records.size(); ++i) {
        if (records[i].kind != TraceRecord::Kind::Call) continue;
        for (size_t j = i + 1; j < records.size(); ++j) {
            const TraceRecord& r = records[j];
            if (r.thread != records[i].thread) continue;
            if (r.kind == TraceRecord::Kind::Return && r.method == records[i].method &&
                r.object == records[i].object) {
                records[i].returnIndex = j;
            }
            if (r.kind == TraceRecord::Kind::Return || r.kind == TraceRecord::Kind::Call) break;
        }
    }
}

}  // namespace

std::string channelOf(DriverFunction function, int64_t target) {
    const Target kind = infoOf(function).target;
    if (kind == Target::None) return "driver";
    return std::string(targetName(kind)) + " " + std::to_string(target);
}

bool parseTrace(const std::string& text, const std::string& name, Trace& trace, std::string& error) {
    trace = Trace{};
    trace.name = name;
    int lineNumber = 0;
    size_t at = 0;
    try {
        if (text.empty()) {
            lineNumber = 1;
            throw LineError("not a trace: the file is empty");
        }
        while (at < text.size()) {
            ++lineNumber;
            const size_t end = text.find('\n', at);
            if (end == std::string::npos)
                throw LineError("truncated: the last record does not end");
            const std::string line = text.substr(at, end - at);
            at = end + 1;
            if (lineNumber == 1) {
                readHeader(line, trace);
                continue;
            }
            if (trace.ended) throw LineError("a record after the end record");
            TraceRecord record;
            record.line = lineNumber;
            readRecord(line, record);
            if (record.kind == TraceRecord::Kind::End) {
                trace.ended = true;
                continue;
            }
            trace.records.push_back(std::move(record));
        }
    } catch (const LineError& e) {
        error = name + ":" + std::to_string(lineNumber) + ": " + e.what();
        return false;
    } catch (const nlohmann::json::exception& e) {
        error = name + ":" + std::to_string(lineNumber) + ": " + e.what();
        return false;
    }
    pairCalls(trace);
    return true;
}

bool readTrace(const std::string& path, Trace& trace, std::string& error) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        error = path + ": cannot be read";
        return false;
    }
    std::ostringstream text;
    text << file.rdbuf();
    return parseTrace(text.str(), path, trace, error);
}

}  // namespace mox::trace
