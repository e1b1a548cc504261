// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <android/log.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "TraceText.h"
#include "replay/Findings.h"
#include "replay/NeverOn.h"
#include "replay/Report.h"
#include "replay/Scenario.h"
#include "replay/TextTable.h"

namespace corvane::replay {
namespace {

constexpr int64_t kMs = 1'000'000;
constexpr int64_t kStartNs = 1'000'000 * kMs;  // the second 1000, where TraceText begins

class FindingsTest : public testing::Test {
  protected:
    FindingsTest() {
        mRecording.processes = {{2000, 10000, {}}};
        mRecording.vsyncPeriodNs = 16 * kMs;
        Layer layer;
        layer.name = "SurfaceView[com.a/com.a.X] layer 9, (1, 1) mode:7#5";
        layer.id = 5;
        mRecording.layers.push_back(layer);
        layer.name = "com.b/com.b.Y#6";
        layer.id = 6;
        mRecording.layers.push_back(layer);
        mPlayed.startNs = kStartNs;
    }
    void log(int64_t ms, const std::string& text, int priority = ANDROID_LOG_DEBUG) {
        mEvidence.log.push_back({priority, "Corvane", text, kStartNs + ms * kMs});
    }
    void call(int64_t ms, const std::string& entry, int number, const std::string& package,
              std::vector<int> args, int result) {
        mEvidence.calls.push_back({entry, number, true, package, std::move(args), result,
                                   kStartNs + ms * kMs, 1, "BP"});
    }
    Findings find() { return findingsOf(mRecording, mPlayed, mEvidence); }

