// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "model/PacingPolicy.h"

namespace corvane::model {

// One frame as the model's device drew and showed it. Times count like the recording's.
struct ModelFrame {
    static constexpr int64_t kNever = -1;  // the run ended before

    size_t layer;
    size_t index;                       // among the layer's frames
    int64_t readyNs = 0;                // its producer could begin it
    int64_t startNs = kNever;           // drawing began
    int64_t queueNs = kNever;           // the buffer was handed over
    int64_t letGoNs = kNever;           // and let go
    std::optional<int64_t> latchVsync;  // number of the compositor's vsync; none: never latched
    bool superseded = false;            // latched, but its successor was shown instead
    int waiting = 0;                    // buffers in the queue with it, when it was let go
    // At which it is on the screen: the one after its latch.
    std::optional<int64_t> shownVsync() const {
        if (!latchVsync) return std::nullopt;
        return *latchVsync + 1;
    }
};

// Who is told of a run while it goes on. A run of hours has millions of frames: the model keeps
// none of which it knows everything.
class RunListener {
  public:
    virtual ~RunListener() = default;

    // In the order in which they were begun, each as soon as it and all before it are latched; what
    // is left, when the run ends.
    virtual void onFrame(const ModelFrame& frame) = 0;
    // kBoost and kBoostEnd, in time's order.
    virtual void onBoost(const PolicyEvent& boost) = 0;
};

// Keeps all that it is told.
struct ModelRun : RunListener {
    void onFrame(const ModelFrame& frame) override { frames.push_back(frame); }
    void onBoost(const PolicyEvent& boost) override { boosts.push_back(boost); }

    std::vector<ModelFrame> frames;
    std::vector<PolicyEvent> boosts;
};

}  // namespace corvane::model
