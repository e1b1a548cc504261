// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/Phone.h"

#include <android-base/properties.h>
#include <corvane/hooks.h>

#include <algorithm>
#include <string>
#include <variant>

#include "corvane/host/Devices.h"
#include "corvane/host/PerfService.h"
#include "replay/Settings.h"
#include "replay/Stop.h"

namespace corvane::replay {
namespace {

void write(const PropertyWrite& property) {
    if (!android::base::SetProperty(property.name, property.value)) {
        throw Stop{kUnusable, "the scenario's property " + property.name + " cannot be set"};
    }
}

}  // namespace

void deliver(const ServiceCallback& callback) {
    host::PerfService::push(callback.hint, callback.package, callback.arg1, callback.arg2,
                            callback.values);
}

void setUpPhone(const Scenario& scenario) {
    // The report is drawn from the debug log and the trace; a scenario may switch them off.
    write({kDebugProperty, "1"});
    for (const auto& property : scenario.properties) write(property);
    if (!host::PerfService::install()) {
        throw Stop{kFailed, "the host's performance service cannot be loaded"};
    }
    for (const auto& game : scenario.games) {
        host::PerfService::addGame(game.package, game.weight);
    }
    host::BoostDevice::enable();
}

std::vector<TimedAction> actionsOf(const Scenario& scenario) {
    std::vector<TimedAction> actions;
    for (const auto& event : scenario.events) {
        const auto& what = event.what;
        if (const auto* callback = std::get_if<ServiceCallback>(&what)) {
            actions.push_back({event.atNs, [callback](HookCosts&) { deliver(*callback); }});
        } else if (const auto* property = std::get_if<PropertyWrite>(&what)) {
            actions.push_back({event.atNs, [property](HookCosts&) {
                                   android::base::SetProperty(property->name, property->value);
                               }});
        } else if (std::holds_alternative<Unblock>(what)) {
            actions.push_back({event.atNs, [](HookCosts& costs) {
                                   costs.measure(Hook::kUnblockPendingBuffer,
                                                 [] { corvaneUnblockPendingBuffer(); });
                               }});
        }
    }
    return actions;
}

size_t layerOf(const Recording& recording, const std::string& part) {
    const auto layer = recording.findLayer(part);
    if (!layer) throw Stop{kUnusable, "no layer of the recording is named like '" + part + "'"};
    return *layer;
}

std::vector<UnsignaledFences> fencesOf(const Scenario& scenario, const Recording& recording) {
    std::vector<UnsignaledFences> fences;
    for (const auto& mark : scenario.fences) {
        fences.push_back({layerOf(recording, mark.layer), mark.first, mark.last, mark.every,
                          mark.timeline, mark.immediate});
    }
    return fences;
}

size_t boostedLayer(const Scenario& scenario, const Recording& recording) {
    const auto& layers = recording.layers;
    const auto isOfAGame = [&](const Layer& layer) {
        const std::string package = packageOf(layer);
        return std::any_of(scenario.games.begin(), scenario.games.end(),
                           [&](const Game& game) { return game.package == package; });
    };
    auto layer = std::find_if(layers.begin(), layers.end(), isOfAGame);
    if (layer == layers.end()) {
        layer = std::find_if(layers.begin(), layers.end(), [&](const Layer& candidate) {
            return candidate.process == recording.focusedProcess();
        });
    }
    return static_cast<size_t>(layer - layers.begin());
}

}  // namespace corvane::replay
