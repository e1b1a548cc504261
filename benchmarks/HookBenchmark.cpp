// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <benchmark/benchmark.h>
#include <ui/Rect.h>

#include <chrono>
#include <thread>

#include "corvane/hooks.h"
#include "corvane/host/Binder.h"
#include "corvane/host/PerfService.h"
#include "layers/LayerInfo.h"
#include "layers/LayerManager.h"

namespace {

constexpr char kLayerName[] = "com.example.reader/com.example.reader.MainActivity#41";
constexpr int32_t kLayer = 41;
constexpr int64_t kPeriod = 16'666'667;

bool sIsInitialised = false;

void queue() {
    corvaneTrackBufferIncrement(kLayerName, kLayer, true, 0, 0);
}

void latch() {
    static const android::Rect bounds(0, 0, 1080, 2400);
    corvaneTrackBufferDecrement(kLayerName, kLayer, 0, &bounds, false, true);
}

// A library that is switched off, or was not initialised. Registered first, so they run first.

template <void (*Hook)()>
void disabled(benchmark::State& state) {
    if (sIsInitialised) {
        state.SkipWithError("initialised already");
        return;
    }
    for (auto _ : state) Hook();
}
BENCHMARK(disabled<queue>)->Name("Hook/disabled/TrackBufferIncrement");
BENCHMARK(disabled<latch>)->Name("Hook/disabled/TrackBufferDecrement");
BENCHMARK(disabled<corvaneTrackVsyncSignal>)->Name("Hook/disabled/TrackVsyncSignal");
BENCHMARK(disabled<corvaneFlushLatchUnsignaledGpuFences>)
        ->Name("Hook/disabled/FlushLatchUnsignaledGpuFences");

// One layer, tracked, no feature on.

// Draws for as long as it takes the layer to be tracked. False when it is not.
bool trackLayer() {
    if (!sIsInitialised) {
        sIsInitialised = corvane::host::PerfService::install() && corvaneInit(0, 0);
        corvaneSetVsyncPeriod(kPeriod);
    }
    for (int frame = 0; frame < 45; ++frame) {
        queue();
        latch();
        std::this_thread::sleep_for(std::chrono::nanoseconds(kPeriod));
    }
    return android::LayerManager::getInstance()->getLayer(kLayer) != nullptr;
}

template <void (*Hook)()>
void tracked(benchmark::State& state) {
    const corvane::host::ScopedBinderCaller caller(1000, 10'041);
    if (!trackLayer()) {
        state.SkipWithError("the layer is not tracked");
        return;
    }
    for (auto _ : state) Hook();
}

void queueAndLatch() {
    queue();
    latch();
}

BENCHMARK(tracked<queueAndLatch>)->Name("Hook/tracked/QueueAndLatch");
BENCHMARK(tracked<corvaneTrackVsyncSignal>)->Name("Hook/tracked/TrackVsyncSignal");

// A layer whose name yields no package is never tracked, and must not cost much for it.
void untracked(benchmark::State& state) {
    const corvane::host::ScopedBinderCaller caller(1000, 10'041);
    trackLayer();
    for (auto _ : state) corvaneTrackBufferIncrement("Wallpaper BBQ wrapper#7", 7, true, 0, 0);
}
BENCHMARK(untracked)->Name("Hook/untracked/TrackBufferIncrement");

}  // namespace
