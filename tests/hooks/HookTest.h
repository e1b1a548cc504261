// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <android-base/properties.h>
#include <gtest/gtest.h>
#include <ui/Rect.h>

#include <algorithm>
#include <string>
#include <vector>

#include "corvane/hooks.h"
#include "corvane/host/Binder.h"
#include "corvane/host/LogCapture.h"
#include "corvane/host/PerfService.h"
#include "corvane/host/Simulation.h"

namespace corvane::host {

constexpr int64_t kMs = 1'000'000;
constexpr int64_t kSecond = 1'000'000'000;
constexpr int64_t k60Hz = 16'666'667;

// Calls of the hooks for one layer, as the compositor makes them.
struct TestLayer {
    int id;
    std::string package;
    std::string name;
    int pid;
    int uid;

    // Layer N of application "com.example.appN".
    static TestLayer ofApp(int id) {
        const std::string package = "com.example.app" + std::to_string(id);
        return {id, package, package + "/Main#" + std::to_string(id), 1'000 + id, 10'000 + id};
    }

    void queue(bool instant = false) const {
        const ScopedBinderCaller caller(pid, static_cast<uid_t>(uid));
        corvaneTrackBufferIncrement(name.c_str(), id, !instant, 0, 0);
    }
    void latch(bool visible = true, int pending = 0, bool focused = false) const {
        const android::Rect bounds(0, 0, 1080, 2400);
        corvaneTrackBufferDecrement(name.c_str(), id, pending, &bounds, focused, visible);
    }
};

// The library behind its exports, with debug logging and a performance service.
class HookTest : public ::testing::Test {
  protected:
    void SetUp() override {
        set("vendor.perf.corvane.debug", "1");
        ASSERT_TRUE(PerfService::install());
    }
    // In simulated time, whoever watches the property has seen it then.
    static void set(const std::string& property, const std::string& value) {
        ASSERT_TRUE(android::base::SetProperty(property, value));
        if (Simulation::isOn()) Simulation::settle();
    }

    LogCapture mLog;
};

// The same in simulated time.
class SimulatedHookTest : public HookTest {
  protected:
    explicit SimulatedHookTest(const Simulation::Options& options = {}) : mSimulation(options) {}

    // Frames at a steady rate, as far as the library lets them, each latched at once.
    void draw(const TestLayer& layer, int frames, bool visible = true, int pending = 0) {
        for (int i = 0; i < frames; ++i) {
            mNextFrame = std::max(mNextFrame + k60Hz, mSimulation.now() + 1);
            mSimulation.advanceTo(mNextFrame);
            layer.queue();
            layer.latch(visible, pending);
        }
    }

    Simulation mSimulation;
    int64_t mNextFrame = 0;
};

}  // namespace corvane::host
