// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "corvane/host/LogCapture.h"

#include <android/log.h>
#include <utils/Timers.h>

#include <algorithm>
#include <iterator>
#include <mutex>
#include <utility>

#include "corvane/host/Simulation.h"

namespace corvane::host {
namespace {

struct Captured {
    std::mutex mutex;
    std::vector<LogLine> lines;
    std::function<void(const LogLine&)> sink;
    int previousPriority = ANDROID_LOG_DEFAULT;
};

// Never destroyed: the library's detached threads may log until the process ends.
Captured& captured() {
    static auto* instance = new Captured;
    return *instance;
}

void capture(const __android_logger_data* data, const char* message) {
    LogLine line{data->priority, data->tag == nullptr ? "" : data->tag, message,
                 systemTime(SYSTEM_TIME_MONOTONIC)};
    // liblog holds a lock of its own around this call, which no simulation knows.
    const Simulation::Uninterrupted turn;
    Captured& c = captured();
    const std::lock_guard<std::mutex> lock(c.mutex);
    if (c.sink) {
        c.sink(line);
    } else {
        c.lines.push_back(std::move(line));
    }
}

bool contains(const LogLine& line, const std::string& text) {
    return line.text.find(text) != std::string::npos;
}

}  // namespace

LogCapture::LogCapture() {
    clear();
    captured().previousPriority = __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    __android_log_set_logger(capture);
}

LogCapture::~LogCapture() {
    __android_log_set_logger(__android_log_stderr_logger);
    __android_log_set_minimum_priority(captured().previousPriority);
    setSink(nullptr);
}

void LogCapture::setSink(std::function<void(const LogLine&)> sink) {
    const Simulation::Uninterrupted turn;
    Captured& c = captured();
    const std::lock_guard<std::mutex> lock(c.mutex);
    c.sink = std::move(sink);
    if (!c.sink) return;
    for (const LogLine& line : std::exchange(c.lines, {})) c.sink(line);
}

std::vector<LogLine> LogCapture::lines() const {
    const Simulation::Uninterrupted turn;
    Captured& c = captured();
    const std::lock_guard<std::mutex> lock(c.mutex);
    return c.lines;
}

std::vector<LogLine> LogCapture::matching(const std::string& text) const {
    const Simulation::Uninterrupted turn;
    Captured& c = captured();
    const std::lock_guard<std::mutex> lock(c.mutex);
    std::vector<LogLine> result;
    std::copy_if(c.lines.begin(), c.lines.end(), std::back_inserter(result),
                 [&](const LogLine& line) { return contains(line, text); });
    return result;
}

void LogCapture::clear() {
    const Simulation::Uninterrupted turn;
    Captured& c = captured();
    const std::lock_guard<std::mutex> lock(c.mutex);
    c.lines.clear();
}

}  // namespace corvane::host
