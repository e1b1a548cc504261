// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// What the model leaves out: orders within one call, faults, and numbers that nothing sensible
// brings about.

#include <android/log.h>
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <string>
#include <thread>

#include "RecordedPriorities.h"
#include "corvane/host/LogCapture.h"
#include "corvane/host/PerfService.h"
#include "corvane/host/Simulation.h"
#include "corvane/host/Threads.h"
#include "features/FeatureManager.h"
#include "perf/PerfProxy.h"
#include "phr/Headroom.h"
#include "phr/PHRMonitor.h"

namespace android {
namespace {

using corvane::host::Simulation;

constexpr nsecs_t kMs = 1'000'000;
constexpr nsecs_t kPeriod = 16 * kMs;  // exact in single precision
constexpr nsecs_t kStart = 1'000'000 * kMs;
constexpr nsecs_t kHeadroom = 4 * kMs;
constexpr int kLayer = 7;

// A monitor in simulated time; once it is started, with one layer that has the focus, one buffer
// pending and a vsync and a latch that have just been.
class MonitorTest : public ::testing::Test {
  protected:
    void start() {
        corvane::host::PerfService::install();
        FeatureManager::getInstance();  // sets debuggability from the properties
        PerfProxy::setDebuggable(true, false);
        ASSERT_TRUE(monitor.init());
        addLayer();
    }

    void addLayer() {
        monitor.setVsyncInfo(kPeriod, 60);
        monitor.registerLayer(kLayer, "com.example.game", 0.25f, 0.25f);
        state = monitor.getLayerState(kLayer);
        monitor.setQuickTouchStatus(kLayer, true);
        state->mPendingCount = 1;
        state->mLastLatchTime = kStart;
    }

    // Queues a buffer on a thread of its own, which waits when this returns, or is through.
    std::thread queue() {
        std::thread thread([this] {
            monitor.onBufferIncrement(kLayer, kPeriod, Simulation::now(), /*instant=*/false);
        });
        simulation.settle();
        return thread;
    }

    Simulation simulation{kStart};
    corvane::host::LogCapture log;
    PHRMonitor monitor;
    sp<LayerPHRState> state;
};

TEST_F(MonitorTest, MayFailToStartAndStartLater) {
    corvane::host::failThreadCreation(1);
    EXPECT_FALSE(monitor.init());
    const auto failures = log.matching("PHRMonitor thread creation failed");
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0].priority, ANDROID_LOG_ERROR);
    addLayer();
    monitor.onVsync(kStart);
    queue().join();  // nobody would release it
    EXPECT_EQ(Simulation::now(), kStart);
    monitor.setVsyncInfo(kPeriod / 2, 90);
    {
        Mutex::Autolock lock(state->mFieldsLock);
        EXPECT_EQ(state->mMaxHeadroom, kHeadroom / 2) << "no default has been read";
    }
    monitor.forceStop();
    EXPECT_EQ(log.count("stopped"), 0u);
    start();
    simulation.settle();
    EXPECT_EQ(RecordedPriorities::ofTheFramePath(), RecordedPriorities::of("PHR"));
}

// The display switches just before a change gets hold of the layer's record. The layer has been
// unregistered meanwhile, so that the switch itself leaves the record alone.
TEST_F(MonitorTest, ChangesOfTheRecordTakeThePeriodOfTheirMoment) {
    start();
    const std::function<void()> changes[] = {[&] {
                                                 monitor.checkAndUpdateHeadroom(state.get(),
                                                                                kPeriod);
                                             },
                                             [&] { monitor.updateHeadRoom(kLayer, -1, -1); },
                                             [&] {
                                                 for (int i = 0; i < 15; ++i)
                                                     monitor.updateDynamicHeadroom(state.get(),
                                                                                   kPeriod);
                                             }};
    const std::pair<nsecs_t, nsecs_t> expected[] = {{kHeadroom + kMs, 144 * kMs / 10},
                                                    {kHeadroom / 2, kPeriod / 2 * 18 / 10},
                                                    {kHeadroom + 2 * kMs, kPeriod / 2 * 18 / 10}};
    for (size_t i = 0; i < 3; ++i) {
        addLayer();
        std::thread changer;
        {
            Mutex::Autolock lock(state->mFieldsLock);
            changer = std::thread(changes[i]);
            simulation.settle();
            monitor.unregisterLayer(kLayer);
            monitor.setVsyncInfo(kPeriod / 2, 120);
        }
        changer.join();
        Mutex::Autolock lock(state->mFieldsLock);
        EXPECT_EQ(expected[i], std::pair(state->mHeadroom.load(), state->mMaxHeadroom)) << i;
    }
}

// What happens on the queuing thread between the decision for the additional delay and its wait,
// which is when it logs.
std::function<void()> sOnceDecided;

