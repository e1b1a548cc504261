// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "corvane/host/Clock.h"
#include "corvane/host/Devices.h"
#include "gfr/GFRMonitor.h"

namespace android {

constexpr nsecs_t kMs = 1'000'000;
constexpr nsecs_t kStart = 1000 * kMs;
constexpr nsecs_t kPeriod = 10 * kMs;
constexpr nsecs_t kFrameTime = 4 * kMs;
constexpr nsecs_t kJankHeadroom = 7 * kMs;  // the frame's deadline is 17 ms after its begin
constexpr int kLayer = 7;
constexpr char kPackage[] = "com.example.game";

// A running monitor on the driven clock, its one layer active.
class MonitorTest : public testing::Test {
  protected:
    void SetUp() override {
        corvane::host::BoostDevice::enable();
        ASSERT_TRUE(monitor.init());
        monitor.setVsyncInfo(kPeriod, 90);
        addLayer();
    }

    void addLayer(int layerId = kLayer) {
        monitor.registerLayer(layerId, "SurfaceView[com.example.game/Main]#7", kPackage);
        monitor.setGFRActive(layerId, true);
    }

    // A frame whose buffer was queued at once.
    void queueFrame(float fps = 0.0f) {
        monitor.onQueueBegin(kLayer, clock.now(), kFrameTime, kJankHeadroom);
        monitor.onQueueEnd(kLayer, clock.now(), fps);
    }

    // Moves the clock to the pending check, which must be due at `timeNs`, and waits until it is
    // done and the one at `next` is armed.
    void runCheckDueAt(nsecs_t timeNs, nsecs_t next) {
        ASSERT_EQ(timeNs, clock.nextDeadline());
        clock.advanceTo(timeNs);
        waitForDeadline(next);
    }

    void waitForDeadline(nsecs_t next) {
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (clock.nextDeadline() != next && std::chrono::steady_clock::now() < limit) {
            std::this_thread::yield();
        }
        ASSERT_EQ(next, clock.nextDeadline());
        settle();
    }

    // The same for a check that sends a hint and leaves nothing armed.
    void runLastCheckDueAt(nsecs_t timeNs) {
        ASSERT_EQ(timeNs, clock.nextDeadline());
        const size_t before = corvane::host::BoostDevice::requests().size();
        clock.advanceTo(timeNs);
        ASSERT_TRUE(corvane::host::BoostDevice::waitForRequests(before + 1));
        settle();
        ASSERT_EQ(-1, clock.nextDeadline());
    }

    // A running check lets go of the monitor's lock last.
    void settle() { monitor.unregisterLayer(-1); }

    // The device's requests as level, headroom and frequency.
    struct Hint {
        int32_t level;
        nsecs_t headroomNs;
        int32_t freqMHz;
        bool operator==(const Hint& o) const {
            return level == o.level && headroomNs == o.headroomNs && freqMHz == o.freqMHz;
        }
        friend std::ostream& operator<<(std::ostream& out, const Hint& h) {
            return out << '{' << h.level << ", " << h.headroomNs << ", " << h.freqMHz << '}';
        }
    };
    static std::vector<Hint> hints() {
        std::vector<Hint> result;
        for (const auto& r : corvane::host::BoostDevice::requests()) {
            result.push_back({r.level, r.headroomNs, r.freqMHz});
        }
        return result;
    }
    static constexpr Hint kRelease{0, kFrameTime, 0};

    corvane::host::DrivenClock clock{kStart};
    GFRMonitor monitor;
};

}  // namespace android
