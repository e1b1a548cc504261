// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

#include "corvane/host/Devices.h"
#include "gfr/GFRMonitor.h"

namespace android {
namespace {

using corvane::host::BoostDevice;

constexpr int kLayers = 3;
constexpr int kFramesPerLayer = 100'000'000;  // room for frame numbers in a request's headroom

// In real time on purpose: frames begin and end on one thread per layer, with periods so short that
// checks run all along, while others register, switch, tune, stop and start. A request's headroom
// tells its layer and frame. A check that acts on a frame other than its own would show as a level
// that comes twice, or without the one before it.
TEST(GFRMonitorStorm, EveryFrameClimbsItsOwnLevels) {
    BoostDevice::enable();
    GFRMonitor monitor;
    ASSERT_TRUE(monitor.init());
    monitor.setVsyncInfo(20'000, 0);

    std::atomic<bool> running{true};
    std::mutex switching[kLayers];  // an end without its begin belongs to the frame before
    std::vector<std::thread> threads;
    const auto pause = [](int us) { std::this_thread::sleep_for(std::chrono::microseconds(us)); };
    for (int layer = 0; layer < kLayers; ++layer) {
        threads.emplace_back([&, layer] {
            for (int32_t frame = 1; running; ++frame) {
                const nsecs_t tag = layer * kFramesPerLayer + frame;
                std::unique_lock<std::mutex> lock(switching[layer]);
                monitor.onQueueBegin(layer, systemTime(SYSTEM_TIME_MONOTONIC), tag, tag);
                monitor.onQueueEnd(layer, systemTime(SYSTEM_TIME_MONOTONIC), 0.0f);
                lock.unlock();
                monitor.updateFrameDropWindow(layer, frame % 12);
                if (frame % 4 == 0) pause(50);
            }
        });
    }
    threads.emplace_back([&] {
        GfrTunables tunables;
        for (int i = 0; running; ++i) {
            const int layer = i % kLayers;
            tunables.dynamic = i % 2 != 0;
            tunables.flag = i % 3;
            monitor.registerLayer(layer, "storm", "com.example.storm");
            monitor.setGFRActive(layer, true);
            monitor.updateLayerTunables(layer, tunables);
            pause(100);
            {
                const std::lock_guard<std::mutex> lock(switching[layer]);
                monitor.setGFRActive(layer, false);
                monitor.setGFRActive(layer, true);
            }
            if (i % 5 == 0) monitor.unregisterLayer(layer);
            monitor.setVsyncInfo(20'000 + i % 3, 0);
        }
    });
    while (BoostDevice::requests().size() < 100) {
        pause(2'000);
        monitor.forceStop();
        EXPECT_TRUE(monitor.init());
    }
    running = false;
    for (auto& thread : threads) thread.join();
    monitor.forceStop();

    std::map<int32_t, int32_t> lastLevel;  // by headroom
    for (const auto& request : BoostDevice::requests()) {
        // Level 0 releases; a layer registered between a frame's begin and end has no headroom.
        if (request.level == 0 || request.headroomNs == 0) continue;
        EXPECT_EQ(lastLevel[request.headroomNs] + 1, request.level) << request.headroomNs;
        lastLevel[request.headroomNs] = request.level;
    }
}

}  // namespace
}  // namespace android
