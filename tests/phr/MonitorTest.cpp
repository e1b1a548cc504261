// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// What the model leaves out: several threads on one layer, orders within one call, faults, and
// numbers that nothing sensible brings about.

#include <android/log.h>

#include <cmath>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "RecordedPriorities.h"
#include "corvane/host/Threads.h"
#include "phr/MonitorFixture.h"

namespace android {
namespace {

// The layer has the focus and one more buffer pending; a vsync and a latch have just been.
class MonitorTest : public PhrMonitorTest {
  protected:
    void startHolding() {
        start();
        monitor.setQuickTouchStatus(kLayer, true);
        state->mPendingCount = 1;
        state->mLastLatchTime = kStart;
        state->mLastJankTime = kStart;  // no additional delay unless a test wants it
    }

    // Runs `change`, while the display switches just before it gets hold of the layer's record. The
    // layer is unregistered meanwhile, so that the switch itself leaves the record alone.
    void switchPeriodDuring(const std::function<void()>& change, nsecs_t period, int fps) {
        std::thread changer;
        {
            Mutex::Autolock lock(state->mFieldsLock);
            changer = std::thread(change);
            simulation.settle();
            monitor.unregisterLayer(kLayer);
            monitor.setVsyncInfo(period, fps);
        }
        changer.join();
    }
};

TEST_F(MonitorTest, MayFailToStartAndStartLater) {
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
    monitor.onVsync(kStart);
    queue().join();  // nobody would release it
    EXPECT_EQ(Simulation::now(), kStart);
    monitor.forceStop();
    EXPECT_EQ(log.count("stopped"), 0u);
    EXPECT_TRUE(RecordedPriorities::of("PHR").empty());
    start();
    simulation.settle();
    EXPECT_EQ(RecordedPriorities::ofTheFramePath(), RecordedPriorities::of("PHR"));
}

TEST_F(MonitorTest, ChangesOfTheRecordTakeThePeriodOfTheirMoment) {
    start();
    switchPeriodDuring([this] { monitor.checkAndUpdateHeadroom(state.get(), kPeriod); },
                       kPeriod / 2, 120);
    EXPECT_EQ(state->mHeadroom, kHeadroom + kMs) << "late at the new period";
    state = addLayer(kLayer, kRate);
    switchPeriodDuring([this] { monitor.updateHeadRoom(kLayer, -1, -1); }, kPeriod, 60);
    EXPECT_EQ(state->mHeadroom, kHeadroom);
    state = addLayer(kLayer, kRate);
    monitor.setVsyncInfo(kPeriod / 2, 120);
    const auto overload = [this] { monitor.updateDynamicHeadroom(state.get(), kPeriod); };
    for (int frame = 0; frame < 14; ++frame) overload();
    switchPeriodDuring(overload, kPeriod / 4, 240);
    Mutex::Autolock lock(state->mFieldsLock);
    EXPECT_EQ(state->mMaxHeadroom, kPeriod / 4 * 18 / 10);
}

// What happens on the queuing thread between the decision for the additional delay and its wait,
// which is when it logs.
std::function<void()> sOnceDecided;

void actOnceDecided(const __android_logger_data*, const char* message) {
    if (message == std::string("additional delay")) sOnceDecided();
}

TEST_F(MonitorTest, UnblockOrReleaseEndsTheAdditionalDelayAsItIsDecided) {
    startHolding();
    state->mLastJankTime = -1;
    state->mHasPending = true;
    __android_log_set_logger(actOnceDecided);
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
        EXPECT_FALSE(state->mTimedOut);
    }
}

TEST_F(MonitorTest, ASecondAfterAJankTheAdditionalDelayComesBack) {
    startHolding();
    for (const nsecs_t since : {999'999'999, 1'000'000'000}) {
        state->mLastJankTime = kStart - since;
        state->mPendingCount = 1;
        std::thread call = queue();
        state->releaseWaiters();
        simulation.settle();
        EXPECT_EQ(waiting(), since == 1'000'000'000) << since;
        state->releaseWaiters();
        call.join();
    }
}

TEST_F(MonitorTest, OneThreadsTimeOutLeavesTheOthersReachable) {
    startHolding();
    state->mPendingCount = 0;
    std::thread early = queue();
    state->mPendingCount = 1;
    std::thread late = queue();
    std::thread another = queue();
    early.join();
    EXPECT_EQ(Simulation::now(), kStart + kPeriod - kHeadroom);
    EXPECT_EQ(waiting(), 2);
    EXPECT_TRUE(state->releaseWaiters());
    late.join();
    another.join();
    EXPECT_EQ(waiting(), 0);
    EXPECT_EQ(Simulation::now(), kStart + kPeriod - kHeadroom);
    // Nor does one of them stay when the layer goes.
    state->mPendingCount = 2;
    std::thread remaining[] = {queue(), queue()};
    EXPECT_EQ(waiting(), 2);
    monitor.unregisterLayer(kLayer);
    for (std::thread& thread : remaining) thread.join();
    EXPECT_EQ(Simulation::now(), kStart + kPeriod - kHeadroom);
}

TEST_F(MonitorTest, AThreadThatStillHoldsAGoneStateDoesNotWait) {
    startHolding();
    // Released just before the wait is not too late either: nobody would end it.
    state->mReleased = true;
    EXPECT_FALSE(state->waitUnlessReleased(kPeriod));
    state->mReleased = false;
    monitor.unregisterLayer(kLayer);
    EXPECT_FALSE(state->waitUnlessReleased(kPeriod));
    EXPECT_FALSE(state->waitUnlessReleasedSince(state->releaseCount(), kPeriod));
    EXPECT_EQ(waiting(), 0);
    EXPECT_EQ(Simulation::now(), kStart);
}

TEST_F(MonitorTest, BearsTimesAtTheEndsOfTheirRange) {
    startHolding();
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
    state->mHeadroom = -1;  // not known yet: just past the next vsync
    monitor.setVsyncInfo(kPeriod, 60);
    monitor.forceStop();
}

TEST(FramePacerTest, HostileRatesNeitherOverflowNorRampForEver) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    const float kNaN = std::nanf("");
    const std::pair<float, float> rates[] = {
            {60, 60},          // nothing to step
            {60.000004f, 60},  // a step lost in rounding
            {0, 60},          {-30, 60},       {60, -60},  {60, 0},    {60, 1e-30f},
            {kInfinity, 60},  {60, kInfinity}, {kNaN, 60}, {60, kNaN},
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
