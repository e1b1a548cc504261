// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <benchmark/benchmark.h>

#include "gfr/GFRMonitor.h"

namespace android {
namespace {

constexpr nsecs_t kPeriod = 16'666'667;

// A frame in time of a rescued layer, as the queueing thread pays for it: begin, end, the check's
// posting and cancelling. The argument tells whether the layer's tunables are dynamic.
void frameInTime(benchmark::State& state) {
    constexpr int kLayer = 1;
    GFRMonitor monitor;
    if (!monitor.init()) {
        state.SkipWithError("no monitor");
        return;
    }
    monitor.setVsyncInfo(kPeriod, 60);
    monitor.registerLayer(kLayer, "com.example.game/Main#1", "com.example.game");
    GfrTunables tunables;
    tunables.dynamic = state.range(0) != 0;
    monitor.updateLayerTunables(kLayer, tunables);
    monitor.setGFRActive(kLayer, true);
    for (auto _ : state) {
        const nsecs_t now = systemTime(SYSTEM_TIME_MONOTONIC);
        monitor.onQueueBegin(kLayer, now, kPeriod / 2, kPeriod);
        monitor.onQueueEnd(kLayer, now, 0.0f);
    }
}
BENCHMARK(frameInTime)->Name("GFRMonitor/frameInTime")->ArgName("dynamic")->Arg(0)->Arg(1);

// The decision alone.
void decide(benchmark::State& state) {
    GfrTunables tunables;
    tunables.histJank = true;
    FrameDeadlines deadlines;
    deadlines.update(kPeriod, 0.0f, tunables, 0.2f, /*force=*/true);
    FrameDropWindow dropWindow;
    dropWindow.record(3);
    BoostInputs inputs(deadlines, tunables, dropWindow);
    inputs.baseMHz = 500;
    inputs.maxFreqMHz = 3'000;
    for (auto _ : state) {
        inputs.ttdNs = (inputs.ttdNs + 1'000) % kPeriod;
        benchmark::DoNotOptimize(decideBoost(inputs));
    }
}
BENCHMARK(decide)->Name("GFRMonitor/decideBoost");

}  // namespace
}  // namespace android
