// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/LimitCheck.h"

#include <algorithm>
#include <cstdio>

#include "replay/Figure.h"
#include "replay/TextTable.h"

namespace corvane::replay {

bool exceedsLimits(const Comparison& comparison, const Findings& findings,
                   const std::vector<Limit>& limits) {
    const auto isGame = [](const LayerFindings& layer) { return layer.game.value_or(false); };
    const bool anyGame = std::any_of(findings.layers.begin(), findings.layers.end(), isGame);
    bool exceeds = false;
    bool any = false;
    for (size_t i = 0; i < findings.layers.size(); ++i) {
        if (anyGame ? !isGame(findings.layers[i]) : !comparison.isWorthATable(i)) continue;
        any = true;
        for (const Limit& limit : limits) {
            const double value = limit.figure->get(comparison.library->figures[i]);
            if (limit.above ? value <= limit.value : value >= limit.value) continue;
            exceeds = true;
            std::fprintf(stderr, "corvane-replay: %s: %s is %s for %s\n", limit.text.c_str(),
                         limit.figure->label, valueText(*limit.figure, value).c_str(),
                         shown(comparison.recorded.layers[i].name).c_str());
        }
    }
    // A check that looked at nothing has not passed.
    if (!any && !limits.empty()) {
        std::fprintf(stderr, "corvane-replay: --fail-if: no layer has frames enough to check\n");
    }
    return exceeds || (!any && !limits.empty());
}

}  // namespace corvane::replay
