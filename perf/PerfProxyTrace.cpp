// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// The trace and log wrappers. They sit on per-frame paths: one relaxed load when debugging is off,
// and no allocation ever.

#include <android/log.h>
#include <cutils/trace.h>

#include <cstdarg>
#include <cstdio>

#include "perf/PerfLog.h"
#include "perf/PerfProxy.h"

namespace android {

Relaxed<bool> PerfProxy::sDebuggable{false};
Relaxed<bool> PerfProxy::sProfileable{false};

void collapseDoubledPercents(char* text) {
    char* out = text;
    for (const char* in = text; *in != '\0'; ++in) {
        if (in[0] == '%' && in[1] == '%') ++in;
        *out++ = *in;
    }
    *out = '\0';
}

void PerfProxy::setDebuggable(bool debuggable, bool profileable) {
    sDebuggable = debuggable;
    sProfileable = profileable;
}

void PerfProxy::VLOGD(const char* tag, const char* fmt, ...) {
    if (!sDebuggable) return;
    va_list args;
    va_start(args, fmt);
    __android_log_vprint(ANDROID_LOG_DEBUG, tag, fmt, args);
    va_end(args);
}

void PerfProxy::VTRACE_BEGIN(const char* name) {
    if (!sDebuggable) return;
    atrace_begin(ATRACE_TAG_GRAPHICS, name);
}

void PerfProxy::VTRACE_END() {
    if (!sDebuggable) return;
    atrace_end(ATRACE_TAG_GRAPHICS);
}

void PerfProxy::VTRACE_ASYNC_BEGIN(const char* name, int cookie) {
    if (!sDebuggable) return;
    atrace_async_begin(ATRACE_TAG_GRAPHICS, name, cookie);
}

void PerfProxy::VTRACE_ASYNC_END(const char* name, int cookie) {
    if (!sDebuggable) return;
    atrace_async_end(ATRACE_TAG_GRAPHICS, name, cookie);
}

void PerfProxy::VTRACE_NAME(const char* name) {
    if (!sDebuggable) return;
    atrace_begin(ATRACE_TAG_GRAPHICS, name);
    atrace_end(ATRACE_TAG_GRAPHICS);
}

void PerfProxy::VTRACE_FORMAT(const char* fmt, ...) {
    if (!sDebuggable) return;
    char text[kTraceTextSize] = {};
    va_list args;
    va_start(args, fmt);
    vsnprintf(text, sizeof(text), fmt, args);
    va_end(args);
    VTRACE_NAME(text);
}

void PerfProxy::VTRACE_PROFILE(const char* fmt, ...) {
    if (!sDebuggable) return;
    char text[kTraceTextSize] = {};
    va_list args;
    va_start(args, fmt);
    vsnprintf(text, sizeof(text), fmt, args);
    va_end(args);

    atrace_begin(ATRACE_TAG_GRAPHICS, text);
    if (sProfileable) {
        collapseDoubledPercents(text);
        __android_log_print(ANDROID_LOG_DEBUG, kPerfLogTag, "%s", text);
    }
    atrace_end(ATRACE_TAG_GRAPHICS);
}

}  // namespace android
