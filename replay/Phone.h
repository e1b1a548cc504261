// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <vector>

#include "replay/Playback.h"
#include "replay/Recording.h"
#include "replay/Scenario.h"

namespace corvane::replay {

// The phone around the library, as a scenario describes it: properties, games, the boost device,
// and what its performance service and its compositor do by time.

// What must stand before the library starts. Throws Stop when something cannot be set.
void setUpPhone(const Scenario& scenario);

// The service's call of the library's callback, on the service's thread.
void deliver(const ServiceCallback& callback);

// The scenario's events on the compositor's side, and its fences. Throws Stop when a layer is not
// in the recording.
std::vector<TimedAction> actionsOf(const Scenario& scenario);
std::vector<UnsignaledFences> fencesOf(const Scenario& scenario, const Recording& recording);

// The first layer whose name contains `part`; throws Stop when there is none.
size_t layerOf(const Recording& recording, const std::string& part);

// The layer for which boosts count: the first one of a game, else the focused process's first.
size_t boostedLayer(const Scenario& scenario, const Recording& recording);

}  // namespace corvane::replay
