// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <android-base/properties.h>
#include <gtest/gtest.h>
#include <ui/Rect.h>

#include <string>

#include "corvane/host/LogCapture.h"
#include "corvane/host/PerfService.h"
#include "corvane/host/Simulation.h"
#include "layers/LayerInfo.h"
#include "layers/LayerManager.h"

namespace android {

using corvane::host::Simulation;

constexpr nsecs_t kMs = 1'000'000;
constexpr nsecs_t k60Hz = 16'666'667;

// The registry in simulated time, with a performance service and debug logging. Layer N belongs to
// application "com.example.appN" with pid 1000 + N and uid 10000 + N.
class RegistryTest : public ::testing::Test {
  protected:
    void SetUp() override {
        base::SetProperty("vendor.perf.corvane.debug", "1");
        setProperties();
        ASSERT_TRUE(corvane::host::PerfService::install());
        manager().init(/*smartTouchEnable=*/true, 0, 0);
    }

    // Properties are read once, before the first layer.
    virtual void setProperties() {}

    static LayerManager& manager() { return *LayerManager::getInstance(); }
    static std::string appOf(int id) { return "com.example.app" + std::to_string(id); }
    static int uidOf(int id) { return 10'000 + id; }

    void queue(int id) { queue(id, appOf(id) + "/Main#" + std::to_string(id), uidOf(id)); }
    void queue(int id, const std::string& name, int uid) {
        manager().onBufferIncrement(name, id, 1'000 + id, uid, 0, false, 0);
    }
    void latch(int id, bool focused = false, bool visible = true, int pending = 0) {
        manager().onBufferDecrement(appOf(id), id, pending, Rect(0, 0, 1080, 2400), focused,
                                    visible);
    }
    // One frame of each layer per interval, each latched at once.
    void draw(const std::vector<int>& layers, int frames, nsecs_t interval = k60Hz) {
        for (int i = 0; i < frames; ++i) {
            mSimulation.advance(interval);
            for (const int id : layers) {
                queue(id);
                latch(id);
            }
        }
    }
    void track(int id) {
        for (int i = 0; i < 100 && manager().getLayer(id) == nullptr; ++i) draw({id}, 1);
    }

    // Nothing is drawn for so long, then silent layers are looked for.
    void idle(nsecs_t duration) {
        mSimulation.advance(duration);
        manager().cleanupInactiveLayers(mSimulation.now());
    }

    static std::vector<corvane::host::PerfCall> events(int number) {
        Simulation::settle();
        return corvane::host::PerfService::calls("perf_event", number);
    }

    Simulation mSimulation{1'000'000'000'000};
    corvane::host::LogCapture mLog;
};

}  // namespace android
