// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/NeverOn.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <map>
#include <optional>
#include <string_view>
#include <utility>
#include <variant>

#include "replay/TextTable.h"

namespace corvane::replay {
namespace {

// A mode is the whole number next to a display's rate, with the rate's own measuring error.
constexpr double kModeToleranceHz = 1.5;

// What one callback asks for.
struct Wish {
    FeatureKind kind;
    std::string package;  // empty: every one
    bool on;
    double targetFps = 0.0;
};

int valueAt(const std::vector<int>& values, size_t i) {
    return i < values.size() ? values[i] : 0;
}

std::optional<Wish> wishOf(const ServiceCallback& callback) {
    if (callback.hint == kTargetFpsHint) {
        constexpr double kPerFps = 100.0;
        return Wish{FeatureKind::kTargetFps, callback.package, callback.arg1 > 0,
                    callback.arg1 / kPerFps};
    }
    if (callback.hint == kHeadroomHint) {
        const bool on = valueAt(callback.values, 1) > 0 || valueAt(callback.values, 3) > 0;
        return Wish{FeatureKind::kHeadroom, callback.package, on};
    }
    if (callback.hint == kFrameRescueHint) {
        return Wish{FeatureKind::kFrameRescue, configuredPackage(callback),
                    valueAt(callback.values, 0) > 0};
    }
    return std::nullopt;
}

struct LastWish {
    Wish wish;
    std::optional<int64_t> withdrawnNs;
};

// The last one of each feature and package that switches on, with what took it back.
std::vector<LastWish> wishesOf(const Scenario& scenario, int64_t playedNs) {
    std::map<std::pair<FeatureKind, std::string>, LastWish> wishes;
    const auto add = [&](const ServiceCallback& callback, int64_t atNs) {
        const auto wish = wishOf(callback);
        if (!wish) return;
        const std::pair key{wish->kind, wish->package};
        if (wish->on) {
            wishes.insert_or_assign(key, LastWish{*wish, std::nullopt});
        } else if (const auto known = wishes.find(key); known != wishes.end()) {
            known->second.withdrawnNs = atNs;
        }
    };
    for (const auto& game : scenario.games) {
        for (const auto& callback : game.configuration) add(callback, 0);
    }
    std::vector<const ScenarioEvent*> events;
    for (const auto& event : scenario.events) {
        if (event.atNs <= playedNs) events.push_back(&event);
    }
    std::stable_sort(events.begin(), events.end(),
                     [](const auto* a, const auto* b) { return a->atNs < b->atNs; });
    for (const auto* event : events) {
        if (const auto* callback = std::get_if<ServiceCallback>(&event->what)) {
            add(*callback, event->atNs);
        }
    }
    std::vector<LastWish> list;
    for (auto& [key, wish] : wishes) list.push_back(std::move(wish));
    return list;
}

using Layers = std::vector<const LayerFindings*>;

template <typename Predicate>
bool any(const Layers& layers, Predicate predicate) {
    return std::any_of(layers.begin(), layers.end(), predicate);
}

const char* nameOf(FeatureKind kind) {
    switch (kind) {
        case FeatureKind::kHeadroom:
            return "headroom";
        case FeatureKind::kTargetFps:
            return "the target FPS";
        case FeatureKind::kFrameRescue:
            return "frame rescue";
        case FeatureKind::kCount:
            break;
    }
    return "";
}

std::string quoted(const std::string& line) {
    return "the library says \"" + line + "\"";
}

// The library's own refusal of the feature or of its values.
std::string refusalOf(FeatureKind kind, const Findings& findings) {
    const auto complaint = [&](std::string_view beginning) {
        for (const auto& [line, count] : findings.complaints) {
            if (std::string_view(line).substr(0, beginning.size()) == beginning) {
                return quoted(line);
            }
        }
        return std::string();
    };
    const auto isOff = [&](const char* mark) {
        return findings.switchLine.find(mark) != std::string::npos;
    };
    switch (kind) {
        case FeatureKind::kHeadroom:
            if (!isOff("[QuickTouch:0")) return "";
            return quoted(findings.switchLine) + ": vendor.perf.phr.enable is off";
        case FeatureKind::kTargetFps:
            if (!isOff("[TFPS:0")) return complaint("Invalid target fps found");
            return quoted(findings.switchLine) + ": vendor.rdxe.enable.target_fps is off";
        case FeatureKind::kFrameRescue:
        case FeatureKind::kCount:
            break;
    }
    const std::string flag = complaint("Invalid gfrFlag");
    return flag.empty() ? complaint("Invalid GFR tunables") : flag;
}

bool isOfDisplay(int mode, const std::vector<double>& displayHz) {
    return std::any_of(displayHz.begin(), displayHz.end(),
                       [&](double hz) { return std::fabs(mode - hz) <= kModeToleranceHz; });
}

std::string reasonOfHeadroom(const Layers& layers) {
    if (!any(layers, [](const auto* layer) { return layer->headroomNs.has_value(); })) {
        return "the library set none; its rates have none for this display";
    }
    size_t longest = 0;
    for (const auto* layer : layers) longest = std::max(longest, layer->longestBusyRun);
    return "it waits for a queue that stays busy, and " +
           (longest == 0 ? "no latch"
                         : "at most " + plural(longest, "latch", "latches") + " in a row") +
           " left a buffer waiting";
}

// How its frames kept the layers from the feature.
std::string reasonOfFrames(const Wish& wish, const Layers& layers, const Findings& findings) {
    double slowest = HUGE_VAL;
    double fastest = 0.0;
    size_t windows = 0;
    std::string modes;
    bool ofDisplay = false;
    for (const auto* layer : layers) {
        for (const auto& window : layer->windows) {
            slowest = std::min(slowest, window.fps);
            fastest = std::max(fastest, window.fps);
            ++windows;
        }
        for (const auto& [atNs, mode] : layer->modes) {
            ofDisplay |= isOfDisplay(mode, findings.displayHz);
            modes += (modes.empty() ? "" : ", ") + std::to_string(mode);
        }
    }
    if (windows == 0) return "it was on screen for less than one window of its FPS";
    if (modes.empty()) {
        return format("its FPS were never steady enough for a mode (%.1f to %.1f in %s)", slowest,
                      fastest, plural(windows, "window").c_str());
    }
    if (!ofDisplay && !findings.displayHz.empty()) {
        return "features come on at the display's rate, " +
               format("%.1f Hz, and its mode was ", findings.displayHz.back()) + modes;
    }
    if (wish.kind == FeatureKind::kTargetFps && fastest <= wish.targetFps) {
        return format("its FPS never rose above the target (%.1f at most)", fastest);
    }
    if (wish.kind == FeatureKind::kHeadroom) return reasonOfHeadroom(layers);
    return "the library's log does not tell why";
}

std::string reasonOf(const LastWish& last, const Layers& layers, const Findings& findings) {
    const std::string refusal = refusalOf(last.wish.kind, findings);
    if (!refusal.empty()) return refusal;
    if (!any(layers, [](const auto* layer) { return layer->promotedNs.has_value(); })) {
        return any(layers, [](const auto* layer) { return layer->candidateNs.has_value(); })
                       ? "its layer stayed a candidate and was never promoted"
                       : "its layer never became a candidate";
    }
    if (last.wish.kind == FeatureKind::kHeadroom &&
        !any(layers, [](const auto* layer) { return layer->game.value_or(false); })) {
        return "the service does not call it a game";
    }
    if (last.withdrawnNs) return "it was withdrawn at " + seconds(*last.withdrawnNs);
    return reasonOfFrames(last.wish, layers, findings);
}

}  // namespace

std::vector<std::string> neverOn(const Scenario& scenario, const Recording& recording,
                                 const Findings& findings, int64_t playedNs) {
    const auto wishes = wishesOf(scenario, playedNs);
    if (wishes.empty()) return {};
    if (!findings.debugLog) {
        return {"the library's debug log is off (vendor.perf.corvane.debug): what only it tells is "
                "missing here"};
    }
    std::vector<std::string> notes;
    for (const auto& last : wishes) {
        const Wish& wish = last.wish;
        Layers layers;
        for (size_t i = 0; i < recording.layers.size(); ++i) {
            const LayerFindings& found = findings.layers[i];
            const bool concerned =
                    found.package.empty()
                            ? recording.layers[i].name.find(wish.package) != std::string::npos
                            : wish.package.empty() || found.package == wish.package;
            if (concerned) layers.push_back(&found);
        }
        const auto isOn = [&](const auto* layer) { return !layer->of(wish.kind).empty(); };
        if (layers.empty() || any(layers, isOn)) continue;
        notes.push_back(std::string(nameOf(wish.kind)) + " was configured for " +
                        (wish.package.empty() ? "every package" : wish.package) +
                        " and never came on: " + reasonOf(last, layers, findings));
    }
    return notes;
}

}  // namespace corvane::replay
