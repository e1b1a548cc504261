// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace corvane::model {

// What a recording tells of one buffer. All times are nanoseconds from the recording's first event.
struct RecordedFrame {
    std::optional<int64_t> queueNs;    // handed to the queue; none: before the recording began
    std::optional<int64_t> returnNs;   // its queue call returned
    std::optional<int64_t> dequeueNs;  // the application got this buffer, to draw into
    std::optional<int64_t> latchNs;    // none: after the recording ended
    // The screen was updated with it; none: not recorded.
    std::optional<int64_t> shownNs = std::nullopt;
};

struct RecordedLayer {
    std::string name;
    std::vector<RecordedFrame> frames;  // in the order in which they were queued
};

// The display's period from a moment on, until the next one's.
struct DisplayRate {
    int64_t fromNs;
    int64_t periodNs;  // > 0
};

// What the model takes from a recording: the display's signals and each layer's buffers.
struct Recorded {
    std::vector<DisplayRate> rates;  // at least one; ascending, the first from the beginning on
    std::vector<int64_t> vsyncs;     // at which the compositor works; ascending
    std::vector<int64_t> appVsyncs;  // at which applications begin frames; empty: the compositor's
    std::vector<RecordedLayer> layers;
    int64_t durationNs = 0;
};

// From one beginning to the next, when it is played several times in a row: one period apart.
int64_t passNs(const Recorded& recorded);

// The same, `times` (1 or more) times in a row. What was still queued at the end is latched by the
// latches with which the next pass begins; if those are fewer, it is superseded.
Recorded repeated(const Recorded& recorded, int times);

}  // namespace corvane::model
