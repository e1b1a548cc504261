// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <vector>

#include "replay/Findings.h"
#include "replay/Recording.h"
#include "replay/Scenario.h"

namespace corvane::replay {

// What a scenario configured and the library never switched on, a sentence each with the reason, as
// far as the library's log tells it. `playedNs` is how long was played. Packages of which no layer
// was recorded are left out.
std::vector<std::string> neverOn(const Scenario& scenario, const Recording& recording,
                                 const Findings& findings, int64_t playedNs);

}  // namespace corvane::replay
