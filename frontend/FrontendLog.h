#pragma once

#include "common/ServiceLog.h"

#define FRONTEND_LOG(priority, fmt, ...) \
    SERVICE_LOG(priority, TUNER_LOG_TAG_PREFIX "Frontend", "Frontend", fmt, ##__VA_ARGS__)
#define FLOGD(fmt, ...) FRONTEND_LOG(ANDROID_LOG_DEBUG, fmt, ##__VA_ARGS__)
#define FLOGE(fmt, ...) FRONTEND_LOG(ANDROID_LOG_ERROR, fmt, ##__VA_ARGS__)

// The scan thread's helpers log as the scan loop itself.
#define SCAN_LOG(priority, fmt, ...)                                      \
    SERVICE_LOG_AS(priority, TUNER_LOG_TAG_PREFIX "Frontend", "Frontend", \
                   "frontendScanThreadLoop", fmt, ##__VA_ARGS__)
