// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/ScenarioNotes.h"

#include <algorithm>
#include <map>
#include <set>
#include <variant>

#include "replay/ShellText.h"
#include "replay/TextTable.h"

namespace corvane::replay {
namespace {

constexpr size_t kMaxPackages = 8;

// The frames that each package of the recording queues.
std::map<std::string, size_t> framesOfPackages(const Recording& recording) {
    std::map<std::string, size_t> frames;
    for (const Layer& layer : recording.layers) frames[packageOf(layer)] += layer.frames;
    frames.erase("");
    return frames;
}

std::set<std::string> configuredPackages(const Scenario& scenario) {
    std::set<std::string> packages;
    for (const auto& game : scenario.games) packages.insert(game.package);
    for (const auto& event : scenario.events) {
        if (const auto* callback = std::get_if<ServiceCallback>(&event.what)) {
            packages.insert(configuredPackage(*callback));
        }
    }
    packages.erase("");
    return packages;
}

// Why no layer belongs to the package.
std::string unmatched(const std::string& package, const Recording& recording,
                      const std::map<std::string, size_t>& known) {
    const std::string text = "no layer belongs to the package " + package;
    for (const Layer& layer : recording.layers) {
        if (layer.name.find(package) == std::string::npos) continue;
        const std::string ofLayer = packageOf(layer);
        if (ofLayer.empty()) {
            return text + ": the library takes the layer " + layer.name + " for none's";
        }
        return text + ": the library takes the layer " + layer.name + " for one of '" + ofLayer +
               "', by its rule for names; say that";
    }
    if (known.empty()) return text + ", nor to any other";
    std::string names;
    size_t count = 0;
    for (const auto& entry : known) {
        if (++count <= kMaxPackages) names += (names.empty() ? "" : ", ") + entry.first;
    }
    return text + "; the recording's are " + names + (count > kMaxPackages ? ", ..." : "");
}

}  // namespace

std::vector<std::string> scenarioNotes(const Scenario& scenario, const Recording& recording,
                                       int64_t totalNs) {
    std::vector<std::string> notes;
    const auto known = framesOfPackages(recording);
    for (const auto& package : configuredPackages(scenario)) {
        if (known.count(package) == 0) notes.push_back(unmatched(package, recording, known));
    }
    for (const LayerFacts& facts : scenario.layers) {
        if (recording.findLayer(facts.layer)) continue;
        notes.push_back("no layer of the recording is named like '" + facts.layer +
                        "', of which the scenario's layers tell");
    }
    size_t late = 0;
    int64_t firstNs = INT64_MAX;
    for (const auto& event : scenario.events) {
        if (event.atNs <= totalNs) continue;
        ++late;
        firstNs = std::min(firstNs, event.atNs);
    }
    if (late > 0) {
        notes.push_back(format("%zu of the scenario's %s", late,
                               plural(scenario.events.size(), "event").c_str()) +
                        (late == 1 ? " comes" : " come") + " after the end at " + seconds(totalNs) +
                        " and never " + (late == 1 ? "happens" : "happen") + "; the first at " +
                        seconds(firstNs));
    }
    return notes;
}

std::string gameSuggestion(const Recording& recording, const std::string& file) {
    const auto packages = framesOfPackages(recording);
    if (packages.empty()) return "";
    const auto busiest =
            std::max_element(packages.begin(), packages.end(),
                             [](const auto& a, const auto& b) { return a.second < b.second; });
    return "./corvane replay " + shellQuoted(file) + " --game " +
           shellQuoted(busiest->first + ":headroom=80,rescue=1");
}

}  // namespace corvane::replay
