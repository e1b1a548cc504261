// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <utils/StrongPointer.h>
#include <utils/Timers.h>

#include <vector>

#include "layers/LayerInfo.h"

// Choices among layers. Each reads the records' fields, so the registry calls it under its lock.

namespace android {

using LayerList = std::vector<sp<LayerInfo>>;

// At most so many layers stay tracked: a device shows few applications at once, and every tracked
// layer costs work on each of its frames.
inline constexpr size_t kMaxTrackedLayers = 4;

struct LayerRemovals {
    LayerList layers;        // to be dropped
    bool crowded = false;    // more than the limit were left after the expired ones
    bool rankedOut = false;  // even layers worth tracking had to go
};

// The layers to drop: inactive ones past their deadline; when too many are left, those that are
// hidden or slow; and when there are still too many, the least important of the rest.
LayerRemovals selectLayersToRemove(const LayerList& layers, nsecs_t now);

// The visible, active layers, one per application, the most important first. `layers` is ordered by
// id, which decides wherever nothing else does.
LayerList rankVisibleApps(const LayerList& layers);

}  // namespace android
