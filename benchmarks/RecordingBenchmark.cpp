// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// How fast recordings are read, beside the least that any reader does: looking for the lines' ends.
// The figure to compare is bytes per second.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <string_view>

#include "replay/FtraceParser.h"
#include "replay/perfetto/PerfettoParser.h"
#include "replay/perfetto/PerfettoWriter.h"

namespace corvane::replay {
namespace {

constexpr int kEvents = 200'000;

// What a phone's recording mostly holds: scheduler switches (in text), slices and counters.
std::string markerOf(int i) {
    switch (i % 4) {
        case 0:
            return "B|1900|dequeueBuffer";
        case 1:
            return "E|1900";
        case 2:
            return "C|600|BufferTX - SurfaceView[com.example.arena/com.example.arena.GameActivity]"
                   "(BLAST)#101|" +
                   std::to_string(i % 3);
        default:
            return "C|600|VSYNC-sf|" + std::to_string(i / 4 % 2);
    }
}

std::string textTrace() {
    std::string text = "# tracer: nop\n";
    for (int i = 0; i < kEvents; ++i) {
        char head[96];
        std::snprintf(head, sizeof(head),
                      "    RenderThread-1920  ( 1900) [00%d] .... %d.%06d: tracing_mark_write: ",
                      i % 8, 1'000 + i / 10'000, i % 10'000 * 100);
        text += head + markerOf(i) + "\n";
    }
    return text;
}

std::string packetTrace() {
    std::string trace;
    PerfettoWriter writer([&](std::string_view bytes) { trace += bytes; });
    for (int i = 0; i < kEvents; ++i) {
        writer.print({1'000'000'000'000 + i * 100'000LL, 1920, markerOf(i)});
    }
    writer.finish();
    return trace;
}

// In pieces, as a file is read.
template <typename Feed>
void feedPieces(std::string_view trace, Feed feed) {
    constexpr size_t kPiece = 65'536;
    for (; !trace.empty(); trace.remove_prefix(std::min(kPiece, trace.size()))) {
        feed(trace.substr(0, kPiece));
    }
}

void countLines(benchmark::State& state, const std::string& trace) {
    for (auto _ : state) {
        auto lines = std::count(trace.begin(), trace.end(), '\n');
        benchmark::DoNotOptimize(lines);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(trace.size()));
}

void countTextLines(benchmark::State& state) {
    countLines(state, textTrace());
}
BENCHMARK(countTextLines)->Name("Recording/text/lines counted");

void parseText(benchmark::State& state) {
    const std::string trace = textTrace();
    for (auto _ : state) {
        size_t events = 0;
        parseFtrace(trace, [&](const TraceEvent&) { ++events; });
        if (events != kEvents) state.SkipWithError("events are missing");
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(trace.size()));
}
BENCHMARK(parseText)->Name("Recording/text/parsed");

void countPacketLines(benchmark::State& state) {
    countLines(state, packetTrace());
}
BENCHMARK(countPacketLines)->Name("Recording/packets/lines counted");

void parsePackets(benchmark::State& state) {
    const std::string trace = packetTrace();
    for (auto _ : state) {
        size_t prints = 0;
        PerfettoParser parser([&](const Print&) { ++prints; }, [](const FrameMark&) {});
        feedPieces(trace, [&](std::string_view piece) { parser.feed(piece); });
        parser.finish();
        if (prints != kEvents) state.SkipWithError("events are missing");
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(trace.size()));
}
BENCHMARK(parsePackets)->Name("Recording/packets/parsed");

}  // namespace
}  // namespace corvane::replay
