// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "model/PacingPolicy.h"
#include "replay/HookCosts.h"
#include "replay/Hooks.h"
#include "replay/Playback.h"
#include "replay/Recording.h"
#include "replay/Spool.h"

namespace corvane::replay {

// Pacing by the library: what happens on the device model is told to the exported hooks, and what
// they do decides. For simulated time only.
//
// The model's thread is the compositor's main thread and owns the simulation; each layer's buffers
// are queued on a thread of its own, on which the library may hold them. The model's time counts
// from `startNs` of the simulated clock, and the two go together: advance() sleeps.
class LibraryPolicy : public model::PacingPolicy {
  public:
    // What the compositor does beside the hooks that pace, on its thread.
    struct Compositor {
        std::function<void(int64_t nowNs)> vsync = [](int64_t) {};
        std::function<void(size_t layer, int waiting, int64_t nowNs)> latched = [](size_t, int,
                                                                                   int64_t) {};
    };
    // Boosts count for `boostedLayer`: the device is told of frequencies alone.
    // When `stopped` becomes true the run ends.
    LibraryPolicy(const Recording& recording, Hooks& hooks, int64_t startNs, size_t boostedLayer,
                  Compositor compositor, const std::atomic<bool>& stopped);
    ~LibraryPolicy() override { finish(); }
    LibraryPolicy(const LibraryPolicy&) = delete;
    LibraryPolicy& operator=(const LibraryPolicy&) = delete;

    bool queueBuffer(size_t layer, int waiting, int64_t nowNs) override;
    void latched(size_t layer, int waiting, int64_t nowNs) override;
    void vsync(int64_t nowNs) override;
    std::optional<model::PolicyEvent> advance(int64_t untilNs) override;

    // Waits for the buffers that are still held. Then takeFrames() has all that went through the
    // queue hook, in the order of their returns, and costs() what the hook cost.
    void finish();
    Spool<PlayedFrame> takeFrames() { return std::move(mFrames); }
    const HookCosts& costs() const { return mCosts; }

  private:
    struct Producer {
        std::thread thread;
        std::condition_variable changed;  // it has something to do
        bool isQueueing = false;  // a buffer was handed over, and its thread has not taken it yet
    };

    void runProducer(size_t layer);
    int64_t now() const;

    const Recording& mRecording;
    Hooks& mHooks;
    const int64_t mStartNs;
    const size_t mBoostedLayer;
    const Compositor mCompositor;
    const std::atomic<bool>& mStopped;

    std::mutex mMutex;
    std::condition_variable mHappened;  // mEvents has something new
    std::vector<Producer> mProducers;
    std::list<model::PolicyEvent> mEvents;
    Spool<PlayedFrame> mFrames;
    HookCosts mCosts;
    bool mEnds = false;
};

}  // namespace corvane::replay
