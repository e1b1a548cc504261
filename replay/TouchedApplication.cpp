// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/TouchedApplication.h"

#include <utils/Timers.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <utility>
#include <variant>

#include "corvane/host/Simulation.h"
#include "replay/Application.h"
#include "replay/Phone.h"
#include "replay/PlanWalk.h"

namespace corvane::replay {

std::unique_ptr<AppProcess> startApplication(const ReplayInput& input, const Playback& player) {
    const Scenario& scenario = input.scenario;
    const Recording& recording = input.recording;
    const bool touched = std::any_of(scenario.events.begin(), scenario.events.end(),
                                     [](const ScenarioEvent& event) {
                                         return std::holds_alternative<Touch>(event.what);
                                     });
    if (!touched) return nullptr;
    size_t layer = 0;
    if (!scenario.application.empty()) {
        layer = layerOf(recording, scenario.application);
    } else {
        while (recording.layers[layer].process != recording.focusedProcess()) ++layer;
    }
    const auto program =
            std::filesystem::read_symlink("/proc/self/exe").parent_path() / "corvane-replay-app";
    AppPlan plan = planOf(recording, layer, input.repeat, player.passNs(), scenario);
    if (host::Simulation::isOn()) plan.simulatedFromNs = host::Simulation::now();
    return std::make_unique<AppProcess>(program.string(), std::move(plan));
}

Playback::NextAction clockOf(AppProcess& application) {
    // Once for all that is due at one time.
    return [&application, walk = PlanWalk(application.plan()),
            reachedNs = int64_t{-1}]() mutable -> std::optional<TimedAction> {
        auto due = walk.next();
        while (due && due->atNs <= reachedNs) due = walk.next();
        if (!due) return std::nullopt;
        reachedNs = due->atNs;
        return TimedAction{due->atNs, [&application](HookCosts&) {
                               application.advanceTo(systemTime(SYSTEM_TIME_MONOTONIC));
                           }};
    };
}

}  // namespace corvane::replay
