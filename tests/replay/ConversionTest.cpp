// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "TraceText.h"
#include "replay/Conversion.h"
#include "replay/ModelInput.h"
#include "replay/Recording.h"
#include "replay/Stop.h"
#include "replay/TextTable.h"
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

// What a phone's compositor did, by its time in microseconds: "v3" is a vsync; of the layers 0 to
// 2, "q0" is a queue and "l0" a latch, and where it is recorded, "d0" is when the producer got its
// buffer and "r0" when its call to queue it returned.
using Happenings = std::multimap<int64_t, std::string>;

std::string layerName(size_t layer) {
    return format("com.app%zu/com.app%zu.Main#%zu", layer, layer, 10 + layer);
}
// The producers of the layers: two by their calls around or before the count, one by none.
std::string producerName(size_t layer) {
    return layer == 2 ? "?" : std::to_string(1'000 + layer);
}

std::string timed(char what, int64_t us) {
    return what + std::to_string(us) + " ";
}

// A part of it, as a recording is to tell it.
std::string told(const Happenings& all, int64_t fromUs, int64_t toUs) {
    const auto isStep = [&](const auto& happening) {
        const auto& [us, what] = happening;
        return us >= fromUs && us <= toUs && what[0] != 'd' && what[0] != 'r';
    };
    const int64_t originUs = std::find_if(all.begin(), all.end(), isStep)->first;
    const int64_t endUs = std::find_if(all.rbegin(), all.rend(), isStep)->first;
    std::string steps[4], dequeues[4], returns[4];
    int before[4] = {}, after[4] = {};
    for (const auto& [us, what] : all) {
        const auto layer = static_cast<size_t>(what[1] - '0');
        const int change = what[0] == 'q' ? 1 : what[0] == 'l' ? -1 : 0;
        if (us < originUs) before[layer] += change;
        if (us <= endUs) after[layer] += change;
        if (us < originUs || us > endUs) continue;
        auto& lists = what[0] == 'd' ? dequeues : what[0] == 'r' ? returns : steps;
        lists[layer] += timed(what[0], us - originUs);
    }
    std::string text = steps[3];
    for (size_t i = 0; i < 3; ++i) {
        if (steps[i].find('q') == std::string::npos) continue;
        text += format("\n%s id %zu of %s, %d %s%d ", layerName(i).c_str(), 10 + i,
                       producerName(i).c_str(), before[i], steps[i].c_str(), after[i]) +
                dequeues[i] + returns[i];
    }
    return text;
}

std::string told(const Recording& recording) {
    std::map<std::string, std::string> layers;
    std::string text;
    for (const Step& step : recording.steps) {
        const char what = "vql"[static_cast<int>(step.kind)];
        std::string& list = what == 'v' ? text : layers[recording.layers[step.layer].name];
        list += timed(what, step.timeNs / 1'000);
    }
    for (const auto& [name, steps] : layers) {
        const Layer& layer = recording.layers[*recording.findLayer(name)];
        const Process& process = recording.processes[layer.process];
        text += format("\n%s id %d of %s, %d %s%d ", name.c_str(), layer.id,
                       process.pid > 30'000 ? "?" : std::to_string(process.pid).c_str(),
                       layer.initialDepth, steps.c_str(), layer.finalDepth);
        for (const int64_t timeNs : process.dequeues) text += timed('d', timeNs / 1'000);
        for (const int64_t timeNs : process.returns) text += timed('r', timeNs / 1'000);
    }
    return text;
}

// However often a recording changes its format, it stays the same; a part of it is a part of what
// happened; masked, it differs in names alone.
TEST_F(Conversion, EveryFormatHoldsTheSameRecording) {
    for (unsigned seed = 0; seed < 8; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        Happenings happened;
        TraceText text;
        int depth[3] = {};
        for (int us = 0; us < 300'000; us += 1'000) {
            const double ms = us / 1e3;
            if (us % 10'000 == 0) {
                happened.emplace(us, "v3");
                text.counter(ms, "VSYNC-sf", us / 10'000 % 2);
            }
            const size_t layer = random() % 3;
            const bool isQueue = depth[layer] == 0 || (depth[layer] < 3 && random() % 2 == 0);
            depth[layer] += isQueue ? 1 : -1;
            happened.emplace(us + 500, format("%c%zu", isQueue ? 'q' : 'l', layer));
            if (isQueue && layer < 2) {
                const int pid = 1'000 + static_cast<int>(layer), returnUs = layer == 0 ? 400 : 600;
                text.bufferCall(pid, "dequeueBuffer", ms + 0.1, ms + 0.2);
                text.bufferCall(pid, "queueBuffer", ms + 0.3, ms + returnUs / 1e3);
                happened.emplace(us + 200, format("d%zu", layer));
                happened.emplace(us + returnUs, format("r%zu", layer));
            }
            text.counter(ms + 0.5, layerName(layer), depth[layer]);
        }
        std::string from = path("recording.txt");
        std::ofstream(from) << text.shuffled(random);
        const auto original = readRecording(from);
        ASSERT_TRUE(original.recording) << original.error;
        EXPECT_EQ(told(*original.recording), told(happened, 0, 300'000));
        for (int part = 0; part < 5; ++part) {
            const int64_t fromUs = random() % 200'000, toUs = fromUs + 30'000 + random() % 90'000;
            Recording cut = *original.recording;
            EXPECT_EQ(select(cut, {fromUs * 1'000, toUs * 1'000, ""}), "");
            EXPECT_EQ(told(cut), told(happened, fromUs, toUs));
            Recording one = *original.recording;
            EXPECT_EQ(select(one, {{}, {}, "Main#11"}), "");
            EXPECT_EQ(one.layers.size() + one.processes.size(), 2U);
        }
        for (const char* const ending :
             {".pftrace", ".html", ".perfetto-trace.gz", ".txt.gz", ".txt"}) {
            const std::string to = path("converted") + ending;
            EXPECT_EQ(run({from.c_str(), to.c_str()}), std::vector<std::string>{});
            const auto converted = readRecording(to);
            ASSERT_TRUE(converted.recording) << converted.error;
            EXPECT_EQ(told(*converted.recording), told(*original.recording)) << to;
            from = to;
        }
        const std::string masked = path("masked.pftrace");
        run({"--mask", from.c_str(), masked.c_str()});
        auto again = readRecording(masked);
        ASSERT_TRUE(again.recording) << again.error;
        for (Layer& layer : again.recording->layers) {
            const Layer& old =
                    original.recording
                            ->layers[*original.recording->findLayer(format("#%d", layer.id))];
            EXPECT_NE(packageOf(layer), packageOf(old));
            layer.name = old.name;
        }
        EXPECT_EQ(told(*again.recording), told(*original.recording));
    }
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
    using Kind = FrameMark::Kind;
    constexpr int64_t kPeriodUs = 8'333;
    for (unsigned seed = 0; seed < 5; ++seed) {
        std::mt19937 random(seed);
        const auto below = [&](int64_t n) { return static_cast<int64_t>(random() % n); };
        const std::string file = path("frames.pftrace");
        TraceFileWriter writer(file, TraceFormat::kPerfetto);
        int64_t cookie = 0;
        const auto slice = [&](FrameMark mark, int64_t endUs) {
            mark.timeNs *= 1'000;
            mark.cookie = ++cookie;
            writer.frame(mark);
            writer.frame({Kind::kEnd, endUs * 1'000, mark.cookie});
        };
        Happenings happened;
        std::vector<int64_t> shown[2], found[2];
        for (int64_t vsync = 0; vsync < 200; ++vsync) {
            const int64_t wokenUs = 5'000'000'000 + vsync * kPeriodUs;
            const int64_t takenUs = wokenUs + 100 + below(50);
            const int64_t shownUs = wokenUs + 2 * kPeriodUs + below(2);
            happened.emplace(wokenUs, "v3");
            slice({Kind::kExpectedDisplay, wokenUs, 0, vsync, 0, 600}, wokenUs + 2 * kPeriodUs);
            slice({Kind::kActualDisplay, takenUs, 0, vsync, 0, 600, FrameMark::kOnTime}, shownUs);
            for (size_t layer = 0; layer < 2; ++layer) {
                if (below(4) == 0) continue;
                const std::string name = "TX - " + layerName(layer);
                const int64_t queueUs = wokenUs - 1 - below(kPeriodUs / 2);
                const bool dropped = vsync > 0 && below(10) == 0;
                const auto pid = static_cast<int32_t>(1'000 + layer);
                FrameMark mark{Kind::kExpectedSurface, queueUs - kPeriodUs, 0, vsync, vsync, pid};
                mark.layer = name;
                slice(mark, queueUs + 1);
                mark.kind = Kind::kActualSurface;
                mark.present = dropped ? FrameMark::kDropped : FrameMark::kOnTime;
                slice(mark, queueUs);
                mark.isBuffer = false;  // an animation's frame, which queues nothing
                mark.present = FrameMark::kOnTime;
                if (below(2) == 0) slice(mark, queueUs - 1);
                happened.emplace(queueUs, format("q%zu", layer));
                happened.emplace(queueUs - kPeriodUs, format("d%zu", layer));
                if (dropped) continue;
                happened.emplace(takenUs, format("l%zu", layer));
                shown[layer].push_back(shownUs);
            }
        }
        writer.finish();
        const auto parsed = readRecording(file);
        ASSERT_TRUE(parsed.recording) << parsed.error;
        EXPECT_EQ(told(*parsed.recording), told(happened, 0, INT64_MAX));
        const int64_t originUs =
                std::find_if(happened.begin(), happened.end(), [](const auto& happening) {
                    return happening.second[0] != 'd';
                })->first;
        const model::Recorded input = modelInput(*parsed.recording);
        for (const auto& layer : input.layers) {
            for (const auto& frame : layer.frames) {
                const size_t index = layer.name == layerName(1) ? 1 : 0;
                if (frame.shownNs) found[index].push_back(*frame.shownNs / 1'000 + originUs);
            }
        }
        EXPECT_TRUE(std::equal(found, found + 2, shown));
    }
}

// What a trace lacks is told in one sentence, with the line of the configuration that records it.
TEST_F(Conversion, TellsWhatATraceLacks) {
    const std::string file = path("lacking.pftrace");
    for (const int held : {0, 1, 2, 3}) {
        const bool print = (held & 1) != 0, frames = (held & 2) != 0;
        TraceFileWriter writer(file, TraceFormat::kPerfetto);
        if (print) writer.event({TraceEvent::Kind::kBegin, 5, 7, 7, "x", 0});
        if (frames) writer.frame({FrameMark::Kind::kEnd, 5, 1});
        if (held == 0) writer.write({}, {{"nothing"}});
        writer.finish();
        const std::string error = readRecording(file).error;
        const auto names = [&](const char* what) { return error.find(what) != error.npos; };
        EXPECT_EQ(names("ftrace/print"), !print) << error;
        EXPECT_EQ(names("surfaceflinger.frametimeline"), !frames) << error;
        EXPECT_FALSE(error.empty() || names("\n"));
    }
}

}  // namespace
}  // namespace corvane::replay
