// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// What the model leaves out: the thread itself, faults, where hints and tunables go and come from,
// and numbers that nothing sensible brings about.

#include <gtest/gtest.h>
#include <pthread.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "DescriptorLimit.h"
#include "RandomSteps.h"
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
constexpr int kLayer = 7;
constexpr char kPackage[] = "com.example.game";
constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr int32_t kMaxInt = std::numeric_limits<int32_t>::max();
constexpr nsecs_t kMaxNs = std::numeric_limits<nsecs_t>::max();
constexpr nsecs_t kMinNs = std::numeric_limits<nsecs_t>::min();

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

    // A frame whose buffer was queued at once; when its first check is due.
    nsecs_t queueFrame() {
        monitor.onQueueBegin(kLayer, Simulation::now(), 4 * kMs, 7 * kMs);
        monitor.onQueueEnd(kLayer, Simulation::now(), 0.0f);
        return Simulation::nextDeadline();
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
        hints.push_back(formatted("%d %d %d after %ld ms", request.level, request.headroomNs,
                                  request.freqMHz, (request.timeNs - kStart) / kMs) +
                        (request.level > 0 ? thread : ""));
    });
    queueFrame();
    Simulation::advance(100 * kMs);
    queueFrame();
    const std::vector<std::string> expected = {"1 7000000 500 after 13 msBLT",
                                               "2 7000000 800 after 16 msBLT",
                                               "3 7000000 3000 after 19 msBLT",
                                               "0 4000000 0 after 100 ms"};
    EXPECT_EQ(expected, hints);
    BoostDevice::setListener(nullptr);
    EXPECT_EQ(RecordedPriorities::ofTheFramePath(), RecordedPriorities::of("BLT"));
}

TEST_F(GFRMonitorTest, WithoutADeviceTheServiceIsAsked) {
    FeatureManager::getInstance()->setGFRProp("1.4;1.7", {1});  // for all packages
    addLayer();
    EXPECT_EQ(kStart + 14 * kMs, queueFrame());
    Simulation::advance(14 * kMs);
    queueFrame();
    simulation.settle();
    const auto calls = PerfService::calls("perf_event", 4186);
    ASSERT_EQ(2u, calls.size());
    EXPECT_EQ((std::vector<int>{1, 7'000'000}), calls[0].args);
    EXPECT_EQ((std::vector<int>{0, 4'000'000}), calls[1].args);
    EXPECT_EQ(kPackage, calls[1].package);
    EXPECT_EQ(kStart + 14 * kMs, calls[0].timeNs);
}

TEST_F(GFRMonitorTest, MayFailToStartAndStartLater) {
    monitor.forceStop();
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
    EXPECT_EQ(kStart + 13 * kMs, queueFrame()) << "the layer was registered meanwhile";
}

TEST_F(GFRMonitorTest, TimesAtTheEndsOfTheirRangeDoNotOverflow) {
    GfrTunables tunables;
    tunables.dynamic = true;
    tunables.flag = 2;
    for (nsecs_t a : {kMinNs, nsecs_t{-1}, nsecs_t{1}, kMaxNs}) {
        for (nsecs_t b : {kMinNs, nsecs_t{-1}, nsecs_t{1}, kMaxNs}) {
            monitor.setVsyncInfo(a, 0);
            monitor.updateLayerTunables(kLayer, tunables);
            monitor.onQueueBegin(kLayer, a, b, a);
            monitor.onQueueEnd(kLayer, b, 0.0f);
            monitor.onQueueEnd(kLayer, a, kInfinity);
            monitor.onQueueEnd(kLayer, a, std::numeric_limits<float>::denorm_min());
        }
    }
    Simulation::advance(kMs);
    monitor.forceStop();
}

FrameDeadlines at(nsecs_t period, float fps = 0.0f, const GfrTunables& tunables = {}) {
    FrameDeadlines deadlines;
    deadlines.update(period, fps, tunables, /*resendVariation=*/0.25f, /*force=*/false);
    return deadlines;
}

TEST(GFRArithmeticTest, BoostsEndAtTheirLimits) {
    FrameDeadlines deadlines = at(kPeriod);  // golden: 6 ms
    GfrTunables tunables;
    const auto boost = [&](nsecs_t ttd, int32_t base) {
        const BoostDecision decision = calculateFrequencyByTTD(deadlines, tunables, ttd, base);
        return std::pair(decision.freqMHz, decision.flags);
    };
    EXPECT_EQ(std::pair(500, 0x004u), boost(12 * kMs, 500));
    EXPECT_EQ(std::pair(1000, 0x008u), boost(6 * kMs, 500));
    EXPECT_EQ(std::pair(kMaxInt, 0x008u), boost(0, kMaxInt));
    EXPECT_EQ(std::pair(kMaxInt, 0x008u), boost(kMinNs, 500));
    tunables.kFactor = std::nanf("");
    EXPECT_EQ(std::pair(0, 0x008u), boost(0, 500));
    tunables.kFactor = 1.0f;
    deadlines.goldenNs = kMaxNs;
    EXPECT_EQ(std::pair(1000, 0x008u), boost(0, 500));
    const FrameDropWindow window;
    BoostInputs inputs(deadlines, tunables, window);
    inputs.level = -1;
    EXPECT_FALSE(decideBoost(inputs));
    deadlines.periodNs = 0;
    EXPECT_EQ(std::pair(500, 0x800u), boost(0, 500));
}

TEST(GFRArithmeticTest, DropsAndDeadlinesEndAtTheirLimits) {
    FrameDropWindow window;
    for (int none : {0, -5, std::numeric_limits<int>::min()}) {
        window.record(1);
        EXPECT_TRUE(window.record(none));
        EXPECT_EQ(0, window.dropsAmong(1)) << none;
    }
    EXPECT_EQ(3, window.dropsAmong(64));

    EXPECT_EQ(16'666'667, at(kPeriod, 60.0f).periodNs);  // 1e9 / 60 in float, truncated
    for (float none : {-40.0f, std::nanf(""), kInfinity}) {
        EXPECT_EQ(none == kInfinity ? -1 : kPeriod, at(kPeriod, none).periodNs) << none;
    }
    GfrTunables tunables;
    tunables.jankThresholds = {1.3f, kInfinity, -1e30f, std::nanf("")};
    tunables.golden = -kInfinity;
    const FrameDeadlines d = at(kMaxNs, 0.0f, tunables);
    EXPECT_EQ((std::vector<nsecs_t>{kMaxNs, kMaxNs, kMinNs, 0}), d.jankDeadlinesNs);
    EXPECT_EQ(kMinNs, d.goldenNs);
}

}  // namespace
}  // namespace android
