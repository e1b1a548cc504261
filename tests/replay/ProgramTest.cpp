// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>
#include <json/json.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "TraceText.h"
#include "replay/TextTable.h"

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
        mConverter = here.parent_path() / "bin" / "corvane-convert";
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
    // `setup` is what a shell does before.
    Outcome run(const std::string& arguments, const std::string& setup = "") const {
        Outcome outcome{};
        const std::string command = "exec 2>&1; " + setup + mProgram.string() + " " + arguments;
        FILE* pipe = popen(command.c_str(), "r");
        char buffer[4096];
        size_t count = 0;
        while ((count = fread(buffer, 1, sizeof(buffer), pipe)) > 0) {
            outcome.output.append(buffer, count);
        }
        outcome.status = WEXITSTATUS(pclose(pipe));
        return outcome;
    }
    std::string read(const std::string& name) const {
        std::ifstream file(path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    Json::Value report() const {
        Json::Value report;
        std::ifstream(path("out.json")) >> report;
        return report;
    }
    // A scenario that touches, and its recording, both in the folder.
    std::string touched() const {
        TraceText text;
        text.vsyncs(0, 10.0, 20);
        for (int frame = 0; frame < 18; ++frame) {
            text.counter(2.0 + 10.0 * frame, "SurfaceView[com.a/com.a.X]#7", 1);
            text.counter(8.0 + 10.0 * frame, "SurfaceView[com.a/com.a.X]#7", 0);
        }
        text.counter(3.0, "wallpaper#8", 1).counter(7.0, "wallpaper#8", 0);
        write("r.txt", text.str() + "damaged\n");
        return write("s.json", R"({
            "recording": "r.txt", "repeat": 2,
            "games": [{"package": "com.a", "weight": 1, "targetFps": 30}],
            "properties": [{"name": "vendor.rdxe.enable.target_fps", "value": "1"},
                           {"name": "debug.vendor.perf.smart_touch", "value": "1"}],
            "events": [{"atMs": 20, "unblock": true},
                       {"atMs": 30, "property": {"name": "p", "value": "v"}},
                       {"atMs": 20, "touch": "down"}, {"atMs": 30, "touch": "move"},
                       {"atMs": 40, "touch": "up"}]})");
    }

    // Members of a list's entries.
    static std::string textOf(const Json::Value& list, const char* first, const char* second) {
        std::string text;
        for (const auto& entry : list) {
            text += entry[first].asString() + " " + entry[second].asString() + ", ";
        }
        return text;
    }

    std::filesystem::path mProgram, mConverter;
    std::filesystem::path mFolder;
};

// What is odd is played as far as it makes sense, and told in one sentence where it does not; in
// every way of playing, and whatever the format. Counters as "NAME MS STEP COUNT VALUES": from that
// time on, in steps of as many milliseconds.
TEST_F(Program, OddRecordingsArePlayedOrToldInOneSentence) {
    const struct {
        const char* what;
        const char* counters;
        const char* says;
    } kCases[] = {
            {"time runs backwards", "VSYNC-sf 600 -10 60 toggle com.a/X#7 540 -9 60 toggle", ""},
            {"never latched", "VSYNC-sf 0 10 100 toggle com.a/X#7 10 10 64 rise", ""},
            {"latched, and never queued", "VSYNC-sf 0 10 100 toggle com.a/X#7 10 10 64 stay",
             "holds no layers"},
            {"one frame, and first of all", "com.a/X#7 0 0 1 rise VSYNC-sf 1 10 3 toggle", ""},
            {"thousands of layers", "VSYNC-sf 0 10 10 toggle a/b# 0.03 0.03 3000 one", ""},
            {"vsyncs at one moment", "VSYNC-sf 0 0 50 toggle com.a/X#7 1 0 1 rise",
             "holds no vsyncs"},
            {"a signal of microseconds", "VSYNC-sf 0 0.001 50 toggle com.a/X#7 50000 0 1 rise",
             "less than a millisecond apart"},
            {"weeks of pauses",
             "VSYNC-sf 0 10 50 toggle VSYNC-sf 500 59000 20000 toggle com.a/X#7 5 0 1 rise",
             "at most 10 million are: --from and --to choose a part"},
    };
    for (const auto& test : kCases) {
        SCOPED_TRACE(test.what);
        TraceText text;
        std::istringstream counters(test.counters);
        std::string name, values;
        double ms = 0, stepMs = 0;
        for (int count = 0; counters >> name >> ms >> stepMs >> count >> values;) {
            for (int i = 1; i <= count; ++i, ms += stepMs) {
                const int value = values == "toggle" ? i % 2
                                  : values == "rise" ? i
                                                     : values == "one";
                text.counter(ms, name.back() == '#' ? name + std::to_string(i) : name, value);
            }
        }
        const std::string file = write("odd.txt", text.str());
        const std::string convert =
                mConverter.string() + " " + file + " " + path("odd.pftrace") + "; ";
        for (const std::string& arguments :
             {file + " --against none,interval,shallow --game com.a:headroom=80,target=30,rescue=1",
              file + " --open-loop --repeat 3", path("odd.pftrace")}) {
            const Outcome outcome = run(arguments + " --json " + path("out.json"), convert);
            EXPECT_EQ(outcome.status, *test.says == '\0' ? 0 : 2) << outcome.output;
            EXPECT_NE(outcome.output.find(test.says), std::string::npos) << outcome.output;
            if (outcome.status != 0) {
                EXPECT_EQ(std::count(outcome.output.begin(), outcome.output.end(), '\n'), 1);
                continue;
            }
            EXPECT_FALSE(std::regex_search(outcome.output + read("out.json"),
                                           std::regex("\\b(nan|inf|1e\\+9999)\\b")));
            for (const auto& policy : report()["comparison"]["policies"]) {
                const Json::Value& figures = policy["figures"][0];
                EXPECT_GT(figures["shownFrames"].asInt(), 0) << policy["name"];
            }
        }
    }
}

