// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cutils/trace.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "RandomSteps.h"
#include "corvane/host/Simulation.h"
#include "corvane/host/TraceCapture.h"

namespace android {

// What a model says that the library logs and traces, in its order.
struct ModelLines {
    std::vector<std::string> logs, traces;

  protected:
    template <typename... Args>
    void log(const char* format, Args... args) {
        logs.push_back(formatted(format, args...));
    }
    template <typename... Args>
    void trace(const char* format, Args... args) {
        traces.push_back(formatted(format, args...));
    }
};

// The trace events that the process emits while `action` runs: their type and all that follows the
// process id.
inline std::vector<std::string> tracedEvents(const std::function<void()>& action) {
    const std::string path = ::testing::TempDir() + "events." + std::to_string(getpid());
    EXPECT_TRUE(corvane::host::startTrace(path, ATRACE_TAG_GRAPHICS));
    action();
    corvane::host::stopTrace();
    std::vector<std::string> events;
    std::ifstream file(path);
    const std::string marker = "tracing_mark_write: ";
    const std::string pid = "|" + std::to_string(corvane::host::Simulation::processId());
    for (std::string line; std::getline(file, line);) {
        const size_t at = line.find(marker);
        if (at == std::string::npos) continue;
        std::string event = line.substr(at + marker.size());
        event.erase(event.find(pid), pid.size());
        events.push_back(std::move(event));
    }
    remove(path.c_str());
    return events;
}

}  // namespace android
