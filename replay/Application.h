// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "replay/HookCosts.h"
#include "replay/Recording.h"
#include "replay/Scenario.h"

namespace Json {
class Value;
}

namespace corvane::replay {

// The touched application's side of a replay. It runs in a process of its own, which loads the
// library by itself as an application does: `corvane-replay-app`, with this plan on its standard
// input and the result on its standard output.

struct AppStep {
    enum class Kind : int { kVsync, kDequeue, kQueue, kTouch, kProperty };

    int64_t atNs;  // from the start of the pass, of an event from that of the replay
    Kind kind;
    int action = 0;          // of a touch
    PropertyWrite property;  // of a property write
};

struct AppPlan {
    std::vector<PropertyWrite> properties;  // written before the library is loaded
    std::vector<AppStep> steps;             // recorded: due in every pass; in time's order
    std::vector<AppStep> events;            // the scenario's: due once; in time's order
    int passes = 0;
    int64_t passNs = 0;  // later than any recorded step
    // Of the replay's clock when it hands the plan over, in simulated time; none: in real time.
    std::optional<int64_t> simulatedFromNs;
};

struct AppResult {
    std::string error;  // empty unless the application could not run
    size_t frames = 0;
    std::vector<int64_t> instantNs;  // when a frame was made instant
    std::vector<int> powerBoosts;    // the boosts that the library asked the platform for
    size_t inputConsumed = 0;        // moves taken at once
    size_t inputHeld = 0;            // moves left for a better moment
    std::vector<std::pair<std::string, Spread>> hooks;
};

// What the application of `layer` does in `repeat` passes, and what is done to it.
AppPlan planOf(const Recording& recording, size_t layer, int repeat, int64_t passNs,
               const Scenario& scenario);

// One line each way, for the pipe.
std::string toJson(const AppPlan& plan);
std::string toJson(const AppResult& result);
std::optional<AppPlan> appPlanFrom(const std::string& json);
std::optional<AppResult> appResultFrom(const std::string& json);

// The same as part of a report.
Json::Value valueOf(const AppResult& result);
Json::Value valueOf(const Spread& spread);

}  // namespace corvane::replay
