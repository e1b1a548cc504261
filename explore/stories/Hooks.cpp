// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "corvane/hooks.h"

#include <android-base/properties.h>
#include <ui/Rect.h>

#include "corvane/host/PerfService.h"
#include "corvane/host/Simulation.h"
#include "explore/stories/Game.h"
#include "explore/stories/Stories.h"
#include "layers/LayerManager.h"
#include "perf/PerfProxy.h"

namespace corvane::explore {
namespace {

using android::LayerManager;
using android::base::SetProperty;
using game::kLayer;
using game::kLayerName;
using game::kPackage;
using host::PerfService;
using host::Simulation;

constexpr char kSmartTouch[] = "debug.vendor.perf.smart_touch";
constexpr int64_t kFrame = 40 * kMs;
constexpr int kFrames = 15;  // the layer is tracked after half a second

// As late as a binder thread may find the library switched off, half stopped or gone.
void queueFrames() {
    for (int i = 0; i < kFrames; ++i) {
        const game::Call call = game::queueFrame();
        EXPLORE_CHECK(call.end - call.begin <= 2 * kFrame, "a buffer was held for %lld ns",
                      static_cast<long long>(call.end - call.begin));
        Simulation::sleepUntil(call.begin + kFrame);
    }
}

void composite(int64_t start) {
    EXPLORE_CHECK(corvaneInit(0, 0), "the library is off");
    corvaneSetVsyncPeriod(16'666'667);
    const android::Rect bounds(0, 0, 1'080, 2'400);
    for (int i = 0; i < kFrames; ++i) {
        Simulation::sleepUntil(start + i * kFrame);
        corvaneTrackVsyncSignal();
        corvaneTrackBufferDecrement(kLayerName, kLayer, 1, &bounds, true, true);
        if (i == kFrames / 2) corvaneUnblockPendingBuffer();
    }
    if (draw(2) != 0) return;
    // While its last buffer may be held.
    LayerManager::getInstance()->stop();
    LayerManager::getInstance()->init(true, 0, 0);
}

}  // namespace

void hooks() {
    SetProperty("vendor.perf.phr.enable", "1");
    SetProperty("vendor.rdxe.enable.target_fps", "true");
    SetProperty(kSmartTouch, "0");
    PerfService::addGame(kPackage, 1);
    const int64_t begin = Simulation::now();
    auto queueing = [] { queueFrames(); };
    auto compositing = [begin] { composite(begin); };
    auto initialising = [] { corvaneInit(1, 1); };
    auto flipping = [] {
        const uint64_t flips = draw(4);
        for (uint64_t i = 1; i <= flips; ++i) SetProperty(kSmartTouch, i % 2 == 0 ? "0" : "1");
    };
    auto calling = [] {
        constexpr int kHeadroomRates = 4187;
        constexpr int kTargetFps = 4171;
        Simulation::sleepFor(drawOne<int64_t>({0, kFrame, 12 * kFrame}));
        PerfService::push(kHeadroomRates, kPackage, 0, 0, {0, 50, 0, 50});
        if (draw(2) == 0) PerfService::push(kTargetFps, kPackage, 3'000, 0, {});
    };
    std::thread threads[] = {start("compositor", compositing), start("queue", queueing),
                             start("init", initialising), start("flips", flipping),
                             start("service", calling)};
    for (std::thread& thread : threads) thread.join();
    Simulation::settle();
    const bool isOn = android::base::GetBoolProperty(kSmartTouch, false);
    EXPLORE_CHECK(corvaneSmartTouchEnabled() == isOn, "a flip of smart touch was lost");
    EXPLORE_CHECK(PerfService::calls("perf_callback_register", 4).size() == 1,
                  "the callback was registered %zu times",
                  PerfService::calls("perf_callback_register", 4).size());
    const int64_t stopTime = Simulation::now();
    LayerManager::getInstance()->stop();
    delete android::PerfProxy::getInstance();
    EXPLORE_CHECK(Simulation::now() == stopTime, "the library stopped late");
}

}  // namespace corvane::explore
