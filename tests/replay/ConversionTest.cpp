// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "replay/Conversion.h"
#include "replay/ModelInput.h"
#include "replay/Recording.h"
#include "replay/Stop.h"
#include "replay/TraceFileWriter.h"

namespace corvane::replay {
namespace {

namespace fs = std::filesystem;

class Conversion : public ::testing::Test {
  protected:
    Conversion() { fs::create_directory(mFolder); }
    ~Conversion() override { fs::remove_all(mFolder); }

    std::string path(const std::string& name) const { return mFolder / name; }

    static std::vector<std::string> run(std::vector<const char*> arguments) {
        arguments.insert(arguments.begin(), "corvane-convert");
        auto parsed = parseConversionOptions(static_cast<int>(arguments.size()), arguments.data());
        if (!parsed.options) throw Stop{kUnusable, parsed.error};
        return convert(std::move(*parsed.options));
    }

    static std::string contents(const std::string& path) {
        std::ifstream file(path);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    const fs::path mFolder =
            fs::temp_directory_path() / ("corvane-conversion-" + std::to_string(getpid()));
};

// All that a report is made of.
std::string dump(const Recording& recording) {
    std::string text;
    const auto add = [&](auto... values) { ((text += std::to_string(values) + " "), ...); };
    for (const auto& p : recording.processes) {
        add(p.pid, p.uid, p.dequeues.size());
        for (const int64_t time : p.dequeues) add(time);
    }
    for (const auto& l : recording.layers) {
        text += l.name + " ";
        add(l.id, l.process, l.initialDepth, l.finalDepth, l.frames, l.shown.size());
    }
    for (const auto& s : recording.steps) add(s.timeNs, static_cast<int>(s.kind), s.layer, s.count);
    add(recording.durationNs, recording.vsyncPeriodNs, recording.rateChanges.size());
    add(recording.vsyncs, recording.frames, recording.skippedLines, recording.skippedLayers);
    for (const auto& c : recording.counters) text += c.name + std::to_string(c.samples) + c.use;
    for (const auto& note : recording.notes) text += note;
    return text + recording.rateSource;
}

// What the replay prints and writes for the recording in `folder`, which is called "trace" there so
// that no name differs.
std::string replayOf(const std::string& folder) {
    const fs::path here = fs::read_symlink("/proc/self/exe").parent_path();
    const std::string command = "cd " + folder + " && " + (here.parent_path() / "bin").string() +
                                "/corvane-replay --json report.json --trace out.pftrace trace " +
                                "> report.txt 2>&1";
    EXPECT_EQ(std::system(command.c_str()), 0);
    std::string text;
    for (const char* const name : {"report.txt", "report.json", "out.pftrace"}) {
        std::ifstream file(fs::path(folder) / name);
        text.append(std::istreambuf_iterator<char>(file), {});
    }
    return text;
}

// However often a recording changes its format, it stays the same recording; masked, it differs in
// names alone.
TEST_F(Conversion, EveryFormatHoldsTheSameRecording) {
    const fs::path recordings = fs::read_symlink("/proc/self/exe").parent_path() / "recordings";
    const char* const kEndings[] = {".pftrace", ".html", ".perfetto-trace.gz", ".txt.gz", ".txt"};
    size_t count = 0;
    for (const auto& entry : fs::directory_iterator(recordings)) {
        if (entry.path().extension() != ".txt") continue;
        std::string from = entry.path();
        const auto original = readRecording(from);
        ASSERT_TRUE(original.recording) << original.error;
        for (const char* const ending : kEndings) {
            const std::string to = path("converted") + ending;
            EXPECT_EQ(run({from.c_str(), to.c_str()}), std::vector<std::string>{});
            const auto converted = readRecording(to);
            ASSERT_TRUE(converted.recording) << converted.error;
            EXPECT_EQ(dump(*converted.recording), dump(*original.recording)) << to;
            from = to;
        }
        const fs::path text = path("text"), packets = path("packets");
        fs::create_directories(text);
        fs::create_directories(packets);
        fs::copy_file(entry.path(), text / "trace", fs::copy_options::overwrite_existing);
        run({"--format", "perfetto", from.c_str(), (packets / "trace").c_str()});
        const std::string report = replayOf(text);
        EXPECT_GT(report.size(), 10'000U);
        EXPECT_TRUE(report == replayOf(packets)) << "the reports of one recording differ";
        // What --trace wrote is a recording itself.
        const auto played = readRecording(text / "out.pftrace");
        ASSERT_TRUE(played.recording) << played.error;
        EXPECT_EQ(played.recording->vsyncs, original.recording->vsyncs);
        EXPECT_EQ(played.recording->frames, original.recording->frames);

        const std::string masked = path("masked.pftrace");
        run({"--mask", from.c_str(), masked.c_str()});
        auto again = readRecording(masked);
        ASSERT_TRUE(again.recording) << again.error;
        for (size_t i = 0; i < again.recording->layers.size(); ++i) {
            Layer& layer = again.recording->layers[i];
            const Layer& old = original.recording->layers[i];
            EXPECT_TRUE(packageOf(old).empty() || packageOf(layer) != packageOf(old));
            EXPECT_EQ(packageOf(layer).empty(), packageOf(old).empty());
            layer.name = old.name;
        }
        again.recording->counters = original.recording->counters;
        EXPECT_EQ(dump(*again.recording), dump(*original.recording));
        ++count;
    }
    EXPECT_EQ(count, 3U);
}

TEST_F(Conversion, CutsAndRenames) {
    const std::string from = path("from.txt"), to = path("to.txt");
    std::ofstream(from)
            << "t-7 [0] .... 10.0: tracing_mark_write: B|1|a secret\n"
               "t-7 [0] .... 10.5: tracing_mark_write: C|1|TX - my.game/my.game.Main#3|1\n"
               "t-7 [0] .... 10.000000700: tracing_mark_write: B|1|</script>\n"
               "t-7 [0] .... 11.0: tracing_mark_write: E|1\n";
    run({"--from", "0.5", "--to", "0.9", "--rename", "my.game=a.b", from.c_str(), to.c_str()});
    EXPECT_NE(contents(to).find("10.500000: tracing_mark_write: C|1|TX - a.b/a.b.Main#3|1\n"),
              std::string::npos);
    EXPECT_EQ(contents(to).find("11.0"), std::string::npos);
    run({"--mask", from.c_str(), to.c_str()});
    EXPECT_EQ(contents(to).find("secret"), std::string::npos);
    EXPECT_NE(contents(to).find("10.000000700"), std::string::npos);
    EXPECT_NE(contents(to).find("com.example.app1/com.example.app1.Name1#3|1"), std::string::npos);
    const std::string page = path("page.html");
    run({from.c_str(), page.c_str()});
    run({page.c_str(), to.c_str()});
    EXPECT_NE(contents(to).find("E|1\n"), std::string::npos) << "a name ended the page's trace";
    const std::vector<const char*> kRefused[] = {{from.c_str()},
                                                 {from.c_str(), "x.bin"},
                                                 {"--rename", "=x", from.c_str(), to.c_str()},
                                                 {"--from", "nan", from.c_str(), to.c_str()},
                                                 {"--from", "2", "--to", "1", from.c_str(),
                                                  to.c_str()},
                                                 {from.c_str(), from.c_str()},
                                                 {"--from", "5", from.c_str(), to.c_str()},
                                                 {"--what", from.c_str(), to.c_str()}};
    for (const auto& arguments : kRefused) EXPECT_THROW(run(arguments), Stop);
    EXPECT_FALSE(contents(from).empty());
}

// A frame timeline made from known frames gives back the layers, frames and times it was made of.
TEST_F(Conversion, AFrameTimelineIsARecording) {
    constexpr int64_t kPeriodNs = 8'333'333;
    constexpr int64_t kStartNs = 5'000'000'000'000;
    for (unsigned seed = 0; seed < 10; ++seed) {
        std::mt19937 random(seed);
        const auto below = [&](int64_t n) { return static_cast<int64_t>(random() % n); };
        const std::string file = path("frames.pftrace");
        TraceFileWriter writer(file, TraceFormat::kPerfetto);
        using Kind = FrameMark::Kind;
        int64_t cookie = 0;
        const auto slice = [&](FrameMark mark, int64_t endNs) {
            mark.cookie = ++cookie;
            writer.frame(mark);
            FrameMark end{Kind::kEnd, endNs, mark.cookie};
            writer.frame(end);
        };
        const std::string names[] = {"com.a/com.a.Main#12", "SurfaceView[com.b/com.b.X](BLAST)#13"};
        std::vector<int64_t> queues[2], latches[2], shown[2];
        for (int64_t vsync = 0; vsync < 200; ++vsync) {
            const int64_t wokenNs = kStartNs + vsync * kPeriodNs;
            const int64_t takenNs = wokenNs + 100'000 + below(50'000);
            const int64_t shownNs = wokenNs + 2 * kPeriodNs + below(1'000);
            slice({Kind::kExpectedDisplay, wokenNs, 0, vsync, 0, 600}, wokenNs + 2 * kPeriodNs);
            slice({Kind::kActualDisplay, takenNs, 0, vsync, 0, 600, FrameMark::kOnTime}, shownNs);
            for (size_t layer = 0; layer < 2; ++layer) {
                if (below(4) == 0) continue;
                const std::string name = "TX - " + names[layer];
                const int64_t queueNs = wokenNs - 1 - below(kPeriodNs / 2);
                const int pid = 1'900 + static_cast<int>(layer);
                const bool dropped = below(10) == 0;
                FrameMark mark{Kind::kExpectedSurface, queueNs - kPeriodNs, 0, vsync, vsync, pid};
                mark.layer = name;
                slice(mark, queueNs + 1'000);
                mark.kind = Kind::kActualSurface;
                mark.timeNs += 1'000;
                mark.present = dropped ? FrameMark::kDropped : FrameMark::kOnTime;
                slice(mark, queueNs);
                mark.isBuffer = false;  // an animation's frame, which queues nothing
                mark.present = FrameMark::kOnTime;
                if (below(2) == 0) slice(mark, queueNs - 10);
                queues[layer].push_back(queueNs);
                if (dropped) continue;
                latches[layer].push_back(takenNs);
                shown[layer].push_back(shownNs);
            }
        }
        writer.finish();
        const auto parsed = readRecording(file);
        ASSERT_TRUE(parsed.recording) << parsed.error;
        const Recording& recording = *parsed.recording;
        ASSERT_EQ(recording.layers.size(), 2U);
        EXPECT_EQ(recording.vsyncs, 200U);
        EXPECT_NEAR(static_cast<double>(recording.vsyncPeriodNs), kPeriodNs, 1'000);
        const auto vsync = std::find_if(recording.steps.begin(), recording.steps.end(),
                                        [](auto& s) { return s.kind == Step::Kind::kVsync; });
        const int64_t originNs = kStartNs - vsync->timeNs;
        const model::Recorded input = modelInput(recording);
        for (size_t layer = 0; layer < 2; ++layer) {
            std::vector<int64_t> queued, latched, seen;
            for (const auto& step : recording.steps) {
                if (step.kind == Step::Kind::kVsync || step.layer != layer) continue;
                auto& times = step.kind == Step::Kind::kQueue ? queued : latched;
                times.push_back(step.timeNs + originNs);
            }
            // As the model takes it, frame by frame.
            for (const auto& frame : input.layers[layer].frames) {
                if (frame.shownNs) seen.push_back(*frame.shownNs + originNs);
            }
            EXPECT_EQ(queued, queues[layer]);
            EXPECT_EQ(latched, latches[layer]);
            EXPECT_EQ(seen, shown[layer]);
            EXPECT_EQ(recording.layers[layer].name, names[layer]);
            EXPECT_EQ(recording.processes[recording.layers[layer].process].pid, 1'900 + layer);
        }
    }
}

// What a trace lacks is told in one sentence, with the line of the configuration that records it.
TEST_F(Conversion, TellsWhatATraceLacks) {
    using Kind = TraceEvent::Kind;
    const std::string file = path("lacking.pftrace");
    const auto errorOf = [&](const std::vector<TraceEvent>& events, bool frames) {
        TraceFileWriter writer(file, TraceFormat::kPerfetto);
        for (const auto& event : events) writer.event(event);
        if (frames) writer.frame({FrameMark::Kind::kEnd, 5, 1});
        if (events.empty() && !frames) writer.write({}, {{"nothing"}});
        writer.finish();
        const auto parsed = readRecording(file);
        EXPECT_FALSE(parsed.recording);
        return parsed.error;
    };
    const TraceEvent slice{Kind::kBegin, 5, 7, 7, "x", 0};
    const struct {
        std::vector<TraceEvent> events;
        bool frames;
        bool namesPrint, namesTimeline;
    } kCases[] = {{{}, false, true, true},
                  {{}, true, true, false},
                  {{slice}, false, false, true},
                  {{slice}, true, false, false}};
    for (const auto& test : kCases) {
        const std::string error = errorOf(test.events, test.frames);
        const auto names = [&](const char* text) { return error.find(text) != std::string::npos; };
        EXPECT_EQ(names("ftrace/print"), test.namesPrint) << error;
        EXPECT_EQ(names("surfaceflinger.frametimeline"), test.namesTimeline) << error;
        EXPECT_EQ(error.find('\n'), std::string::npos);
    }
}

}  // namespace
}  // namespace corvane::replay
