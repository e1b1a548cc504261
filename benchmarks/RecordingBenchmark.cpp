// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// How fast recordings are read, beside the least that any reader does: reading the file and looking
// for its lines' ends. The figure to compare is bytes per second.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include "replay/InputFile.h"
#include "replay/TraceReader.h"
#include "replay/perfetto/PerfettoWriter.h"

namespace corvane::replay {
namespace {

constexpr int kEvents = 200'000;

// What a phone's recording holds for the replay: slices and counters.
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

// A file of its own that goes away with the benchmark.
class TemporaryFile {
  public:
    explicit TemporaryFile(const std::string& contents) : mSize(contents.size()) {
        const int fd = mkstemp(mPath.data());
        if (fd < 0 || write(fd, contents.data(), contents.size()) < 0) std::abort();
        close(fd);
    }
    ~TemporaryFile() { unlink(mPath.c_str()); }
    const std::string& path() const { return mPath; }
    int64_t size() const { return static_cast<int64_t>(mSize); }

  private:
    std::string mPath = std::filesystem::temp_directory_path() / "corvane-benchmark-XXXXXX";
    const size_t mSize;
};

void countLines(benchmark::State& state, const std::string& trace) {
    const TemporaryFile file(trace);
    std::string block(262'144, '\0');
    for (auto _ : state) {
        InputFile input(file.path());
        std::ptrdiff_t lines = 0;
        while (const size_t count = input.read(block.data(), block.size())) {
            lines += std::count(block.data(), block.data() + count, '\n');
        }
        benchmark::DoNotOptimize(lines);
    }
    state.SetBytesProcessed(state.iterations() * file.size());
}

void parse(benchmark::State& state, const std::string& trace) {
    const TemporaryFile file(trace);
    for (auto _ : state) {
        size_t events = 0;
        TraceReader reader([&](const TraceEvent&) { ++events; }, [](const FrameMark&) {});
        if (!reader.read(file.path()).empty() || events != kEvents) {
            state.SkipWithError("events are missing");
        }
    }
    state.SetBytesProcessed(state.iterations() * file.size());
}

void countTextLines(benchmark::State& state) {
    countLines(state, textTrace());
}
BENCHMARK(countTextLines)->Name("Recording/text/lines counted");

void parseText(benchmark::State& state) {
    parse(state, textTrace());
}
BENCHMARK(parseText)->Name("Recording/text/parsed");

void countPacketLines(benchmark::State& state) {
    countLines(state, packetTrace());
}
BENCHMARK(countPacketLines)->Name("Recording/packets/lines counted");

void parsePackets(benchmark::State& state) {
    parse(state, packetTrace());
}
BENCHMARK(parsePackets)->Name("Recording/packets/parsed");

}  // namespace
}  // namespace corvane::replay