// One sentence where the input is not usable, and nothing else.
TEST_F(Program, TellsWhatIsNotUsableOrCannotBeWritten) {
    TraceText usable;
    usable.vsyncs(0, 10.0, 4).counter(1.0, "a/b#7", 1);
    const std::string good = write("good.txt", usable.str());
    const std::string empty = write("empty.json", "{}");
    std::filesystem::create_symlink(good, path("link"));
    std::filesystem::create_hard_link(good, path("hard"));
    constexpr int kUnusable = 2, kFailed = 1;
    const struct {
        std::string arguments;
        const char* says;
        int status = kUnusable;
        const char* setup = "";
    } kCases[] = {
            {path("none.txt"), "No such file"},
            {mFolder.string(), "directory"},
            {write("empty.txt", ""), "not a trace"},
            {write("rubbish.txt", std::string("\0\xff[1] \n", 7)), "not a trace"},
            {"/dev/zero", "no text"},
            {good + " --config /dev/zero", "larger than 16 MB"},
            {"\"" + write("a.zip", "PK\x03\x04...") + "\"", "unzip -p"},
            {write("z.txt", "capturing trace... done\nTRACE:\n\x78\x9c..."), "zlib.decompress"},
            {write("p.pftrace", std::string("\x0a\x04\x40\x00\x50\x01", 6)),
             "holds nothing of a compositor"},
            {write("u.txt", "\xff\xfe#"), "iconv"},
            {write("cut.gz", "\x1f\x8b\x08"), "damaged"},
            {good + " --layer nix", "'nix'; there are: a/b#7"},
            {good + " --from 7 --list", "0.03 s long"},
            {good + " --config " + write("bad.json", "{\"gmaes\": []}"), "gmaes"},
            {"--config " + write("nameless.json", "{}"), "nameless.json"},
            {good + " --config " +
                     write("lost.json", "{\"fences\": [{\"layer\": \"x\", \"timeline\": \"t\"}]}"),
             "'x'"},
            {good + " --config " +
                     write("refused.json", R"({"properties": [{"name": "a b", "value": "1"}]})"),
             "property a b cannot be set"},
            {good + " --json " + path("no/folder.json"), "No such file"},
            {good + " --json " + good, "over the input"},
            {good + " --trace " + path("link"), "over the input"},
            {good + " >> " + path("hard"), "standard output would be written over the input"},
            {good + " --config " + empty + " --json " + empty, "over the input"},
            {good + " --json " + path("new") + " --trace " + path("./new"), "two outputs"},
            {good + " > /dev/full", "cannot write standard output: No space", kFailed},
            {"--help > /dev/full", "cannot write standard output: No space", kFailed},
            {good + " --json /dev/full", "cannot write /dev/full: No space", kFailed},
            {good + " --trace /dev/full", "cannot write /dev/full: No space", kFailed},
            {good + " --json - > /dev/full", "cannot write standard output: No space", kFailed},
            // ThreadSanitizer writes a file of its own before the program could ignore the signal.
            {good, "cannot write the library's trace in ", kFailed, "trap '' XFSZ; ulimit -f 0; "},
            {good, "cannot write the library's trace in /proc", kFailed, "TMPDIR=/proc "},
    };
    for (const auto& test : kCases) {
        const Outcome outcome = run(test.arguments, test.setup);
        EXPECT_EQ(outcome.status, test.status) << test.setup << test.arguments;
        EXPECT_NE(outcome.output.find(test.says), std::string::npos) << outcome.output;
        const auto lines = std::count(outcome.output.begin(), outcome.output.end(), '\n');
        EXPECT_TRUE(lines == 1 || test.status == kFailed) << outcome.output;
    }
    EXPECT_EQ(read("good.txt"), usable.str());
    EXPECT_EQ(read("empty.json"), "{}");
    EXPECT_FALSE(std::filesystem::exists(path("new"))) << "refused before anything is written";
}

