// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <random>
#include <thread>
#include <vector>

#include "phr/PHRMonitor.h"

namespace android {
namespace {

// On the real clock and on purpose: every entry from many threads at once, while buffers are held
// back. What counts is that the sanitizers stay silent and that nobody stays blocked.
TEST(MonitorStressTest, EveryEntryFromManyThreads) {
    constexpr nsecs_t kPeriod = 2'000'000;
    PHRMonitor& monitor = *PHRMonitor::getInstance();
    ASSERT_TRUE(monitor.init());
    monitor.setVsyncInfo(kPeriod, 60);
    const auto now = [] { return systemTime(SYSTEM_TIME_MONOTONIC); };
    const std::function<void(int id, int64_t any)> entries[] = {
            [&](int id, int64_t any) {
                monitor.onBufferDecrement(id, static_cast<int>(any % 4), now());
            },
            [&](int id, int64_t) { monitor.registerLayer(id, "layer", 0.25f, 0.5f); },
            [&](int id, int64_t any) { any % 8 == 0 ? monitor.unregisterLayer(id) : void(); },
            [&](int id, int64_t any) { monitor.updateHeadRoom(id, any % 2 == 0 ? 1 : 0.5f, -1); },
            [&](int, int64_t any) { monitor.setVsyncInfo(kPeriod + any % 2, any % 2 ? 60 : 90); },
            [&](int id, int64_t any) { monitor.setTargetFpsStatus(id, any % 2, 1'000, 900); },
            [&](int id, int64_t) {
                monitor.resetAdaptivePhrState(monitor.getLayerState(id).get());
            },
            [&](int id, int64_t) { monitor.isTargetFpsSwitching(id); },
            [&](int id, int64_t any) { monitor.setQuickTouchStatus(id, any % 4 != 0); },
            [&](int id, int64_t) { monitor.unblockBuffer(id); },
            [&](int, int64_t) { monitor.onVsync(now()); },
    };
    std::atomic<bool> done{false};
    std::atomic<int> queued{0};
    std::vector<std::thread> threads;
    for (unsigned int seed = 1; seed <= 8; ++seed) {
        threads.emplace_back([&, seed] {
            std::minstd_rand random(seed);
            while (!done) {
                const int id = static_cast<int>(random() % 3);
                const int64_t any = static_cast<int64_t>(random() >> 4);
                if (seed % 2 != 0) {
                    entries[random() % std::size(entries)](id, any);
                    continue;
                }
                monitor.onBufferIncrement(id, any % (2 * kPeriod), now(), any % 8 == 0);
                ++queued;
            }
        });
    }
    for (int restart = 0; restart < 8; ++restart) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        monitor.forceStop();
        ASSERT_TRUE(monitor.init());
    }
    monitor.forceStop();
    done = true;
    for (std::thread& thread : threads) thread.join();
    EXPECT_GT(queued, 8);
}

}  // namespace
}  // namespace android
