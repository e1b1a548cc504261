// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/ReplayInput.h"

#include <algorithm>
#include <utility>

#include "replay/InputFile.h"
#include "replay/Phone.h"
#include "replay/Stop.h"

namespace corvane::replay {
namespace {

Scenario loadScenario(const Options& options) {
    Scenario scenario;
    if (!options.scenario.empty()) {
        const auto file = readText(options.scenario);
        if (!file.error.empty()) throw Stop{kUnusable, options.scenario + " " + file.error};
        auto result = parseScenario(file.text, options.scenario);
        if (!result.scenario) throw Stop{kUnusable, result.error};
        scenario = std::move(*result.scenario);
    }
    if (options.isDefaultScenario && !options.additions.games.empty()) {
        // Who names a game wants that one's features, on the recording that is there.
        const std::string recording = scenario.recording;
        scenario = {};
        scenario.recording = recording;
    }
    add(scenario, options.additions);
    return scenario;
}

Recording loadRecording(const std::string& file, const Options& options, const Scenario& scenario) {
    auto parsed = readRecording(file);
    if (!parsed.recording) throw Stop{kUnusable, file + " " + parsed.error};
    Recording& recording = *parsed.recording;
    if (!scenario.refreshRates.empty()) {
        overruleRates(recording, scenario.refreshRates,
                      options.additions.refreshRates.empty() ? "the scenario" : "--refresh-rate");
    }
    const std::string lacks = select(recording, options.part);
    if (!lacks.empty()) throw Stop{kUnusable, file + " " + lacks};
    placeLayers(recording, scenario);
    return std::move(recording);
}

}  // namespace

ReplayInput loadInput(const Options& options) {
    Scenario scenario = loadScenario(options);
    const std::string file = options.recording.empty() ? scenario.recording : options.recording;
    if (file.empty()) {
        throw Stop{kUnusable, "no recording given, and " + options.scenario + " names none"};
    }
    Recording recording = loadRecording(file, options, scenario);
    const int repeat = options.repeat > 0 ? options.repeat : std::max(1, scenario.repeat);
    return {std::move(scenario), file, std::move(recording), repeat};
}

}  // namespace corvane::replay
