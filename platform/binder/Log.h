// Includes the platform's log macros (ALOGW, ALOGE, ...) with the carrier's tag.
#pragma once

#include <log/log.h>

#undef LOG_TAG
#define LOG_TAG "binder"
