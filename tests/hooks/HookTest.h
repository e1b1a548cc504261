// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <android-base/properties.h>
#include <gtest/gtest.h>
#include <ui/Rect.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "corvane/hooks.h"
#include "corvane/host/Binder.h"
#include "corvane/host/Clock.h"
#include "corvane/host/LogCapture.h"
#include "corvane/host/PerfService.h"

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
    static void set(const std::string& property, const std::string& value) {
        ASSERT_TRUE(android::base::SetProperty(property, value));
    }

    LogCapture mLog;
};

// The same on a clock that only the test moves.
class ClockedHookTest : public HookTest {
  protected:
    DrivenClock mClock{1'000 * kSecond};
};

// It moves as frames are drawn.
class DrivenHookTest : public ClockedHookTest {
  protected:
    // Moves time on to whatever is waited for until the condition holds; false when that has not
    // happened within ten real seconds.
    bool advanceUntil(const std::function<bool()>& condition) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!condition()) {
            if (std::chrono::steady_clock::now() > end) return false;
            const int64_t deadline = mClock.nextDeadline();
            if (deadline > mClock.now()) mClock.advanceTo(deadline);
            std::this_thread::yield();
        }
        return true;
    }
    // A frame is queued on a thread of its own, since the library may hold it back; while it does,
    // time moves on to whatever is waited for. Returns for how long it was held.
    int64_t queue(const TestLayer& layer) {
        std::atomic<bool> done{false};
        const int64_t begin = mClock.now();
        std::thread producer([&] {
            layer.queue();
            done = true;
        });
        while (!done) {
            // A check of frame rescue that is due later must not hurry the frame.
            const int64_t deadline = mClock.sleepers() > 0 ? mClock.nextDeadline() : -1;
            if (deadline > mClock.now()) mClock.advanceTo(deadline);
            std::this_thread::yield();
        }
        producer.join();
        return mClock.now() - begin;
    }
    // Frames at a steady rate, as far as the library lets them, each latched at once.
    void draw(const TestLayer& layer, int frames, int64_t interval = k60Hz, bool visible = true) {
        for (int i = 0; i < frames; ++i) {
            mNextFrame = std::max(mNextFrame + interval, mClock.now() + 1);
            mClock.advanceTo(mNextFrame);
            queue(layer);
            layer.latch(visible);
        }
    }
    // From nothing to an accepted frame rate: half a second to be tracked, a second to be measured.
    void settle(const TestLayer& layer, int64_t interval = k60Hz) {
        mNextFrame = mClock.now();
        draw(layer, static_cast<int>(kSecond * 17 / 10 / interval), interval);
    }

    int64_t mNextFrame = 0;
};

}  // namespace corvane::host
