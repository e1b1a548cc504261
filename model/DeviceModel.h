// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

#include "model/PacingPolicy.h"
#include "model/RunListener.h"
#include "model/Workload.h"

namespace corvane::model {

// What a boost is worth for a layer's frames. Without it boosts are counted and change nothing.
struct GpuShare {
    size_t layer;
    double share;         // of a frame's work, at its end: what a faster GPU shortens; 0 to 1
    int32_t baseFreqMHz;  // at which the recording was made; above 0
};

// Plays a workload on a device that works by the recorded one's rules, under a pacing policy:
//
//   producer:    ready -> [policy: may start] -> work -> queue -> [policy: may proceed] -> ready
//   ...
//                ready needs a free buffer; a vsync-driven frame then waits for its vsync
//   compositor:  at each vsync, the layer's offset later, takes the first waiting buffer whose GPU
//                work has ended; that frees the one shown before
//
// Ends when all frames are latched, or when that takes much longer than the recording lasted.
// Deterministic, with one thread; what happens at one time happens in the order vsync, latch,
// release, queue, start, and then by layer.
class DeviceModel {
  public:
    // A run may last so many times as long as the recording, and so much longer: pacing to a
    // quarter of the rate fits in, a policy that holds buffers for ever does not go on for ever.
    static constexpr int64_t kMaxStretch = 10;
    static constexpr int64_t kMaxOverrunNs = 2'000'000'000;

    DeviceModel(const Workload& workload, PacingPolicy& policy, RunListener& listener,
                std::vector<GpuShare> gpuShares = {});

    // Once. Returns when it ended, in the model's time.
    int64_t run();

  private:
    enum class Phase {
        kBlocked,    // no buffer is free
        kWaiting,    // for the policy, the vsync or its own pace, until dueNs
        kDrawing,    // until dueNs
        kHeld,       // by the policy
        kReturning,  // from its queue call, until dueNs
        kFinished,   // no frame is left
    };
    struct Waiting {
        size_t frame;     // counted in the order of their beginning; kUnseen: before the recording
        size_t index;     // among the layer's frames
        int64_t readyNs;  // its GPU work ends
    };
    struct Layer {
        const LayerWork* work;
        Phase phase = Phase::kBlocked;
        size_t next = 0;     // frame to begin next, or the one under way
        size_t current = 0;  // the frame under way, counted as in Waiting
        int64_t dueNs = 0;   // in kWaiting, kDrawing and kReturning
        std::optional<int64_t> lastStartNs;
        bool shows = false;  // a buffer is on the screen
        std::vector<Waiting> queue;
        std::optional<GpuShare> gpu;
    };

    static constexpr size_t kUnseen = SIZE_MAX;

    static bool isTimed(Phase phase) {
        return phase == Phase::kWaiting || phase == Phase::kDrawing || phase == Phase::kReturning;
    }

    bool isDone() const;
    int64_t nextDueNs() const;
    void step(int64_t nowNs);
    void apply(const PolicyEvent& event);
    void signalVsync();
    void latch(size_t layer, int64_t nowNs);
    void tryBegin(size_t layer, int64_t nowNs);
    void start(size_t layer, int64_t nowNs);
    void queue(size_t layer, int64_t nowNs);
    void letGo(size_t layer, int64_t nowNs);
    void boost(size_t layer, int64_t nowNs, int32_t freqMHz);
    ModelFrame& frame(size_t number) { return mFrames[number - mFirstFrame]; }
    void tellOfFirstFrame();
    int waiting(const Layer& layer) const { return static_cast<int>(layer.queue.size()); }

    const Workload& mWorkload;
    PacingPolicy& mPolicy;
    RunListener& mListener;
    std::vector<Layer> mLayers;
    // Begun, and not told of yet, because it or one before it is not latched.
    std::deque<ModelFrame> mFrames;
    size_t mFirstFrame = 0;  // number of the first of them
    int64_t mNowNs = 0;
    int64_t mVsync = 0;  // the next one to signal
    // Layers in the order of their latches after a vsync, and the next of them to take.
    std::vector<size_t> mLatchOrder;
    size_t mNextLatch;
};

}  // namespace corvane::model
