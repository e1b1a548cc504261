// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

namespace corvane::model {

// Something that a policy does while time passes.
struct PolicyEvent {
    enum class Kind {
        kRelease,  // a held buffer of the layer may proceed
        kBoost,    // the GPU is asked to run at this frequency for the layer
        kBoostEnd,
        kEnd,  // the run ends here
    };

    int64_t timeNs;
    Kind kind;
    size_t layer;
    int32_t freqMHz = 0;
};

// Who decides when frames start and buffers proceed. The model calls from one thread, in time's
// order; times are the model's, layers its indices.
class PacingPolicy {
  public:
    virtual ~PacingPolicy() = default;

    // The producer could begin a frame now; `lastStartNs` is when it began the one before (none: it
    // is the first). Returns when it may, at `nowNs` or later.
    virtual int64_t frameStart(size_t /*layer*/, int64_t nowNs,
                               std::optional<int64_t> /*lastStartNs*/) {
        return nowNs;
    }
    // The producer hands a buffer over, behind `waiting` others. True when it may proceed at once;
    // else it is held until advance() tells of its release.
    virtual bool queueBuffer(size_t /*layer*/, int /*waiting*/, int64_t /*nowNs*/) { return true; }
    // A buffer was latched; `waiting` are behind it.
    virtual void latched(size_t /*layer*/, int /*waiting*/, int64_t /*nowNs*/) {}
    virtual void vsync(int64_t /*nowNs*/) {}
    // Lets time pass, at most until `untilNs`, and returns the first thing that happens; none when
    // nothing does. The model calls again from the time of what happened.
    virtual std::optional<PolicyEvent> advance(int64_t /*untilNs*/) { return std::nullopt; }
};

}  // namespace corvane::model
