// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <utils/LightRefBase.h>
#include <utils/Timers.h>

#include <cstdint>
#include <string>
#include <utility>

#include "features/GfrTunables.h"
#include "gfr/BoostFrequency.h"
#include "gfr/FrameDeadlines.h"
#include "gfr/FrameDropWindow.h"

namespace android {

// Frame rescue's record of one registered layer. Belongs to GFRMonitor, whose lock guards it.
class LayerGFRState : public LightRefBase<LayerGFRState> {
  public:
    LayerGFRState(int32_t id, std::string name, std::string package, GfrTunables tunables)
          : layerId(id), layerName(std::move(name)), packageName(std::move(package)) {
        setTunables(std::move(tunables));
    }

    // The deadlines keep their values until their next update.
    void setTunables(GfrTunables newTunables) {
        maxFreq = maxBoostMHz(newTunables);
        tunables = std::move(newTunables);
    }

    // Base frequency of a level, 0 when the tunables give it none.
    int32_t baseFreq(int level) const {
        const auto index = static_cast<size_t>(level);
        return level >= 0 && index < tunables.baseFreq.size() ? tunables.baseFreq[index] : 0;
    }

    const int32_t layerId;
    const std::string layerName;
    const std::string packageName;
    GfrTunables tunables;
    int32_t maxFreq = 0;  // MHz
    FrameDeadlines deadlines;
    FrameDropWindow dropWindow;

    bool active = false;         // rescue switched on
    nsecs_t queueBeginTime = 0;  // begin of the current frame, and its identity
    nsecs_t queueEndTime = 0;
    nsecs_t frameTime = 0;        // what the application spent on the current frame
    nsecs_t prevFrameTime = 0;    // and on the one before
    nsecs_t jankHeadroom = 0;     // from queueBeginTime to the expected present time
    nsecs_t frameDeadline = 0;    // one vsync period after the expected present time
    nsecs_t l0DelayNs = 0;        // adjusted delay of the level-0 check; 0 = not adjusted
    uint64_t pendingCheckId = 0;  // timer id of the scheduled check; 0 = none
    bool boosted = false;         // a boost was sent and not yet released
    uint32_t flags = 0;           // BoostFlag bits of the latest decision
    int32_t lastBoostFreq = 0;    // MHz, of the latest decision
};

}  // namespace android
