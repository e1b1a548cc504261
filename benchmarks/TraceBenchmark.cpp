// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <benchmark/benchmark.h>

#include "perf/PerfProxy.h"

namespace android {
namespace {

// The wrappers as they are on phones in users' hands: debugging off. Each should cost a load and a
// compare.
void logOff(benchmark::State& state) {
    PerfProxy::setDebuggable(false, false);
    for (auto _ : state) PerfProxy::VLOGD("Corvane", "layer %d [%s]", 1, "name");
}
BENCHMARK(logOff)->Name("Trace/off/VLOGD");

void nameOff(benchmark::State& state) {
    PerfProxy::setDebuggable(false, false);
    for (auto _ : state) PerfProxy::VTRACE_NAME("name");
}
BENCHMARK(nameOff)->Name("Trace/off/VTRACE_NAME");

void formatOff(benchmark::State& state) {
    PerfProxy::setDebuggable(false, false);
    for (auto _ : state) PerfProxy::VTRACE_FORMAT("layer %d [%s]", 1, "name");
}
BENCHMARK(formatOff)->Name("Trace/off/VTRACE_FORMAT");

void profileOff(benchmark::State& state) {
    PerfProxy::setDebuggable(false, false);
    for (auto _ : state) PerfProxy::VTRACE_PROFILE("layer %d [%s]", 1, "name");
}
BENCHMARK(profileOff)->Name("Trace/off/VTRACE_PROFILE");

// Debugging on, but the graphics tag not enabled: what the formatting costs.
void formatUntagged(benchmark::State& state) {
    PerfProxy::setDebuggable(true, false);
    for (auto _ : state) PerfProxy::VTRACE_FORMAT("layer %d [%s]", 1, "name");
    PerfProxy::setDebuggable(false, false);
}
BENCHMARK(formatUntagged)->Name("Trace/untagged/VTRACE_FORMAT");

}  // namespace
}  // namespace android
