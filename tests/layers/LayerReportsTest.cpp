// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// What the service hears of rates, janks and scenes, and who gets low latency.

#include <limits>

#include "RegistryTest.h"

namespace android {
namespace {

using corvane::host::PerfService;

class LayerReportsTest : public RegistryTest {
  protected:
    void setProperties() override {
        base::SetProperty("debug.perf.enable_big_jank_detect", "true");
        base::SetProperty("debug.perf.cpu_big_jank_threshold_ms", "40");
    }
};

TEST_F(LayerReportsTest, ReportsTheHighestMode) {
    draw({1, 2}, 100);
    ASSERT_EQ(manager().getLayer(2)->mFpsMode, 60);
    auto sent = events(4196);
    ASSERT_EQ(sent.size(), 2u) << "one for each layer's change";
    for (const auto& event : sent) {
        EXPECT_EQ(event.package, appOf(1)) << "equal modes go by id";
        EXPECT_EQ(event.args, (std::vector<int>{0, 60}));
    }

    // A slower layer that goes changes nothing. Layer 1 falls silent and goes: layer 2 takes its
    // place, then nobody.
    draw({1, 2, 3}, 40);
    for (const std::vector<int>& drawing : {std::vector<int>{1, 2}, {2}}) {
        EXPECT_EQ(events(4196).size(), 2u);
        for (int i = 0; i < 2; ++i) {
            draw(drawing, 61);
            manager().cleanupInactiveLayers(mSimulation.now());
        }
    }
    EXPECT_EQ(mLog.count("Unregistered layer 3"), 1u);
    sent = events(4196);
    ASSERT_EQ(sent.size(), 3u);
    EXPECT_EQ(sent[2].package, appOf(2));
    idle(1'000'000'001);
    track(4);  // without a rate as yet
    idle(500 * kMs);
    sent = events(4196);
    ASSERT_EQ(sent.size(), 4u);
    EXPECT_EQ(sent[3].package, "null");
    EXPECT_EQ(sent[3].args, (std::vector<int>{0, -1}));
    EXPECT_EQ(mLog.count("Update MaxInfo: Reset to default"), 1u);
}

TEST_F(LayerReportsTest, ReportsCpuBigJank) {
    track(1);
    draw({1}, 1, 50 * kMs);
    EXPECT_EQ(mLog.count("Send CPU big jank"), 0u) << "no frame rate yet";
    draw({1}, 130);
    ASSERT_EQ(manager().getLayer(1)->mFpsMode, 60);
    draw({1}, 1, 40 * kMs - 1);
    EXPECT_EQ(mLog.count("Send CPU big jank"), 0u);
    draw({1}, 1, 40 * kMs);
    EXPECT_EQ(mLog.count("Send CPU big jank [com.example.app1/Main#1]."), 1u);
    const auto sent = events(4186);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].package, appOf(1));
    EXPECT_EQ(sent[0].args, (std::vector<int>{5, 0}));

