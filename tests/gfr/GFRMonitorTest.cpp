// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// What the model leaves out: the thread itself, faults, and where hints and tunables go and come
// from.

#include <gtest/gtest.h>
#include <pthread.h>

#include <limits>
#include <string>
#include <vector>

#include "DescriptorLimit.h"
#include "RecordedPriorities.h"
#include "corvane/host/Devices.h"
#include "corvane/host/LogCapture.h"
#include "corvane/host/PerfService.h"
#include "corvane/host/Simulation.h"
#include "corvane/host/Threads.h"
#include "features/FeatureManager.h"
#include "gfr/GFRMonitor.h"

namespace android {
namespace {

using corvane::host::BoostDevice;
using corvane::host::PerfService;
using corvane::host::Simulation;

constexpr nsecs_t kMs = 1'000'000;
constexpr nsecs_t kStart = 1000 * kMs;
constexpr nsecs_t kPeriod = 10 * kMs;
constexpr nsecs_t kFrameTime = 4 * kMs;
constexpr nsecs_t kJankHeadroom = 7 * kMs;
constexpr int kLayer = 7;
constexpr char kPackage[] = "com.example.game";

// A running monitor in simulated time, its one layer active.
class GFRMonitorTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(PerfService::install());
        ASSERT_TRUE(monitor.init());
        monitor.setVsyncInfo(kPeriod, 90);
        addLayer();
    }

    void addLayer() {
        monitor.registerLayer(kLayer, "Game", kPackage);
        monitor.setGFRActive(kLayer, true);
    }

    // A frame whose buffer was queued at once; when its first check is due, after that.
    nsecs_t queueFrame() {
        monitor.onQueueBegin(kLayer, Simulation::now(), kFrameTime, kJankHeadroom);
        monitor.onQueueEnd(kLayer, Simulation::now(), 0.0f);
        const nsecs_t due = Simulation::nextDeadline();
        return due < 0 ? due : due - Simulation::now();
    }

    Simulation simulation{kStart};
    corvane::host::LogCapture log;
    GFRMonitor monitor;
};

TEST_F(GFRMonitorTest, ALateFrameIsBoostedInStagesAndReleasedByTheNext) {
    BoostDevice::enable();
    static std::vector<std::string> hints;
    BoostDevice::setListener([](const corvane::host::BoostRequest& request) {
        char thread[16];
        pthread_getname_np(pthread_self(), thread, sizeof(thread));
        const std::string name = request.level == 0 ? "" : thread;
        hints.push_back(std::to_string(request.level) + " " + std::to_string(request.headroomNs) +
                        " " + std::to_string(request.freqMHz) + " after " +
                        std::to_string((request.timeNs - kStart) / kMs) + name);
    });
    queueFrame();
    Simulation::advance(100 * kMs);
    queueFrame();
    EXPECT_EQ((std::vector<std::string>{"1 7000000 500 after 13BLT", "2 7000000 800 after 16BLT",
                                        "3 7000000 3000 after 19BLT", "0 4000000 0 after 100"}),
              hints);
    BoostDevice::setListener(nullptr);
    monitor.forceStop();
    EXPECT_EQ(RecordedPriorities::ofTheFramePath(), RecordedPriorities::of("BLT"));
}

TEST_F(GFRMonitorTest, WithoutADeviceTheServiceIsAsked) {
    FeatureManager::getInstance()->setGFRProp("1.4;1.7", {1});  // for all packages
    addLayer();
    EXPECT_EQ(14 * kMs, queueFrame());
    Simulation::advance(14 * kMs);
    queueFrame();
    simulation.settle();
    const auto calls = PerfService::calls("perf_event", 4186);
    ASSERT_EQ(2u, calls.size());
    EXPECT_EQ((std::vector<int>{1, static_cast<int>(kJankHeadroom)}), calls[0].args);
    EXPECT_EQ((std::vector<int>{0, static_cast<int>(kFrameTime)}), calls[1].args);
    EXPECT_EQ(kPackage, calls[1].package);
    EXPECT_EQ(kStart + 14 * kMs, calls[0].timeNs);
}

TEST_F(GFRMonitorTest, MayFailToStartAndStartLater) {
    queueFrame();
    monitor.forceStop();
    EXPECT_EQ(-1, Simulation::nextDeadline());
    corvane::host::failThreadCreation(1);
    EXPECT_FALSE(monitor.init());
    EXPECT_EQ(1u, log.count("Failed to create GFRMonitor thread"));
    {
        const ScopedDescriptorLimit none(0);
        EXPECT_FALSE(monitor.init());
    }
    addLayer();
    EXPECT_EQ(-1, queueFrame());
    ASSERT_TRUE(monitor.init());
    EXPECT_EQ(13 * kMs, queueFrame()) << "the layer was registered meanwhile";
}

TEST_F(GFRMonitorTest, TimesAtTheEndsOfTheirRangeDoNotOverflow) {
    constexpr nsecs_t kTimes[] = {std::numeric_limits<nsecs_t>::min(), -1, 1,
                                  std::numeric_limits<nsecs_t>::max()};
    GfrTunables tunables;
    tunables.dynamic = true;
    tunables.flag = 2;
    for (nsecs_t a : kTimes) {
        for (nsecs_t b : kTimes) {
            monitor.setVsyncInfo(a, 0);
            monitor.updateLayerTunables(kLayer, tunables);
            monitor.onQueueBegin(kLayer, a, b, a);
            monitor.onQueueEnd(kLayer, b, 0.0f);
            monitor.onQueueEnd(kLayer, a, std::numeric_limits<float>::infinity());
            monitor.onQueueEnd(kLayer, a, std::numeric_limits<float>::denorm_min());
        }
    }
    Simulation::advance(kMs);
    monitor.forceStop();
}

// The checks of two layers are due at once. One may have been collected already when its layer is
// switched off and on: it must not act any more, in whatever order the threads run.
TEST(GFRMonitorOrders, ACheckThatIsUnderwayDiesWithItsFrame) {
    BoostDevice::enable();
    for (uint64_t seed = 1; seed <= 40; ++seed) {
        Simulation::Options options;
        options.policy = Simulation::Policy::kRandom;
        options.seed = seed;
        Simulation simulation(options);
        GFRMonitor monitor;
        ASSERT_TRUE(monitor.init());
        monitor.setVsyncInfo(kPeriod, 90);
        const nsecs_t now = Simulation::now();
        for (int id : {1, 2}) {
            monitor.registerLayer(id, "Game", kPackage);
            monitor.setGFRActive(id, true);
            monitor.onQueueBegin(id, now, kFrameTime, kJankHeadroom);
            monitor.onQueueEnd(id, now, 0.0f);
        }
        Simulation::sleepUntil(now + 13 * kMs);
        for (int id : {1, 2}) {
            monitor.setGFRActive(id, false);
            monitor.setGFRActive(id, true);
        }
        const size_t before = BoostDevice::requests().size();
        Simulation::advance(100 * kMs);
        EXPECT_EQ(before, BoostDevice::requests().size()) << seed;
        monitor.forceStop();
    }
}

}  // namespace
}  // namespace android
