// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "explore/stories/Game.h"

#include <android-base/properties.h>
#include <ui/Rect.h>

#include <string>

#include "corvane/hooks.h"
#include "corvane/host/Binder.h"
#include "corvane/host/PerfService.h"
#include "corvane/host/Simulation.h"
#include "layers/LayerManager.h"
#include "perf/PerfProxy.h"
#include "phr/PHRMonitor.h"

namespace corvane::explore::game {
namespace {

using android::PHRMonitor;
using android::base::SetProperty;
using host::PerfService;
using host::Simulation;

constexpr int kHeadroomRates = 4187;
constexpr int kFrameRescue = 4189;

}  // namespace

Call queueFrame() {
    const host::ScopedBinderCaller caller(1'001, 10'001);
    const int64_t begin = Simulation::now();
    corvaneTrackBufferIncrement(kLayerName, kLayer, true, 0, 0);
    return {begin, Simulation::now()};
}

void composite(int pending) {
    const android::Rect bounds(0, 0, 1'080, 2'400);
    corvaneTrackVsyncSignal();
    corvaneTrackBufferDecrement(kLayerName, kLayer, pending, &bounds, true, true);
}

void warmUp() {
    constexpr int kFramesToRate = 160;
    constexpr int kBusyFrames = 40;
    SetProperty("vendor.perf.phr.enable", "1");
    SetProperty("vendor.rdxe.enable.target_fps", "true");
    SetProperty("debug.vendor.perf.smart_touch", "1");
    PerfService::addGame(kPackage, 1);
    EXPLORE_CHECK(corvaneInit(0, 0), "the library is off");
    corvaneSetVsyncPeriod(kPeriod);
    PerfService::push(kHeadroomRates, kPackage, 0, 0, {0, 50, 0, 120});
    PerfService::push(kFrameRescue, std::string(kPackage) + ":golden=0.8", 0, 0, {1});
    for (int i = 0; i < kFramesToRate + kBusyFrames; ++i) {
        const int64_t next = Simulation::now() + kPeriod;
        composite(i < kFramesToRate ? 0 : 2);
        Simulation::sleepFor(kMs);
        queueFrame();
        Simulation::sleepUntil(next);
    }
    const auto state = PHRMonitor::getInstance()->getLayerState(kLayer);
    EXPLORE_CHECK(state != nullptr && state->mQuickTouchActive, "headroom control is off");
}

void stop() {
    const int64_t stopTime = Simulation::now();
    android::LayerManager::getInstance()->stop();
    delete android::PerfProxy::getInstance();
    EXPLORE_CHECK(Simulation::now() == stopTime, "the library stopped late");
}

}  // namespace corvane::explore::game
