// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "replay/FtraceParser.h"

namespace corvane::replay {
namespace {

struct Parsed {
    // "KIND TIME TID PID 'NAME' VALUE" each, the kind by its letter in the marker.
    std::vector<std::string> events;
    ParseStats stats;
};

Parsed parse(const std::string& text) {
    Parsed parsed;
    parsed.stats = parseFtrace(text, [&](const TraceEvent& e) {
        // Counter, begin, end, asynchronous begin and end.
        const std::string letter(1, "CBESF"[static_cast<int>(e.kind)]);
        parsed.events.push_back(letter + " " + std::to_string(e.timeNs) + " " +
                                std::to_string(e.tid) + " " + std::to_string(e.pid) + " '" +
                                std::string(e.name) + "' " + std::to_string(e.value));
    });
    return parsed;
}

TEST(FtraceParser, ReadsEveryFormOfLine) {
    const struct {
        const char* line;
        const char* event;
    } kCases[] = {
            {"  DispSync-601   [002] .... 1000.005839: tracing_mark_write: C|600|VSYNC-sf|1",
             "C 1000005839000 601 600 'VSYNC-sf' 1"},
            {" binder:600_1-602   (  600) [006] d..2. 7.5: tracing_mark_write: C|600|a|b#1|2",
             "C 7500000000 602 600 'a|b#1' 2"},
            {"<...>-17 (-----) [000] 0.000000001: tracing_mark_write: B|1900|queueBuffer",
             "B 1 17 1900 'queueBuffer' 0"},
            {"a [3] b-c-5\t[001] .... 1.0: tracing_mark_write: E|9\r", "E 1000000000 5 9 '' 0"},
            {"x-5 [001] .... 1.0: tracing_mark_write: E", "E 1000000000 5 0 '' 0"},
            {"x-5 [001] .... 1.0: 0: S|9|CPU headroom - a#1|4",
             "S 1000000000 5 9 'CPU headroom - a#1' 4"},
            {"x-5 [001] .... 1.0: 0: F|9|n|-4", "F 1000000000 5 9 'n' -4"},
            {"x-5 [001] .... 1.0: 0: E|9|name|1", "E 1000000000 5 9 '' 0"},
            {"x-5 [001] .... 1.0: print: C|9|n|4", "C 1000000000 5 9 'n' 4"},
            {"x-5 [001] .... 1.0: print: tracing_mark_write: C|9|n|4|7", "C 1000000000 5 9 'n' 4"},
            {"x-5 [001] .... 1.0: 0: C|9|a|b#3|4|gfx", "C 1000000000 5 9 'a|b#3' 4"},
    };
    for (const auto& test : kCases) {
        const auto parsed = parse(test.line);
        EXPECT_EQ(parsed.events, std::vector<std::string>{test.event});
        EXPECT_EQ(parsed.stats.damaged, 0U) << test.line;
    }
}

TEST(FtraceParser, SkipsOtherEventsSilentlyAndCountsDamage) {
    const std::string head = "x-5 [001] .... 1.0: tracing_mark_write: ", tail = ": C|600|v|1";
    const struct {
        size_t lines, damaged;  // each
        std::vector<std::string> texts;
    } kCases[] = {
            {0, 0, {"", "   \r", "# tracer: nop", "CPU:3 [LOST 7 EVENTS]"}},
            {1,
             0,
             {"x-5 [001] d..2 1.0: sched_switch: prev_comm=y prev_pid=5 [120] ==> z",
              head + "trace_event_clock_sync: parent_ts=1", head + "I|9|instant", head + "Counting",
              "x-5 [001] .... 1.0: print: Boot of 3|4", "x-5 [001] .... 1.0: print:"}},
            {1,
             1,
             {"rubbish", "x-5 [001] .... 1.0: tracing_mark_write:", head + "C|600|VSYNC-sf",
              head + "C|600|VSYNC-sf|", head + "C|600|VSYNC-sf|1x", head + "C||VSYNC-sf|1",
              head + "C|99999999999|v|1", head + "B|queueBuffer", "x-5 [001] .... 1: print" + tail,
              "x-5 [001] .... 1.: print" + tail, "x-5 [001] .... -1.0: print" + tail,
              "x-5 [001] .... 99999999999999999999.0: print" + tail,
              "x-5 [001] .... 9999999999.0: print" + tail, "x5 [001] .... 1.0: print" + tail,
              "[001] .... 1.0: print" + tail, "x-5 1.0: print" + tail, "x-5 [001] .... 1.0"}},
    };
    for (const auto& test : kCases) {
        for (const std::string& text : test.texts) {
            const auto parsed = parse("capturing trace... done\nTRACE:\n# tracer: nop\n" + text);
            EXPECT_EQ(parsed.events.size(), 0U) << text;
            EXPECT_EQ(parsed.stats.lines, test.lines) << text;
            EXPECT_EQ(parsed.stats.damaged, test.damaged) << text;
        }
    }
}

TEST(FtraceParser, ReadsTheTraceInsideThePageOfTheViewer) {
    const std::string line = "x-5 [001] .... 1.0: tracing_mark_write: C|600|VSYNC-sf|1";
    const std::string begin = "<script class=\"trace-data\" type=\"application/text\">\n";
    const std::string page = "<!DOCTYPE html>\n<script>if (a[1] > 2) x();</script>\n" + begin +
                             "USER PID PPID\nroot 1 0\n</script>\n" + begin + "# tracer: nop\n" +
                             line + "\n";
    // The first viewers kept it as a text of their script.
    const std::string old =
            "<!doctype html>\n<script>\n// <idle>-0 [001] .... 1.0: f: x\ng();\n"
            "var linuxPerfData = \"\\\n# tracer: nop\\n\\\n" +
            line + "\\n\\\n\\n\";\nmore();\n</script>";
    const std::string followed = page + "rubbish\n</script>\n<p>" + line + "</p></html>\n";
    for (const std::string& text : {page, followed, old}) {
        EXPECT_EQ(parse(text).events.size(), 1U);
        EXPECT_EQ(parse(text).stats.damaged, text == followed ? 1U : 0U);
    }
    EXPECT_EQ(parse("<script class=\"trace-data\"").events.size(), 0U);
}

// Whatever the bytes, and wherever a block of the file ends: parsing ends, and the good lines
// between the rubbish are all found.
TEST(FtraceParser, SurvivesRubbishAndHugeLinesInAnyPieces) {
    const std::string good = "\nx-5 [001] .... 1.0: tracing_mark_write: C|600|VSYNC-sf|1\r\n";
    std::mt19937 random(7);
    std::string text = "CPU:1 [LOST 12 EVENTS]" + good;
    for (int i = 0; i < 200; ++i) {
        std::string rubbish(random() % 2'000, '\0');
        for (auto& c : rubbish) {
            c = static_cast<char>(random());
            if (c == '\n') c = '[';
        }
        text += rubbish + good;
    }
    std::string brackets;
    while (brackets.size() < 4'000'000) brackets += "[1] 1.0:";
    text += std::string(8'000'000, '[') + good + std::string(8'000'000, '|') + good + brackets +
            good;
    const auto whole = parse(text);
    EXPECT_EQ(whole.events.size(), 204U);
    EXPECT_EQ(whole.stats.lostEvents, 12U);
    for (const size_t size : {1'021U, 69'000U}) {
        size_t events = 0;
        FtraceParser parser([&](const TraceEvent&) { ++events; });
        for (size_t at = 0; at < text.size(); at += size) parser.feed(text.substr(at, size));
        parser.finish();
        EXPECT_EQ(events, 204U) << size;
        EXPECT_EQ(parser.stats().damaged, whole.stats.damaged) << size;
    }
}

}  // namespace
}  // namespace corvane::replay
