// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <string_view>

namespace corvane::replay {

// What the compositor says of one frame in a trace's frame timeline: a slice begins or ends.
// `layer` is valid until the sink returns.
struct FrameMark {
    enum class Kind {
        kExpectedDisplay,  // the compositor's frame, as its vsync meant it
        kActualDisplay,    // and as it was: from its start to the update of the screen
        kExpectedSurface,  // a layer's frame: from the choreographer's callback to its deadline
        kActualSurface,    // and as it was: until it was posted and drawn
        kEnd,              // of the slice that began with this cookie
    };
    // How a frame was shown.
    enum Present : int32_t {
        kUnspecified = 0,
        kOnTime = 1,
        kLate = 2,
        kEarly = 3,
        kDropped = 4,
        kUnknown = 5
    };

    Kind kind;
    int64_t timeNs;
    int64_t cookie;
    int64_t token = 0;         // the frame's
    int64_t displayToken = 0;  // of the display frame that shows the layer's frame
    int32_t pid = 0;
    int32_t present = kUnspecified;  // of actual frames
    int32_t jank = 0;                // the same: bits
    bool isBuffer = true;            // of a layer's actual frames: it shows a new buffer
    std::string_view layer = {};
};

}  // namespace corvane::replay