TEST_F(MonitorTest, UnblockOrReleaseEndsTheAdditionalDelayAsItIsDecided) {
    start();
    state->mHasPending = true;
    __android_log_set_logger([](const __android_logger_data*, const char* message) {
        if (message == std::string("additional delay")) sOnceDecided();
    });
    for (const bool unblocks : {true, false}) {
        sOnceDecided = [&] {
            unblocks ? monitor.unblockBuffer(kLayer) : void(state->releaseWaiters());
        };
        state->mPendingCount = 1;
        std::thread call = queue();
        state->releaseWaiters();
        call.join();
        EXPECT_EQ(Simulation::now(), kStart) << unblocks;
        EXPECT_FALSE(state->mUnblocked);
    }
}

TEST_F(MonitorTest, AThreadThatStillHoldsAGoneStateDoesNotWait) {
    start();
    // Released just before the wait is not too late either: nobody would end it.
    state->mReleased = true;
    EXPECT_FALSE(state->waitUnlessReleased(kPeriod));
    state->mReleased = false;
    std::thread call = queue();
    monitor.unregisterLayer(kLayer);
    call.join();
    EXPECT_FALSE(state->waitUnlessReleased(kPeriod));
    EXPECT_FALSE(state->waitUnlessReleasedSince(state->releaseCount(), kPeriod));
    Mutex::Autolock lock(state->mLock);
    EXPECT_EQ(state->mWaiting, 0);
    EXPECT_EQ(Simulation::now(), kStart);
}

TEST_F(MonitorTest, BearsTimesAtTheEndsOfTheirRange) {
    start();
    for (const auto& [time, headroom] : {std::pair(INT64_MAX, 5 * kMs), {INT64_MIN, 4 * kMs}}) {
        monitor.checkAndUpdateHeadroom(state.get(), time);
        EXPECT_EQ(state->mHeadroom, headroom) << time;
    }
    for (nsecs_t time : {INT64_MIN, INT64_MAX}) monitor.onBufferDecrement(kLayer, 1, time);
    monitor.setQuickTouchStatus(kLayer, true);
    monitor.setVsyncInfo(INT64_MAX, 60);
    state->mHeadroom = INT64_MAX;
    monitor.onVsync(kStart);
    simulation.settle();
    EXPECT_EQ(Simulation::nextDeadline(), INT32_MAX * nsecs_t{1'000'000'000});
}

constexpr float kInfinity = std::numeric_limits<float>::infinity();

TEST(HeadroomTest, EndsAtTheLimitsOfItsNumbers) {
    EXPECT_EQ(deriveHeadroomRange(std::nanf(""), 0.0f, kPeriod).preset, 3 * kMs / 2);
    EXPECT_EQ(deriveHeadroomRange(kInfinity, kInfinity, 3).preset, INT64_MAX);
    EXPECT_EQ(deriveHeadroomRange(-0.9f, 0.0f, INT64_MAX).preset, 3 * kMs / 2);
    EXPECT_EQ(stepHeadroom(-1, {-1, -1}, kPeriod, true, kMs), std::nullopt);  // not derived yet
    EXPECT_EQ(stepHeadroom(INT64_MAX - 1, {0, INT64_MAX}, kPeriod, false, kMs), INT64_MAX);
    EXPECT_EQ(avoidVsync(INT64_MIN, INT64_MAX, true), INT64_MIN);
    EXPECT_EQ(currentHeadroom(INT64_MAX, -1, INT64_MAX, INT32_MAX), INT64_MAX);
    EXPECT_EQ(vsyncToHeadroomPoint(-1, kPeriod), kPeriod + 1);
    EXPECT_EQ(vsyncToHeadroomPoint(-1, INT64_MAX), INT64_MAX);
}

TEST(FramePacerTest, HostileRatesNeitherOverflowNorRampForEver) {
    constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
    // The first has nothing to step; the second's step is lost in rounding.
    const std::pair<float, float> rates[] = {
            {60, 60},   {60.000004f, 60}, {0, 60},         {-30, 60},       {60, -60},  {60, 0},
            {kNaN, 60}, {60, 1e-30f},     {kInfinity, 60}, {60, kInfinity}, {60, kNaN},
    };
    for (const auto& [current, target] : rates) {
        for (int rampFrames : {0, 10}) {
            FramePacer pacer;
            pacer.start(current, target, rampFrames, kStart);
            for (int frame = 0; frame < 40; ++frame) {
                const nsecs_t now = kStart + frame * kPeriod;
                pacer.schedule(now, now, now, /*compensate=*/true);
            }
            EXPECT_FALSE(pacer.isSwitching()) << current << " to " << target;
        }
    }
}

}  // namespace
}  // namespace android