    Recording mRecording;
    PlayResult mPlayed;
    Evidence mEvidence;
};

TEST_F(FindingsTest, FollowsALayerThroughTheLog) {
    const std::string name = mRecording.layers[0].name;
    log(10, "Add new candidate layer: 5 [" + name + "]");
    log(510, "Add new layer to full tracking: [" + name + "] layer 5");
    log(1'500, "FPS:58.90[" + name + "] layer 5, (1080, 2400) mode:-1 focused:1 visible: 1");
    log(2'500, "Stable FPS shift detected for layer 5: 59.93 (mode -> 60)");
    log(2'500, "FPS:59.93[" + name + "] layer 5, (1080, 2400) mode:60 focused:1 visible: 1");
    log(2'600, "Add new layer to full tracking: [" + name + "] layer 5");
    log(2'700, "Add new candidate layer: 77 [unknown]");
    call(511, "perf_get_feedback", 5633, "com.a", {}, 2);
    call(511, "perf_get_feedback_extn", 5633, "com.a", {1, 0}, 4);
    const Findings findings = find();
    const LayerFindings& found = findings.layers[0];
    EXPECT_EQ(found.candidateNs, 10 * kMs);
    EXPECT_EQ(found.promotedNs, 510 * kMs);
    EXPECT_EQ(found.package, "com.a");
    EXPECT_EQ(found.game, true);
    EXPECT_EQ(found.weight, 4);
    ASSERT_EQ(found.windows.size(), 2U);
    EXPECT_EQ(found.windows[0].mode, -1);
    EXPECT_DOUBLE_EQ(found.windows[1].fps, 59.93);
    ASSERT_EQ(found.modes.size(), 1U);
    EXPECT_EQ(found.modes[0], std::make_pair(2'500 * kMs, 60));
    EXPECT_FALSE(findings.layers[1].candidateNs);
    EXPECT_EQ(findings.layers[1].package, "");
}

TEST_F(FindingsTest, TellsOnlySwitchesThatChangeSomething) {
    log(1, "Layer 5 set headroom: 13360000");
    log(1, "Layer 5: enable PHR");
    log(2, "Layer 5: enable PHR");
    log(3, "Layer 5: disable PHR");
    log(3, "Disable QuickTouch due to jank");
    log(4, "Layer 6: enable target fps: 30.000000");
    log(5, "Layer 6: enable target fps: 45.000000");
    log(6, "Layer 6: disable target fps");
    log(7, "Layer 5 disable GFR");
    log(8, "Layer 5 enable GFR");
    const Findings findings = find();
    EXPECT_EQ(findings.layers[0].headroomNs, 13'360'000);
    const auto switches = [&](size_t layer, FeatureKind kind) {
        std::string text;
        for (const auto& change : findings.layers[layer].of(kind)) {
            text += std::to_string(change.atNs / kMs) + (change.on ? " on" : " off");
            if (change.targetFps > 0) text += format(" %.0f", change.targetFps);
            text += change.becauseOfJank ? " jank; " : "; ";
        }
        return text;
    };
    EXPECT_EQ(switches(0, FeatureKind::kHeadroom), "1 on; 3 off jank; ");
    EXPECT_EQ(switches(1, FeatureKind::kTargetFps), "4 on 30; 5 on 45; 6 off; ");
    EXPECT_EQ(switches(0, FeatureKind::kFrameRescue), "8 on; ");
}

TEST_F(FindingsTest, MeasuresHeldAndPacedFramesInTheTrace) {
    TraceText text;
    text.slice(1, 0.0, "onVsync");
    text.async(2, 4.0, 'S', "CPU headroom - a", 5).slice(2, 9.0, "delay finish");
    text.async(2, 9.5, 'F', "CPU headroom - a", 5);
    text.async(2, 12.0, 'S', "CPU headroom - a", 5).slice(2, 12.0, "not pending for instant");
    text.async(2, 12.1, 'F', "CPU headroom - a", 5);
    text.slice(1, 16.0, "onVsync").slice(1, 16.5, "unblockBuffer");
    text.async(3, 20.0, 'S', "CPU headroom - b", 6).begin(3, 20.0, "Pending for target fps");
    text.end(3, 33.0).async(3, 33.1, 'F', "CPU headroom - b", 6);
    text.async(2, 40.0, 'S', "CPU headroom - a", 5).slice(2, 41.0, "additional delay");
    text.async(2, 42.0, 'F', "CPU headroom - a", 5);  // no vsync follows
    mEvidence.trace = text.str();
    // The trace's times are cut to microseconds.
    mPlayed.frames = {{0, 4 * kMs + 300, 10 * kMs},
                      {0, 12 * kMs, 13 * kMs},
                      {1, 20 * kMs + 999, 34 * kMs},
                      {0, 40 * kMs, 43 * kMs}};
    const Findings findings = find();
    std::string records;
    for (const auto& layer : findings.layers) {
        for (const auto& frame : layer.frames) {
            records += std::to_string(frame.heldNs) + "/" + std::to_string(frame.pacedNs) + " ";
        }
    }
    EXPECT_EQ(records, "5500000/0 0/0 2000000/0 0/13000000 ");
    EXPECT_NEAR(findings.layers[0].runFps.value_or(0), 2e9 / 36e6, 0.01);
    EXPECT_FALSE(findings.layers[1].runFps) << "one frame has no rate";
    const auto& held = findings.layers[0].held;
    ASSERT_EQ(held.size(), 2U);
    EXPECT_EQ(findings.unblocked, 1U);
    EXPECT_EQ(held[0].atNs, 4 * kMs);
    EXPECT_EQ(held[0].heldNs, 5'500'000);
    EXPECT_EQ(held[0].beforeVsyncNs, 6'500'000);
    EXPECT_EQ(held[1].heldNs, 2 * kMs);
    EXPECT_FALSE(held[1].beforeVsyncNs);
    EXPECT_EQ(findings.layers[1].pacedNs, (std::vector<int64_t>{13 * kMs}));
}

TEST_F(FindingsTest, GivesBoostsToTheFramesThatAskedForThem) {
    mPlayed.frames = {{0, 10 * kMs, 11 * kMs},
                      {1, 20 * kMs, 21 * kMs},
                      {0, 29 * kMs, 31 * kMs},
                      {1, 44 * kMs, 46 * kMs}};
    TraceText text;
    text.slice(9, 30.0, "[GFR_BOOST] GFR_IOCTL bl=1 hr=7 bf=500, [id: 5]");
    text.slice(9, 45.0, "[GFR_BOOST] GFR_IOCTL bl=0 hr=7 bf=0, [id: 6]");
    mEvidence.trace = text.str();
    mEvidence.boosts = {{1, 7, 500, kStartNs + 30 * kMs, 9},
                        {0, 7, 0, kStartNs + 45 * kMs, 9},
                        {3, 7, 3000, kStartNs + 50 * kMs, 9}};
    call(60, "perf_event", 4186, "com.z", {5, 0}, 0);
    const Findings findings = find();
    ASSERT_EQ(findings.layers[0].boosts.size(), 1U);
    EXPECT_EQ(findings.layers[0].boosts[0].frame, 1U);
    EXPECT_EQ(findings.layers[0].boosts[0].sinceQueueNs, 20 * kMs);
    EXPECT_EQ(findings.layers[0].boosts[0].freqMHz, 500);
    ASSERT_EQ(findings.layers[1].boosts.size(), 1U);
    EXPECT_EQ(findings.layers[1].boosts[0].level, 0);
    EXPECT_EQ(findings.layers[1].boosts[0].frame, 2U) << "a release comes within the next call";
    ASSERT_EQ(findings.unclaimedBoosts.size(), 2U)
            << "one without a trace, one of an unknown package";
    EXPECT_EQ(findings.unclaimedBoosts[1].level, 5);
}

TEST_F(FindingsTest, TellsWhyAConfiguredFeatureNeverCameOn) {
    const std::string name = mRecording.layers[1].name;
    const std::string candidate = "Add new candidate layer: 6 [" + name + "]";
    const std::string promoted = "Add new layer to full tracking: [" + name + "] layer 6";
    const std::string window =
            "FPS:30.00[" + name + "] layer 6, (1, 1) mode:-1 focused:1 visible: 1";
    const std::string mode30 = "Stable FPS shift detected for layer 6: 30.00 (mode -> 30)";
    const std::string mode60 = "Stable FPS shift detected for layer 6: 60.00 (mode -> 60)";
    const std::string display = "vsync: 16666666";
    const char* kHeadroom = R"("headroomRates": {"upTo60Hz": 0.8})";
    const char* kTarget = R"("targetFps": 45)";
    const char* kRescue = R"("frameRescue": {"flag": 1, "tunables": "jank=9"})";
    const struct {
        const char* configured;
        std::vector<std::string> log;
        int game;  // the service's answer
        const char* says;
    } kCases[] = {
            {kHeadroom, {"x"}, 0, "never became a candidate"},
            {kHeadroom, {candidate}, 0, "stayed a candidate"},
            {kHeadroom, {candidate, promoted}, 0, "does not call it a game"},
            {kHeadroom,
             {promoted, "[TFPS:1][QuickTouch:0, x]"},
             2,
             "vendor.perf.phr.enable is off"},
            {kTarget, {promoted, "[TFPS:0][QuickTouch:1, x]"}, 2, "enable.target_fps is off"},
            {kTarget, {promoted, "Invalid target fps found: 241"}, 2, "found: 241\""},
            {kRescue, {promoted, "Invalid GFR tunables: jank=9"}, 2, "tunables: jank=9\""},
            {kHeadroom, {promoted}, 2, "less than one window"},
            {kHeadroom, {promoted, window}, 2, "never steady enough for a mode (30.0 to 30.0 in 1"},
            {kHeadroom, {promoted, display, window, mode30}, 2, "60.0 Hz, and its mode was 30"},
            {kHeadroom, {promoted, display, window, mode60}, 2, "its rates have none"},
            {kHeadroom,
             {promoted, display, window, mode60, "Layer 6 set headroom: 9"},
             2,
             "at most 2 latches in a row left"},
            {kTarget, {promoted, display, window, mode60}, 2, "never rose above the target (30.0"},
            {kRescue, {promoted, display, window, mode60}, 2, "does not tell why"},
            {kHeadroom, {promoted, display, mode60, "Layer 6: enable PHR"}, 2, nullptr},
            {kRescue, {promoted, "Layer 6 enable GFR"}, 2, nullptr},
            {kRescue, {}, 0, "debug log is off"},
            {R"("package": "not.there", "targetFps": 60)", {"x"}, 0, nullptr},
    };
    for (const int pending : {1, 1, 0, 2}) mPlayed.latches.push_back({1, 0, 1, pending});
    for (const auto& test : kCases) {
        mEvidence = {};
        for (const auto& line : test.log) {
            log(10, line, line.rfind("Invalid", 0) == 0 ? ANDROID_LOG_ERROR : ANDROID_LOG_DEBUG);
        }
        call(11, "perf_get_feedback", 5633, "com.b", {}, test.game);
        const std::string package =
                strstr(test.configured, "package") ? "" : R"("package": "com.b", )";
        const auto parsed =
                parseScenario("{\"games\": [{" + package + test.configured + "}]}", "s");
        ASSERT_TRUE(parsed.scenario) << parsed.error;
        const auto notes = neverOn(*parsed.scenario, mRecording, find(), 20 * kMs);
        ASSERT_EQ(notes.size(), test.says == nullptr ? 0U : 1U) << test.configured;
        if (test.says != nullptr) {
            EXPECT_NE(notes[0].find(test.says), std::string::npos) << notes[0];
        }
    }
}

TEST_F(FindingsTest, ReportsFitAScreenWhateverTheNames) {
    mRecording.layers[1].name = std::string(300, 'n') + "\x1b[2J\n\xff#6";
    const struct {
        const char* text;
        size_t width;
        const char* shown;
    } kNames[] = {
            {"\u30b2\u30fc\u30e0.e\u0301", 8, "\u30b2\u30fc\u30e0.e\u0301"},
            {"\u30b2\u30fc\u30e0\u30b2\u30fc\u30e0", 11, "\u30b2\u30fc...\u30e0"},
            {"a\x1b[2J\n", 99, "a\\x1b[2J\\x0a"},
            {"\u202egame", 99, "\\xe2\\x80\\xaegame"},                    // writes from the right
            {"\xc3(\xff\xed\xa0\x80", 99, "\\xc3(\\xff\\xed\\xa0\\x80"},  // is not UTF-8
            {"com.example", 2, ".."},
            {"", 0, ""},
    };
    for (const auto& name : kNames) {
        EXPECT_EQ(shown(name.text, name.width), name.shown);
        EXPECT_LE(columnsOf(name.shown), name.width);
    }
    log(10, "Add new candidate layer: 6 [x]");
    log(20, "bad \x1b[2J " + std::string(300, 'e'), ANDROID_LOG_ERROR);
    log(21, "bad \x1b[2J " + std::string(300, 'e'), ANDROID_LOG_ERROR);
    call(30, "perf_event", 4196, std::string(200, 'p'), {0, 60}, 0);
    const Findings findings = find();
    ASSERT_EQ(findings.complaints.size(), 1U);
    EXPECT_EQ(findings.complaints[0].second, 2U);
    ReportSource source{"dir/" + std::string(300, 'f'), "", "", 1, mRecording, mPlayed, findings};
    source.notes = {"a note of " + std::string(250, 'w') + "\x1b[2J and more words", ""};
    std::string text;
    for (const size_t width : {Terminal::kMinWidth, size_t{200}, Terminal::kDefaultWidth}) {
        source.terminal.width = width;
        text = textReport(source);
        EXPECT_EQ(text.find('\x1b'), std::string::npos);
        for (size_t begin = 0; begin < text.size();) {
            const size_t end = text.find('\n', begin);
            EXPECT_LE(end - begin, width) << text.substr(begin, end - begin);
            begin = end + 1;
        }
    }
    EXPECT_NE(text.find("4196"), std::string::npos);
    EXPECT_NE(text.find("Note: a note of\n        www"), std::string::npos) << text;
    const std::string json = jsonReport(reportDocument(source));
    EXPECT_NE(json.find("\"candidateNs\" : 10000000"), std::string::npos);
    EXPECT_EQ(json.find('\x1b'), std::string::npos);
}

}  // namespace
}  // namespace corvane::replay
