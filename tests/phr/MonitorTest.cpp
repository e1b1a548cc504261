// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <android/log.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "corvane/host/Threads.h"
#include "phr/Headroom.h"
#include "phr/MonitorFixture.h"

namespace android {
namespace {

bool hasThread(const std::string& name) {
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string comm;
        std::ifstream(task.path() / "comm") >> comm;
        if (comm == name) return true;
    }
    return false;
}

using MonitorTest = PhrMonitorTest;

TEST_F(MonitorTest, FailedThreadStartLeavesItIdle) {
    corvane::host::failThreadCreation(1);
    EXPECT_FALSE(monitor.init());
    const auto failures = log.matching("PHRMonitor thread creation failed");
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0].priority, ANDROID_LOG_ERROR);
    EXPECT_EQ(failures[0].tag, "Corvane.PHRMonitor");
    monitor.setVsyncInfo(kPeriod, 60);
    state = addLayer(kLayer, kRate);
    monitor.setQuickTouchStatus(kLayer, true);
    state->mLastLatchTime = kStart;
    monitor.onVsync(clock.now());
    ASSERT_TRUE(returns(queue()));  // nobody would release it
    monitor.forceStop();
    EXPECT_EQ(log.count("stopped"), 0u);
    monitor.unregisterLayer(kLayer);
    start();  // the next try may succeed
    EXPECT_TRUE(monitor.init());
}

TEST_F(MonitorTest, StopsOnceAndMayStartAgain) {
    start();
    EXPECT_TRUE(hasThread("PHR"));
    monitor.onVsync(clock.now());  // of nobody: does not wake the thread
    monitor.setQuickTouchStatus(kLayer, true);
    clock.advance(kMs);
    monitor.onVsync(clock.now());
    ASSERT_TRUE(clock.waitForSleepers(1));
    EXPECT_EQ(clock.nextDeadline(), kStart + kMs + kPeriod - kHeadroom);
    monitor.forceStop();
    monitor.forceStop();
    EXPECT_EQ(log.count("PHRMonitor stopped"), 1u);
    EXPECT_EQ(log.count("PHRMonitor thread exited"), 1u);
    EXPECT_EQ(monitor.getLayerState(kLayer), nullptr);

    ASSERT_TRUE(monitor.init());
    const sp<LayerPHRState> other = addLayer(8, kRate);
    monitor.setQuickTouchStatus(8, true);  // the focus is free again
    EXPECT_TRUE(other->mQuickTouchActive);
    monitor.onVsync(clock.now());
    EXPECT_TRUE(clock.waitForSleepers(1));
}

TEST_F(MonitorTest, PeriodAndRateClassDeriveTheHeadroom) {
    start();
    EXPECT_EQ(log.count("Layer 7 set headroom: 4000000"), 1u);
    EXPECT_EQ(maxHeadroom(),
              headroomAtRate(FeatureManager::getInstance()->getDefaultMaxHeadroomRate(false),
                             kPeriod));
    monitor.updateHeadRoom(kLayer, -1, 0.5f);
    EXPECT_EQ(state->mHeadroom, kHeadroom);
    monitor.setVsyncInfo(kPeriod, 120);  // the period decides whether anything is new
    monitor.updateHeadRoom(kLayer, -1, -1);
    EXPECT_EQ(state->mHeadroom, kHeadroom);
    monitor.setVsyncInfo(kPeriod / 2, 61);
    EXPECT_EQ(state->mHeadroom, kPeriod / 4);
    log.clear();
    monitor.updateHeadRoom(kLayer, 0.75f, 0);
    EXPECT_EQ(state->mHeadroom, kPeriod / 4);
    EXPECT_EQ(log.count("set headroom"), 0u);
}

}  // namespace
}  // namespace android
