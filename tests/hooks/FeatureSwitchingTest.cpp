// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Frame rescue, headroom control and pacing switch on and off by themselves, layer by layer.

#include <atomic>
#include <thread>

#include "HookTest.h"
#include "corvane/host/Threads.h"

namespace corvane::host {
namespace {

class FeatureSwitchingTest : public SimulatedHookTest {
  protected:
    static constexpr int64_t k90Hz = 11'111'111;
    static constexpr int kTargetFpsHint = 4171;
    static constexpr int kHeadroomHint = 4187;
    static constexpr int kGfrHint = 4189;
    static constexpr int kActivityHint = 4192;

    void SetUp() override {
        SimulatedHookTest::SetUp();
        set("vendor.perf.phr.enable", "1");
        set("vendor.rdxe.enable.target_fps", "true");
    }
    void init() {
        ASSERT_TRUE(corvaneInit(0, 0));
        corvaneSetVsyncPeriod(k60Hz);
    }
    void rescue(const std::string& package, const std::string& tunables = "golden=0.8") {
        ASSERT_TRUE(PerfService::push(kGfrHint, package + ":" + tunables, 0, 0, {1}));
    }
    void noRescue(const std::string& package) {
        ASSERT_TRUE(PerfService::push(kGfrHint, package + ":", 0, 0, {0}));
    }
    void headroom(const std::string& package, int percent, int highFpsPercent = 120) {
        ASSERT_TRUE(
                PerfService::push(kHeadroomHint, package, 0, 0, {0, percent, 0, highFpsPercent}));
    }
    void pace(const std::string& package, int fps) {
        ASSERT_TRUE(PerfService::push(kTargetFpsHint, package, fps * 100, 0, {}));
    }
    void settleGame(const TestLayer& game) {
        PerfService::addGame(game.package, 1);
        settle(game);
        draw(game, 61);
    }
    // A queue that stays two deep makes headroom control worthwhile.
    void deepenQueue() { draw(mApp, 40, k60Hz, /*visible=*/true, /*pending=*/2); }
    void fillQueue() {
        deepenQueue();
        ASSERT_EQ(mLog.count("Layer 1: enable PHR"), ++mFills);
    }

    // Nothing draws for so long that every layer is retired.
    void fallSilent() {
        for (int i = 0; i < 4; ++i) {
            corvaneTrackVsyncSignal();
            mSimulation.advance(3 * kSecond + 1);
        }
    }

