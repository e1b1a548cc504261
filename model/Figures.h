// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "model/DeviceModel.h"
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

// One entry per frame of the run.
std::vector<Showing> showings(const Workload& workload, const ModelRun& run,
                              const std::vector<int64_t>& intendedVsyncs);

// One entry per layer. `intendedVsyncs` says how many vsyncs apart each layer's frames are meant to
// be shown: the recording's cadence, or what a target rate makes of it.
std::vector<LayerFigures> measure(const Workload& workload, const ModelRun& run,
                                  const std::vector<int64_t>& intendedVsyncs);

// The cadences that were recorded.
std::vector<int64_t> recordedCadences(const Workload& workload);

}  // namespace corvane::model
