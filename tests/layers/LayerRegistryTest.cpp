// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Candidates, promotion, limits, retirement and the application cache.

#include <atomic>
#include <future>
#include <thread>
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

TEST_F(LayerRegistryTest, PromotesWithTheIdentityOfTheProducer) {
    draw({1}, 30);
    EXPECT_EQ(manager().getLayer(1), nullptr) << "0.5 s are over with the next buffer";
    EXPECT_EQ(mLog.count("Add new candidate layer: 1 [com.example.app1/Main#1]"), 1u);
    draw({1}, 1);
    const sp<LayerInfo> layer = manager().getLayer(1);
    ASSERT_NE(layer, nullptr);
    EXPECT_EQ(layer->mId, 1);
    EXPECT_EQ(layer->mName, "com.example.app1/Main#1");
    EXPECT_EQ(layer->mPackageName, "com.example.app1");
    EXPECT_EQ(layer->mPid, 1'001);
    EXPECT_EQ(layer->mUid, 10'001);
    EXPECT_TRUE(layer->mActive);
    EXPECT_EQ(mLog.count("Add new layer to full tracking: [com.example.app1/Main#1] layer 1"), 1u);

    // A game or not, as the boost worker is told.
    PerfService::addGame(appOf(2), 7);
    track(2);
    mSimulation.settle();
    const auto calls = PerfService::calls("perf_get_feedback", 5633);
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[1].package, appOf(2));
    EXPECT_EQ(calls[1].thread, "BP");
    EXPECT_TRUE(manager().getLayer(2)->mIsGame);
    EXPECT_EQ(manager().getLayer(2)->mGameWeight, 7);

    for (const int id : {0, -7}) {
        draw({id}, 60);
        EXPECT_EQ(manager().getLayer(id), nullptr);
        EXPECT_FALSE(isCandidate(id));
    }
}

TEST_F(LayerRegistryTest, LimitsCandidates) {
    for (int id = 1; id <= 11; ++id) {
        mSimulation.advance(kMs);
        queue(id);
    }
    EXPECT_EQ(mLog.count("Force remove"), 0u) << "the eleventh is accepted";
    queue(12);
    EXPECT_EQ(mLog.count("Force remove candidate layer"), 2u);
    EXPECT_EQ(mLog.count("Force remove candidate layer [1]"), 1u);
    EXPECT_EQ(mLog.count("Force remove candidate layer [2]"), 1u);
    EXPECT_EQ(mLog.count("Candidate layer count reached maximum tracking limit."), 1u);
    queue(13);
    EXPECT_FALSE(isCandidate(13));

    // Six stay alive: still too many to reopen.
    mSimulation.advance(1'000 * kMs);
    for (int id = 7; id <= 12; ++id) queue(id);
    mSimulation.advance(1'500 * kMs);
    manager().cleanupCandidates(mSimulation.now());
    queue(13);
    EXPECT_FALSE(isCandidate(13));
    for (int id = 8; id <= 12; ++id) queue(id);
    mSimulation.advance(500 * kMs);
    manager().cleanupCandidates(mSimulation.now());
    EXPECT_EQ(mLog.count("Remove candidate layer [7]"), 0u) << "silent for two seconds";
    mSimulation.advance(1);
    manager().cleanupCandidates(mSimulation.now());
    EXPECT_EQ(mLog.count("Remove candidate layer [7]"), 1u);
    EXPECT_EQ(mLog.count("Candidate layer count dropped back within the tracking limit."), 1u);
    queue(13);
    EXPECT_TRUE(isCandidate(13));
}

TEST_F(LayerRegistryTest, FourLayersStayTracked) {
    const std::vector<int> fast = {1, 2, 3, 4};
    draw(fast, 100);
    for (const int id : fast) ASSERT_NE(manager().getLayer(id), nullptr) << id;
    ASSERT_EQ(manager().getLayer(4)->mFpsMode, 60);

    // The fifth has no frame rate yet and is the one to go, whatever it does.
    draw({1, 2, 3, 4, 5}, 40);
    EXPECT_EQ(mLog.count("Add new layer to full tracking: [com.example.app5/Main#5]"), 1u);
    EXPECT_EQ(manager().getLayer(5), nullptr);
    for (const int id : fast) EXPECT_NE(manager().getLayer(id), nullptr) << id;
}

TEST_F(LayerRegistryTest, RevivesWithinTheGraceAndDropsAfterIt) {
    track(1);
    draw({1}, 70);
    const sp<LayerInfo> layer = manager().getLayer(1);
    ASSERT_EQ(layer->mFpsMode, 60);

    idle(1'000'000'000);
    EXPECT_TRUE(layer->mActive) << "not more than a second";
    idle(1);
    EXPECT_FALSE(layer->mActive);
    EXPECT_EQ(layer->mRemoveDeadline, mSimulation.now() + 1'000'000'000);
    draw({1}, 1);
    EXPECT_TRUE(layer->mActive);
    EXPECT_EQ(layer->mRemoveDeadline, 0);
    EXPECT_EQ(layer->mFpsMode, 60);
    EXPECT_EQ(manager().getLayer(1), layer);

    idle(1'000'000'001);
    idle(999'999'999);
    EXPECT_NE(manager().getLayer(1), nullptr);
    idle(1);
    EXPECT_EQ(manager().getLayer(1), nullptr);
    EXPECT_EQ(mLog.count("marked for removal (no frame update within 1s)"), 2u);
    EXPECT_EQ(mLog.count("Unregistered layer 1: [com.example.app1/Main#1]"), 1u);
    EXPECT_EQ(layer->mFpsMode, 60) << "our reference keeps the record";

    // Vsyncs look for silent layers every three seconds.
    track(1);
    manager().onVsync(mSimulation.now());
    mSimulation.advance(3'000'000'000);
    manager().onVsync(mSimulation.now());
    EXPECT_EQ(mLog.count("marked for removal"), 2u);
    mSimulation.advance(1);
    manager().onVsync(mSimulation.now());
    EXPECT_EQ(mLog.count("marked for removal"), 3u);
}

TEST_F(LayerRegistryTest, TakesThePackageOfTheUser) {
    track(1);
    queue(7, "Splash#7", uidOf(1));
    EXPECT_EQ(mLog.count("Layer [Splash#7] get pkg from AppInfo cache (uid=10001): "
                         "com.example.app1"),
              1u);
    EXPECT_TRUE(isCandidate(7));
    queue(8, "Splash#8", uidOf(8));
    EXPECT_FALSE(isCandidate(8));

    // The system user's layers have no common package.
    for (int i = 0; i < 40; ++i) {
        mSimulation.advance(k60Hz);
        queue(9, "com.example.system/Main#9", 0);
    }
    ASSERT_NE(manager().getLayer(9), nullptr);
    queue(10, "Splash#10", 0);
    EXPECT_FALSE(isCandidate(10));
}

TEST_F(LayerRegistryTest, RemembersTenApplications) {
    track(1);
    for (int id = 2; id <= 10; ++id) draw({1, id}, 40);
    EXPECT_EQ(mLog.count("Remove oldest app from mAppInfoMap"), 0u);
    // The first one's layer is latched all the time; the second one's package is asked for again.
    queue(22, "Splash#22", uidOf(2));
    draw({1, 11}, 40);
    EXPECT_EQ(mLog.count("Remove oldest app from mAppInfoMap: [com.example.app3]"), 1u);
    for (int i = 0; i < 40; ++i) {
        mSimulation.advance(k60Hz);
        queue(30, appOf(10) + "/Other#30", uidOf(10));
    }
    EXPECT_EQ(mLog.count("Add new layer to full tracking: [com.example.app10/Other#30]"), 1u);
    EXPECT_EQ(mLog.count("Remove oldest app from mAppInfoMap"), 1u) << "already known";
}

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

// Paced and rescued by what its package has, it turns out to be a game's after all three of its
// settings have changed: the monitors must hear of each.
TEST_F(MonitorLifecycleTest, ALateAnswerIsAConfigurationChange) {
    for (const bool rescued : {true, false}) {
        const int id = rescued ? 1 : 2;
        const std::string layer = "Layer " + std::to_string(id);
        PerfService::addGame(appOf(id), 7);
        std::promise<void> answer;
        PerfProxy::getInstance()->postTask([go = answer.get_future().share()] { go.wait(); });
        configure(4189, appOf(id) + ":golden=0.8", 0, {1});
        configure(4171, appOf(id), 5'000, {});
        configure(4187, appOf(id), 0, {0, 80, 0, 120});
        while (mLog.count(layer + ": enable target fps") == 0) draw({id}, 1);
        EXPECT_EQ(mLog.count(layer + " enable GFR"), 1u);

        configure(4171, appOf(id), 0, {});
        configure(4189, "1.2;1.5", 0, {rescued ? 1 : 0});
        mLog.clear();
        answer.set_value();
        mSimulation.settle();
        ASSERT_TRUE(manager().getLayer(id)->mIsGame);
        EXPECT_EQ(mLog.count(layer + " set headroom"), 1u);
        EXPECT_EQ(mLog.count(layer + ": disable target fps"), 1u);
        EXPECT_EQ(mLog.count("updateLayerTunables layer " + std::to_string(id)), rescued ? 1u : 0u);
        EXPECT_EQ(mLog.count(layer + " disable GFR"), rescued ? 0u : 1u);
    }
}

TEST_F(MonitorLifecycleTest, StopsUnderLoad) {
    std::atomic<bool> running{true};
    std::vector<std::thread> producers;
    for (int id = 1; id <= 3; ++id) {
        producers.emplace_back([&, id] {
            while (running) {
                queue(id);
                latch(id, id == 1);
                manager().onVsync(mSimulation.now());
                Simulation::sleepFor(k60Hz);
            }
        });
    }
    size_t registered = 0;
    for (int round = 0; round < 20 && !HasFailure(); ++round) {
        mSimulation.advance(2'000 * kMs);
        EXPECT_GT(mLog.count("PHR: Registered layer"), registered);
        manager().stop();
        registered = mLog.count("PHR: Registered layer");
        manager().init(true, 0, 0);
    }
    running = false;
    for (std::thread& producer : producers) producer.join();
    manager().stop();
    EXPECT_EQ(mLog.count("GFRMonitor initialized"), mLog.count("GFRMonitor stopped"));
    EXPECT_EQ(mLog.count("PHRMonitor initialized"), mLog.count("PHRMonitor stopped"));
}

}  // namespace
}  // namespace android