TEST_F(Program, ListsThenNamesTheLineToTypeThenPlaysTheGame) {
    const std::string scenario = touched();
    const std::string file = path("r.txt");
    for (const char* command : {"gzip -c %s > %s.2; ", "sed 's/$/\r/' %s > %s.2; "}) {
        const Outcome listed =
                run("--list - < " + file + ".2", format(command, file.c_str(), file.c_str()));
        for (const char* part : {"100.0 Hz, told by the intervals of VSYNC-sf", "com.a",
                                 "a layer's buffers", "the vsyncs that are played"}) {
            EXPECT_NE(listed.output.find(part), std::string::npos) << listed.output;
        }
    }
    EXPECT_NE(run(file).output.find("./corvane replay " + file +
                                    " --game com.a:headroom=80,rescue=1"),
              std::string::npos);
    const Outcome game =
            run("--default-config " + scenario + " --game com.a:headroom=80 --repeat 4 " +
                "--refresh-rate 100,50@0.1 --json - 2>" + path("text"));
    Json::Value report;
    EXPECT_TRUE(Json::Reader().parse(game.output, report)) << "has standard output alone";
    EXPECT_EQ(read("text").rfind("Recording  r.txt\n", 0), 0U);
    EXPECT_EQ(report["recording"]["rateSource"].asString(), "--refresh-rate");
    EXPECT_EQ(report["recording"]["rateChanges"][0]["vsyncPeriodNs"].asInt(), 20'000'000);
    EXPECT_TRUE(report["layers"][0]["game"].asBool());
    EXPECT_TRUE(report["suggestion"].isNull());
    EXPECT_TRUE(report["application"].isNull()) << "of the default, only the recording is left";
}

// Signals are handled before the first output is opened. One comes then, while the trace waits for
// its reader, the other in what would be a minute of real time.
TEST_F(Program, EndsOnASignalWithTheReportSoFar) {
    const std::tuple<int, const char*, const char*> kCases[] = {
            {SIGINT, "--trace fifo",
             "until [ -e out.json ] || ! kill -0 $$; do :; done; kill -INT $$; cat fifo"},
            {SIGTERM, "--realtime --repeat 300",
             "until grep -qs ^app- /proc/$$/task/*/comm || ! kill -0 $$; do :; done;"
             "kill -TERM $$"},
    };
    for (const auto& [signal, arguments, sender] : kCases) {
        const Outcome outcome =
                run("--config " + touched() + " --json out.json " + arguments,
                    format("cd %s; rm -f out.json; mkfifo fifo; (%s) >/dev/null 2>&1 & exec ",
                           mFolder.c_str(), sender));
        const Json::Value report = this->report();
        EXPECT_EQ(outcome.status, 128 + signal);
        EXPECT_TRUE(report["replay"]["stopped"].asBool());
        EXPECT_EQ(report["application"]["error"].asString(), "");
        EXPECT_LT(report["application"]["frames"].asInt(), 18 * report["replay"]["repeat"].asInt());
    }
}

