// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// What comes while a layer is being promoted, in many orders of the threads.

#include <android-base/properties.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "corvane/host/LogCapture.h"
#include "corvane/host/PerfService.h"
#include "corvane/host/Simulation.h"
#include "features/FeatureManager.h"
#include "layers/LayerInfo.h"
#include "layers/LayerManager.h"

namespace android {
namespace {

using corvane::host::LogCapture;
using corvane::host::Simulation;

constexpr nsecs_t kMs = 1'000'000;

Simulation::Options options(Simulation::Policy policy, nsecs_t callCost) {
    Simulation::Options result;
    result.policy = policy;
    result.callCost = {callCost, callCost};
    result.depth = 3;
    result.steps = 40;
    return result;
}

std::string appOf(int id) {
    return "com.example.app" + std::to_string(id);
}
LayerManager& manager() {
    return *LayerManager::getInstance();
}
void queue(int id) {
    manager().onBufferIncrement(appOf(id) + "/Main", id, id, id, 0, false, 0);
}
// Frames of layers `from` to `to`, each latched at once.
void draw(int from, int to, int frames, nsecs_t interval) {
    const nsecs_t begin = Simulation::now();
    for (int i = 1; i <= frames; ++i) {
        Simulation::advanceTo(begin + i * interval);
        for (int id = from; id <= to; ++id) {
            queue(id);
            manager().onBufferDecrement("", id, 0, Rect(), false, true);
        }
    }
}
bool isTracked(int id) {
    return manager().getLayer(id) != nullptr;
}

TEST(LayerRacesTest, TunablesDuringAPromotionAreNotLost) {
    const Simulation simulation(options(Simulation::Policy::kRandom, 0));
    ASSERT_TRUE(corvane::host::PerfService::install());
    FeatureManager& features = *FeatureManager::getInstance();
    for (int id = 1; id <= 60; ++id) {
        manager().init(/*smartTouchEnable=*/true, 0, 0);
        draw(id, id, 13, 40 * kMs);
        ASSERT_FALSE(isTracked(id));
        Simulation::advance(40 * kMs);
        // The next buffer promotes the first layer there is.
        std::thread producer([id] { queue(id); });
        std::thread tunables(
                [&] { features.setCallbackHintValue(4189, appOf(id) + ":golden=0.8", 0, 0, {1}); });
        producer.join();
        tunables.join();
        ASSERT_TRUE(isTracked(id));
        EXPECT_TRUE(manager().getLayer(id)->mGfrAllowed) << id;
        manager().stop();
    }
}

// A fifth layer is one too many only if it has a frame rate before its promotion is over: its
// thread stands still while others draw it for a second.
TEST(LayerRacesTest, AFifthSteadyLayerClosesTheRegistry) {
    const Simulation simulation(options(Simulation::Policy::kPct, kMs / 2));
    const LogCapture log;
    for (int round = 0; round < 500 && log.count("reached maximum tracking limit") == 0; ++round) {
        manager().stop();
        manager().init(/*smartTouchEnable=*/true, 0, 0);
        draw(1, 4, 60, 40 * kMs);
        draw(1, 5, 13, 40 * kMs);
        ASSERT_FALSE(isTracked(5));
        Simulation::restartSchedule();
        std::thread stalled([] { queue(5); });
        for (int i = 0; i < 140; ++i) {
            for (int id = 1; id <= 5; ++id) queue(id);
        }
        stalled.join();
    }
    ASSERT_EQ(log.count("Active layer count reached maximum tracking limit."), 1u);
    EXPECT_FALSE(isTracked(1)) << "of equals the first goes";
    const auto cleanUp = [] { manager().cleanupInactiveLayers(Simulation::now()); };
    draw(2, 6, 40, 40 * kMs);
    cleanUp();
    EXPECT_FALSE(isTracked(6)) << "four and a candidate are too many";
    for (int i = 0; i < 2; ++i) {
        draw(3, 6, 40, 40 * kMs);
        EXPECT_FALSE(isTracked(6));
        cleanUp();
    }
    EXPECT_EQ(log.count("Active layer count dropped back within the tracking limit."), 1u);
    draw(3, 6, 14, 40 * kMs);
    EXPECT_TRUE(isTracked(6));
}

}  // namespace
}  // namespace android
