// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <ostream>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "replay/FtraceParser.h"

namespace corvane::replay {
namespace {

struct Owned {
    TraceEvent::Kind kind;
    int64_t timeNs;
    int tid;
    int pid;
    std::string name;
    int64_t value;

    bool operator==(const Owned& o) const {
        return std::tie(kind, timeNs, tid, pid, name, value) ==
               std::tie(o.kind, o.timeNs, o.tid, o.pid, o.name, o.value);
    }
    friend std::ostream& operator<<(std::ostream& out, const Owned& o) {
        return out << "kind " << static_cast<int>(o.kind) << " at " << o.timeNs << " tid " << o.tid
                   << " pid " << o.pid << " '" << o.name << "' " << o.value;
    }
};

struct Parsed {
    std::vector<Owned> events;
    ParseStats stats;
};

Parsed parse(const std::string& text) {
    Parsed parsed;
    parsed.stats = parseFtrace(text, [&](const TraceEvent& e) {
        parsed.events.push_back({e.kind, e.timeNs, e.tid, e.pid, std::string(e.name), e.value});
    });
    return parsed;
}

using Kind = TraceEvent::Kind;

TEST(FtraceParser, ReadsEveryFormOfLine) {
    const struct {
        const char* line;
        Owned expected;
    } kCases[] = {
            {"  DispSync-601   [002] .... 1000.005839: tracing_mark_write: C|600|VSYNC-sf|1",
             {Kind::kCounter, 1000'005'839'000, 601, 600, "VSYNC-sf", 1}},
            {" binder:600_1-602   (  600) [006] d..2. 7.5: tracing_mark_write: C|600|a|b#1|2",
             {Kind::kCounter, 7'500'000'000, 602, 600, "a|b#1", 2}},
            {"<...>-17 (-----) [000] 0.000000001: tracing_mark_write: B|1900|queueBuffer",
             {Kind::kBegin, 1, 17, 1900, "queueBuffer", 0}},
            {"a [3] b-c-5\t[001] .... 1.0: tracing_mark_write: E|9\r",
             {Kind::kEnd, 1'000'000'000, 5, 9, "", 0}},
            {"x-5 [001] .... 1.0: tracing_mark_write: E", {Kind::kEnd, 1'000'000'000, 5, 0, "", 0}},
            {"x-5 [001] .... 1.0: tracing_mark_write: S|9|CPU headroom - a#1|4",
             {Kind::kAsyncBegin, 1'000'000'000, 5, 9, "CPU headroom - a#1", 4}},
            {"x-5 [001] .... 1.0: tracing_mark_write: F|9|n|-4",
             {Kind::kAsyncEnd, 1'000'000'000, 5, 9, "n", -4}},
    };
    for (const auto& test : kCases) {
        const auto parsed = parse(test.line);
        ASSERT_EQ(parsed.events.size(), 1U) << test.line;
        EXPECT_EQ(parsed.events[0], test.expected) << test.line;
        EXPECT_EQ(parsed.stats.damaged, 0U) << test.line;
    }
}

TEST(FtraceParser, SkipsOtherEventsSilentlyAndCountsDamage) {
    const struct {
        const char* line;
        size_t lines, damaged;
    } kCases[] = {
            {"", 0, 0},
            {"   \r", 0, 0},
            {"# tracer: nop", 0, 0},
            {"x-5 [001] d..2 1.0: sched_switch: prev_comm=y prev_pid=5 [120] ==> z", 1, 0},
            {"x-5 [001] .... 1.0: tracing_mark_write: trace_event_clock_sync: parent_ts=1", 1, 0},
            {"x-5 [001] .... 1.0: tracing_mark_write: I|9|instant", 1, 0},
            {"capturing trace... done", 1, 1},
            {"x-5 [001] .... 1.0: tracing_mark_write:", 1, 1},
            {"x-5 [001] .... 1.0: tracing_mark_write: C|600|VSYNC-sf", 1, 1},
            {"x-5 [001] .... 1.0: tracing_mark_write: C|600|VSYNC-sf|", 1, 1},
            {"x-5 [001] .... 1.0: tracing_mark_write: C|600|VSYNC-sf|1x", 1, 1},
            {"x-5 [001] .... 1.0: tracing_mark_write: C||VSYNC-sf|1", 1, 1},
            {"x-5 [001] .... 1.0: tracing_mark_write: C|99999999999|v|1", 1, 1},
            {"x-5 [001] .... 1.0: tracing_mark_write: B|queueBuffer", 1, 1},
            {"x-5 [001] .... 1: tracing_mark_write: C|600|v|1", 1, 1},
            {"x-5 [001] .... 1.: tracing_mark_write: C|600|v|1", 1, 1},
            {"x-5 [001] .... -1.0: tracing_mark_write: C|600|v|1", 1, 1},
            {"x-5 [001] .... 99999999999999999999.0: tracing_mark_write: C|600|v|1", 1, 1},
            {"x-5 [001] .... 9999999999.0: tracing_mark_write: C|600|v|1", 1, 1},
            {"x5 [001] .... 1.0: tracing_mark_write: C|600|v|1", 1, 1},
            {"[001] .... 1.0: tracing_mark_write: C|600|v|1", 1, 1},
            {"x-5 1.0: tracing_mark_write: C|600|v|1", 1, 1},
            {"x-5 [001] .... 1.0", 1, 1},
    };
    for (const auto& test : kCases) {
        const auto parsed = parse(test.line);
        EXPECT_EQ(parsed.events.size(), 0U) << test.line;
        EXPECT_EQ(parsed.stats.lines, test.lines) << test.line;
        EXPECT_EQ(parsed.stats.damaged, test.damaged) << test.line;
    }
}

TEST(FtraceParser, ReadsTheTraceInsideThePageOfTheViewer) {
    const std::string line = "x-5 [001] .... 1.0: tracing_mark_write: C|600|VSYNC-sf|1\n";
    const std::string page =
            "<!DOCTYPE html>\n<script>if (a[1] > 2) x();</script>\n"
            "<script class=\"trace-data\" type=\"application/text\">\nUSER PID PPID\n"
            "root 1 0\n</script>\n"
            "<script class=\"trace-data\" type=\"application/text\">\n# tracer: nop\n" +
            line + "rubbish\n</script>\n<p>" + line + "</p></html>\n";
    const auto parsed = parse(page);
    EXPECT_EQ(parsed.events.size(), 1U);
    EXPECT_EQ(parsed.stats.lines, 2U);
    EXPECT_EQ(parsed.stats.damaged, 1U);

    EXPECT_EQ(parse(page.substr(0, page.find("rubbish"))).events.size(), 1U) << "page cut short";
    EXPECT_EQ(parse("<script class=\"trace-data\"").events.size(), 0U);
}

// Whatever the bytes, parsing ends, and the good lines between the rubbish are all found.
TEST(FtraceParser, SurvivesRubbishAndHugeLines) {
    const std::string good = "\nx-5 [001] .... 1.0: tracing_mark_write: C|600|VSYNC-sf|1\n";
    std::mt19937 random(7);
    std::string text = good;
    for (int i = 0; i < 200; ++i) {
        std::string rubbish(random() % 2'000, '\0');
        for (auto& c : rubbish) {
            c = static_cast<char>(random());
            if (c == '\n') c = '[';
        }
        text += rubbish + good;
    }
    text += std::string(8'000'000, '[') + good + std::string(8'000'000, '|') + good;
    std::string brackets;
    while (brackets.size() < 4'000'000) brackets += "[1] 1.0:";
    text += brackets + good;
    EXPECT_EQ(parse(text).events.size(), 204U);
}

}  // namespace
}  // namespace corvane::replay
