// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "model/CountedValues.h"
#include "model/RunListener.h"
#include "model/Workload.h"

namespace corvane::model {

// What a user of the device would notice of one layer, counted from the frames of a run alone.
struct LayerFigures {
    // From the start of a frame's drawing, when the application samples its input, to the vsync
    // that shows it. Holding counts in full.
    int64_t latencyP50Ns = 0;
    int64_t latencyP95Ns = 0;
    int64_t latencyP99Ns = 0;
    // From handing the buffer over to the vsync that shows it.
    int64_t queueToDisplayP50Ns = 0;
    int64_t queueToDisplayP95Ns = 0;

    size_t shown = 0;
    size_t late = 0;     // shown at least one vsync later after the one before than is intended
    size_t dropped = 0;  // drawn, but never shown: superseded
    double fps = 0;      // frames shown per second, pauses left out
    double intervalDeviationNs = 0;  // standard deviation of the intervals between shown frames
    double waitingMean = 0;          // buffers in the queue with each, itself included
    size_t heldFrames = 0;
    int64_t heldNs = 0;     // altogether
    int64_t heldP50Ns = 0;  // of the frames that were held
    size_t boosts = 0;
    double boostMHzSeconds = 0;  // frequency asked for, times how long
};

// When one frame was shown, as against the one before.
struct Showing {
    // Since the frame shown before; none: not shown, the first, or after a pause, after which there
    // is no frame that it could be late after.
    std::optional<int64_t> intervalNs;
    bool late = false;  // at least one vsync more than is intended
};

// Tells of each frame of a run, in the run's order.
class ShowingTracker {
  public:
    // `intendedVsyncs` says how many vsyncs apart each layer's frames are meant to be shown: the
    // recording's cadence, or what a target rate makes of it. The workload must outlive this.
    ShowingTracker(const Workload& workload, std::vector<int64_t> intendedVsyncs);

    Showing next(const ModelFrame& frame);

  private:
    const Workload& mWorkload;
    const std::vector<int64_t> mIntendedVsyncs;
    std::vector<std::optional<int64_t>> mPrevious;  // per layer, the vsync that showed its last
};

// Makes the figures of a run while it goes on; its memory does not grow with the run's length.
class FigureCounter : public RunListener {
  public:
    // As ShowingTracker's.
    FigureCounter(const Workload& workload, std::vector<int64_t> intendedVsyncs);

    void onFrame(const ModelFrame& frame) override;
    void onBoost(const PolicyEvent& boost) override;

    // One entry per layer, of a run that ended at `endNs`.
    std::vector<LayerFigures> figures(int64_t endNs) const;

  private:
    struct Layer {
        size_t dropped = 0;
        size_t late = 0;
        CountedValues latencies, queueToDisplay, held, intervals;  // ns
        int64_t heldNs = 0;
        int64_t intervalsNs = 0;  // all of them
        size_t waiting = 0;       // of all frames that were let go
        size_t letGo = 0;
        // The boost in force; 0 MHz for none.
        int64_t boostSinceNs = 0;
        int32_t boostFreqMHz = 0;
        size_t boosts = 0;
        double boostMHzSeconds = 0;  // of those that have ended

        LayerFigures figures() const;
        double boostUntil(int64_t endNs) const;
    };

    const VsyncGrid& mVsyncs;
    ShowingTracker mShowings;
    std::vector<Layer> mLayers;
};

// The cadences that were recorded.
std::vector<int64_t> recordedCadences(const Workload& workload);

}  // namespace corvane::model
