// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <android-base/properties.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <future>
#include <thread>

#include "corvane/host/Clock.h"
#include "corvane/host/LogCapture.h"
#include "corvane/host/PerfService.h"
#include "features/FeatureManager.h"
#include "perf/PerfProxy.h"
#include "phr/PHRMonitor.h"

namespace android {

constexpr nsecs_t kMs = 1'000'000;
constexpr nsecs_t kPeriod = 16 * kMs;  // exact in single precision
constexpr nsecs_t kStart = 1'000'000 * kMs;
constexpr int kLayer = 7;
constexpr float kRate = 0.25f;
constexpr nsecs_t kHeadroom = 4 * kMs;

// True once the call has returned, false when that takes longer than any machine needs.
inline bool returns(const std::future<void>& call) {
    return call.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
}

inline bool hasReturned(const std::future<void>& call) {
    return call.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
}

// Waits for something that another thread is about to do.
inline bool becomes(const std::function<bool()>& condition) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > limit) return false;
        std::this_thread::yield();  // nanosleep would follow the driven clock
    }
    return true;
}

// A monitor on a driven clock with one registered layer, kLayer, on a 62.5 Hz display that calls
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

    // Queues a buffer on a thread of its own.
    std::future<void> queue(bool instant = false, int id = kLayer) {
        return std::async(std::launch::async, [this, instant, id, now = clock.now()] {
            monitor.onBufferIncrement(id, kPeriod, now, instant);
        });
    }

    int32_t waiting() const {
        Mutex::Autolock lock(state->mLock);
        return state->mWaiting;
    }

    nsecs_t maxHeadroom() const {
        Mutex::Autolock lock(state->mFieldsLock);
        return state->mMaxHeadroom;
    }

    corvane::host::DrivenClock clock{kStart};
    corvane::host::LogCapture log;
    PHRMonitor monitor;
    sp<LayerPHRState> state;
};

}  // namespace android