    const TestLayer mApp = TestLayer::ofApp(1);
    size_t mFills = 0;
};

TEST_F(FeatureSwitchingTest, RescueHearsOfEachFrameAndPeriod) {
    set("vendor.perf.corvane.profile", "1");
    init();
    rescue(mApp.package);
    settle(mApp);
    ASSERT_EQ(mLog.count("Layer 1 enable GFR"), 1u);
    EXPECT_EQ(mLog.count("Window: [16666667, 16666667, "), 1u);
    // The frame after this one stays away until every level's check has found it late.
    PerfService::clearCalls();
    draw(mApp, 1);
    mSimulation.advance(3 * k60Hz);
    draw(mApp, 1);
    mSimulation.settle();
    std::vector<int> levels;
    for (const PerfCall& call : PerfService::calls("perf_event", 4186)) {
        EXPECT_EQ(call.package, mApp.package);
        levels.push_back(call.args[0]);
    }
    EXPECT_EQ(levels, (std::vector<int>{1, 2, 3, 0})) << "the next frame releases the boost";
    mLog.clear();

    const auto expectFrame = [&](int64_t gap, int64_t headroom, int64_t jankHeadroom) {
        queue(mApp);
        EXPECT_EQ(mLog.count("frameTime = " + std::to_string(gap) +
                             ", frameHeadroom = " + std::to_string(headroom) +
                             ", jankHeadroom = " + std::to_string(jankHeadroom) + ", ["),
                  1u)
                << gap;
    };
    // From the latch: 5 ms of work, two lost vsyncs, and again 5 ms on a display of 90 Hz.
    mSimulation.advance(5 * kMs);
    expectFrame(5 * kMs, k60Hz - 5 * kMs, k60Hz - 5 * kMs);
    mSimulation.advance(3 * k60Hz - 5 * kMs);
    mApp.latch();
    EXPECT_EQ(mLog.count("current=2 frames"), 1u);
    mSimulation.advance(4 * kMs);
    corvaneSetVsyncPeriod(k90Hz);
    expectFrame(3 * k60Hz - kMs, k90Hz - (3 * k60Hz - kMs), k90Hz - 4 * kMs);
    // A period of no known rate is not handed on.
    corvaneSetVsyncPeriod(15 * kMs);
    mSimulation.advance(3 * kMs);
    expectFrame(3 * kMs, k90Hz - 3 * kMs, 15 * kMs - 7 * kMs + 15 * kMs);
}

TEST_F(FeatureSwitchingTest, HeadroomFollowsItsConfiguration) {
    init();
    headroom(mApp.package, 80);
    settleGame(mApp);
    ASSERT_EQ(mLog.count("PHR: Registered layer 1"), 1u);
    const size_t set = mLog.count("Layer 1 set headroom");

    headroom(mApp.package, 80, 150);
    EXPECT_EQ(mLog.count("Layer 1 set headroom"), set) << "the other refresh class";
    // Wherever the rate stands, one point is no change and two are.
    for (int percent = 2; percent <= 119; ++percent) {
        headroom(mApp.package, 150);
        headroom(mApp.package, percent);
        mLog.clear();
        headroom(mApp.package, percent + 1);
        headroom(mApp.package, percent - 1);
        EXPECT_EQ(mLog.count("Layer 1 set headroom"), 0u) << percent;
        headroom(mApp.package, percent + 2);
        EXPECT_EQ(mLog.count("Layer 1 set headroom"), 1u) << percent;
    }
    mLog.clear();
    headroom(mApp.package, 50);
    EXPECT_EQ(mLog.count("Layer 1 set headroom"), 1u);
    EXPECT_EQ(mLog.count("OnFeatureConfigChanged - QUICK_TOUCH: set enabled=1, phrMinRate=0.50, "
                         "highFpsPhrMinRate=1.20, pkgName=" +
                         mApp.package),
              1u);

    // Headroom is a share of the display's period, and waits until the layer keeps its rate.
    corvaneSetVsyncPeriod(k90Hz);
    corvaneSetVsyncPeriod(15 * kMs);
    corvaneSetVsyncPeriod(k90Hz);
    EXPECT_EQ(mLog.count("Layer 1 set headroom"), 2u);
    deepenQueue();
    EXPECT_EQ(mLog.count("Layer 1: enable PHR"), 0u);
    corvaneSetVsyncPeriod(k60Hz);

    // Going out of sight ends what is going on, and so does losing the rates.
    fillQueue();
    draw(mApp, 70, k60Hz, /*visible=*/false);
    EXPECT_EQ(mLog.count("Layer 1: disable PHR"), 1u);
    fillQueue();
    headroom(mApp.package, 0, 0);
    EXPECT_EQ(mLog.count("Layer 1: disable PHR"), 2u);
}

TEST_F(FeatureSwitchingTest, ATouchReleasesAHeldBufferUnlessActivitiesSwitch) {
    set("debug.vendor.perf.smart_touch", "1");
    init();
    headroom(mApp.package, 80);
    settleGame(mApp);
    fillQueue();

    mSimulation.advance(kMs);
    const int64_t queued = mSimulation.now();
    std::atomic<bool> released{false};
    std::thread producer([&] {
        mApp.queue();
        released = true;
    });
    mSimulation.settle();
    corvaneTrackVsyncSignal();
    ASSERT_TRUE(PerfService::push(kActivityHint, "", 2, 1, {}));
    EXPECT_EQ(mLog.count("OnFeatureConfigChanged - ACTV_SWITCHING: mActvStable=false"), 1u);
    corvaneUnblockPendingBuffer();
    ASSERT_TRUE(PerfService::push(kActivityHint, "", 2, 0, {}));
    mSimulation.settle();
    EXPECT_FALSE(released);
    corvaneUnblockPendingBuffer();
    producer.join();
    EXPECT_EQ(mSimulation.now(), queued) << "no time-out was needed";
}

TEST_F(FeatureSwitchingTest, PacesDownToTheTarget) {
    set("debug.perf.enable_big_jank_detect", "true");
    set("debug.perf.cpu_big_jank_threshold_ms", "20");
    init();
    pace(mApp.package, 30);
    settle(mApp);
    ASSERT_EQ(mLog.count("Layer 1: enable target fps: 30"), 1u);
    const int64_t begin = mSimulation.now();
    draw(mApp, 60);
    EXPECT_NEAR(static_cast<double>(mSimulation.now() - begin), 60.0 / 30 * kSecond, 0.1 * kSecond);
    EXPECT_EQ(mLog.count("disable target fps"), 0u) << "29 fps and more is what was asked for";
    EXPECT_EQ(mLog.count("Send CPU big jank"), 0u) << "the hold-back is not the application's work";

    // Slower than 28: pacing would only add delay.
    draw(mApp, 60, 40 * kMs);
    EXPECT_EQ(mLog.count("Layer 1: disable target fps"), 1u);
    EXPECT_GT(mLog.count("Send CPU big jank"), 0u);
    draw(mApp, 100);
    EXPECT_EQ(mLog.count("Layer 1: enable target fps: 30"), 2u);
    pace(mApp.package, 25);
    EXPECT_EQ(mLog.count("OnFeatureConfigChanged - TARGET_FPS"), 0u) << "games alone follow";
    fallSilent();
    EXPECT_EQ(mLog.count("Layer 1 destroyed"), 1u);
}

TEST_F(FeatureSwitchingTest, ASmoothSwitchIsNotInterrupted) {
    set("vendor.rdxe.target_fps.switch_time", "1000");  // frames
    init();
    pace(mApp.package, 50);
    settle(mApp, kSecond / 50);
    EXPECT_EQ(mLog.count("] layer 1, (1080, 2400) mode:60"), 1u);
    EXPECT_EQ(mLog.count("enable target fps"), 0u) << "no faster than the target";
    draw(mApp, 61);
    ASSERT_EQ(mLog.count("Layer 1: enable target fps: 50"), 1u);
    draw(mApp, 130, 40 * kMs);
    EXPECT_EQ(mLog.count("disable target fps"), 0u);
}

TEST_F(FeatureSwitchingTest, WithoutCompensationPacingStays) {
    set("vendor.rdxe.target_fps.compensate", "false");
    set("debug.perf.cpu_big_jank_threshold_ms", "20");  // but its detection is off
    init();
    rescue(mApp.package);
    pace(mApp.package, 50);
    settle(mApp);
    ASSERT_EQ(mLog.count("Layer 1: enable target fps: 50"), 1u);

    // A paced frame is late by its own rate, not by the display's.
    draw(mApp, 60);
    PerfService::clearCalls();
    const int64_t queued = mSimulation.now();
    mSimulation.advance(100 * kMs);
    ASSERT_FALSE(PerfService::calls("perf_event", 4186).empty());
    EXPECT_GT(PerfService::calls("perf_event", 4186)[0].timeNs - queued, k60Hz * 13 / 10);

    draw(mApp, 130, 40 * kMs);
    EXPECT_EQ(mLog.count("disable target fps"), 0u);
    EXPECT_EQ(mLog.count("Send CPU big jank"), 0u);
}

TEST_F(FeatureSwitchingTest, MonitorsAreTriedAgain) {
    init();
    rescue(mApp.package);
    pace(mApp.package, 30);
    failThreadCreation(2);
    settle(mApp);
    EXPECT_EQ(mLog.count("Failed to initialize GFRMonitor"), 1u);
    EXPECT_EQ(mLog.count("Failed to initialize PHRMonitor"), 1u);
    draw(mApp, 61);
    EXPECT_EQ(mLog.count("GFRMonitor initialized"), 1u);
    EXPECT_EQ(mLog.count("PHRMonitor initialized"), 1u);
    EXPECT_EQ(mLog.count("Layer 1 enable GFR"), 1u);
}

}  // namespace
}  // namespace corvane::host
