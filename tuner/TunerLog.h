#pragma once

#include "common/ServiceLog.h"

#define TUNER_TAG TUNER_LOG_TAG_PREFIX "Tuner"
#define TLOG(priority, fmt, ...) SERVICE_LOG(priority, TUNER_TAG, "Tuner", fmt, ##__VA_ARGS__)
#define TLOGD(fmt, ...) TLOG(ANDROID_LOG_DEBUG, fmt, ##__VA_ARGS__)
#define TLOGE(fmt, ...) TLOG(ANDROID_LOG_ERROR, fmt, ##__VA_ARGS__)
