// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <iterator>
#include <random>
#include <thread>
#include <vector>

#include "phr/PHRMonitor.h"

namespace android {
namespace {

// On the real clock: every entry from many threads at once, while buffers are held back. What
// counts is that the sanitizers stay silent and that nobody stays blocked.
TEST(MonitorStressTest, EveryEntryFromManyThreads) {
    constexpr nsecs_t kPeriod = 2'000'000;
    constexpr int kLayers = 3;
    constexpr int kRestarts = 8;
    PHRMonitor* const monitor = PHRMonitor::getInstance();
    ASSERT_TRUE(monitor->init());
    monitor->setVsyncInfo(kPeriod, 60);

    std::atomic<bool> done{false};
    std::atomic<int> queued{0};
    std::vector<std::thread> threads;
    const auto run = [&](const std::function<void(int id, std::minstd_rand& random)>& body) {
        threads.emplace_back([&done, body, seed = threads.size() + 1] {
            std::minstd_rand random(seed);
            while (!done) body(static_cast<int>(random() % kLayers), random);
        });
    };
    for (int i = 0; i < 6; ++i) {
        run([&](int id, auto& random) {
            monitor->onBufferIncrement(id, static_cast<nsecs_t>(random() % (2 * kPeriod)),
                                       systemTime(SYSTEM_TIME_MONOTONIC), random() % 8 == 0);
            ++queued;
        });
    }
    run([&](int, auto&) {
        monitor->onVsync(systemTime(SYSTEM_TIME_MONOTONIC));
        std::this_thread::sleep_for(std::chrono::microseconds(500));
    });
    for (int i = 0; i < 2; ++i) {
        run([&](int id, auto& random) {
            monitor->onBufferDecrement(id, static_cast<int>(random() % 4),
                                       systemTime(SYSTEM_TIME_MONOTONIC));
        });
        run([&](int id, auto& random) {
            const bool coin = random() % 2 == 0;
            const std::function<void()> entries[] = {
                    [&] { monitor->registerLayer(id, "layer", 0.25f, 0.5f); },
                    [&] {
                        if (random() % 8 == 0) monitor->unregisterLayer(id);
                    },
                    [&] { monitor->updateHeadRoom(id, static_cast<float>(random() % 3), -1); },
                    [&] { monitor->setVsyncInfo(kPeriod + coin, coin ? 60 : 90); },
                    [&] { monitor->setTargetFpsStatus(id, coin, 1'000, 900); },
                    [&] { monitor->resetAdaptivePhrState(monitor->getLayerState(id).get()); },
                    [&] { monitor->isTargetFpsSwitching(id); },
                    [&] { monitor->setQuickTouchStatus(id, random() % 4 != 0); },
            };
            entries[random() % std::size(entries)]();
        });
    }
    run([&](int id, auto&) {
        monitor->unblockBuffer(id);
        std::this_thread::sleep_for(std::chrono::microseconds(500));
    });

    for (int restart = 0; restart < kRestarts; ++restart) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        monitor->forceStop();
        ASSERT_TRUE(monitor->init());
    }
    monitor->forceStop();
    done = true;
    for (std::thread& thread : threads) thread.join();
    EXPECT_GT(queued, kRestarts);
}

}  // namespace
}  // namespace android
