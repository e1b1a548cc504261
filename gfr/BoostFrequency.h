// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <utils/Timers.h>

#include <cstdint>
#include <optional>

#include "features/GfrTunables.h"
#include "gfr/FrameDeadlines.h"
#include "gfr/FrameDropWindow.h"

namespace android {

// How large a GPU boost a late frame gets. Everything here is a function of its arguments alone.

// Why a boost got its frequency; the values are printed in traces.
enum BoostFlag : uint32_t {
    BOOST_SKIPPED_FAR = 0x001,      // deadline beyond twice golden, lower boosts allowed: none
    BOOST_BASE_FAR = 0x002,         // deadline beyond twice golden: base frequency
    BOOST_RAMP_FAR = 0x004,         // ramp, deadline between golden and twice golden away
    BOOST_RAMP_NEAR = 0x008,        // ramp, deadline at most golden away
    BOOST_L0_ADJUSTED = 0x010,      // level-0 check ran on an adjusted delay
    BOOST_HISTORY_SOME = 0x020,     // drop history: +25%
    BOOST_HISTORY_MANY = 0x040,     // drop history: +50%
    BOOST_BELOW_FLOOR = 0x080,      // too small to help: none
    BOOST_CAPPED = 0x100,           // capped to the layer's maximum
    BOOST_LAST_LEVEL = 0x200,       // last level: base frequency
    BOOST_DEADLINE_PASSED = 0x400,  // highest of the last boost and base
    BOOST_INVALID_BUDGET = 0x800,   // golden or period not positive: base frequency
};

struct BoostDecision {
    int32_t freqMHz;
    uint32_t flags;  // BoostFlag bits
};

// What one decision looks at. The layer's own records are only referred to.
struct BoostInputs {
    BoostInputs(const FrameDeadlines& layerDeadlines, const GfrTunables& layerTunables,
                const FrameDropWindow& layerDropWindow)
          : deadlines(layerDeadlines), tunables(layerTunables), dropWindow(layerDropWindow) {}

    const FrameDeadlines& deadlines;
    const GfrTunables& tunables;
    const FrameDropWindow& dropWindow;
    int level = 0;             // level of the check that found the frame late
    int32_t baseMHz = 0;       // that level's base frequency
    nsecs_t ttdNs = 0;         // time to the frame's deadline, negative once it has passed
    nsecs_t l0DelayNs = 0;     // adjusted delay of the level-0 check; 0 = not adjusted
    int32_t lastBoostMHz = 0;  // of the layer's latest decision
    int32_t maxFreqMHz = 0;    // the layer's cap
};

// The boost of a check at wake-up; nothing for a level that has no deadline.
std::optional<BoostDecision> decideBoost(const BoostInputs& inputs);

// Time-to-deadline rule: no more than base while the deadline is further away than twice the golden
// budget, then growing linearly as it comes closer.
BoostDecision calculateFrequencyByTTD(const FrameDeadlines& deadlines, const GfrTunables& tunables,
                                      nsecs_t ttdNs, int32_t baseMHz);

// Drop-history rule: enlarges the boost of a layer that has been dropping frames.
BoostDecision enhancedFreqByFrameDropWindow(const FrameDropWindow& dropWindow, int32_t freqMHz);

// Upper limit of a layer's boosts: its last level's base frequency, at most the device's 3000 MHz.
int32_t maxBoostMHz(const GfrTunables& tunables);

}  // namespace android
