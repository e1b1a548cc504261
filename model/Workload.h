// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "model/FrameWorks.h"
#include "model/Recorded.h"
#include "model/VsyncGrid.h"

namespace corvane::model {

// What starts a producer's next frame.
enum class ProducerKind {
    kFreeRunning,  // its queue call returned, and a buffer is free
    kVsyncDriven,  // after that, the application's next vsync
};

struct LayerWork {
    std::string name;
    ProducerKind kind = ProducerKind::kFreeRunning;
    std::string reason;    // for the kind, as a clause
    int buffers = 0;       // in the queue: the one shown, those waiting, and the one being drawn
    int initialDepth = 0;  // waiting when the recording begins
    int64_t latchOffsetNs = 0;    // from the compositor's vsync to taking the layer's buffer
    int64_t gpuNs = 0;            // from queueing a buffer to the end of its GPU work
    int64_t cadence = 1;          // vsyncs from one shown frame to the next, usually
    size_t latches = 0;           // recorded ones
    size_t explainedLatches = 0;  // of them, those that gpuNs explains at the recorded queue times
    FrameWorks frames;
};

// What somebody who knows better than the recording says of a layer.
struct LayerOverride {
    size_t layer;
    std::optional<ProducerKind> kind;
    std::optional<int> buffers;
};

// A recording taken apart into work and waiting, so that the waiting can be different.
//
// A frame's work reaches from the moment at which its producer began it to the queueing of its
// buffer. The producer could begin it when its last queue call had returned and a buffer was free;
// one that draws to the vsync began it at the last vsync before it dequeued the buffer. What lies
// between is the application's own pace, which is kept, or, beyond kIdleNs, idleness, which ends at
// the recorded time whatever the device does.
struct Workload {
    // Nothing is drawn for so long only because there is nothing to draw.
    static constexpr int64_t kIdleNs = 100'000'000;

    // Of a recording played many times the first passes and the last are read one by one: at least
    // as many as have so many frames together, and three. Those between are like the last but one.
    static constexpr size_t kMinFramesRead = 10'000;

    VsyncGrid compositor;
    VsyncGrid application;
    std::vector<LayerWork> layers;
    int64_t durationNs;
    std::vector<std::string> assumptions;  // sentences: what the recording did not tell
};

// Of the recording played `passes` (1 or more) times in a row, as repeated() does.
Workload takeApart(const Recorded& once, const std::vector<LayerOverride>& overrides = {},
                   int passes = 1);

}  // namespace corvane::model
