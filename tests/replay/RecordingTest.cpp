// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <cctype>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "TraceText.h"
#include "replay/DisplayRate.h"
#include "replay/Recording.h"
#include "replay/ScenarioNotes.h"
#include "replay/TextTable.h"

namespace corvane::replay {
namespace {

Recording parse(const std::string& text) {
    const auto result = parseRecording(text);
    EXPECT_TRUE(result.recording) << result.error;
    return result.recording.value_or(Recording{});
}

// What a counter's samples, a millisecond apart, come to: "NAME id ID, DEPTH [qMS] [lMSxCOUNT]
// DEPTH". A rise is a queue, a fall a latch.
TEST(Recording, LayersAreWhatTheCompositorsBufferCountersCount) {
    const struct {
        const char* counter;
        std::vector<int> samples;
        const char* layer;
    } kCases[] = {
            {"BufferTX - a/b#7", {1, 3, 3, 1, 0}, "a/b#7 id 7, 0 q1 q2 q2 l4x2 l5x1 0"},
            {"a/b#7", {1}, ""},  // the queue's own counter goes first
            {"c/d#8", {0, 1}, "c/d#8 id 8, 1 l1x1 q2 1"},
            {"e/f#9", {2, 0}, "e/f#9 id 9, 1 q1 l2x2 0"},
            {"g/h#3", {0, 0}, ""},
            {"i/j#4", {1, 65, -1}, "i/j#4 id 4, 0 q1 1"},  // more than a queue can hold: damaged
            {"m#0", {1}, "m#0 id 2, 0 q1 1"},              // an id of its own
            {"n#0", {1}, "n#0 id 3, 0 q1 1"},
            {"o#1", {1}, "o#1 id 1, 0 q1 1"},
            {"p#1", {1}, "p#1 id 5, 0 q1 1"},
            {"q#99999999999", {1}, "q#99999999999 id 6, 0 q1 1"},
    };
    TraceText text;
    text.vsyncs(0, 16.0, 4).counterOf(777, 1.0, "other/process#5", 1);
    std::vector<std::string> expected, layers;
    for (const auto& test : kCases) {
        double ms = static_cast<double>(test.samples.size());  // the last one first
        for (auto sample = test.samples.rbegin(); sample != test.samples.rend(); ++sample) {
            text.counter(ms--, test.counter, *sample);
        }
        if (*test.layer != '\0') expected.emplace_back(test.layer);
    }
    for (const char* none :
         {"TX - k/l#5", "QueuedBuffer - k/l#5", "k/l#5 fps", "k/l#", "plain", "#7"}) {
        text.counter(1.0, none, 1);
    }
    text.counter(500'000'000.0, "c/d#8", 1);  // far from all others
    const Recording recording = parse(text.str());
    for (const Layer& layer : recording.layers) {
        layers.push_back(format("%s id %d, %d", layer.name.c_str(), layer.id, layer.initialDepth));
    }
    for (const Step& step : recording.steps) {
        const int ms = static_cast<int>(step.timeNs / 1'000'000);
        if (step.kind == Step::Kind::kQueue) layers[step.layer] += format(" q%d", ms);
        if (step.kind == Step::Kind::kLatch)
            layers[step.layer] += format(" l%dx%d", ms, step.count);
    }
    for (size_t i = 0; i < layers.size(); ++i) {
        layers[i] += format(" %d", recording.layers[i].finalDepth);
    }
    EXPECT_EQ(layers, expected);
    EXPECT_EQ(recording.skippedLines, 3U);
    EXPECT_EQ(recording.durationNs, 48'000'000);
    EXPECT_EQ(recording.notes.size(), 1U) << "of the layer without a name";
}

// Signals as "SIGNAL FROM UNTIL PERIOD STEPS...": in milliseconds, one after that many periods of
// the display, in turn. Behind them counters as "MS VALUE NAME".
TEST(Recording, TheRateIsToldByWhatKnowsItBest) {
    const struct {
        const char* what;
        const char* trace;
        const char* rates;
        const char* source;
        const char* note = nullptr;
    } kCases[] = {
            {"the applications' signal knows more",
             "VSYNC-sf 0 3000 8.333 2;VSYNC-app 3 3000 8.333 1", "120", "VSYNC-sf and VSYNC-app"},
            {"no compositor's signal", "VSYNC-app 0 1000 16.667 1", "60", "VSYNC-app"},
            {"content alone", "VSYNC-sf 0 2000 16.667 2", "30", "intervals",
             "slower than displays refresh"},
            {"a switch and back",
             "VSYNC-sf 0 2000 16.667 1;VSYNC-sf 2000 4000 8.333 1;VSYNC-sf 4000 6000 16.667 1",
             "60; 120 at 2.0 s; 60 at 4.0 s", "intervals", "looks like content"},
            {"a counter of the period goes first",
             "VSYNC-sf 0 3000 16.667 1;5 8333333 VsyncPeriod;1000 8340000 VsyncPeriod;2000 "
             "16666667 VsyncPeriod;"
             "2500 0 VsyncPeriod",
             "120; 60 at 2.0 s", "counter VsyncPeriod"},
            {"in microseconds, of the period rather than of the rate",
             "VSYNC-sf 0 1000 16.667 1;5 60 ActiveModeFPS_HWC;5 11111 VSP-period 4630", "90",
             "VSP-period 4630"},
            {"a counter that is written at a switch only",
             "VSYNC-sf 0 3000 16.667 1;2000 120 ActiveModeFPS_HWC", "60; 120 at 2.0 s",
             "ActiveModeFPS_HWC"},
            {"counters that no display has",
             "VSYNC-sf 0 3000 16.667 1;1 2000000000 ActiveModeFPS_HWC;2 -5 ActiveModeFPS_HWC", "60",
             "intervals"},
            {"nothing in common", "VSYNC-sf 0 10 8 1", "125", "the median", "no common period"},
            {"the times at which frames were expected", "", "60", "expected"},
    };
    for (const auto& test : kCases) {
        SCOPED_TRACE(test.what);
        std::mt19937 random(7);
        std::uniform_real_distribution<double> late(0.0, 0.4);
        TraceText text;
        text.counter(1.0, "a/b#7", 1);
        int value = 0;
        std::istringstream rows(test.trace);
        for (std::string row, signal; std::getline(rows, row, ';');) {
            std::istringstream stream(row);
            double ms = 0, untilMs = 0, periodMs = 0;
            if (isdigit(row[0]) != 0) {
                stream >> ms >> value >> std::ws;
                std::getline(stream, signal);
                text.counter(ms, signal, value);
                continue;
            }
            stream >> signal >> ms >> untilMs >> periodMs;
            const std::vector<int> steps{std::istream_iterator<int>(stream), {}};
            for (size_t i = 0; ms < untilMs - 1.0; ++i) {
                text.counter(ms + (untilMs > 10 ? late(random) : 0), signal, value ^= 1);
                ms += periodMs * steps[i % steps.size()];
            }
        }
        for (int i = 0; *test.trace == '\0' && i < 60; ++i) {
            text.slice(600, 16.667 * i + i % 3,
                       format("commit %d vsyncIn %.2fms", i, 20.0 - i % 3));
        }
        const Recording recording = parse(text.str());
        std::string rates = format("%.0f", 1e9 / static_cast<double>(recording.vsyncPeriodNs));
        for (const auto& [atNs, periodNs] : recording.rateChanges) {
            const double hz = 1e9 / static_cast<double>(periodNs);
            rates += format("; %.0f at %.1f s", hz, static_cast<double>(atNs) / 1e9);
        }
        EXPECT_EQ(rates, test.rates);
        EXPECT_NE(recording.rateSource.find(test.source), std::string::npos)
                << recording.rateSource;
        EXPECT_EQ(recording.notes.size(), test.note == nullptr ? 0U : 1U);
        for (const auto& note : recording.notes) {
            EXPECT_NE(note.find(test.note), std::string::npos) << note;
        }
    }
}

// Displays that switch, and content that comes on demand on displays that do not, with threads that
// wake up late.
TEST(Recording, RatesAreFoundInRandomRecordings) {
    std::mt19937 random(11);
    const auto drawn = [&](int least, int most) {
        return std::uniform_int_distribution<int>(least, most)(random);
    };
    constexpr int kRates[] = {60, 90, 120, 144};
    constexpr int64_t kFewVsyncsNs = 50'000'000;
    for (int round = 0; round < 300; ++round) {
        SCOPED_TRACE(round);
        RateEvidence evidence;
        evidence.signals = {"v"};
        evidence.vsyncs.resize(1);
        std::vector<Rate> expected;
        const bool onDemand = round % 2 == 0;
        double atNs = 0.0;
        for (int stretch = onDemand ? 1 : drawn(1, 4); stretch > 0; --stretch) {
            const int hz = kRates[drawn(0, 3)];
            const double periodNs = 1e9 / hz;
            if (expected.empty() || expected.back().periodNs != static_cast<int64_t>(periodNs)) {
                expected.push_back({static_cast<int64_t>(atNs), static_cast<int64_t>(periodNs)});
            }
            const int often = drawn(1, 3);  // what the content mostly wants
            const double endNs = atNs + drawn(1'200, 4'000) * (onDemand ? 2e6 : 1e6);
            while (atNs < endNs) {
                const double lateNs =
                        drawn(0, 99) == 0 ? drawn(0, 3'000) * 1e3 : drawn(0, 300) * 1e3;
                evidence.vsyncs[0].push_back(static_cast<int64_t>(atNs + lateNs));
                atNs += periodNs * (!onDemand ? 1 : drawn(0, 4) > 0 ? often : drawn(1, 5));
            }
        }
        const RateFindings found = displayRate(evidence);
        ASSERT_EQ(found.rates.size(), expected.size());
        for (size_t i = 0; i < expected.size(); ++i) {
            const auto [atWanted, periodWanted] = expected[i];
            EXPECT_LE(std::abs(found.rates[i].periodNs - periodWanted), periodWanted / 100);
            EXPECT_LE(std::abs(found.rates[i].atNs - atWanted), kFewVsyncsNs);
        }
    }
}

TEST(Recording, SaysWhatAScenarioCannotShow) {
    TraceText text;
    text.vsyncs(0, 10.0, 4).counter(1.0, "com.a/com.a.X#7", 1).counter(1.0, "#9", 1);
    text.counter(1.0, "SurfaceView - com.b/com.b.Y#8", 1).counter(1.0, "StatusBar#0", 1);
    text.counter(2.0, "StatusBar#0", 2);
    const Recording recording = parse("CPU:2 [LOST 40 EVENTS]\n" + text.str());
    ASSERT_EQ(recording.notes.size(), 2U);
    EXPECT_NE(recording.notes[0].find("lost 40 events"), std::string::npos);
    EXPECT_NE(recording.notes[1].find("1 layer without a name left out (#9)"), std::string::npos);

    Scenario scenario;
    for (const char* package : {"com.a", "com.b", "com.c", "StatusBar"}) {
        scenario.games.push_back({package, 1, {}});
    }
    scenario.events = {{5, frameRescueCallback("com.d", 1, "")}, {90'000'000, Unblock{}}};
    scenario.layers = {{"nix", {}, {}, {}, 0, {}, {}, {}, {}}};
    const char* kNotes[] = {"StatusBar: the library takes the layer StatusBar#0 for none's",
                            "com.b/com.b.Y#8 for one of 'SurfaceView - com.b', by its rule",
                            "package com.c; the recording's are SurfaceView - com.b, com.a",
                            "package com.d; the recording's are SurfaceView - com.b, com.a",
                            "named like 'nix', of which the scenario's layers tell",
                            "1 of the scenario's 2 events comes after the end at 0.08 s and never"};
    const auto notes = scenarioNotes(scenario, recording, 80'000'000);
    ASSERT_EQ(notes.size(), std::size(kNotes));
    for (size_t i = 0; i < notes.size(); ++i) {
        EXPECT_NE(notes[i].find(kNotes[i]), std::string::npos) << notes[i];
    }
    EXPECT_EQ(gameSuggestion(recording, "my trace.txt"),
              "./corvane replay 'my trace.txt' --game "
              "'SurfaceView - com.b:headroom=80,rescue=1'");
}

TEST(Recording, KeepsTheBusiestLayersOfTooMany) {
    TraceText text;
    text.vsyncs(0, 10.0, 3);
    for (size_t i = 0; i < Recording::kMaxLayers + 10; ++i) {
        const std::string name = "a/b#" + std::to_string(i + 1);
        text.counter(1.0, name, 1);
        if (i >= 10) text.counter(2.0, name, 2);
    }
    const Recording recording = parse(text.str());
    EXPECT_EQ(recording.layers.size(), Recording::kMaxLayers);
    EXPECT_EQ(recording.layers.front().id, 11);
    EXPECT_EQ(recording.skippedLayers, 10U);
    EXPECT_EQ(recording.frames, 2 * Recording::kMaxLayers);
}

}  // namespace
}  // namespace corvane::replay
