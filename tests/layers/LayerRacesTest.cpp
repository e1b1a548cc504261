// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// What comes while a layer is being promoted, in many orders of the threads.

#include <android-base/properties.h>
#include <gtest/gtest.h>

#include <thread>

#include "corvane/host/PerfService.h"
#include "corvane/host/Simulation.h"
#include "features/FeatureManager.h"
#include "layers/LayerInfo.h"
#include "layers/LayerManager.h"

namespace android {
namespace {

using corvane::host::Simulation;

TEST(LayerRacesTest, TunablesDuringAPromotionAreNotLost) {
    Simulation::Options options;
    options.policy = Simulation::Policy::kRandom;
    const Simulation simulation(options);
    base::SetProperty("vendor.rdxe.enable.target_fps", "true");
    ASSERT_TRUE(corvane::host::PerfService::install());
    LayerManager& manager = *LayerManager::getInstance();
    FeatureManager& features = *FeatureManager::getInstance();
    for (int id = 1; id <= 60; ++id) {
        const std::string package = "com.example.app" + std::to_string(id);
        manager.init(/*smartTouchEnable=*/true, 0, 0);
        const auto queue = [&] { manager.onBufferIncrement(package + "/Main", id, 1, 1, 0, 0, 0); };
        for (int i = 0; i < 13; ++i) {
            Simulation::advance(40'000'000);
            queue();
        }
        Simulation::advance(40'000'000);
        ASSERT_EQ(manager.getLayer(id), nullptr);
        // The next buffer promotes the first layer there is.
        std::thread producer(queue);
        std::thread tunables(
                [&] { features.setCallbackHintValue(4189, package + ":golden=0.8", 0, 0, {1}); });
        producer.join();
        tunables.join();
        const sp<LayerInfo> layer = manager.getLayer(id);
        ASSERT_NE(layer, nullptr);
        EXPECT_TRUE(layer->mGfrAllowed) << id;
        manager.stop();
    }
}

}  // namespace
}  // namespace android
