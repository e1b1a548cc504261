// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Every hook from many threads at once, while layers come and go and the service changes its mind.

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <random>
#include <thread>

#include "HookTest.h"
#include "corvane/host/Devices.h"

namespace corvane::host {
namespace {

using std::chrono::milliseconds;

TEST_F(HookTest, EveryHookFromManyThreads) {
    for (const char* name :
         {"vendor.perf.phr.enable", "vendor.rdxe.enable.target_fps",
          "vendor.perf.gpu_jank_detect.enable", "debug.vendor.perf.smart_touch",
          "debug.perf.enable_big_jank_detect", "debug.perf.cpu_big_jank_threshold_ms"}) {
        set(name, "1");
    }
    for (int id = 1; id <= 6; ++id) PerfService::addGame(TestLayer::ofApp(id).package, id);
    BoostDevice::enable();
    const int fence = SyncFiles::create("mdrt-timeline");

    std::atomic<bool> running{true};
    std::vector<std::thread> threads;
    // `body` takes random numbers below a limit.
    const auto repeat = [&](int pauseMs, auto body) {
        threads.emplace_back([=, &running, seed = threads.size()] {
            std::mt19937 random(static_cast<unsigned>(seed));
            const auto below = [&random](int limit) { return static_cast<int>(random() % limit); };
            while (running) {
                body(below);
                std::this_thread::sleep_for(milliseconds(below(pauseMs)));
            }
        });
    };
    // Each layer is drawn by two threads; the later ones are too many to be tracked.
    for (int i = 0; i < 12; ++i) {
        repeat(16, [layer = TestLayer::ofApp(1 + i % 6)](auto& below) {
            corvaneInit(0, 0);
            layer.queue(below(8) == 0);
        });
    }
    repeat(8, [fence](auto& below) {
        for (int id = 1; id <= 6; ++id) {
            TestLayer::ofApp(id).latch(below(32) != 0, below(3), below(6) == 0);
            corvaneTrackLatchUnsignaledGpuFence(fence, id);
        }
        corvaneTrackVsyncSignal();
        corvaneFlushLatchUnsignaledGpuFences();
    });
    repeat(10, [fence](auto& below) {
        const int64_t periods[] = {k60Hz, 8'333'333, 11'111'111, 0, -1, 15'000'000};
        corvaneSetVsyncPeriod(periods[below(6)]);
        corvaneUnblockPendingBuffer();
        corvaneNotifyGpuFenceUnsignaled(fence, 1 + below(6));
        corvaneIsTargetFpsActive();
    });
    repeat(20, [](auto& below) {
        if (!PerfService::hasCallback()) return;
        const std::string package = TestLayer::ofApp(1 + below(6)).package;
        PerfService::push(4171, package, below(3) * 3'000, 0, {});
        PerfService::push(4187, package, 0, 0, {0, below(2) * 80, 0, 120});
        PerfService::push(4189, package + ":dynamic=1_histJank=1", 0, 0, {below(3)});
        PerfService::push(4192, package, below(3), 0, {});
    });
    // An application's render and input threads, and its switches, which also start it anew.
    repeat(1, [](auto& below) {
        bool isAuto = true;
        int64_t presentTime = -1;
        uint32_t flags = 0xff;
        aCorvaneSetVsyncTime(below(1'000));
        aCorvaneQueueBuffer(below(2) == 0);
        aCorvaneFilterBuffer(&isAuto, &presentTime, &flags);
    });
    repeat(1, [](auto& below) {
        bool consume = false;
        aCorvaneSetTouchEvent(below(9));
        aCorvaneConsumeInputNow(&consume);
    });
    repeat(10, [](auto& below) {
        set("debug.vendor.perf.smart_touch", corvaneSmartTouchEnabled() ? "0" : "1");
        set("debug.vendor.perf.smart_touch.move", below(2) == 0 ? "1" : "0");
        if (below(40) == 0) aCorvaneAppInit();
    });
    const auto promotions = [this] { return mLog.count("Add new layer to full tracking"); };
    const auto reports = [] { return PerfService::calls("perf_event", 4194).size(); };
    // Until everything has been under way, on a slow machine a minute.
    int rounds = 0;
    do {
        std::this_thread::sleep_for(milliseconds(1'200));
    } while (++rounds < 50 && (promotions() == 0 || reports() == 0));
    running = false;
    for (std::thread& thread : threads) thread.join();
    close(fence);
    EXPECT_GT(promotions(), 0u);
    EXPECT_GT(reports(), 0u);
}

}  // namespace
}  // namespace corvane::host
