// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <vector>

#include "replay/Comparison.h"
#include "replay/Findings.h"
#include "replay/Options.h"

namespace corvane::replay {

// Whether the library's run is beyond a limit; each that does not hold is named on standard error.
// Where the service knows a game, its layers count alone.
bool exceedsLimits(const Comparison& comparison, const Findings& findings,
                   const std::vector<Limit>& limits);

}  // namespace corvane::replay
