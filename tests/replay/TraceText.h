// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdio>
#include <string>

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
    TraceText& begin(int tid, double ms, const std::string& name) {
        return line(tid, ms, "B|1|" + name);
    }
    TraceText& end(int tid, double ms) { return line(tid, ms, "E|1"); }
    TraceText& slice(int tid, double ms, const std::string& name) {
        return begin(tid, ms, name).end(tid, ms);
    }
    TraceText& async(int tid, double ms, char type, const std::string& name, int cookie) {
        return line(tid, ms, std::string(1, type) + "|1|" + name + "|" + std::to_string(cookie));
    }
    const std::string& str() const { return mText; }

  private:
    static constexpr int kCompositor = 600;

    TraceText& line(int tid, double ms, const std::string& marker) {
        char head[96];
        std::snprintf(head, sizeof(head), "  thread-%d  [001] .... %.6f: tracing_mark_write: ", tid,
                      1000.0 + ms / 1000.0);
        mText += head + marker + "\n";
        return *this;
    }

    std::string mText;
};

}  // namespace corvane::replay
