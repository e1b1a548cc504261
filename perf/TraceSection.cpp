// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "perf/TraceSection.h"

#include <cstdarg>
#include <cstdio>

#include "perf/PerfLog.h"

namespace android {

TraceSection TraceSection::formatted(const char* fmt, ...) {
    char text[kTraceTextSize];
    text[0] = '\0';
    if (PerfProxy::isDebuggable()) {
        va_list args;
        va_start(args, fmt);
        vsnprintf(text, sizeof(text), fmt, args);
        va_end(args);
    }
    return TraceSection(text);
}

}  // namespace android
