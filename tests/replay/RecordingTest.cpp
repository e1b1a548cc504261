// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "TraceText.h"
#include "replay/DisplayRate.h"
#include "replay/Recording.h"
#include "replay/ScenarioNotes.h"
#include "replay/TextTable.h"

namespace corvane::replay {
namespace {

std::string bundled(const std::string& name) {
    const auto path = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "recordings" /
                      (name + ".systrace.txt");
    std::ifstream file(path);
    EXPECT_TRUE(file) << path;
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

Recording parse(const std::string& text) {
    const auto result = parseRecording(text);
    EXPECT_TRUE(result.recording) << result.error;
    return result.recording.value_or(Recording{});
}

// The steps of one layer as text: "q1.500" for a queue at 1.5 ms, "l2.000x3" for a latch of three.
std::string stepsOf(const Recording& recording, size_t layer) {
    std::stringstream text;
    text.precision(3);
    text << std::fixed;
    for (const auto& step : recording.steps) {
        if (step.kind == Step::Kind::kVsync || step.layer != layer) continue;
        const bool queue = step.kind == Step::Kind::kQueue;
        text << (queue ? "q" : "l") << static_cast<double>(step.timeNs) / 1e6;
        if (step.count != 1) text << "x" << step.count;
        text << " ";
    }
    return text.str();
}

TEST(Recording, TheBundledOnesHoldWhatWasRecorded) {
    // A process that the recording does not name has a made-up pid.
    const struct {
        const char* name;
        const char* holds;
    } kCases[] = {
            {"reader-60fps-stuffed",
             "4.17 s, 16.7 ms, 250 vsyncs, 0 skipped\n"
             "SurfaceView[com.example.reader/com.example.reader.MainActivity](BLAST)#102: id 102, "
             "248 frames of 2100\n"
             "StatusBar#0: id 1, 3 frames of 30001\n"},
            {"arena-30fps-on-60hz",
             "2.56 s, 16.7 ms, 154 vsyncs, 0 skipped\n"
             "SurfaceView[com.example.arena/com.example.arena.GameActivity](BLAST)#101: id 101, "
             "77 frames of 1900\n"
             "StatusBar#0: id 1, 3 frames of 30001\n"},
            {"launcher-scroll-two-layers",
             "2.19 s, 11.1 ms, 139 vsyncs, 0 skipped\n"
             "com.example.launcher/com.example.launcher.Launcher#103: id 103, 107 frames of 2300\n"
             "com.example.wallpaper.LiveWallpaper#104: id 104, 64 frames of 30001\n"
             "StatusBar#0: id 1, 1 frames of 30002\n"},
    };
    for (const auto& test : kCases) {
        const Recording recording = parse(bundled(test.name));
        std::string holds = format("%.2f s, %.1f ms, %zu vsyncs, %zu skipped\n",
                                   static_cast<double>(recording.durationNs) / 1e9,
                                   static_cast<double>(recording.vsyncPeriodNs) / 1e6,
                                   recording.vsyncs, recording.skippedLines);
        std::set<uid_t> uids;
        for (const Layer& layer : recording.layers) {
            const Process& process = recording.processes[layer.process];
            holds += layer.name + format(": id %d, %zu frames of %d\n", layer.id, layer.frames,
                                         static_cast<int>(process.pid));
            EXPECT_GE(process.uid, 10000U);
            EXPECT_TRUE(uids.insert(process.uid).second) << "every process has its own uid";
        }
        EXPECT_EQ(holds, test.holds) << test.name;
    }
}

TEST(Recording, RisesAreQueuesAndFallsAreLatches) {
    TraceText text;
    text.vsyncs(0, 16.0, 4);
    text.counter(1.0, "a/b#7", 1).counter(2.0, "a/b#7", 3).counter(3.0, "a/b#7", 3);
    text.counter(4.0, "a/b#7", 1).counter(5.0, "a/b#7", 0);
    text.counter(6.0, "c/d#8", 0).counter(7.0, "c/d#8", 1);   // begins with a latch
    text.counter(8.0, "e/f#9", 2).counter(9.0, "e/f#9", 0);   // begins with the second of two
    text.counter(9.5, "g/h#3", 0).counter(9.6, "g/h#3", 0);   // no frame at all
    text.counter(9.7, "i/j#4", 1).counter(9.8, "i/j#4", 65);  // more than a queue can hold
    const Recording recording = parse(text.str());
    ASSERT_EQ(recording.layers.size(), 4U);
    EXPECT_EQ(stepsOf(recording, 0), "q1.000 q2.000 q2.000 l4.000x2 l5.000 ");
    EXPECT_EQ(stepsOf(recording, 1), "l6.000 q7.000 ");
    EXPECT_EQ(stepsOf(recording, 2), "q8.000 l9.000x2 ");
    EXPECT_EQ(stepsOf(recording, 3), "q9.700 ");
    EXPECT_EQ(recording.layers[0].initialDepth, 0);
    EXPECT_EQ(recording.layers[1].initialDepth, 1);
    EXPECT_EQ(recording.layers[1].finalDepth, 1);
    EXPECT_EQ(recording.layers[2].initialDepth, 1);
    EXPECT_EQ(recording.skippedLines, 1U);
    EXPECT_EQ(recording.frames, 6U);
    EXPECT_EQ(recording.vsyncPeriodNs, 16'000'000);
}

TEST(Recording, TheCompositorsBufferCountersAreLayersWithIdsOfTheirOwn) {
    TraceText text;
    text.vsyncs(0, 10.0, 3);
    for (const char* name :
         {"BufferTX - a/b#7", "a/b#7", "TX - a/b#7", "QueuedBuffer - a/b#7", "a/b#7 fps", "a/b#",
          "#7", "plain", "a#0", "b#0", "c#1", "d#1", "e#99999999999"}) {
        text.counter(1.0, name, 1);
    }
    text.counterOf(777, 1.0, "other/process#5", 1);
    std::string layers;
    for (const auto& layer : parse(text.str()).layers) {
        layers += format("%s=%d:%zu ", layer.name.c_str(), layer.id, layer.frames);
    }
    EXPECT_EQ(layers, "a/b#7=7:1 a#0=2:1 b#0=3:1 c#1=1:1 d#1=4:1 e#99999999999=5:1 ");
}

TEST(Recording, ProducersComeFromTheQueueCallsOrAreMadeUp) {
    TraceText text;
    text.vsyncs(0, 10.0, 3);
    for (int frame = 0; frame < 4; ++frame) {
        const double ms = 5.0 * frame;
        text.bufferCall(1000, "queueBuffer", ms, ms + 0.5)
                .counter(ms + 0.2, "inside/x#1", frame % 2);
        text.counter(ms + 1.5, "chance/x#5", frame % 2);  // that call was the layer's above
        text.bufferCall(1000, "queueBuffer", ms + 2.0, ms + 2.2)
                .counter(ms + 2.9, "after/x#2", frame % 2);
        text.bufferCall(600, "queueBuffer", ms + 4.0, ms + 4.5)
                .counter(ms + 4.2, "compositor/x#3", frame % 2);
        text.counter(ms + 3.8, "nobody/x#4", frame % 2);
    }
    const Recording recording = parse(text.str());
    std::string producers;
    for (const auto& layer : recording.layers) {
        producers += format("%s %d; ", layer.name.c_str(), recording.processes[layer.process].pid);
    }
    EXPECT_EQ(producers,
              "inside/x#1 1000; chance/x#5 30001; after/x#2 1000; compositor/x#3 30002; "
              "nobody/x#4 30003; ");
}

TEST(Recording, OrderAndDamagedTimesDoNotMatter) {
    TraceText text;
    text.counter(20.0, "a/b#7", 0).counter(10.0, "a/b#7", 1);
    text.vsyncs(0, 10.0, 4);
    text.counter(500'000'000.0, "a/b#7", 1);
    const Recording recording = parse(text.str());
    ASSERT_EQ(recording.layers.size(), 1U);
    EXPECT_EQ(stepsOf(recording, 0), "q10.000 l20.000 ");
    EXPECT_EQ(recording.durationNs, 30'000'000);
    EXPECT_EQ(recording.skippedLines, 1U);
}

// A stretch of one signal: it comes after `steps` periods of the display, in turn.
struct Vsyncs {
    const char* signal;
    double fromMs;
    double periodMs;
    std::vector<int> steps;
    double untilMs;
};

struct RateCase {
    const char* what;
    std::vector<Vsyncs> vsyncs;
    std::vector<std::tuple<double, const char*, int>> counters;
    const char* rates;
    const char* source;
    const char* note = nullptr;
};

const RateCase kRateCases[] = {
        {"a display that shows every vsync",
         {{"VSYNC-sf", 0, 11.1, {1}, 2'000}},
         {},
         "90",
         "intervals of VSYNC-sf"},
        {"a launcher on demand",
         {{"VSYNC-sf", 0, 11.11, {2, 2, 1, 4, 2, 3}, 3'000}},
         {},
         "90",
         "intervals"},
        {"60 fps on 120 Hz, which something else needs now and then",
         {{"VSYNC-sf", 0, 8.333, {2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 1, 2, 2, 2, 2, 1}, 4'000}},
         {},
         "120",
         "intervals"},
        {"the applications' signal knows more",
         {{"VSYNC-sf", 0, 8.333, {2}, 3'000}, {"VSYNC-app", 3, 8.333, {1}, 3'000}},
         {},
         "120",
         "VSYNC-sf and VSYNC-app"},
        {"no compositor's signal", {{"VSYNC-app", 0, 16.667, {1}, 1'000}}, {}, "60", "VSYNC-app"},
        {"content alone",
         {{"VSYNC-sf", 0, 16.667, {2}, 2'000}},
         {},
         "30",
         "intervals",
         "slower than displays refresh"},
        {"a switch and back",
         {{"VSYNC-sf", 0, 16.667, {1}, 2'000},
          {"VSYNC-sf", 2'000, 8.333, {1}, 4'000},
          {"VSYNC-sf", 4'000, 16.667, {1}, 6'000}},
         {},
         "60; 120 at 2.0 s; 60 at 4.0 s",
         "intervals",
         "looks like content"},
        {"a switch between rates without a common base",
         {{"VSYNC-sf", 0, 11.111, {1, 2}, 1'700}, {"VSYNC-sf", 1'700, 16.667, {1}, 3'000}},
         {},
         "90; 60 at 1.7 s",
         "intervals"},
        {"a video at 30 fps between scrolls is no switch",
         {{"VSYNC-sf", 0, 16.667, {1}, 1'000},
          {"VSYNC-sf", 1'000, 16.667, {2}, 4'000},
          {"VSYNC-sf", 4'000, 16.667, {1}, 5'000}},
         {},
         "60",
         "intervals"},
        {"a counter of the period goes first",
         {{"VSYNC-sf", 0, 16.667, {1}, 3'000}},
         {{5, "VsyncPeriod", 8'333'333},
          {1'000, "VsyncPeriod", 8'340'000},
          {2'000, "VsyncPeriod", 16'666'667},
          {2'500, "VsyncPeriod", 0}},
         "120; 60 at 2.0 s",
         "counter VsyncPeriod"},
        {"one in microseconds, of the period rather than of the rate",
         {{"VSYNC-sf", 0, 16.667, {1}, 1'000}},
         {{5, "ActiveModeFPS_HWC", 60}, {5, "VSP-period 4630", 11'111}},
         "90",
         "VSP-period 4630"},
        {"a counter that is written at a switch only",
         {{"VSYNC-sf", 0, 16.667, {1}, 3'000}},
         {{2'000, "ActiveModeFPS_HWC", 120}},
         "60; 120 at 2.0 s",
         "ActiveModeFPS_HWC"},
};

TEST(Recording, TheRateIsToldByWhatKnowsItBest) {
    for (const auto& test : kRateCases) {
        SCOPED_TRACE(test.what);
        std::mt19937 random(7);
        std::uniform_real_distribution<double> late(0.0, 0.4);
        TraceText text;
        text.counter(1.0, "a/b#7", 1);
        int value = 0;
        for (const auto& row : test.vsyncs) {
            double ms = row.fromMs;
            for (size_t i = 0; ms < row.untilMs - 1.0; ++i) {
                text.counter(ms + late(random), row.signal, value ^= 1);
                ms += row.periodMs * row.steps[i % row.steps.size()];
            }
        }
        for (const auto& [ms, name, counted] : test.counters) text.counter(ms, name, counted);
        const Recording recording = parse(text.str());
        const auto hertz = [](int64_t periodNs) {
            return format("%.0f", 1e9 / static_cast<double>(periodNs));
        };
        std::string rates = hertz(recording.vsyncPeriodNs);
        for (const Rate& change : recording.rateChanges) {
            rates += "; " + hertz(change.periodNs) +
                     format(" at %.1f s", static_cast<double>(change.atNs) / 1e9);
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

TEST(Recording, WhereNothingIsCommonTheMedianInterval) {
    TraceText text;
    text.counter(0.0, "VSYNC-app", 1).counter(8.0, "VSYNC-app", 0).counter(9.0, "VSYNC-app", 0);
    text.counter(5.0, "a/b#7", 1);
    EXPECT_EQ(parse(text.str()).vsyncs, 2U);
    text.counter(1.0, "VSYNC-sf", 1);
    EXPECT_EQ(parse(text.str()).vsyncPeriodNs, 8'000'000) << "one is no signal";
    text.counter(2.0, "VSYNC-sf", 0);
    EXPECT_EQ(parse(text.str()).vsyncPeriodNs, 1'000'000);
    EXPECT_EQ(parse(text.str()).rateSource, "the median vsync interval");

    TraceText wakes;  // no signal, but the compositor's frames with their expected times
    wakes.counter(5.0, "a/b#7", 1);
    for (int i = 0; i < 60; ++i) {
        const double lateMs = i % 3;
        wakes.slice(600, 16.667 * i + lateMs, format("commit %d vsyncIn %.2fms", i, 20.0 - lateMs));
    }
    const Recording recording = parse(wakes.str());
    EXPECT_EQ(recording.vsyncs, 60U);
    EXPECT_NEAR(static_cast<double>(recording.vsyncPeriodNs), 16.667e6, 2e4);
    EXPECT_NE(recording.rateSource.find("expected"), std::string::npos) << recording.rateSource;
}

// Two parts hold the whole's steps, and the second begins where the first ends.
TEST(Recording, PartsJoinToTheWhole) {
    std::mt19937 random(5);
    TraceText text;
    text.vsyncs(0, 10.0, 200);
    int depth[3] = {};
    for (int ms = 1; ms < 1'990; ++ms) {
        const size_t layer = random() % 3;
        const bool latch = depth[layer] > 0 && (depth[layer] == 3 || random() % 2 == 0);
        depth[layer] += latch ? -1 : 1;
        text.counter(ms + 0.5, "a.b/c#" + std::to_string(layer + 1), depth[layer]);
    }
    const Recording whole = parse(text.str());
    for (const double ms : {25.0, 555.0, 1'000.0, 1'960.0}) {
        const auto atNs = static_cast<int64_t>(ms * 1e6);
        Recording first = whole, second = whole;
        EXPECT_EQ(select(first, {{}, atNs, ""}), "");
        EXPECT_EQ(select(second, {atNs + 1, {}, "#"}), "");
        EXPECT_EQ(first.steps.size() + second.steps.size(), whole.steps.size());
        EXPECT_EQ(first.frames + second.frames, whole.frames);
        EXPECT_EQ(first.vsyncs + second.vsyncs, whole.vsyncs);
        EXPECT_EQ(second.steps.front().timeNs, 0);
        EXPECT_EQ(second.steps.back().timeNs, second.durationNs);
        for (const Layer& layer : second.layers) {
            const Layer& before = first.layers[*first.findLayer(layer.name)];
            EXPECT_EQ(layer.initialDepth, before.finalDepth) << layer.name;
        }
    }
    Recording one = whole;
    EXPECT_EQ(select(one, {{}, {}, "c#2"}), "");
    ASSERT_EQ(one.layers.size(), 1U);
    EXPECT_EQ(one.processes.size(), 1U);
    EXPECT_EQ(one.frames, whole.layers[*whole.findLayer("c#2")].frames);
    EXPECT_EQ(one.vsyncs, whole.vsyncs);
    EXPECT_NE(select(one, {{}, {}, "c#1"}).find("'c#1'; there are: a.b/c#2"), std::string::npos);
    EXPECT_NE(select(one, {5'000'000'000, {}, ""}).find("1.99 s long"), std::string::npos);
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
    std::string notes;
    for (const auto& note : scenarioNotes(scenario, recording, 80'000'000)) notes += note + "\n";
    EXPECT_EQ(notes,
              "no layer belongs to the package StatusBar: the library takes the layer StatusBar#0 "
              "for none's\n"
              "no layer belongs to the package com.b: the library takes the layer SurfaceView - "
              "com.b/com.b.Y#8 for one of 'SurfaceView - com.b', by its rule for names; say that\n"
              "no layer belongs to the package com.c; the recording's are SurfaceView - com.b, "
              "com.a\n"
              "no layer belongs to the package com.d; the recording's are SurfaceView - com.b, "
              "com.a\n"
              "1 of the scenario's 2 events comes after the end at 0.08 s and never happens; the "
              "first at 0.09 s\n");
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

TEST(Recording, SaysWhatIsMissing) {
    TraceText vsyncsOnly, oneVsync, noFrames, oneMoment;
    vsyncsOnly.vsyncs(0, 10.0, 4);
    oneVsync.vsyncs(0, 10.0, 1).counter(1.0, "a/b#7", 1);
    noFrames.vsyncs(0, 10.0, 4).counter(1.0, "a/b#7", 0);
    oneMoment.vsyncs(0, 0.0, 4).counter(1.0, "a/b#7", 1);
    for (const auto& [text, error] :
         std::vector<std::pair<std::string, const char*>>{{"", "is not a trace"},
                                                          {"Dear diary,\ntoday [1] 2.0\n",
                                                           "is not a trace"},
                                                          {vsyncsOnly.str(), "holds no layers"},
                                                          {noFrames.str(), "holds no layers"},
                                                          {oneVsync.str(), "holds no vsyncs"},
                                                          {oneMoment.str(), "holds no vsyncs"}}) {
        const auto result = parseRecording(text);
        EXPECT_FALSE(result.recording) << text;
        EXPECT_NE(result.error.find(error), std::string::npos) << result.error;
    }
}

}  // namespace
}  // namespace corvane::replay
