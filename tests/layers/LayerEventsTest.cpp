// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// What queued and latched buffers, vsyncs and period changes do to the records and tell the
// service.

#include <limits>

#include "RegistryTest.h"

namespace android {
namespace {

using corvane::host::PerfService;

class LayerEventsTest : public RegistryTest {
  protected:
    void setProperties() override {
        base::SetProperty("debug.perf.enable_big_jank_detect", "true");
        base::SetProperty("debug.perf.cpu_big_jank_threshold_ms", "40");
    }
};

TEST_F(LayerEventsTest, KeepsTheTimesOfALayer) {
    manager().setVsyncPeriod(k60Hz);
    track(1);
    const sp<LayerInfo> layer = manager().getLayer(1);
    const nsecs_t latched = mClock.now();
    EXPECT_EQ(layer->mVsyncAnchorTime, latched);
    EXPECT_EQ(layer->mVsyncFrameCount, 0);

    mClock.advance(5 * kMs);
    queue(1);
    EXPECT_EQ(layer->mLastQueueTime, latched + 5 * kMs);
    EXPECT_EQ(layer->mFrameGap, 5 * kMs);
    EXPECT_EQ(layer->mLastQueueEndTime, mClock.now());
    EXPECT_EQ(layer->mExpectedPresentTime, k60Hz - 5 * kMs);
    EXPECT_EQ(layer->mFirstFrameTime, mClock.now());
    const nsecs_t first = mClock.now();
    mClock.advance(3 * kMs);
    queue(1);
    EXPECT_EQ(layer->mExpectedPresentTime, 2 * k60Hz - 8 * kMs);
    EXPECT_EQ(layer->mFirstFrameTime, first) << "the older buffer's work goes on";
    EXPECT_EQ(layer->mVsyncFrameCount, 2);

    manager().onBufferDecrement("n", 1, 1, Rect(1, 2, 3, 4), true, false);
    EXPECT_EQ(layer->mVsyncFrameCount, 1);
    EXPECT_EQ(layer->mBounds, Rect(1, 2, 3, 4));
    EXPECT_TRUE(layer->mFocused);
    EXPECT_FALSE(layer->mVisible);
}

TEST_F(LayerEventsTest, ReportsTheHighestMode) {
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
            manager().cleanupInactiveLayers(mClock.now());
        }
    }
    EXPECT_EQ(mLog.count("Unregistered layer 3"), 1u);
    sent = events(4196);
    ASSERT_EQ(sent.size(), 3u);
    EXPECT_EQ(sent[2].package, appOf(2));
    mClock.advance(1'000'000'001);
    manager().cleanupInactiveLayers(mClock.now());
    track(4);  // without a rate as yet
    mClock.advance(500 * kMs);
    manager().cleanupInactiveLayers(mClock.now());
    sent = events(4196);
    ASSERT_EQ(sent.size(), 4u);
    EXPECT_EQ(sent[3].package, "null");
    EXPECT_EQ(sent[3].args, (std::vector<int>{0, -1}));
    EXPECT_EQ(mLog.count("Update MaxInfo: Reset to default"), 1u);
}

TEST_F(LayerEventsTest, ReportsCpuBigJank) {
    track(1);
    draw({1}, 1, 50 * kMs);
    EXPECT_EQ(mLog.count("Send CPU big jank"), 0u) << "no frame rate yet";
    draw({1}, 130);
    ASSERT_EQ(manager().getLayer(1)->mFpsMode, 60);
    draw({1}, 1, 40 * kMs - 1);
    EXPECT_EQ(mLog.count("Send CPU big jank"), 0u);
    draw({1}, 1, 40 * kMs);
    EXPECT_EQ(mLog.count("Send CPU big jank [com.example.app1/Main#1]."), 1u);
    ASSERT_TRUE(PerfService::waitForCalls("perf_event", 4186, 1));
    const auto sent = events(4186);
    EXPECT_EQ(sent[0].package, appOf(1));
    EXPECT_EQ(sent[0].args, (std::vector<int>{5, 0}));

    // The watched property's change reaches the registry.
    base::SetProperty("debug.perf.cpu_big_jank_threshold_ms", "0");
    ASSERT_TRUE(mLog.waitFor("OnFeatureConfigChanged - CPU_BIG_JANK: mCpuBigJankThreshold=0ms"));
    draw({1}, 1, 500 * kMs);
    EXPECT_EQ(mLog.count("Send CPU big jank"), 1u);
}

TEST_F(LayerEventsTest, TakesKnownPeriods) {
    manager().setVsyncPeriod(k60Hz);
    manager().setVsyncPeriod(k60Hz);
    EXPECT_EQ(mLog.count("vsync: 16666667"), 1u);
    manager().setVsyncPeriod(15'000'000);
    EXPECT_EQ(mLog.count("Unexpected vsync received: 15000000"), 1u);
    manager().setVsyncPeriod(8'333'333);
    EXPECT_EQ(mLog.count("vsync: 8333333"), 1u);
}

TEST_F(LayerEventsTest, SurvivesAnyPeriodAndDepth) {
    track(1);
    constexpr int kMax = std::numeric_limits<int>::max();
    constexpr int kMin = std::numeric_limits<int>::min();
    for (const int64_t period :
         {std::numeric_limits<int64_t>::max(), std::numeric_limits<int64_t>::min(), int64_t{-1},
          int64_t{0}, int64_t{1}, int64_t{k60Hz}}) {
        manager().setVsyncPeriod(period);
        for (const int pending : {kMax, kMin, -1, 0}) {
            mClock.advance(3 * kMs);
            manager().onBufferDecrement("n", 1, pending, Rect(kMin, kMin, kMax, kMax), false, true);
            mClock.advance(3 * kMs);
            manager().onBufferDecrement("n", 1, pending, Rect(kMin, kMin, kMax, kMax), false, true);
            draw({1}, 2);
            manager().unblockPendingBuffer();
            manager().onVsync(mClock.now());
        }
    }
    EXPECT_NE(manager().getLayer(1), nullptr);
}

}  // namespace
}  // namespace android
