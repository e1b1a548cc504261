// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "replay/HookCosts.h"
#include "replay/Hooks.h"
#include "replay/Recording.h"

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
    std::vector<PlayedFrame> frames;  // in the order of their calls
    std::vector<PlayedLatch> latches;
    size_t droppedFrames = 0;  // never drawn, since their producer was still held back
    size_t missedLatches = 0;  // buffers that a recorded latch took and this one did not find
    size_t fences = 0;         // told as unsignalled
    Spread lateness;           // of the vsync calls, behind the recorded times
};

// Plays a recording's compositor in real time: vsyncs and latches on one thread, each producing
// process's buffers on a thread of its own, every call at its recorded time by an absolute
// deadline.
//
// The library may hold a producer back inside the hook. Then the replay goes on as a phone would:
//  - The producer is late: a buffer is queued at its recorded time, or when the producer is free
//    and has drawn it, for as long as it was recorded to take from getting the buffer to queueing
//    it.
//  - A producer that is still held when even its next buffer is due has not drawn the one between:
//    that buffer is dropped. (Only holding counts; a replay thread that the machine woke late is
//    not the library's doing and drops nothing.)
//  - A buffer counts as queued when its hook has returned. A recorded latch takes what is queued by
//    then, which may be nothing. A vsync for which no latch of the layer was recorded takes one
//    buffer when more are queued than in the recording at that moment: those that came too late for
//    their own latch.
//
// Passes follow each other with a gap of one vsync period. After the last, vsyncs go on until every
// producer is free again.
class Player {
  public:
    Player(const Recording& recording, Hooks& hooks, int repeat);

    void setActions(std::vector<TimedAction> actions) { mActions = std::move(actions); }

    void setFences(std::vector<UnsignaledFences> fences) { mFences = std::move(fences); }
    // Called with systemTime of the first step before that comes.
    void setOnStart(std::function<void(int64_t startNs)> onStart) { mOnStart = std::move(onStart); }

    // Ends the replay early, each thread within a tenth of a second. May be called from any thread,
    // and from a signal handler.
    void stop() { mStopped = true; }

    // Blocks until all is played. `progress` is called several times a second on the calling thread
    // with the time played and the whole time. Throws std::system_error when a thread cannot start.
    PlayResult play(const std::function<void(int64_t doneNs, int64_t totalNs)>& progress);

    int64_t passNs() const { return mRecording.durationNs + mRecording.vsyncPeriodNs; }

  private:
    struct Producer {
        size_t process;
        std::vector<size_t> steps;    // its queue steps, indices into the recording's
        std::vector<size_t> toNext;   // from each, how many steps on the layer queues again
        std::vector<int64_t> drawNs;  // of each, from getting the buffer to queueing it; 0: unknown
        HookCosts costs;
        std::vector<PlayedFrame> frames;
        size_t dropped = 0;
    };

    void prepare(Producer& producer);
    void runCompositor();
    void playPass(int64_t passStartNs);
    void setPeriod(int64_t periodNs);
    void switchRates(int64_t passStartNs, int64_t untilNs);
    void drain(int64_t fromNs);
    void vsync(int64_t atNs);
    int latch(size_t layer, int count);  // returns how many buffers there were
    void tellFences(size_t layer);
    void flushFences();
    void latchLate(size_t stepOfVsync, int64_t passStartNs);
    bool isLatchMissing(size_t stepOfVsync, size_t layer, int depth, int64_t nowNs) const;
    void runProducer(Producer& producer);
    void runActions();
    int64_t sinceStart(int64_t timeNs) const { return timeNs - mStartNs; }

    const Recording& mRecording;
    Hooks& mHooks;
    const int mRepeat;
    std::vector<TimedAction> mActions;
    HookCosts mActionCosts;
    std::vector<UnsignaledFences> mFences;
    std::function<void(int64_t)> mOnStart = [](int64_t) {};

    size_t mFocusedProcess = 0;
    int64_t mStartNs = 0;
    std::vector<Producer> mProducers;
    std::atomic<size_t> mBusyProducers{0};
    std::atomic<bool> mFinished{false};
    std::atomic<bool> mStopped{false};
    // Per layer, the buffers queued and not latched: raised by producers, lowered by the
    // compositor.
    std::vector<std::atomic<int>> mDepth;

    // Of the compositor's thread.
    std::vector<int> mRecordedDepth;
    int64_t mPeriodNs = 0;       // as last told to the hooks
    size_t mNextRateChange = 0;  // of this pass
    HookCosts mCompositorCosts;
    std::vector<int64_t> mVsyncLateness;
    std::vector<PlayedLatch> mLatches;
    size_t mMissedLatches = 0;
    std::vector<size_t> mLatched;  // per layer, frames latched so far
    std::vector<int> mOpenFences;  // recorded since the last flush
    size_t mToldFences = 0;
    int64_t mEndNs = 0;
};

}  // namespace corvane::replay
