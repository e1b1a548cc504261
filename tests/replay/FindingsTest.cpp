// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <android/log.h>
#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "replay/Findings.h"
#include "replay/LogDigest.h"
#include "replay/NeverOn.h"
#include "replay/Report.h"
#include "replay/Scenario.h"
#include "replay/TextTable.h"

namespace corvane::replay {
namespace {

constexpr int64_t kMs = 1'000'000;
constexpr int64_t kStartNs = 1'000'000 * kMs;

// What the library's log tells of a layer. That findings of a whole replay are what happened on the
// model's device, the program's test shows.
class FindingsTest : public testing::Test {
  protected:
    FindingsTest() {
        mRecording.processes = {{2000, 10000, {}}};
        mRecording.vsyncPeriodNs = 16 * kMs;
        mRecording.layers.resize(2);
        mRecording.layers[0].name = "com.a/com.a.X#5";
        mRecording.layers[1].name = "com.b/com.b.Y#6";
        mRecording.layers[1].id = 6;
        mPlayed.startNs = kStartNs;
    }
    void log(int64_t ms, const std::string& text, int priority = ANDROID_LOG_DEBUG) {
        mLog.push_back({priority, "Corvane", text, kStartNs + ms * kMs});
    }
    void call(const std::string& entry, int number, const std::string& package, int result) {
        mCalls.push_back({entry, number, true, package, {}, result, kStartNs, 1, "BP"});
    }
    // Of what was logged and called since the last time.
    Findings find() {
        LogDigest digest(mRecording, kStartNs);
        for (const auto& line : std::exchange(mLog, {})) digest.add(line);
        return findingsOf(mRecording, mPlayed, {digest.take(), std::exchange(mCalls, {}), {}});
    }

    Recording mRecording;
    PlayResult mPlayed;
    std::vector<host::LogLine> mLog;
    std::vector<host::PerfCall> mCalls;
};

TEST_F(FindingsTest, TellsWhyAConfiguredFeatureNeverCameOn) {
    const std::map<std::string, std::string> lines = {
            {"candidate", "Add new candidate layer: 6 [com.b/com.b.Y#6]"},
            {"promoted", "Add new layer to full tracking: [com.b/com.b.Y#6] layer 6"},
            {"window", "FPS:30.00[com.b/com.b.Y#6] layer 6, (1, 1) mode:-1 focused:1 visible: 1"},
            {"mode30", "Stable FPS shift detected for layer 6: 30.00 (mode -> 30)"},
            {"mode60", "Stable FPS shift detected for layer 6: 60.00 (mode -> 60)"},
            {"display", "vsync: 16666666"},
            {"phr-off", "[TFPS:1][QuickTouch:0, x]"},
            {"tfps-off", "[TFPS:0][QuickTouch:1, x]"},
            {"bad-fps", "Invalid target fps found: 241"},
            {"bad-gfr", "Invalid GFR tunables: jank=9"},
            {"headroom", "Layer 6 set headroom: 9"},
            {"phr-on", "Layer 6: enable PHR"},
            {"gfr-on", "Layer 6 enable GFR"},
            {"other", "x"},
    };
    const char* kHeadroom = R"("package": "com.b", "headroomRates": {"upTo60Hz": 0.8})";
    const char* kTarget = R"("package": "com.b", "targetFps": 45)";
    const char* kRescue = R"("package": "com.b", "frameRescue": {"tunables": "jank=9"})";
    const struct {
        const char* configured;
        const char* log;
        int game;  // the service's answer
        const char* says;
    } kCases[] = {
            {kHeadroom, "other", 0, "never became a candidate"},
            {kHeadroom, "candidate", 0, "stayed a candidate"},
            {kHeadroom, "candidate promoted", 0, "does not call it a game"},
            {kHeadroom, "promoted phr-off", 2, "vendor.perf.phr.enable is off"},
            {kTarget, "promoted tfps-off", 2, "enable.target_fps is off"},
            {kTarget, "promoted bad-fps", 2, "found: 241\""},
            {kRescue, "promoted bad-gfr", 2, "tunables: jank=9\""},
            {kHeadroom, "promoted", 2, "less than one window"},
            {kHeadroom, "promoted window", 2, "never steady enough for a mode (30.0 to 30.0 in 1"},
            {kHeadroom, "promoted display window mode30", 2, "60.0 Hz, and its mode was 30"},
            {kHeadroom, "promoted display window mode60", 2, "its rates have none"},
            {kHeadroom, "promoted display window mode60 headroom", 2,
             "at most 2 latches in a row left"},
            {kTarget, "promoted display window mode60", 2, "never rose above the target (30.0"},
            {kRescue, "promoted display window mode60", 2, "does not tell why"},
            {kHeadroom, "promoted display mode60 phr-on", 2, ""},
            {kRescue, "promoted gfr-on", 2, ""},
            {kRescue, "", 0, "debug log is off"},
            {R"("package": "not.there", "targetFps": 60)", "other", 0, ""},
    };
    for (const int pending : {1, 1, 0, 2}) mPlayed.latches.push_back({1, 0, 1, pending});
    for (const auto& test : kCases) {
        std::istringstream words(test.log);
        for (std::string word; words >> word;) {
            log(10, lines.at(word), word[0] == 'b' ? ANDROID_LOG_ERROR : ANDROID_LOG_DEBUG);
        }
        call("perf_get_feedback", 5633, "com.b", test.game);
        const auto parsed = parseScenario(format(R"({"games": [{%s}]})", test.configured), "s");
        ASSERT_TRUE(parsed.scenario) << parsed.error;
        const auto notes = neverOn(*parsed.scenario, mRecording, find(), 20 * kMs);
        EXPECT_EQ(notes.size(), *test.says == '\0' ? 0U : 1U) << test.configured;
        for (const auto& note : notes) EXPECT_NE(note.find(test.says), std::string::npos) << note;
    }
}

TEST_F(FindingsTest, ReportsFitAScreenWhateverTheNames) {
    mRecording.layers[1].name = std::string(300, 'n') + "\x1b[2J\n\xff#6";
    const std::tuple<const char*, size_t, const char*> kNames[] = {
            {"\u30b2\u30fc\u30e0.e\u0301", 8, "\u30b2\u30fc\u30e0.e\u0301"},
            {"\u30b2\u30fc\u30e0\u30b2\u30fc\u30e0", 11, "\u30b2\u30fc...\u30e0"},
            {"a\x1b[2J\n", 99, "a\\x1b[2J\\x0a"},
            {"\u202egame", 99, "\\xe2\\x80\\xaegame"},                    // writes from the right
            {"\xc3(\xff\xed\xa0\x80", 99, "\\xc3(\\xff\\xed\\xa0\\x80"},  // is not UTF-8
            {"com.example", 2, ".."},
            {"", 0, ""},
    };
    for (const auto& [text, width, expected] : kNames) {
        EXPECT_EQ(shown(text, width), expected);
        EXPECT_LE(columnsOf(expected), width);
    }
    log(10, "Add new candidate layer: 6 [x]");
    for (int i = 0; i < 2; ++i) log(20, "\x1b[2J " + std::string(300, 'e'), ANDROID_LOG_ERROR);
    call("perf_event", 4196, std::string(200, 'p'), 0);
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
    std::string json;
    writeJsonReport(source, [&](std::string_view piece) { json += piece; });
    EXPECT_NE(json.find("\"candidateNs\": 10000000"), std::string::npos);
    EXPECT_EQ(json.find('\x1b'), std::string::npos);
}

}  // namespace
}  // namespace corvane::replay
