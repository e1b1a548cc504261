// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <utils/Timers.h>

#include <algorithm>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "replay/Player.h"

namespace corvane::replay {
namespace {

constexpr int64_t kMs = 1'000'000;
constexpr int64_t kPeriodNs = 10 * kMs;

using Kind = Step::Kind;

// A recording of one layer per process, with a vsync every period. Times in milliseconds.
class RecordingOf {
  public:
    explicit RecordingOf(int vsyncs) {
        mRecording.vsyncPeriodNs = kPeriodNs;
        for (int i = 0; i < vsyncs; ++i) add(10 * i, Kind::kVsync);
        mRecording.durationNs = (vsyncs - 1) * kPeriodNs;
    }
    RecordingOf& layer(int32_t id, int initialDepth = 0) {
        mLayer = mRecording.layers.size();
        mRecording.processes.push_back({1000 + id, 10000U + static_cast<uid_t>(id), {}});
        Layer layer;
        layer.id = id;
        layer.process = mLayer;
        layer.initialDepth = initialDepth;
        layer.finalDepth = initialDepth;
        mRecording.layers.push_back(layer);
        return *this;
    }
    RecordingOf& queue(int64_t ms) {
        ++mRecording.layers[mLayer].frames;
        ++mRecording.layers[mLayer].finalDepth;
        return add(ms, Kind::kQueue);
    }
    RecordingOf& dequeue(int64_t ms) {
        mRecording.processes.back().dequeues.push_back(ms * kMs);
        return *this;
    }
    RecordingOf& latch(int64_t ms, int count = 1) {
        mRecording.layers[mLayer].finalDepth -= count;
        return add(ms, Kind::kLatch, count);
    }
    Recording get() {
        std::stable_sort(mRecording.steps.begin(), mRecording.steps.end(),
                         [](auto& a, auto& b) { return a.timeNs < b.timeNs; });
        return mRecording;
    }

  private:
    RecordingOf& add(int64_t ms, Kind kind, int count = 1) {
        mRecording.steps.push_back({ms * kMs, kind, mLayer, count});
        return *this;
    }
    Recording mRecording;
    size_t mLayer = 0;
};

struct Call {
    std::string what;  // "vsync", "queue ID", "latch ID/PENDING"
    int64_t timeNs;
    std::thread::id thread;
};

class FakeHooks : public Hooks {
  public:
    // Runs inside every queue call, as the library's hold-back would.
    std::function<void(int32_t id)> onQueue = [](int32_t) {};

    void setVsyncPeriod(int64_t periodNs) override { record("period " + std::to_string(periodNs)); }
    void trackVsyncSignal() override { record("vsync"); }
    void trackBufferIncrement(const Layer& layer, const Process& process) override {
        EXPECT_EQ(process.pid, 1000 + layer.id);
        onQueue(layer.id);
        record("queue " + std::to_string(layer.id));
    }
    void trackBufferDecrement(const Layer& layer, int pendingCount, bool focused) override {
        record("latch " + std::to_string(layer.id) + "/" + std::to_string(pendingCount) +
               (focused ? " focused" : ""));
    }

    int createFence(const std::string& timeline) override {
        record("create " + timeline);
        return dup(STDERR_FILENO);
    }
    void notifyGpuFenceUnsignaled(int fd, const Layer& layer) override { fence("now", fd, layer); }
    void trackLatchUnsignaledGpuFence(int fd, const Layer& layer) override {
        mRecorded.push_back(fd);
        fence("recorded", fd, layer);
    }
    void flushLatchUnsignaledGpuFences() override {
        for (const int fd : mRecorded) EXPECT_NE(fcntl(fd, F_GETFD), -1) << "closed too early";
        record("flush of " + std::to_string(mRecorded.size()));
        mRecorded.clear();
    }

    // Blocks until this many more vsyncs have come.
    void awaitVsyncs(int more) {
        std::unique_lock<std::mutex> lock(mMutex);
        const size_t wanted = mVsyncs + static_cast<size_t>(more);
        mChanged.wait(lock, [&] { return mVsyncs >= wanted; });
    }
    std::vector<Call> calls(const std::string& prefix) const {
        std::vector<Call> found;
        for (const auto& call : mCalls) {
            if (call.what.rfind(prefix, 0) == 0) found.push_back(call);
        }
        return found;
    }
    // What the compositor's thread did beside vsyncs, in order.
    std::string compositorsSequence() const {
        std::string text;
        for (const auto& call : mCalls) {
            if (call.what[0] != 'v' && call.what[0] != 'q') text += call.what + "; ";
        }
        return text;
    }

  private:
    void fence(const std::string& how, int fd, const Layer& layer) {
        EXPECT_NE(fcntl(fd, F_GETFD), -1);
        record(how + " " + std::to_string(layer.id));
    }
    void record(const std::string& what) {
        const std::lock_guard<std::mutex> lock(mMutex);
        if (what == "vsync") ++mVsyncs;
        mCalls.push_back({what, systemTime(SYSTEM_TIME_MONOTONIC), std::this_thread::get_id()});
        mChanged.notify_all();
    }

