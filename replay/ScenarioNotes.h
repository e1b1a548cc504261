// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "replay/Recording.h"
#include "replay/Scenario.h"

namespace corvane::replay {

// What a scenario asks for and this recording cannot show: packages that no layer belongs to, and
// events after the end. A sentence each. `totalNs` is how long all passes take.
std::vector<std::string> scenarioNotes(const Scenario& scenario, const Recording& recording,
                                       int64_t totalNs);

// The line to type for a first look at a feature, for the package that queues most frames; empty
// where no layer belongs to a package.
std::string gameSuggestion(const Recording& recording, const std::string& file);

}  // namespace corvane::replay