    // The watched property's change reaches the registry.
    base::SetProperty("debug.perf.cpu_big_jank_threshold_ms", "0");
    mSimulation.settle();
    EXPECT_EQ(mLog.count("OnFeatureConfigChanged - CPU_BIG_JANK: mCpuBigJankThreshold=0ms"), 1u);
    draw({1}, 1, 500 * kMs);
    EXPECT_EQ(mLog.count("Send CPU big jank"), 1u);
}

TEST_F(LayerReportsTest, SurvivesAnyPeriodAndDepth) {
    track(1);
    constexpr int kMax = std::numeric_limits<int>::max();
    constexpr int kMin = std::numeric_limits<int>::min();
    for (const int64_t period :
         {std::numeric_limits<int64_t>::max(), std::numeric_limits<int64_t>::min(), int64_t{-1},
          int64_t{0}, int64_t{1}, int64_t{k60Hz}}) {
        manager().setVsyncPeriod(period);
        for (const int pending : {kMax, kMin, -1, 0}) {
            mSimulation.advance(3 * kMs);
            manager().onBufferDecrement("n", 1, pending, Rect(kMin, kMin, kMax, kMax), false, true);
            mSimulation.advance(3 * kMs);
            manager().onBufferDecrement("n", 1, pending, Rect(kMin, kMin, kMax, kMax), false, true);
            draw({1}, 2);
            manager().unblockPendingBuffer();
            manager().onVsync(mSimulation.now());
        }
    }
    EXPECT_NE(manager().getLayer(1), nullptr);
    EXPECT_EQ(mLog.count("vsync: 16666667"), 1u);
    EXPECT_EQ(mLog.count("Unexpected vsync received: -1"), 1u);
}

using LayerScenesTest = RegistryTest;

TEST_F(LayerScenesTest, ReportsChangesOnce) {
    manager().checkMultiLayer(mSimulation.now());
    EXPECT_TRUE(events(4194).empty()) << "nothing is visible, as before";
    track(1);
    track(2);
    manager().checkMultiLayer(mSimulation.now());
    manager().checkMultiLayer(mSimulation.now());
    auto sent = events(4194);
    ASSERT_EQ(sent.size(), 1u) << "unchanged";
    EXPECT_EQ(sent[0].args, (std::vector<int>{101, 2}));
    EXPECT_NE(sent[0].package.find(R"("pkg":"com.example.app1")"), std::string::npos);

    latch(2, /*focused=*/false, /*visible=*/false);
    manager().checkMultiLayer(mSimulation.now());
    sent = events(4194);
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(sent[1].args, (std::vector<int>{101, 1}));
    latch(1, false, false);
    manager().checkMultiLayer(mSimulation.now());
    EXPECT_EQ(events(4194)[2].package, "{\"apps\":[]}\n");

    draw({1, 2, 3, 4}, 40);
    manager().checkMultiLayer(mSimulation.now());
    EXPECT_EQ(events(4194).back().args, (std::vector<int>{101, 3})) << "a fourth is one too many";
}

TEST_F(LayerScenesTest, FocusAndModeChangesForceAReport) {
    track(1);
    latch(1, /*focused=*/true);
    EXPECT_EQ(events(4194).size(), 1u);
    EXPECT_EQ(mLog.count("Focused app changed: uid 10001, [com.example.app1]"), 1u);
    latch(1, true);
    draw({1}, 61);
    EXPECT_EQ(events(4194).size(), 2u) << "mode 60";
    EXPECT_NE(events(4194)[1].package.find(R"("M":60)"), std::string::npos);
    manager().checkMultiLayer(mSimulation.now());
    EXPECT_EQ(events(4194).size(), 2u);
}

TEST_F(LayerScenesTest, AScheduledReportComesOnceAndHoldsBackThePeriodicOne) {
    track(1);
    manager().onVsync(mSimulation.now());
    manager().onFeatureConfigChanged(ACTV_IF_CONCURRENCY, "");
    EXPECT_EQ(mLog.count("OnFeatureConfigChanged - ACTV_IF_CONCURRENCY"), 1u);
    mSimulation.advance(2'900 * kMs);
    draw({1}, 6, kMs);
    EXPECT_TRUE(events(4194).empty());
    mSimulation.advance(94 * kMs);
    EXPECT_EQ(events(4194).size(), 1u);

    // A report for another reason meanwhile takes nothing from the two that are scheduled.
    manager().scheduleNotifyUserScene(5'000 * kMs);
    manager().scheduleNotifyUserScene(6'000 * kMs);
    latch(1, /*focused=*/true);
    EXPECT_EQ(events(4194).size(), 2u);
    mSimulation.advance(1'000 * kMs);
    draw({2}, 40);
    manager().onVsync(mSimulation.now());
    EXPECT_EQ(events(4194).size(), 2u) << "changed, but one is scheduled";
    EXPECT_EQ(mLog.count("marked for removal"), 1u);
    mSimulation.advance(4'000 * kMs);
    EXPECT_EQ(events(4194).size(), 3u);
    EXPECT_EQ(mLog.count("marked for removal"), 2u) << "it looks who is still drawing first";
    mSimulation.advance(1'000 * kMs);
    EXPECT_EQ(events(4194).size(), 4u) << "unchanged, but scheduled";
}

TEST_F(LayerScenesTest, TheFirstGameInRankGetsLowLatency) {
    PerfService::addGame(appOf(1), 1);
    PerfService::addGame(appOf(2), 1);
    track(1);
    track(2);
    mSimulation.settle();
    EXPECT_EQ(mLog.count("SetLowLatency"), 0u);
    const auto focus = [&](int from, int to) {
        latch(from, false);
        latch(to, true);
        mSimulation.settle();
    };
    focus(2, 1);
    EXPECT_EQ(mLog.count("SetLowLatency true for pid=1001"), 1u);
    focus(1, 2);
    EXPECT_EQ(mLog.count("SetLowLatency true for pid=1002"), 1u);
    track(3);
    manager().checkMultiLayer(mSimulation.now());
    focus(2, 3);
    EXPECT_EQ(mLog.count("SetLowLatency false for pid=1002"), 1u) << "the focused one is no game";
    manager().checkMultiLayer(mSimulation.now());
    EXPECT_EQ(mLog.count("SetLowLatency"), 3u) << "each change once";
    EXPECT_EQ(PerfService::calls("perf_lock_acq", 0)[1].args[2], 1'002);
}

}  // namespace
}  // namespace android
