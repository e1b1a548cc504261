// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>
#include <utils/Timers.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "corvane/host/Simulation.h"
#include "replay/Player.h"

namespace corvane::replay {
namespace {

constexpr int64_t kMs = 1'000'000;
constexpr int64_t kPeriodNs = 10 * kMs;
constexpr int64_t kStartNs = 1'000 * kMs;

// One layer per process: "LAYER@DEPTH", then what happens at which millisecond: "q" for a queue,
// "d" for a dequeue, "l" for the latch of a buffer. And a vsync every period.
Recording recordingOf(int vsyncs, const std::string& text) {
    Recording recording;
    recording.vsyncPeriodNs = kPeriodNs;
    recording.durationNs = (vsyncs - 1) * kPeriodNs;
    for (int i = 0; i < vsyncs; ++i) {
        recording.steps.push_back({i * kPeriodNs, Step::Kind::kVsync, 0, 1});
    }
    std::istringstream stream(text);
    for (std::string word; stream >> word;) {
        const int number = std::stoi(word.substr(word.find_first_of("0123456789")));
        const int64_t timeNs = number * kMs;
        if (word[0] == 'd') {
            recording.processes.back().dequeues.push_back(timeNs);
        } else if (word[0] == 'q' || word[0] == 'l') {
            const bool isQueue = word[0] == 'q';
            recording.layers.back().frames += isQueue ? 1 : 0;
            recording.layers.back().finalDepth += isQueue ? 1 : -1;
            recording.steps.push_back({timeNs, isQueue ? Step::Kind::kQueue : Step::Kind::kLatch,
                                       recording.layers.size() - 1, 1});
        } else {
            Layer layer;
            layer.id = number;
            layer.process = recording.layers.size();
            layer.initialDepth = layer.finalDepth = std::stoi(word.substr(word.find('@') + 1));
            recording.layers.push_back(layer);
            recording.processes.push_back({1'000 + number, 10'000U, {}});
        }
    }
    std::stable_sort(recording.steps.begin(), recording.steps.end(),
                     [](auto& a, auto& b) { return a.timeNs < b.timeNs; });
    return recording;
}

// Tells of each call at which millisecond it came, and sees to it that it came on its thread.
class FakeHooks : public Hooks {
  public:
    explicit FakeHooks(int64_t heldMs) : mHeldMs(heldMs) {}

