#include "LogCapture.h"

#include <android/log.h>
#include <utils/Mutex.h>

#include <regex>

namespace {

::android::Mutex gLock;
// Never freed: threads that end after main may still log.
std::vector<LogRecord>* gRecords PT_GUARDED_BY(gLock) = new std::vector<LogRecord>();
std::function<void(const LogRecord&)>* gHook PT_GUARDED_BY(gLock) =
        new std::function<void(const LogRecord&)>();

void capture(const struct __android_logger_data* data, const char* message) {
    const LogRecord record{data->priority, data->tag ? data->tag : "", message ? message : ""};
    std::function<void(const LogRecord&)> hook;
    {
        ::android::Mutex::Autolock guard(gLock);
        gRecords->push_back(record);
        hook = *gHook;
    }
    if (hook) hook(record);
}

}  // namespace

LogCapture::LogCapture() {
    clear();
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    __android_log_set_logger(capture);
}

void LogCapture::onRecord(std::function<void(const LogRecord&)> hook) {
    ::android::Mutex::Autolock guard(gLock);
    *gHook = std::move(hook);
}

LogCapture::~LogCapture() {
    onRecord(nullptr);
    __android_log_set_logger(__android_log_stderr_logger);
    __android_log_set_minimum_priority(ANDROID_LOG_INFO);
}

std::vector<LogRecord> LogCapture::records() const {
    ::android::Mutex::Autolock guard(gLock);
    return *gRecords;
}

std::vector<LogRecord> LogCapture::matching(const std::string& pattern) const {
    const std::regex re(pattern);
    std::vector<LogRecord> out;
    for (const LogRecord& r : records()) {
        if (std::regex_search(r.message, re)) out.push_back(r);
    }
    return out;
}

std::vector<std::string> LogCapture::messages(const std::string& pattern) const {
    std::vector<std::string> out;
    for (const LogRecord& r : matching(pattern)) out.push_back(r.message);
    return out;
}

void LogCapture::clear() {
    ::android::Mutex::Autolock guard(gLock);
    gRecords->clear();
}
