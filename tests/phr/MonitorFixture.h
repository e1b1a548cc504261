// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <android-base/properties.h>
#include <gtest/gtest.h>

#include <thread>

#include "corvane/host/LogCapture.h"
#include "corvane/host/PerfService.h"
#include "corvane/host/Simulation.h"
#include "features/FeatureManager.h"
#include "perf/PerfProxy.h"
#include "phr/PHRMonitor.h"

namespace android {

using corvane::host::Simulation;

constexpr nsecs_t kMs = 1'000'000;
constexpr nsecs_t kPeriod = 16 * kMs;  // exact in single precision
constexpr nsecs_t kStart = 1'000'000 * kMs;
constexpr int kLayer = 7;
constexpr float kRate = 0.25f;
constexpr nsecs_t kHeadroom = 4 * kMs;

// A monitor in simulated time with one registered layer, kLayer, on a 62.5 Hz display that calls
// itself 60 Hz.
class PhrMonitorTest : public ::testing::Test {
  protected:
    void start() {
        corvane::host::PerfService::install();
        FeatureManager::getInstance();  // sets debuggability from the properties
        PerfProxy::setDebuggable(true, false);
        ASSERT_TRUE(monitor.init());
        monitor.setVsyncInfo(kPeriod, 60);
        state = addLayer(kLayer, kRate);
    }

    sp<LayerPHRState> addLayer(int id, float rate) {
        monitor.registerLayer(id, "com.example.game/%s%n", rate, rate);
        return monitor.getLayerState(id);
    }

    // Queues a buffer on a thread of its own, which waits when this returns, or is through.
    std::thread queue(int id = kLayer) {
        std::thread thread([this, id] {
            monitor.onBufferIncrement(id, kPeriod, Simulation::now(), /*instant=*/false);
        });
        simulation.settle();
        return thread;
    }

    int32_t waiting() const {
        Mutex::Autolock lock(state->mLock);
        return state->mWaiting;
    }

    Simulation simulation{kStart};
    corvane::host::LogCapture log;
    PHRMonitor monitor;
    sp<LayerPHRState> state;
};

}  // namespace android
