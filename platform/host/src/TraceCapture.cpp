// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "corvane/host/TraceCapture.h"

#include <cutils/trace.h>
#include <sched.h>
#include <sys/prctl.h>
#include <unistd.h>
#include <utils/Timers.h>

#include <atomic>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <mutex>

#include "corvane/host/Simulation.h"

namespace {

using corvane::host::Simulation;

std::atomic<uint64_t> sTags{0};  // 0 while off

struct TraceFile {
    std::mutex mutex;
    FILE* file = nullptr;
    int error = 0;  // of the first write that failed

    void note(bool failed) {
        if (failed && error == 0) error = errno;
    }
};

// Never destroyed: the library's detached threads may trace until the process ends.
TraceFile& traceFile() {
    static auto* instance = new TraceFile;
    return *instance;
}

// A name is a field of one line.
std::string oneLine(const char* name) {
    std::string text = name;
    for (char& c : text) {
        if (c == '\n' || c == '\r') c = ' ';
    }
    return text;
}

int processor() {
    return Simulation::isOn() ? 0 : sched_getcpu();
}

// Writes one event as the kernel prints what a process wrote to trace_marker.
void write(const std::string& event) {
    char thread[16] = {};  // the kernel's limit
    prctl(PR_GET_NAME, thread);
    TraceFile& trace = traceFile();
    const std::lock_guard<std::mutex> lock(trace.mutex);
    if (trace.file == nullptr) return;
    // Read under the lock, so that the lines are in the order of their times.
    const int64_t us = systemTime(SYSTEM_TIME_MONOTONIC) / 1'000;
    const int written = fprintf(trace.file,
                                "%16s-%-7d (%7d) [%03d] .... %6" PRId64 ".%06" PRId64
                                ": tracing_mark_write: %s\n",
                                thread, gettid(), Simulation::processId(), processor(),
                                us / 1'000'000, us % 1'000'000, event.c_str());
    trace.note(written < 0);
}

// "TYPE|pid|name", the beginning of every event but the end of a slice.
std::string event(char type, const char* name) {
    return std::string(1, type) + "|" + std::to_string(Simulation::processId()) + "|" +
           oneLine(name);
}

bool isOff() {
    return sTags.load(std::memory_order_relaxed) == 0;
}

}  // namespace

namespace corvane::host {

bool startTrace(const std::string& path, uint64_t tags) {
    stopTrace();
    TraceFile& trace = traceFile();
    const std::lock_guard<std::mutex> lock(trace.mutex);
    trace.file = fopen(path.c_str(), "we");
    if (trace.file == nullptr) return false;
    trace.error = 0;
    trace.note(fputs("# tracer: nop\n#\n"
                     "#           TASK-PID        TGID    CPU#  ||||   TIMESTAMP  FUNCTION\n",
                     trace.file) == EOF);
    sTags.store(tags, std::memory_order_relaxed);
    return true;
}

int stopTrace() {
    TraceFile& trace = traceFile();
    const std::lock_guard<std::mutex> lock(trace.mutex);
    sTags.store(0, std::memory_order_relaxed);
    if (trace.file == nullptr) return 0;
    trace.note(fclose(trace.file) != 0);
    trace.file = nullptr;
    return trace.error;
}

}  // namespace corvane::host

// The platform's header declares the bodies only inside its inline functions.
extern "C" {

void atrace_setup() {}
void atrace_init() {}
void atrace_update_tags() {}
void atrace_set_debuggable(bool /*debuggable*/) {}
void atrace_set_tracing_enabled(bool /*enabled*/) {}

uint64_t atrace_get_enabled_tags() {
    return sTags.load(std::memory_order_relaxed);
}

void atrace_begin_body(const char* name) {
    if (!isOff()) write(event('B', name));
}

void atrace_end_body() {
    if (!isOff()) write("E|" + std::to_string(Simulation::processId()));
}

void atrace_async_begin_body(const char* name, int32_t cookie) {
    if (!isOff()) write(event('S', name) + "|" + std::to_string(cookie));
}

void atrace_async_end_body(const char* name, int32_t cookie) {
    if (!isOff()) write(event('F', name) + "|" + std::to_string(cookie));
}

void atrace_int64_body(const char* name, int64_t value) {
    if (!isOff()) write(event('C', name) + "|" + std::to_string(value));
}

void atrace_int_body(const char* name, int32_t value) {
    atrace_int64_body(name, value);
}

}  // extern "C"