    void setVsyncPeriod(int64_t periodNs) override { add("period", periodNs / kMs); }
    void trackVsyncSignal() override { add("v"); }
    void trackBufferIncrement(const Layer& layer, const Process& process) override {
        EXPECT_EQ(process.pid, 1'000 + layer.id);
        add("q", layer.id, "app-" + std::to_string(process.pid));
        // As the library would, of the first buffer.
        host::Simulation::sleepFor(mHeldMs.exchange(0) * kMs);
    }
    void trackBufferDecrement(const Layer& layer, int pendingCount, bool focused) override {
        add(focused ? "fl" : "l", layer.id * 10 + pendingCount);
    }
    int createFence(const std::string&) override { return dup(STDERR_FILENO); }
    void notifyGpuFenceUnsignaled(int fd, const Layer& layer) override { fence("now", fd, layer); }
    void trackLatchUnsignaledGpuFence(int fd, const Layer& layer) override {
        mRecorded.push_back(fd);
        fence("fence", fd, layer);
    }
    void flushLatchUnsignaledGpuFences() override {
        for (const int fd : mRecorded) EXPECT_NE(fcntl(fd, F_GETFD), -1) << "closed too early";
        add("flush", static_cast<int64_t>(std::exchange(mRecorded, {}).size()));
    }

    void add(const char* what, int64_t number = 0, const std::string& onThread = "compositor") {
        char thread[16];
        pthread_getname_np(pthread_self(), thread, sizeof(thread));
        const int64_t nowMs = (systemTime(SYSTEM_TIME_MONOTONIC) - kStartNs) / kMs;
        // The first period is told before the threads are there.
        EXPECT_TRUE(nowMs < 0 || thread == onThread) << thread;
        const std::lock_guard<std::mutex> lock(mMutex);
        calls += std::to_string(nowMs) + what + (number > 0 ? std::to_string(number) : "") + " ";
    }

    std::string calls;

  private:
    void fence(const char* how, int fd, const Layer& layer) {
        EXPECT_NE(fcntl(fd, F_GETFD), -1);
        add(how, layer.id);
    }

    std::mutex mMutex;
    std::atomic<int64_t> mHeldMs;  // of all producers
    std::vector<int> mRecorded;
};

// Calls by their milliseconds: "v" for a vsync, "qLAYER", "lLAYER" with the number that stay
// queued, "fl" of the focused layer.
TEST(Player, CallsEachHookAtItsTimeOnItsThread) {
    const struct {
        const char* what;
        int vsyncs;
        const char* recording;
        int repeat;
        int64_t heldMs;
        const char* calls;
        size_t dropped, missed;
    } kCases[] = {
            {"two passes, a period apart", 4, "1@0 q2 q12 q22 l29 l29 l29 2@0 q5 l29", 2, 0,
             "0v 2q1 5q2 10v 12q1 20v 22q1 29fl12 29fl11 29fl10 29l20 30v 40v 42q1 45q2 50v 52q1 "
             "60v 62q1 69fl12 69fl11 69fl10 69l20 70v ",
             0, 0},
            {"a latch that finds nothing comes at a vsync after the release, beyond the end too", 3,
             "1@0 q12 l15", 1, 33, "0v 10v 12q1 20v 30v 40v 50v 50fl10 ", 0, 1},
            {"a held producer drops what its next one overtakes", 9, "1@0 q5 q15 q25 q35 q45 q55",
             1, 35, "0v 5q1 10v 20v 30v 40q1 40v 45q1 50v 55q1 60v 70v 80v ", 2, 0},
            {"and takes as long to draw as it took", 6, "1@0 d2 q5 d11 q18", 1, 27,
             "0v 5q1 10v 20v 30v 39q1 40v 50v ", 0, 0},
            {"a buffer from before", 4, "1@1 q2 l8 l28", 1, 0, "0v 2q1 8fl11 10v 20v 28fl10 30v ",
             0, 0},
    };
    for (const auto& test : kCases) {
        SCOPED_TRACE(test.what);
        host::Simulation simulation(kStartNs - 50 * kMs);
        FakeHooks hooks(test.heldMs);
        const Recording recording = recordingOf(test.vsyncs, test.recording);
        Player player(recording, hooks, test.repeat);
        const PlayResult played = player.play([](int64_t, int64_t) {});
        EXPECT_EQ(hooks.calls, std::string("-50period10 ") + test.calls);
        EXPECT_EQ(played.droppedFrames, test.dropped);
        EXPECT_EQ(played.missedLatches, test.missed);
        EXPECT_EQ(played.lateness.max, 0);
    }
}

TEST(Player, TellsOfRatesFencesAndWhatAScenarioDoes) {
    host::Simulation simulation(kStartNs - 50 * kMs);
    FakeHooks hooks(0);
    Recording recording = recordingOf(5, "1@4 l5 l15 l25 l35 q40");
    recording.rateChanges = {{12 * kMs, 5 * kMs}, {25 * kMs, kPeriodNs}};
    Player player(recording, hooks, 3);
    player.setFences({{0, 1, 3, 2, "gpu", false}, {0, 2, 2, 1, "now", true}});
    std::vector<TimedAction> actions;
    for (const int64_t ms : {30, 10, 78, 100'000}) {
        actions.push_back({ms * kMs, [&, ms](HookCosts& costs) {
                               costs.measure(Hook::kUnblockPendingBuffer,
                                             [&] { hooks.add("do", 0, "scenario"); });
                               if (ms == 78) player.stop();
                           }});
    }
    player.addScript("scenario", std::move(actions));
    const PlayResult played = player.play([](int64_t, int64_t) {});
    EXPECT_EQ(hooks.calls,
              "-50period10 0v 5fl13 5fence1 5flush1 10do 10v 12period5 15fl12 15now1 20v "
              "25period10 25fl11 25fence1 25flush1 30do 30v 35fl10 40q1 40v 50v 55fl13 60v "
              "62period5 65fl12 70v 75period10 75fl11 78do ");
    EXPECT_TRUE(played.stopped);
    EXPECT_EQ(played.fences, 3U);
    EXPECT_EQ(played.costs.spread(Hook::kUnblockPendingBuffer).count, 3U);
}

}  // namespace
}  // namespace corvane::replay
