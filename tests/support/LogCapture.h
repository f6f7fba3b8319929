// Captures every liblog record (priority, tag, text) through liblog's logger hook.
#pragma once

#include <functional>
#include <string>
#include <vector>

struct LogRecord {
    int priority;
    std::string tag;
    std::string message;
};

class LogCapture {
  public:
    LogCapture();  // captures from now on, at every priority
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LogRecord> records() const;
    // Records whose message matches the regular expression.
    std::vector<LogRecord> matching(const std::string& pattern) const;
    // The message of every record whose message matches, in order.
    std::vector<std::string> messages(const std::string& pattern) const;
    void clear();
    // Runs on the logging thread for every record from now on (nullptr to stop).
    void onRecord(std::function<void(const LogRecord&)> hook);
};
