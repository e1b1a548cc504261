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

#include "replay/Playback.h"

namespace corvane::replay {

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
class Player : public Playback {
  public:
    Player(const Recording& recording, Hooks& hooks, int repeat);

    PlayResult play(const Progress& progress) override;

  private:
    struct Producer {
        size_t process;
        std::vector<size_t> steps;    // its queue steps, indices into the recording's
        std::vector<size_t> toNext;   // from each, how many steps on the layer queues again
        std::vector<int64_t> drawNs;  // of each, from getting the buffer to queueing it; 0: unknown
        HookCosts costs;
        Spool<PlayedFrame> frames;
        size_t dropped = 0;
    };

    void prepare(Producer& producer);
    void runCompositor();
    void playPass(int64_t passStartNs);
    void switchRates(int64_t passStartNs, int64_t untilNs);
    void drain(int64_t fromNs);
    void vsync(int64_t atNs);
    int latch(size_t layer, int count);  // returns how many buffers there were
    void latchLate(size_t stepOfVsync, int64_t passStartNs);
    bool isLatchMissing(size_t stepOfVsync, size_t layer, int depth, int64_t nowNs) const;
    void runProducer(Producer& producer);

    std::vector<Producer> mProducers;
    std::atomic<size_t> mBusyProducers{0};
    std::atomic<bool> mFinished{false};
    // Per layer, the buffers queued and not latched: raised by producers, lowered by the
    // compositor.
    std::vector<std::atomic<int>> mDepth;

    // Of the compositor's thread.
    std::vector<int> mRecordedDepth;
    size_t mNextRateChange = 0;  // of this pass
    size_t mMissedLatches = 0;
};

}  // namespace corvane::replay
