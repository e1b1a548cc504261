// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Every hook from many threads at once, while layers come and go and the service changes its mind.

#include <unistd.h>

#include <chrono>
#include <random>
#include <thread>

#include "HookTest.h"
#include "corvane/host/Devices.h"

namespace corvane::host {
namespace {

using std::chrono::steady_clock;

TEST_F(HookTest, EveryHookFromManyThreads) {
    set("vendor.perf.phr.enable", "1");
    set("vendor.rdxe.enable.target_fps", "true");
    set("vendor.perf.gpu_jank_detect.enable", "true");
    set("debug.vendor.perf.smart_touch", "1");
    set("debug.perf.enable_big_jank_detect", "true");
    set("debug.perf.cpu_big_jank_threshold_ms", "1");
    for (int id = 1; id <= 6; ++id) PerfService::addGame(TestLayer::ofApp(id).package, id);
    BoostDevice::enable();
    const int fence = SyncFiles::create("mdrt-timeline");

    const auto end = steady_clock::now() + std::chrono::seconds(4);
    const auto running = [&] { return steady_clock::now() < end; };
    std::vector<std::thread> threads;
    // Each layer is drawn by two threads; the later ones are too many to be tracked. A third of the
    // producers goes silent for half of the time.
    for (int i = 0; i < 12; ++i) {
        threads.emplace_back([&, i] {
            const TestLayer layer = TestLayer::ofApp(1 + i % 6);
            std::mt19937 random(static_cast<unsigned>(i));
            while (running()) {
                corvaneInit(i, i);
                const auto pause = i % 3 == 0 && random() % 64 == 0 ? 1'200 : random() % 16;
                std::this_thread::sleep_for(std::chrono::milliseconds(pause));
                layer.queue(random() % 8 == 0);
            }
        });
    }
    threads.emplace_back([&] {
        std::mt19937 random(12);
        while (running()) {
            for (int id = 1; id <= 6; ++id) {
                TestLayer::ofApp(id).latch(random() % 32 != 0, static_cast<int>(random() % 3),
                                           random() % 6 == 0);
                corvaneTrackLatchUnsignaledGpuFence(fence, id);
            }
            corvaneTrackVsyncSignal();
            corvaneFlushLatchUnsignaledGpuFences();
            std::this_thread::sleep_for(std::chrono::milliseconds(4));
        }
    });
    threads.emplace_back([&] {
        std::mt19937 random(13);
        const int64_t periods[] = {k60Hz, 8'333'333, 11'111'111, 0, -1, 15'000'000};
        while (running()) {
            corvaneSetVsyncPeriod(periods[random() % 6]);
            corvaneUnblockPendingBuffer();
            corvaneNotifyGpuFenceUnsignaled(fence, 1 + static_cast<int>(random() % 6));
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    });
    threads.emplace_back([&] {
        std::mt19937 random(14);
        while (running()) {
            if (!PerfService::hasCallback()) continue;
            const std::string package = TestLayer::ofApp(1 + random() % 6).package;
            PerfService::push(4171, package, static_cast<int>(random() % 3) * 3'000, 0, {});
            PerfService::push(4187, package, 0, 0,
                              {0, static_cast<int>(random() % 2) * 80, 0, 120});
            PerfService::push(4189, package + ":dynamic=1_histJank=1", 0, 0,
                              {static_cast<int>(random() % 3)});
            PerfService::push(4192, package, static_cast<int>(random() % 3), 0, {});
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    });
    threads.emplace_back([&] {
        while (running()) {
            corvaneIsTargetFpsActive();
            set("debug.vendor.perf.smart_touch", corvaneSmartTouchEnabled() ? "0" : "1");
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    });
    // An application's render and input threads, and its switch, which also starts it anew.
    threads.emplace_back([&] {
        for (int64_t i = 0; running(); ++i) {
            bool isAuto = true;
            int64_t presentTime = -1;
            uint32_t flags = 0xff;
            aCorvaneSetVsyncTime(i);
            aCorvaneQueueBuffer(i % 2 == 0);
            aCorvaneFilterBuffer(&isAuto, &presentTime, &flags);
        }
    });
    threads.emplace_back([&] {
        for (int i = 0; running(); ++i) {
            bool consume = false;
            aCorvaneSetTouchEvent(i % 9);
            aCorvaneConsumeInputNow(&consume);
        }
    });
    threads.emplace_back([&] {
        for (int i = 0; running(); ++i) {
            set("debug.vendor.perf.smart_touch.move", i % 2 == 0 ? "1" : "0");
            if (i % 50 == 0) aCorvaneAppInit();
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    });
    for (std::thread& thread : threads) thread.join();
    close(fence);
    EXPECT_GT(mLog.count("Add new layer to full tracking"), 0u);
    EXPECT_GT(PerfService::calls("perf_event", 4194).size(), 0u);
}

}  // namespace
}  // namespace corvane::host