    mutable std::mutex mMutex;
    std::condition_variable mChanged;
    size_t mVsyncs = 0;
    std::vector<Call> mCalls;
    std::vector<int> mRecorded;
};

// One pass of a recording, its first buffer held in the hook over this many vsyncs.
PlayResult playOnce(const Recording& recording, FakeHooks& hooks, int heldVsyncs = 0) {
    hooks.onQueue = [&hooks, heldVsyncs](int32_t) mutable {
        if (heldVsyncs > 0) hooks.awaitVsyncs(heldVsyncs);
        heldVsyncs = 0;
    };
    return Player(recording, hooks, 1).play([](int64_t, int64_t) {});
}

TEST(Player, PlaysEveryPassOnTheThreadsOfACompositor) {
    RecordingOf builder(4);
    builder.layer(1).queue(2).queue(12).queue(22).latch(29, 3).layer(2).queue(5).latch(29);
    const Recording recording = builder.get();
    FakeHooks hooks;
    Player player(recording, hooks, 2);
    const PlayResult played = player.play([](int64_t, int64_t) {});

    EXPECT_EQ(hooks.calls("period 10000000").size(), 1U);
    EXPECT_GE(hooks.calls("vsync").size(), 8U);
    EXPECT_EQ(hooks.calls("queue 1").size(), 6U);
    EXPECT_EQ(hooks.calls("queue 2").size(), 2U);
    EXPECT_EQ(played.frames.size(), 8U);
    EXPECT_EQ(played.droppedFrames, 0U);
    EXPECT_EQ(played.costs.spread(Hook::kTrackBufferIncrement).count, 8U);

    std::set<std::thread::id> threads;
    for (const char* what : {"queue 1", "queue 2", "vsync"}) {
        const auto calls = hooks.calls(what);
        for (const auto& call : calls) EXPECT_EQ(call.thread, calls[0].thread) << what;
        EXPECT_TRUE(threads.insert(calls[0].thread).second) << what;
    }
    for (const auto& call : hooks.calls("latch")) {
        EXPECT_EQ(call.thread, hooks.calls("vsync")[0].thread);
        const bool isOfBusiest = call.what.rfind("latch 1", 0) == 0;
        EXPECT_EQ(call.what.find("focused") != std::string::npos, isOfBusiest);
    }
    // Late, perhaps, but never early: the second pass begins one period after the first's end.
    const auto queues = hooks.calls("queue 1");
    for (size_t i = 0; i < queues.size(); ++i) {
        const int64_t due = static_cast<int64_t>(i / 3) * player.passNs() +
                            static_cast<int64_t>(2 + i % 3 * 10) * kMs;
        EXPECT_GE(queues[i].timeNs - played.startNs, due);
    }
    EXPECT_EQ(player.passNs(), 40 * kMs);
}

TEST(Player, AHeldBufferIsLatchedAtAVsyncAfterItsReleaseBeyondTheEndToo) {
    // The recording ends with its third vsync.
    const Recording recording = RecordingOf(3).layer(1).queue(12).latch(15).get();
    FakeHooks hooks;
    const PlayResult played = playOnce(recording, hooks, 5);
    EXPECT_GE(hooks.calls("vsync").size(), 6U);
    EXPECT_EQ(hooks.compositorsSequence(), "period 10000000; latch 1/0 focused; ");
    EXPECT_GT(hooks.calls("latch")[0].timeNs, hooks.calls("queue")[0].timeNs);
    EXPECT_EQ(played.missedLatches, 1U);
    EXPECT_EQ(played.droppedFrames, 0U);
    ASSERT_EQ(played.frames.size(), 1U);
    EXPECT_GT(played.frames[0].returnNs - played.frames[0].callNs, kPeriodNs);
}

TEST(Player, TellsEachPassTheDisplaysRatesWhenTheyChange) {
    Recording recording = RecordingOf(4).layer(1).queue(2).latch(8).latch(28).get();
    recording.layers[0].initialDepth = 1;
    recording.rateChanges = {{10 * kMs, 5}, {25 * kMs, kPeriodNs}};
    FakeHooks hooks;
    Player player(recording, hooks, 2);
    const PlayResult played = player.play([](int64_t, int64_t) {});
    std::string sequence;
    for (const auto& call : hooks.calls("")) {
        if (call.what[0] != 'q') sequence += call.what + "; ";
    }
    const std::string pass = "vsync; latch 1/1 focused; period 5; vsync; vsync; period 10000000; ";
    EXPECT_EQ(sequence.substr(0, 21 + pass.size()).substr(0), "period 10000000; " + pass + "latc");
    const auto periods = hooks.calls("period");
    ASSERT_EQ(periods.size(), 5U) << "the second pass begins as the first ends";
    for (size_t i = 1; i < periods.size(); ++i) {
        const int64_t due = static_cast<int64_t>((i - 1) / 2) * player.passNs() +
                            recording.rateChanges[(i - 1) % 2].atNs;
        EXPECT_GE(periods[i].timeNs - played.startNs, due);
    }
}

TEST(Player, AProducerThatIsHeldDropsWhatItCouldNotDraw) {
    RecordingOf builder(12);
    builder.layer(1);
    for (int frame = 0; frame < 10; ++frame) builder.queue(5 + 10 * frame);
    const Recording recording = builder.get();
    FakeHooks hooks;
    // Over at least three vsyncs: of the next three buffers two or more are overtaken by their
    // successors.
    const PlayResult played = playOnce(recording, hooks, 4);
    EXPECT_GE(played.droppedFrames, 2U);
    EXPECT_EQ(played.droppedFrames + played.frames.size(), 10U);
    EXPECT_EQ(hooks.calls("queue").size(), played.frames.size());
    for (size_t i = 1; i < played.frames.size(); ++i) {
        EXPECT_GE(played.frames[i].callNs, played.frames[i - 1].returnNs);
    }
}

TEST(Player, AProducerThatIsHeldStillDrawsItsNextBuffer) {
    const Recording recording =
            RecordingOf(12).layer(1).dequeue(2).queue(5).dequeue(11).queue(18).get();
    FakeHooks hooks;
    const PlayResult played = playOnce(recording, hooks, 4);
    ASSERT_EQ(played.frames.size(), 2U);
    const int64_t heldNs = played.frames[0].returnNs - played.frames[0].callNs;
    EXPECT_GE(played.frames[1].callNs, 5 * kMs + heldNs + 7 * kMs)
            << "it took 7 ms from buffer to queue";
}

TEST(Player, RunsActionsInTimesOrderUpToTheEnd) {
    const Recording recording = RecordingOf(6).layer(1).queue(1).get();
    FakeHooks hooks;
    std::vector<int64_t> ran;
    std::vector<TimedAction> actions;
    for (const int64_t ms : {30, 10, 20, 100'000}) {
        actions.push_back({ms * kMs, [&ran, ms](HookCosts& costs) {
                               costs.measure(Hook::kUnblockPendingBuffer,
                                             [&] { ran.push_back(ms); });
                           }});
    }
    Player player(recording, hooks, 1);
    player.addScript("scenario", std::move(actions));
    const PlayResult played = player.play([](int64_t, int64_t) {});
    EXPECT_EQ(ran, (std::vector<int64_t>{10, 20, 30}));
    EXPECT_EQ(played.costs.spread(Hook::kUnblockPendingBuffer).count, 3U);
}

TEST(Player, StopsEarlyWhenAsked) {
    const Recording recording = RecordingOf(10).layer(1).queue(5).queue(50).get();
    FakeHooks hooks;
    Player player(recording, hooks, 1'000);
    hooks.onQueue = [&](int32_t) { player.stop(); };
    const PlayResult played = player.play([](int64_t, int64_t) {});
    EXPECT_TRUE(played.stopped);
    EXPECT_EQ(played.frames.size(), 1U);
}

TEST(Player, TellsOfUnsignaledFencesAtLatch) {
    RecordingOf builder(5);
    builder.layer(1, 4);
    for (int frame = 0; frame < 4; ++frame) builder.latch(5 + 10 * frame);
    const Recording recording = builder.queue(40).get();
    FakeHooks hooks;
    Player player(recording, hooks, 1);
    player.setFences({{0, 1, 3, 2, "gpu", false}, {0, 2, 2, 1, "now", true}});
    const PlayResult played = player.play([](int64_t, int64_t) {});
    EXPECT_EQ(hooks.compositorsSequence(),
              "period 10000000; "
              "latch 1/3 focused; create gpu; recorded 1; flush of 1; "
              "latch 1/2 focused; create now; now 1; "
              "latch 1/1 focused; create gpu; recorded 1; flush of 1; "
              "latch 1/0 focused; ");
    EXPECT_EQ(played.fences, 3U);
}

TEST(HookCosts, SpreadsUseTheNearestRank) {
    std::vector<int64_t> values;
    for (int i = 200; i >= 1; --i) values.push_back(i);
    for (const auto& [of, expected] :
         std::vector<std::pair<std::vector<int64_t>, Spread>>{{{}, {0, 0, 0, 0}},
                                                              {{7}, {1, 7, 7, 7}},
                                                              {values, {200, 100, 198, 200}}}) {
        const Spread spread = spreadOf(of);
        EXPECT_EQ(std::tie(spread.count, spread.p50, spread.p99, spread.max),
                  std::tie(expected.count, expected.p50, expected.p99, expected.max));
    }
}

}  // namespace
}  // namespace corvane::replay
