// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "model/Workload.h"
#include "replay/DisplayRate.h"
#include "replay/Recording.h"
#include "replay/ServiceCallback.h"

namespace corvane::replay {

// What the performance service would tell the library about the applications of a recording, and
// what happens on the phone meanwhile. Read from a JSON file.

struct PropertyWrite {
    std::string name;
    std::string value;
};

// The compositor's smart touch lets held buffers go.
struct Unblock {};

// A finger, as the application's input path sees it.
struct Touch {
    int action = 0;  // the platform's motion-event action
};

struct ScenarioEvent {
    int64_t atNs = 0;  // from the start of the replay
    std::variant<ServiceCallback, PropertyWrite, Unblock, Touch> what;
};

// Frames whose GPU fence is unsignalled when they are latched.
struct FenceMark {
    std::string layer;  // part of the layer's name
    size_t first = 1;   // the layer's latched frames, counted from 1 over all passes
    size_t last = SIZE_MAX;
    size_t every = 1;
    std::string timeline;    // the fence's name
    bool immediate = false;  // told at once, not with the frame's other fences
};

struct Game {
    std::string package;
    int weight = 0;
    // The configuration of the game as the service delivers it before the first frame.
    std::vector<ServiceCallback> configuration;
};

// What is known of a layer beside the recording. Where two fit one layer, the later one's counts.
struct LayerFacts {
    std::string layer;  // part of the layer's name
    // For the device model.
    std::optional<model::ProducerKind> producer;
    std::optional<int> buffers;
    // What a boost is worth: the GPU's share of a frame's work, and its frequency in the recording.
    std::optional<double> gpuShare;
    int gpuBaseMHz = 0;
    // For the library.
    std::optional<Bounds> bounds;
    std::optional<bool> visible;
    std::optional<bool> focused;
    std::optional<uid_t> uid;  // of the layer's process
};

struct Scenario {
    std::string description;
    std::string recording;  // path, from the scenario's own folder; empty when it names none
    int repeat = 0;         // 0 when it names none
    std::vector<Game> games;
    std::vector<PropertyWrite> properties;  // written before the library starts
    std::vector<ScenarioEvent> events;
    std::vector<FenceMark> fences;
    std::vector<LayerFacts> layers;
    std::vector<Rate> refreshRates;  // of the display, in time's order; empty: the recording tells
    std::string application;  // part of the name of the layer that is touched; empty: the busiest
};

// Without a scenario `error` is one sentence that names the place in the file.
struct ScenarioResult {
    std::optional<Scenario> scenario;
    std::string error;
};

// As a scenario names its action: "down", "move", ...
std::string touchName(const Touch& touch);

// `fileName` appears in errors; a recording's path is taken relative to its folder.
ScenarioResult parseScenario(const std::string& text, const std::string& fileName);

// What the second one says beside the first, or instead of it where both say something else: more
// configuration of a game, more properties, other refresh rates.
void add(Scenario& scenario, const Scenario& additions);

// Gives the layers what the scenario knows of them and the trace does not: where they are, whether
// they are visible and have the focus, and whose they are.
void placeLayers(Recording& recording, const Scenario& scenario);

// The largest values that a scenario or the command line may ask for.
constexpr int kMaxRepeat = 1'000;
constexpr double kMaxHeadroomRate = 10.0;  // vsync periods
constexpr double kMaxTargetFps = 1'000.0;
constexpr int kMinRefreshHz = 10;
constexpr size_t kMaxEvents = 1'000'000;  // of a scenario, repetitions counted
constexpr int kMaxRefreshHz = 1'000;

}  // namespace corvane::replay
