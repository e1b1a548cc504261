// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <benchmark/benchmark.h>

#include <chrono>
#include <regex>
#include <string>

#include "perf/PerfProxy.h"

namespace android {
namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

// Names of many thousand characters take the bare expression's matcher seconds, and its stack.
constexpr int64_t kLongestForRegex = 1024;

// Given, since the benchmark library counts only our own time and would go on for minutes.
constexpr int kRounds = 500;

enum Shape : int64_t { SURFACE_VIEW, ACTIVITY, WORDS };
constexpr const char* kShapeNames[] = {"surface view", "activity", "words"};

std::string nameOf(Shape shape, int64_t length) {
    const auto filled = [length](std::string head, const std::string& tail) {
        const size_t rest = static_cast<size_t>(length) - head.size() - tail.size();
        return head.append(rest, 'a') + tail;
    };
    switch (shape) {
        case SURFACE_VIEW:
            return filled("SurfaceView[com.example.game/", "]#1");
        case ACTIVITY:
            return filled("com.example.game/com.example.game.", "#12");
        default:
            return filled("", "#1");  // nothing matches it, but only its end tells
    }
}

// The analysis of a name, and the bare surface-view expression on the same name in turn with it, so
// that both see the same machine. Time is the analysis's; "regex/ours" is how often it fits into
// the bare match.
void analyse(benchmark::State& state) {
    constexpr int kBatch = 16;  // so that it takes far longer than reading the clock
    const std::string name = nameOf(static_cast<Shape>(state.range(0)), state.range(1));
    const std::regex expression(R"((?:\w*\s*SurfaceView\[)([^/]+).*#\d+)");
    state.SetLabel(kShapeNames[state.range(0)]);
    const bool compare = state.range(1) <= kLongestForRegex;
    Seconds ours{0};
    Seconds bare{0};
    for (auto _ : state) {
        const auto begin = Clock::now();
        for (int i = 0; i < kBatch; ++i) {
            benchmark::DoNotOptimize(PerfProxy::getPackageName(name));
        }
        const auto middle = Clock::now();
        std::smatch match;
        if (compare) benchmark::DoNotOptimize(std::regex_match(name, match, expression));
        bare += Clock::now() - middle;
        ours += middle - begin;
        state.SetIterationTime(Seconds(middle - begin).count() / kBatch);
    }
    if (compare) state.counters["regex/ours"] = bare / (ours / kBatch);
}
BENCHMARK(analyse)
        ->Name("LayerName/getPackageName")
        ->ArgNames({"shape", "length"})
        ->ArgsProduct({{SURFACE_VIEW, ACTIVITY, WORDS}, {48, 96, 128, 192, 1024, 4096, 200'000}})
        ->Iterations(kRounds)
        ->UseManualTime();

}  // namespace
}  // namespace android
