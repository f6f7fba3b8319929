// One log helper for the service's classes: every line goes through liblog with the class's tag
// and begins with "[Class::function:line]: ".
#pragma once

#include <android/log.h>

#define TUNER_LOG_TAG_PREFIX "android.hardware.tv.tuner@1.0-"

// A helper that works on behalf of an operation names the operation, so the line reads as the
// operation's own.
//
// A line the log would drop is dropped before its arguments are formatted: liblog is asked
// whether the priority is loggable for the tag, as the platform's ALOG macros do.
#define SERVICE_LOG_AS(priority, tag, cls, function, fmt, ...)                               \
    do {                                                                                     \
        if (__android_log_is_loggable(priority, tag, ANDROID_LOG_VERBOSE)) {                 \
            __android_log_print(priority, tag, "[" cls "::%s:%d]: " fmt, function, __LINE__, \
                                ##__VA_ARGS__);                                              \
        }                                                                                    \
    } while (0)

#define SERVICE_LOG(priority, tag, cls, fmt, ...) \
    SERVICE_LOG_AS(priority, tag, cls, __func__, fmt, ##__VA_ARGS__)
