// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "replay/Recording.h"
#include "replay/Scenario.h"

namespace corvane::replay {

struct Figure;

// A bound for a figure of the library's run, over which the program fails.
struct Limit {
    std::string text;  // as it was given
    const Figure* figure;
    bool above;    // fails above the value, else below
    double value;  // in the figure's own unit: ns, a count, per second
};

struct Options {
    std::string recording;  // empty: the scenario names one; "-": the standard input
    std::string scenario;   // empty: none
    bool isDefaultScenario = false;
    int repeat = 0;                // 0: as the scenario says, else once
    std::string json;              // empty: not written
    std::string report;            // empty: no page
    std::string trace;             // empty: not kept
    bool list = false;             // tell what the recording holds and play nothing
    Selection part;                // of the recording
    Scenario additions;            // what --game and --refresh-rate say
    bool openLoop = false;         // buffers at their recorded times; else on the device model
    bool realtime = false;         // open loop, against the machine's clock; else in simulated time
    std::optional<uint64_t> seed;  // of the order of what is due at one instant
    std::vector<Limit> limits;     // --fail-if
    std::vector<std::string> against;  // policies to compare with; empty: as recorded
    bool help = false;
};

// Without options `error` is one line that says what is wrong with the command line.
struct OptionsResult {
    std::optional<Options> options;
    std::string error;
};
OptionsResult parseOptions(int argc, const char* const* argv);

extern const char* const kUsage;

}  // namespace corvane::replay