// What the findings draw from the library's log and trace is what happened on the model's device.
TEST_F(Program, FindsInTheLogAndTraceWhatTheModelDid) {
    ASSERT_EQ(run("--config " CORVANE_REPLAY_FOLDER "/scenarios/default.json --json " +
                  path("out.json"))
                      .status,
              0);
    const Json::Value document = report();
    const Json::Value& layer = document["layers"][0];
    const Json::Value& features = layer["features"];
    const Json::Value& library = document["comparison"]["policies"][0];
    Json::ArrayIndex i = 0;
    int held = 0, paced = 0;
    for (const Json::Value& frame : library["frames"]) {
        if (frame["layer"].asInt() != 0) continue;
        const Json::Value& found = layer["frameRecords"][i++];
        EXPECT_EQ(found["queueNs"], frame["queueNs"]);
        EXPECT_EQ(found["returnNs"], frame["letGoNs"]);
        // The trace's times are cut to microseconds.
        EXPECT_NEAR(found["heldNs"].asDouble() + found["pacedNs"].asDouble(),
                    frame["letGoNs"].asDouble() - frame["queueNs"].asDouble(), 2'000);
        held += found["heldNs"].asInt() > 0 ? 1 : 0;
        paced += found["pacedNs"].asInt() > 0 ? 1 : 0;
    }
    EXPECT_EQ(layer["frameRecords"].size(), i);
    EXPECT_EQ(features["headroom"]["held"].size(), static_cast<size_t>(held));
    EXPECT_EQ(features["targetFps"]["pacedSpread"]["count"].asInt(), paced);
    EXPECT_GT(std::min(held, paced), 50);
    const Json::Value& boosts = features["frameRescue"]["boosts"];
    EXPECT_EQ(textOf(boosts, "atNs", "freqMHz"), textOf(library["boosts"], "atNs", "freqMHz"));
    for (const Json::Value& boost : boosts) {
        const Json::Value& frame = layer["frameRecords"][boost["frame"].asUInt() - 1];
        EXPECT_EQ(frame["queueNs"].asInt64() + boost["sinceQueueNs"].asInt64(),
                  boost["atNs"].asInt64());
    }
    EXPECT_EQ(document["boostsOfNoLayer"].size(), 0U);
    EXPECT_EQ(layer["candidateNs"], layer["frameRecords"][0]["queueNs"]);
    EXPECT_NEAR(layer["promotedNs"].asDouble(), 5e8, 1e8);
    EXPECT_EQ(layer["package"].asString() + layer["weight"].asString() + layer["game"].asString(),
              "com.example.reader2true");
    // Rescue comes on with the mode; the target comes at its time, and ends both by the mode that
    // it makes.
    const std::string begin = layer["fpsModes"][0]["atNs"].asString(),
                      end = layer["fpsModes"][1]["atNs"].asString();
    EXPECT_EQ(layer["fpsModes"][0]["mode"].asInt() - layer["fpsModes"][1]["mode"].asInt(), 30);
    EXPECT_EQ(textOf(features["frameRescue"]["switches"], "atNs", "on"),
              begin + " true, " + end + " false, ");
    EXPECT_EQ(textOf(features["targetFps"]["switches"], "atNs", "on"), "6500000000 true, ");
    EXPECT_EQ(features["headroom"]["headroomNs"].asInt64(),
              document["recording"]["vsyncPeriodNs"].asInt64() * 8 / 10);
}

TEST_F(Program, ReportsWhatItPlayedAndWhatTheTouchedApplicationDid) {
    const Outcome outcome = run("--config " + touched() + " --json " + path("out.json") +
                                " --trace " + path("trace.txt"));
    EXPECT_EQ(outcome.status, 0) << outcome.output;
    EXPECT_NE(outcome.output.find("1 line skipped"), std::string::npos) << outcome.output;
    EXPECT_GT(std::filesystem::file_size(path("trace.txt")), 0U);

    const Json::Value report = this->report();
    EXPECT_EQ(report["recording"]["frames"].asInt(), 19);
    EXPECT_EQ(report["recording"]["linesSkipped"].asInt(), 1);
    ASSERT_EQ(report["layers"].size(), 2U);
    EXPECT_TRUE(report["layers"][1]["candidateNs"].isNull()) << "its name yields no package";
    const std::string hooks = textOf(report["hooks"], "name", "count");
    for (const char* hook :
         {"corvaneInit 1,", "corvaneUnblockPendingBuffer 1,", "corvaneTrackBufferIncrement 38,"}) {
        EXPECT_NE(hooks.find(hook), std::string::npos) << hooks;
    }

    const Json::Value& application = report["application"];
    EXPECT_EQ(application["error"].asString(), "");
    EXPECT_EQ(application["frames"].asInt(), 36);
    EXPECT_EQ(application["inputConsumed"].asInt() + application["inputHeld"].asInt(), 1);
    ASSERT_EQ(application["powerBoosts"].size(), 1U) << "for the first touch after a pause";
    EXPECT_EQ(application["powerBoosts"][0].asInt(), 110);
}

}  // namespace
}  // namespace corvane::replay
