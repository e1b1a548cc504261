// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "replay/HookCosts.h"
#include "replay/Hooks.h"
#include "replay/Recording.h"
#include "replay/Spool.h"

namespace corvane::replay {

// Something that happens beside the recorded frames, at a time counted from the first step.
struct TimedAction {
    int64_t atNs;
    std::function<void(HookCosts&)> run;
};

// Frames of a layer whose GPU fence is unsignalled at latch: of those that are latched, counted
// from 1 over all passes, from `first` to `last` each one in `every`.
struct UnsignaledFences {
    size_t layer;
    size_t first;
    size_t last;
    size_t every;
    std::string timeline;
    bool immediate;  // told at once; else recorded, and flushed with the others of its frame
};

// One buffer that was handed to the library. Times count from the start of the replay.
struct PlayedFrame {
    size_t layer;
    int64_t callNs;
    int64_t returnNs;
};

// What the compositor took of a layer at one time.
struct PlayedLatch {
    size_t layer;
    int64_t atNs;
    int count;    // buffers
    int pending;  // left waiting
};

struct PlayResult {
    int64_t startNs = 0;  // systemTime of the first pass's first step
    int64_t durationNs = 0;
    bool stopped = false;  // before its end
    HookCosts costs;
    Spool<PlayedFrame> frames;  // those of one layer in the order of their calls
    Spool<PlayedLatch> latches;
    size_t droppedFrames = 0;  // never drawn, since their producer was still held back
    size_t missedLatches = 0;  // buffers that a recorded latch took and this one did not find
    size_t fences = 0;         // told as unsignalled
    Spread lateness;           // of the vsync calls, behind the recorded times
};

// A recording being played through the library's hooks: what all ways of playing share, which is
// the compositor's side and what happens beside the frames. play() blocks until all is played,
// once.
class Playback {
  public:
    // Called several times a second with the time played and the whole time.
    using Progress = std::function<void(int64_t doneNs, int64_t totalNs)>;
    // Called on a script's thread; none ends it.
    using NextAction = std::function<std::optional<TimedAction>()>;

    Playback(const Recording& recording, Hooks& hooks, int repeat);
    virtual ~Playback() = default;
    Playback(const Playback&) = delete;
    Playback& operator=(const Playback&) = delete;

    // What happens beside the frames, on a thread of this name. Before play(), any number of times.
    // A list may be in any order. What would be a long one comes action by action, in time's order.
    void addScript(std::string threadName, std::vector<TimedAction> actions);
    void addScript(std::string threadName, NextAction next);
    void setFences(std::vector<UnsignaledFences> fences) { mFences = std::move(fences); }
    // Called with systemTime of the first step before that comes.
    void setOnStart(std::function<void(int64_t startNs)> onStart) { mOnStart = std::move(onStart); }

    // Ends the replay early, each thread within a tenth of a second. May be called from any thread,
    // and from a signal handler.
    void stop() { mStopped = true; }

    // `progress` is called on the calling thread. Throws std::system_error when a thread cannot
    // start.
    virtual PlayResult play(const Progress& progress) = 0;

    // From the beginning of one pass to that of the next.
    int64_t passNs() const { return mRecording.durationNs + mRecording.vsyncPeriodNs; }

  protected:
    // Tells the library the display's first period, fixes the start and tells everyone of it.
    void begin();
    int64_t playedNs() const { return passNs() * mRepeat; }
    int64_t sinceStart(int64_t timeNs) const { return timeNs - mStartNs; }

    // The compositor's calls, on its thread.
    void setPeriod(int64_t periodNs);
    int64_t periodNs() const { return mPeriodNs; }  // as last told to the library
    // To be called before what belongs to the next frame.
    void flushFences();
    void signalVsync(int64_t lateNs);
    // `count` buffers of the layer are latched, `pending` stay behind them.
    void latchBuffers(size_t layer, int count, int pending);
    void endCompositor();  // after its last call

    // Starts the scripts' threads, and waits for them.
    void startScripts();
    void joinScripts();

    // What the threads have collected; call when all have ended.
    PlayResult takeResult();

    const Recording& mRecording;
    Hooks& mHooks;
    const int mRepeat;
    std::atomic<bool> mStopped{false};
    int64_t mStartNs = 0;

  private:
    struct Script {
        std::string name;
        NextAction next;
        HookCosts costs;
        std::thread thread;
    };

    void runScript(Script& script);
    void tellFences(size_t layer);

    std::vector<UnsignaledFences> mFences;
    std::function<void(int64_t)> mOnStart = [](int64_t) {};
    const size_t mFocusedProcess;
    std::list<Script> mScripts;

    // Of the compositor's thread.
    int64_t mPeriodNs = 0;
    HookCosts mCompositorCosts;
    model::CountedValues mVsyncLateness;
    Spool<PlayedLatch> mLatches;
    std::vector<size_t> mLatched;  // per layer, frames latched so far
    std::vector<int> mOpenFences;  // recorded since the last flush
    size_t mToldFences = 0;
    int64_t mEndNs = 0;
};

}  // namespace corvane::replay
