// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <algorithm>
#include <cstdio>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace corvane::replay {

// Writes a trace as a phone's compositor (process 600) would. Times in milliseconds.
class TraceText {
  public:
    TraceText& counterOf(int pid, double ms, const std::string& name, int value) {
        return line(602, ms, "C|" + std::to_string(pid) + "|" + name + "|" + std::to_string(value));
    }
    TraceText& counter(double ms, const std::string& name, int value) {
        return counterOf(kCompositor, ms, name, value);
    }
    TraceText& vsyncs(double firstMs, double periodMs, int count) {
        for (int i = 0; i < count; ++i) counter(firstMs + i * periodMs, "VSYNC-sf", (i + 1) % 2);
        return *this;
    }
    // A call of "queueBuffer" or "dequeueBuffer".
    TraceText& bufferCall(int pid, const std::string& name, double beginMs, double endMs) {
        line(pid + 20, beginMs, "B|" + std::to_string(pid) + "|" + name);
        return line(pid + 20, endMs, "E|" + std::to_string(pid));
    }
    // A thread's call that takes no time.
    TraceText& slice(int tid, double ms, const std::string& name) {
        return line(tid, ms, "B|1|" + name).line(tid, ms, "E|1");
    }
    std::string str() const {
        std::string text;
        for (const auto& [isCounter, line] : mLines) text += line;
        return text;
    }
    // Counters in any order, after all else: each processor writes its own lines.
    std::string shuffled(std::mt19937& random) {
        const auto counters = std::stable_partition(mLines.begin(), mLines.end(),
                                                    [](auto& line) { return !line.first; });
        std::shuffle(counters, mLines.end(), random);
        return str();
    }

  private:
    static constexpr int kCompositor = 600;

    TraceText& line(int tid, double ms, const std::string& marker) {
        char head[96];
        std::snprintf(head, sizeof(head), "  thread-%d  [001] .... %.6f: tracing_mark_write: ", tid,
                      1000.0 + ms / 1000.0);
        mLines.emplace_back(marker[0] == 'C', head + marker + "\n");
        return *this;
    }

    std::vector<std::pair<bool, std::string>> mLines;  // whether it is a counter's
};

}  // namespace corvane::replay
