// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <android/log.h>
#include <unistd.h>

#include <atomic>
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

// Whether a thread of this process sleeps, as one does that waits for a lock.
bool sleeps(pid_t thread) {
    std::string stat;
    std::getline(std::ifstream("/proc/self/task/" + std::to_string(thread) + "/stat"), stat);
    const size_t name = stat.rfind(") ");
    return name != std::string::npos && stat[name + 2] == 'S';
}

class MonitorTest : public PhrMonitorTest {
  protected:
    void startDynamic(int fps) {
        base::SetProperty("vendor.perf.phr.enable", "1");
        start();
        monitor.setVsyncInfo(kPeriod / 2, fps);
        monitor.setQuickTouchStatus(kLayer, true);
    }

    // Frames of `periods` each; the display's period is half of kPeriod.
    void addFrames(int count, double periods) {
        for (int frame = 0; frame < count; ++frame) {
            monitor.checkAndUpdateHeadroom(state.get(),
                                           static_cast<nsecs_t>(kPeriod / 2 * periods));
        }
    }

    // Runs `step`, while the display switches just before it gets hold of the layer's record. The
    // layer is unregistered meanwhile, so that the switch itself leaves the record alone.
    void switchPeriodDuring(const std::function<void()>& step, nsecs_t period, int fps) {
        std::atomic<pid_t> stepper{0};
        std::future<void> call;
        {
            Mutex::Autolock lock(state->mFieldsLock);
            call = std::async(std::launch::async, [&] {
                stepper = gettid();
                step();
            });
            EXPECT_TRUE(becomes([&] { return stepper != 0 && sleeps(stepper); }));
            monitor.unregisterLayer(kLayer);
            monitor.setVsyncInfo(period, fps);
        }
        ASSERT_TRUE(returns(call));
    }

    int32_t heavyFrames() const {
        Mutex::Autolock lock(state->mFieldsLock);
        return state->heavyHeadroomFrameCount;
    }
};

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

TEST_F(MonitorTest, PresetHeadroomFollowsFrameTimes) {
    start();
    const struct {
        nsecs_t frameTime;
        nsecs_t headroom;
    } frames[] = {
            {kPeriod + 2 * kMs, 4 * kMs},     {kPeriod + 2 * kMs + 1, 5 * kMs},
            {kPeriod - 2 * kMs, 5 * kMs},     {INT64_MAX, 6 * kMs},
            {kPeriod - 2 * kMs - 1, 5 * kMs}, {INT64_MIN, 4 * kMs},
    };
    for (const auto& frame : frames) {
        monitor.checkAndUpdateHeadroom(state.get(), frame.frameTime);
        EXPECT_EQ(state->mHeadroom, frame.headroom) << frame.frameTime;
    }
    // Quick touch is off: its frames count for nothing.
    monitor.onBufferIncrement(kLayer, 2 * kPeriod, kStart, false);
    EXPECT_EQ(state->mHeadroom, 4 * kMs);
    EXPECT_EQ(state->mPendingCount, 0);
}

TEST_F(MonitorTest, ChangesOfTheRecordTakeThePeriodOfTheirMoment) {
    start();
    const auto onTime = [this] { monitor.checkAndUpdateHeadroom(state.get(), kPeriod); };
    switchPeriodDuring(onTime, kPeriod / 2, 120);
    EXPECT_EQ(state->mHeadroom, kHeadroom + kMs) << "late at the new period";
    state = addLayer(kLayer, kRate);
    switchPeriodDuring([this] { monitor.updateHeadRoom(kLayer, -1, -1); }, kPeriod, 60);
    EXPECT_EQ(state->mHeadroom, kHeadroom);
}

TEST_F(MonitorTest, CeilingIsThatOfThePeriodOfItsMoment) {
    startDynamic(120);
    addFrames(14, 2);
    switchPeriodDuring([this] { addFrames(1, 2); }, kPeriod / 4, 240);
    EXPECT_EQ(maxHeadroom(),
              headroomAtRate(FeatureManager::getInstance()->getDefaultMaxHeadroomRate(true),
                             kPeriod / 4));
}

