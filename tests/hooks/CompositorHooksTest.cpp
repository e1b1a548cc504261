// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// The gates: initialisation, switches and arguments.

#include <atomic>
#include <system_error>
#include <thread>

#include "HookTest.h"
#include "corvane/host/Properties.h"
#include "corvane/host/Threads.h"

namespace corvane::host {
namespace {

constexpr char kSmartTouch[] = "debug.vendor.perf.smart_touch";
constexpr char kSmartTouchTrace[] = "debug.vendor.perf.smart_touch.trace";

class CompositorHooksTest : public SimulatedHookTest {
  protected:
    using SimulatedHookTest::SimulatedHookTest;

    // Calls everything but corvaneInit() with arguments that would act.
    void callAll() {
        const TestLayer layer = TestLayer::ofApp(1);
        corvaneSetVsyncPeriod(k60Hz);
        layer.queue();
        layer.latch();
        corvaneTrackVsyncSignal();
        corvaneUnblockPendingBuffer();
        corvaneNotifyGpuFenceUnsignaled(0, 1);
        corvaneTrackLatchUnsignaledGpuFence(0, 1);
        corvaneFlushLatchUnsignaledGpuFences();
    }
};

TEST_F(CompositorHooksTest, NothingHappensUntilEnabled) {
    set(kSmartTouch, "1");
    callAll();
    EXPECT_FALSE(corvaneSmartTouchEnabled());
    EXPECT_FALSE(corvaneIsTargetFpsActive());
    EXPECT_TRUE(mLog.lines().empty());
    EXPECT_TRUE(PerfService::calls().empty());

    // A disabled library looks again on each call.
    set("vendor.perf.corvane.enable", "0");
    EXPECT_FALSE(corvaneInit(1, 2));
    EXPECT_FALSE(corvaneInit(1, 2));
    EXPECT_EQ(mLog.count("[Corvane Enable: 0]"), 2u);
    callAll();
    corvaneSetVsyncPeriod(8'333'333);  // a change would be logged
    EXPECT_FALSE(corvaneSmartTouchEnabled()) << "nothing has read it";
    EXPECT_EQ(mLog.count("candidate"), 0u);
    EXPECT_EQ(mLog.count("vsync"), 0u);
    EXPECT_FALSE(PerfService::hasCallback());
}

// Any thread may run at any time.
class CompositorHooksRaceTest : public CompositorHooksTest {
  protected:
    CompositorHooksRaceTest() : CompositorHooksTest(Simulation::Policy::kRandom) {}
};

TEST_F(CompositorHooksRaceTest, RacingInitsInitialiseOnce) {
    set("vendor.perf.phr.enable", "1");
    set(kSmartTouch, "true");
    std::atomic<int> enabled{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 16; ++i) {
        threads.emplace_back([&] {
            if (corvaneInit(0, 0)) ++enabled;
            callAll();
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(enabled, 16);
    EXPECT_TRUE(corvaneSmartTouchEnabled());
    for (const char* text : {"[Corvane Enable: 1]", "[sf: ST:1]", "[PHR:1]", "LayerManager init"}) {
        EXPECT_EQ(mLog.count(text), 1u) << text;
    }
    EXPECT_EQ(PerfService::calls("perf_callback_register", 4).size(), 1u);
    EXPECT_TRUE(PerfService::hasCallback());
    // The target rates' switch is off.
    EXPECT_TRUE(PerfService::push(4171, "com.example.app1", 3'000, 0, {}));
    EXPECT_FALSE(corvaneIsTargetFpsActive());
    // This process is no application.
    aCorvaneSetTouchEvent(0);
    EXPECT_TRUE(powerBoosts().empty());
}

TEST_F(CompositorHooksTest, AFailedInitMayBeRepeated) {
    failThreadCreation(2);  // the boost worker's, then the property watcher's
    EXPECT_THROW(corvaneInit(0, 0), std::system_error);
    failThreadCreation(0);
    EXPECT_EQ(mLog.count("BoostThread Creation Failed"), 1u);
    EXPECT_TRUE(corvaneInit(0, 0));
    const TestLayer layer = TestLayer::ofApp(1);
    layer.queue();
    EXPECT_EQ(mLog.count("Add new candidate layer: 1"), 1u);
}

TEST_F(CompositorHooksTest, SmartTouchFollowsItsProperty) {
    set(kSmartTouchTrace, "1");
    ASSERT_TRUE(corvaneInit(0, 0));
    EXPECT_EQ(propertyReads(kSmartTouch), 1) << "a flip between two would stay unnoticed";
    corvaneUnblockPendingBuffer();
    EXPECT_EQ(mLog.count("Smart touch debug"), 0u);

    set(kSmartTouch, "1");
    ASSERT_EQ(mLog.count("[Prop Changed: ST: 1]"), 1u);
    EXPECT_TRUE(corvaneSmartTouchEnabled());
    corvaneUnblockPendingBuffer();
    EXPECT_EQ(mLog.count("SurfaceFlinger: Smart touch debug: corvaneUnblockPendingBuffer"), 1u);

    set(kSmartTouch, "false");  // only "0" switches it off
    set(kSmartTouch, "0");
    ASSERT_EQ(mLog.count("[Prop Changed: ST: 0]"), 1u);
    EXPECT_FALSE(corvaneSmartTouchEnabled());
    EXPECT_EQ(mLog.count("[Prop Changed"), 2u);
}

TEST_F(CompositorHooksTest, TargetFpsIsActiveWhileConfigured) {
    set("vendor.rdxe.enable.target_fps", "true");
    ASSERT_TRUE(corvaneInit(0, 0));
    EXPECT_EQ(mLog.count("[PHR:1]"), 1u) << "pacing is the headroom monitor's work";
    EXPECT_FALSE(corvaneIsTargetFpsActive());
    EXPECT_TRUE(PerfService::push(4171, "com.example.app1", 3'000, 0, {}));
    EXPECT_TRUE(corvaneIsTargetFpsActive());
    EXPECT_TRUE(PerfService::push(4171, "com.example.app1", 0, 0, {}));
    EXPECT_FALSE(corvaneIsTargetFpsActive());
}

TEST_F(CompositorHooksTest, WorksWithoutTheService) {
    ASSERT_TRUE(PerfService::install("missing-perf_get_prop"));  // the first that is looked for
    ASSERT_TRUE(corvaneInit(0, 0));
    callAll();
    EXPECT_TRUE(PerfService::calls().empty());
    EXPECT_EQ(mLog.count("Unable to find perf_get_prop function."), 1u);
}

TEST_F(CompositorHooksTest, IgnoresArgumentsThatMeanNothing) {
    set("vendor.perf.gpu_jank_detect.enable", "true");
    ASSERT_TRUE(corvaneInit(0, 0));
    settle(TestLayer::ofApp(1));
    mLog.clear();

    const android::Rect bounds(0, 0, 1, 1);
    corvaneTrackBufferIncrement(nullptr, 1, true, 0, 0);
    corvaneTrackBufferDecrement(nullptr, 1, 0, &bounds, true, true);
    corvaneTrackBufferDecrement("name", 1, 0, nullptr, true, true);
    corvaneNotifyGpuFenceUnsignaled(5, 0);
    corvaneNotifyGpuFenceUnsignaled(-1, 1);
    corvaneTrackLatchUnsignaledGpuFence(5, -3);
    corvaneTrackLatchUnsignaledGpuFence(-1, 1);
    corvaneFlushLatchUnsignaledGpuFences();
    EXPECT_TRUE(mLog.lines().empty()) << mLog.lines().front().text;

    // Descriptor 0 is a descriptor, if no sync file here.
    corvaneNotifyGpuFenceUnsignaled(0, 1);
    corvaneTrackLatchUnsignaledGpuFence(0, 1);
    EXPECT_EQ(mLog.count("SYNC_IOC_FILE_INFO failed, ret=-1, fd=0"), 2u);
}

TEST_F(CompositorHooksTest, HostileNamesAreOnlyTexts) {
    ASSERT_TRUE(corvaneInit(0, 0));
    TestLayer layer = TestLayer::ofApp(1);
    const std::string names[] = {"%s%n%999999d/x#1", std::string(200'000, 'a') + "/x#1",
                                 "SurfaceView[" + std::string(20'000, '[') + "#1",
                                 "\xff\xfe\"\\\x01/x#1", ""};
    for (const std::string& name : names) {
        layer.name = name;
        settle(layer);
        layer.latch(true, 0, true);
        ++layer.id;
        ++layer.uid;
    }
    EXPECT_GT(PerfService::calls("perf_event", 4194).size(), 0u);

    // Nor are fences anything while their switch is off.
    corvaneNotifyGpuFenceUnsignaled(0, 1);
    corvaneTrackLatchUnsignaledGpuFence(0, 1);
    EXPECT_EQ(mLog.count("[GPU JANK DETECTION]"), 0u);
}

// Builds of the service's client library that lack something; tracking goes on with each.
class FaultyServiceTest : public SimulatedHookTest,
                          public ::testing::WithParamInterface<const char*> {};

TEST_P(FaultyServiceTest, TracksAllTheSame) {
    ASSERT_TRUE(PerfService::install(GetParam()));
    ASSERT_TRUE(corvaneInit(0, 0));
    corvaneSetVsyncPeriod(k60Hz);
    corvaneTrackVsyncSignal();
    const TestLayer layer = TestLayer::ofApp(1);
    settle(layer);
    layer.latch(true, 0, /*focused=*/true);
    EXPECT_EQ(mLog.count("Add new layer to full tracking"), 1u);
    EXPECT_EQ(mLog.count("Stable FPS shift detected for layer 1: 60.00 (mode -> 60)"), 1u);

    // Without a worker nobody takes the forced report; the periodic one must still come.
    mNextFrame = mSimulation.now();
    draw(layer, 200);
    corvaneTrackVsyncSignal();
    mSimulation.settle();
    EXPECT_GT(mLog.count("CheckMultiLayer: 1, "), 0u);
}

INSTANTIATE_TEST_SUITE_P(All, FaultyServiceTest,
                         ::testing::Values("missing-perf_get_feedback", "missing-perf_event",
                                           "missing-perf_callback_register", "version-2.2"));

}  // namespace
}  // namespace corvane::host
