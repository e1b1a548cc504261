// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// What the model of the registry cannot reach: late answers, stops, extremes, a missing worker.

#include <future>
#include <limits>
#include <vector>

#include "RegistryTest.h"
#include "features/FeatureManager.h"
#include "perf/PerfProxy.h"

namespace android {
namespace {

using corvane::host::PerfService;

class LayerRegistryTest : public RegistryTest {
  protected:
    bool isCandidate(int id) const {
        const std::string added = "Add new candidate layer: " + std::to_string(id) + " ";
        return mLog.count(added) != 0;
    }
};

TEST_F(LayerRegistryTest, AnAnswerForAReusedIdIsDropped) {
    PerfService::addGame(appOf(1), 7);
    // Holds the worker before the first layer's answer and again right after it.
    std::promise<void> answer, rest;
    PerfProxy* proxy = PerfProxy::getInstance();
    proxy->postTask([go = answer.get_future().share()] { go.wait(); });
    track(1);
    mSimulation.advance(1);  // tasks of one time have no order
    proxy->postTask([go = rest.get_future().share()] { go.wait(); });
    for (int i = 0; i < 2; ++i) idle(1'000'000'001);
    for (int i = 0; i < 40; ++i) {
        mSimulation.advance(k60Hz);
        queue(1, appOf(2) + "/Main#1", uidOf(2));
    }
    const sp<LayerInfo> layer = manager().getLayer(1);
    ASSERT_NE(layer, nullptr);
    answer.set_value();
    mSimulation.settle();
    EXPECT_EQ(PerfService::calls("perf_get_feedback", 5633).size(), 1u);
    EXPECT_EQ(layer->mPackageName, appOf(2));
    EXPECT_FALSE(layer->mIsGame);
    rest.set_value();
}

TEST_F(LayerRegistryTest, StopsAndStartsAgain) {
    track(1);
    for (int id = 20; id < 32; ++id) queue(id);
    EXPECT_EQ(mLog.count("Candidate layer count reached maximum tracking limit."), 1u);
    manager().stop();
    EXPECT_EQ(manager().getLayer(1), nullptr);
    manager().stop();
    manager().init(false, 1, 2);
    manager().init(false, 3, 4);
    EXPECT_EQ(mLog.count("LayerManager initialized"), 2u);
    queue(7, "Splash#7", uidOf(1));
    EXPECT_FALSE(isCandidate(7)) << "applications are forgotten too";
    track(1);
    EXPECT_NE(manager().getLayer(1), nullptr);
}

TEST_F(LayerRegistryTest, SurvivesAnyPeriodAndDepth) {
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

// Without a worker a scheduled report is none, and what is to be reported is reported at once.
TEST_F(LayerRegistryTest, ReportsWithoutAWorker) {
    PerfProxy::getInstance()->stopBoostThread();
    manager().onVsync(mSimulation.now());
    track(1);
    latch(1, /*focused=*/true);
    manager().scheduleNotifyUserScene(kMs);
    draw({1}, 200);
    manager().onVsync(mSimulation.now());
    EXPECT_EQ(PerfService::calls("perf_event", 4194).size(), 1u);
}

// Rescue for every layer, and the headroom monitor without any pacing: the target is out of reach.
class MonitorLifecycleTest : public RegistryTest {
  protected:
    void setProperties() override {
        base::SetProperty("vendor.rdxe.enable.target_fps", "true");
        base::SetProperty("vendor.perf.phr.enable", "true");
    }
    static void configure(int hint, const std::string& text, int arg, std::vector<int> values) {
        FeatureManager::getInstance()->setCallbackHintValue(hint, text, arg, 0, values);
    }
    void SetUp() override {
        RegistryTest::SetUp();
        manager().setVsyncPeriod(k60Hz);
        for (int id = 1; id <= 3; ++id) {
            configure(4189, appOf(id) + ":golden=0.8", 0, {1});
            configure(4171, appOf(id), 10'000, {});
        }
    }
};

TEST_F(MonitorLifecycleTest, MonitorsStartAgainAfterAStop) {
    for (size_t round = 1; round <= 2; ++round) {
        draw({1}, 100);
        EXPECT_EQ(mLog.count("GFRMonitor initialized"), round);
        EXPECT_EQ(mLog.count("PHRMonitor initialized"), round);
        EXPECT_EQ(mLog.count("GFR: Registered layer 1"), round);
        EXPECT_EQ(mLog.count("PHR: Registered layer 1"), round);
        manager().stop();
        EXPECT_EQ(mLog.count("GFRMonitor stopped"), round);
        EXPECT_EQ(mLog.count("PHRMonitor stopped"), round);
        draw({2}, 100);
        EXPECT_EQ(mLog.count("GFRMonitor initialized"), round) << "nobody would stop it";
        manager().init(true, 0, 0);
    }
}

}  // namespace
}  // namespace android
