// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <ui/Rect.h>

#include "corvane/host/PerfService.h"
#include "corvane/host/Simulation.h"
#include "explore/stories/Stories.h"
#include "layers/LayerManager.h"
#include "perf/PerfProxy.h"

namespace corvane::explore {
namespace {

using android::LayerManager;
using host::PerfCall;
using host::PerfService;
using host::Simulation;

constexpr int64_t kFrame = 40 * kMs;
constexpr int kFrames = 15;  // a layer is tracked after half a second
constexpr int64_t kSecond = 1'000 * kMs;

struct App {
    int id;
    const char* package;
    const char* layer;

    void drawFrames() const {
        for (int i = 0; i < kFrames; ++i) {
            const int64_t begin = Simulation::now();
            LayerManager::getInstance()->onBufferIncrement(layer, id, 1'000 + id, 10'000 + id, 0,
                                                           false, 0);
            Simulation::sleepUntil(begin + kFrame);
        }
    }
};

constexpr App kApps[] = {{1, "com.example.one", "com.example.one/Main#1"},
                         {2, "com.example.two", "com.example.two/Main#2"}};

// How many applications the last report told; -1 without one.
int reported() {
    const auto calls = PerfService::calls("perf_event", 4194);
    return calls.empty() ? -1 : calls.back().args.back();
}

int lowLatencyLocks() {
    int held = 0;
    for (const PerfCall& call : PerfService::calls()) {
        if (call.entry == "perf_lock_acq") ++held;
        if (call.entry == "perf_lock_rel") --held;
        EXPLORE_CHECK(held <= 1, "%d low-latency locks are held", held);
    }
    return held;
}

}  // namespace

void scenes() {
    for (const App& app : kApps) PerfService::addGame(app.package, app.id);
    LayerManager* manager = LayerManager::getInstance();
    manager->init(false, 0, 0);
    manager->setVsyncPeriod(16'666'667);
    const int64_t begin = Simulation::now();
    auto first = [] { kApps[0].drawFrames(); };
    auto second = [] { kApps[1].drawFrames(); };
    auto compositing = [manager, begin] {
        const android::Rect bounds(0, 0, 1'080, 2'400);
        for (int i = 10; i <= kFrames; ++i) {
            Simulation::sleepUntil(begin + i * kFrame);
            const App& focused = kApps[draw(2)];
            for (const App& app : kApps) {
                manager->onBufferDecrement(app.layer, app.id, 0, bounds, &app == &focused, true);
            }
            manager->onVsync(Simulation::now());
        }
    };
    auto scheduling = [manager, begin] {
        Simulation::sleepUntil(begin + drawOne<int64_t>({13, 14}) * kFrame);
        manager->scheduleNotifyUserScene(drawOne<int64_t>({0, kFrame}));
        manager->checkMultiLayer(Simulation::now());
    };
    std::thread threads[] = {start("first", first), start("second", second),
                             start("compositor", compositing), start("scenes", scheduling)};
    for (std::thread& thread : threads) thread.join();
    Simulation::advance(kFrame);
    manager->checkMultiLayer(Simulation::now());
    Simulation::settle();
    EXPLORE_CHECK(reported() == 2, "both applications draw, and %d are reported", reported());
    EXPLORE_CHECK(lowLatencyLocks() == 1, "one of them holds the low-latency lock");

    // Both fall silent and are retired by the periodic cleanup; then one comes back.
    Simulation::advance(5 * kSecond);
    auto vsync = [manager] { manager->onVsync(Simulation::now()); };
    auto check = [manager] { manager->checkMultiLayer(Simulation::now()); };
    std::thread silent[] = {start("vsync", vsync), start("check", check), start("first", first)};
    for (std::thread& thread : silent) thread.join();
    manager->checkMultiLayer(Simulation::now());
    Simulation::settle();
    EXPLORE_CHECK(reported() == 1, "one application draws, and %d are reported", reported());
    EXPLORE_CHECK(lowLatencyLocks() == 1, "it holds the low-latency lock");
    Simulation::advance(5 * kSecond);
    manager->cleanupInactiveLayers(Simulation::now());
    manager->checkMultiLayer(Simulation::now());
    Simulation::settle();
    EXPLORE_CHECK(reported() == 0, "nobody draws, and %d are reported", reported());
    EXPLORE_CHECK(lowLatencyLocks() == 0, "nobody draws, and the low-latency lock is held");
    manager->stop();
    delete android::PerfProxy::getInstance();
}

}  // namespace corvane::explore
