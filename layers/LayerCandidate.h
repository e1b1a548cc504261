// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <utils/Timers.h>

#include <cstdint>
#include <string>

namespace android {

// A layer that is only counted so far. It is promoted for queueing steadily; until then it costs
// no more than this.
struct LayerCandidate {
    nsecs_t firstSeen = 0;   // start of the current promotion window; 0 = not yet set
    nsecs_t lastSeen = 0;    // time of the latest buffer
    int32_t frameCount = 0;  // buffers counted in the window
    std::string packageName;

    // Counts one buffer. True when the layer has kept up the promotion rate for a whole window; a
    // window that was too slow starts over with this buffer.
    bool updateAndCheckPromotion(nsecs_t now);
};

}  // namespace android
