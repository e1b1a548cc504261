// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>
#include <json/json.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>

#include "TraceText.h"

namespace corvane::replay {
namespace {

struct Outcome {
    int status;
    std::string output;  // both streams
};

class Program : public testing::Test {
  protected:
    Program() {
        const auto here = std::filesystem::read_symlink("/proc/self/exe").parent_path();
        mProgram = here.parent_path() / "bin" / "corvane-replay";
        mFolder = std::filesystem::temp_directory_path() /
                  ("corvane-replay-test-" + std::to_string(getpid()));
        std::filesystem::create_directory(mFolder);
    }
    ~Program() override { std::filesystem::remove_all(mFolder); }

    std::string path(const std::string& name) const { return mFolder / name; }
    std::string write(const std::string& name, const std::string& text) const {
        std::ofstream(path(name), std::ios::binary) << text;
        return path(name);
    }
    Outcome run(const std::string& arguments) const {
        Outcome outcome{};
        FILE* pipe = popen((mProgram.string() + " " + arguments + " 2>&1").c_str(), "r");
        char buffer[4096];
        size_t count = 0;
        while ((count = fread(buffer, 1, sizeof(buffer), pipe)) > 0) {
            outcome.output.append(buffer, count);
        }
        outcome.status = WEXITSTATUS(pclose(pipe));
        return outcome;
    }

    std::filesystem::path mProgram;
    std::filesystem::path mFolder;
};

TEST_F(Program, EndsWithOneSentenceWhenTheInputIsNotUsable) {
    TraceText noLayers, usable;
    noLayers.vsyncs(0, 10.0, 4);
    usable.vsyncs(0, 10.0, 4).counter(1.0, "a/b#7", 1);
    const std::string good = write("good.txt", usable.str());
    const struct {
        std::string arguments;
        const char* says;
    } kCases[] = {
            {path("none.txt"), "No such file"},
            {mFolder.string(), "directory"},
            {write("empty.txt", ""), "not a trace"},
            {write("rubbish.txt", std::string("\0\xff[1] \n", 7)), "not a trace"},
            {write("no-layers.txt", noLayers.str()), "no layers"},
            {"--frobnicate", "--frobnicate"},
            {"", "no recording"},
            {good + " --config " + write("bad.json", "{\"gmaes\": []}"), "gmaes"},
            {good + " --config " + path("none.json"), "No such file"},
            {"--config " + write("nameless.json", "{}"), "nameless.json"},
            {good + " --config " +
                     write("lost.json", "{\"fences\": [{\"layer\": \"x\", \"timeline\": \"t\"}]}"),
             "'x'"},
            {good + " --config " +
                     write("refused.json", R"({"properties": [{"name": "a b", "value": "1"}]})"),
             "property a b cannot be set"},
            {good + " --json " + path("no/folder.json"), "No such file"},
            {good + " --trace " + path("no/folder.txt"), "No such file"},
    };
    for (const auto& test : kCases) {
        const Outcome outcome = run(test.arguments);
        EXPECT_EQ(outcome.status, 2) << test.arguments;
        EXPECT_NE(outcome.output.find(test.says), std::string::npos) << outcome.output;
        EXPECT_EQ(std::count(outcome.output.begin(), outcome.output.end(), '\n'), 1)
                << outcome.output;
    }
}

TEST_F(Program, ReportsWhatItPlayedAndWhatTheTouchedApplicationDid) {
    TraceText text;
    text.vsyncs(0, 10.0, 20);
    for (int frame = 0; frame < 18; ++frame) {
        text.counter(2.0 + 10.0 * frame, "SurfaceView[com.a/com.a.X]#7", 1);
        text.counter(8.0 + 10.0 * frame, "SurfaceView[com.a/com.a.X]#7", 0);
    }
    text.counter(3.0, "wallpaper#8", 1).counter(7.0, "wallpaper#8", 0);
    const std::string scenario = write("s.json", R"({
        "recording": "r.txt", "repeat": 2,
        "games": [{"package": "com.a", "weight": 1, "targetFps": 30}],
        "properties": [{"name": "vendor.rdxe.enable.target_fps", "value": "1"},
                       {"name": "debug.vendor.perf.smart_touch", "value": "1"}],
        "events": [{"atMs": 20, "unblock": true},
                   {"atMs": 30, "property": {"name": "p", "value": "v"}},
                   {"atMs": 20, "touch": "down"}, {"atMs": 30, "touch": "move"},
                   {"atMs": 40, "touch": "up"}]})");
    write("r.txt", text.str() + "damaged\n");
    const Outcome outcome = run("--config " + scenario + " --json " + path("out.json") +
                                " --trace " + path("trace.txt"));
    EXPECT_EQ(outcome.status, 0) << outcome.output;
    EXPECT_NE(outcome.output.find("1 line skipped"), std::string::npos) << outcome.output;
    EXPECT_GT(std::filesystem::file_size(path("trace.txt")), 0U);

    Json::Value report;
    std::ifstream(path("out.json")) >> report;
    EXPECT_EQ(report["recording"]["frames"].asInt(), 19);
    EXPECT_EQ(report["recording"]["linesSkipped"].asInt(), 1);
    EXPECT_EQ(report["replay"]["repeat"].asInt(), 2);
    ASSERT_EQ(report["layers"].size(), 2U);
    EXPECT_EQ(report["layers"][0]["id"].asInt(), 7);
    EXPECT_TRUE(report["layers"][0]["candidateNs"].isInt64());
    EXPECT_TRUE(report["layers"][1]["candidateNs"].isNull()) << "its name yields no package";
    std::map<std::string, int> counts;
    for (const auto& hook : report["hooks"])
        counts[hook["name"].asString()] = hook["count"].asInt();
    EXPECT_EQ(counts["corvaneInit"], 1);
    EXPECT_EQ(counts["corvaneUnblockPendingBuffer"], 1);
    EXPECT_GE(counts["corvaneTrackVsyncSignal"], 40);
    EXPECT_EQ(counts["corvaneTrackBufferIncrement"] + report["replay"]["droppedFrames"].asInt(),
              38);

    const Json::Value& application = report["application"];
    EXPECT_EQ(application["error"].asString(), "");
    EXPECT_EQ(application["frames"].asInt(), 36);
    EXPECT_EQ(application["inputConsumed"].asInt() + application["inputHeld"].asInt(), 1);
    ASSERT_EQ(application["powerBoosts"].size(), 1U) << "for the first touch after a pause";
    EXPECT_EQ(application["powerBoosts"][0].asInt(), 110);
}

}  // namespace
}  // namespace corvane::replay