TEST_F(MonitorTest, HeavyWindowLetsTheHeadroomClimbForFiftyFrames) {
    startDynamic(60);
    const nsecs_t preset = state->mHeadroom;
    const nsecs_t ceiling = maxHeadroom();
    addFrames(14, 2);
    EXPECT_EQ(state->mHeadroom, preset);
    addFrames(1, 1);  // fourteen heavy frames in the window
    EXPECT_EQ(state->mHeadroom, preset + 2 * kMs);
    EXPECT_EQ(heavyFrames(), 2);
    addFrames(13, 1);  // the last heavy one leaves with the next frame
    EXPECT_EQ(heavyFrames(), 2);
    EXPECT_EQ(maxHeadroom(), ceiling);  // which moves above 60 Hz alone
    addFrames(48, 1);
    EXPECT_EQ(heavyFrames(), 50);
    EXPECT_EQ(state->mHeadroom, ceiling);
    addFrames(1, 1);  // every frame of the window took one period
    EXPECT_EQ(heavyFrames(), 0);
    EXPECT_EQ(state->mHeadroom, preset);
    EXPECT_EQ(log.count("reset adaptive PHR state for layer 7, headroom="), 2u);

    // The window is empty again. It is heavy from a sum of three.
    addFrames(14, 0.5);
    addFrames(1, 1.3);
    EXPECT_EQ(heavyFrames(), 0);
    addFrames(1, 1);
    EXPECT_EQ(heavyFrames(), 2);
    addFrames(13, 2);
    addFrames(14, 1);
    addFrames(48, 0.9);
    addFrames(1, 0.5);  // not steady: no reset, the headroom sinks slowly
    EXPECT_EQ(heavyFrames(), 0);
    EXPECT_EQ(state->mHeadroom, ceiling);
    addFrames(1, 1);
    EXPECT_EQ(state->mHeadroom, ceiling - kMs / 10);
}

TEST_F(MonitorTest, CeilingFollowsTheLoadAboveSixtyHertz) {
    startDynamic(120);
    constexpr nsecs_t kLow = static_cast<nsecs_t>(kPeriod / 2 * 1.3);
    const nsecs_t high =
            headroomAtRate(FeatureManager::getInstance()->getDefaultMaxHeadroomRate(true),
                           kPeriod / 2);
    ASSERT_GT(high, kLow);
    addFrames(14, 1);
    addFrames(1, 2);  // heavy, but no overload
    EXPECT_EQ(maxHeadroom(), kLow);
    addFrames(14, 2);
    EXPECT_EQ(maxHeadroom(), high);
    // Heavy windows without overload: the raised ceiling stays for fifty frames.
    for (int frame = 0, heldFrames = 0; heldFrames < 50; ++frame) {
        addFrames(1, frame % 5 == 0 ? 2 : 1);
        Mutex::Autolock lock(state->mFieldsLock);
        if (state->mFrameWeightWindow.sum() >= 30) continue;
        ++heldFrames;
        ASSERT_EQ(state->mMaxHeadroom, high) << heldFrames;
    }
    addFrames(1, 1);
    EXPECT_EQ(maxHeadroom(), kLow);
    monitor.updateHeadRoom(kLayer, -1, 1.5f);
    addFrames(1, 1);
    EXPECT_EQ(maxHeadroom(), kPeriod / 2 * 3 / 2);  // never below the preset
}

TEST_F(MonitorTest, EnablingQuickTouchStartsTheAdaptationAnew) {
    startDynamic(60);
    const nsecs_t preset = state->mHeadroom;
    addFrames(20, 2);
    {
        Mutex::Autolock lock(state->mFieldsLock);
        state->mMaxHoldCount = 9;
    }
    monitor.setQuickTouchStatus(kLayer, true);  // nothing new
    monitor.setQuickTouchStatus(kLayer, false);
    EXPECT_GT(state->mHeadroom, preset);
    monitor.setQuickTouchStatus(kLayer, true);
    EXPECT_EQ(state->mHeadroom, preset);
    {
        Mutex::Autolock lock(state->mFieldsLock);
        EXPECT_EQ(state->mMaxHoldCount, 0);
    }
    EXPECT_EQ(heavyFrames(), 0);
    EXPECT_EQ(log.count("Layer 7: enable PHR"), 2u);
    EXPECT_EQ(log.count("Layer 7: disable PHR"), 1u);
}

}  // namespace
}  // namespace android
