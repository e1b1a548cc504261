// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/Scenario.h"

#include <json/json.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <utility>

namespace corvane::replay {
namespace {

constexpr double kNsPerMs = 1e6;
constexpr double kMaxEventMs = 86'400'000.0;  // a day

class ScenarioError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// A value of the document together with its place, for messages.
class Node {
  public:
    Node(const Json::Value& value, std::string path, const std::string& text,
         const std::string& fileName)
          : mValue(value), mPath(std::move(path)), mText(text), mFileName(fileName) {}

    using Use = std::function<void(const Node&)>;

    // Hands each member to the use of its key; a key without one is an error.
    void object(const std::map<std::string, Use>& keys) const {
        if (!mValue.isObject()) wrongType("an object");
        for (const auto& key : mValue.getMemberNames()) {
            const Node node = child(mValue[key], mPath.empty() ? key : mPath + "." + key);
            const auto use = keys.find(key);
            if (use == keys.end()) {
                std::string known;
                for (const auto& entry : keys) known += (known.empty() ? "" : ", ") + entry.first;
                node.fail("unknown key (known here: " + known + ")");
            }
            use->second(node);
        }
    }
    void array(const Use& use) const {
        if (!mValue.isArray()) wrongType("a list");
        for (Json::ArrayIndex i = 0; i < mValue.size(); ++i) {
            use(child(mValue[i], mPath + "[" + std::to_string(i) + "]"));
        }
    }
    std::string text() const {
        if (!mValue.isString()) wrongType("a text");
        return mValue.asString();
    }
    std::string name() const {
        std::string value = text();
        if (value.empty()) fail("must not be empty");
        return value;
    }
    int integer() const {
        if (!mValue.isInt()) wrongType("an integer");
        return mValue.asInt();
    }
    int integer(int least, int most) const {
        const int value = integer();
        if (value < least || value > most) {
            fail("must be from " + std::to_string(least) + " to " + std::to_string(most));
        }
        return value;
    }
    double number(double most) const {
        if (!mValue.isNumeric()) wrongType("a number");
        const double value = mValue.asDouble();
        if (!(value >= 0.0 && value <= most)) {
            fail("must be from 0 to " + std::to_string(static_cast<int64_t>(most)));
        }
        return value;
    }
    // The period of a display at this rate.
    int64_t period() const {
        constexpr double kNsPerSecond = 1e9;
        const double hz = number(kMaxRefreshHz);
        if (hz < kMinRefreshHz) fail("must be at least " + std::to_string(kMinRefreshHz));
        return static_cast<int64_t>(kNsPerSecond / hz);
    }
    bool isArray() const { return mValue.isArray(); }
    bool boolean() const {
        if (!mValue.isBool()) wrongType("true or false");
        return mValue.asBool();
    }
    std::string nameOf(const char* key) const {
        return child(mValue[key], mPath + "." + key).name();
    }
    // A key that the object cannot do without.
    void require(const char* key) const {
        if (!mValue.isObject()) wrongType("an object");
        if (!mValue.isMember(key)) fail("lacks the key '" + std::string(key) + "'");
    }

    [[noreturn]] void fail(const std::string& what) const {
        const auto offset = static_cast<std::ptrdiff_t>(
                std::min(static_cast<size_t>(std::max<std::ptrdiff_t>(0, mValue.getOffsetStart())),
                         mText.size()));
        const auto line = 1 + std::count(mText.begin(), mText.begin() + offset, '\n');
        throw ScenarioError(mFileName + ":" + std::to_string(line) + ": " +
                            (mPath.empty() ? "the scenario" : mPath) + ": " + what);
    }

  private:
    Node child(const Json::Value& value, std::string path) const {
        return {value, std::move(path), mText, mFileName};
    }
    [[noreturn]] void wrongType(const std::string& wanted) const { fail("must be " + wanted); }

    const Json::Value& mValue;
    const std::string mPath;
    const std::string& mText;
    const std::string& mFileName;
};

ServiceCallback headroomOf(const Node& node, const std::string& package) {
    double upTo60Hz = 0.0;
    double above60Hz = 0.0;
    node.object({
            {"upTo60Hz", [&](const Node& n) { upTo60Hz = n.number(kMaxHeadroomRate); }},
            {"above60Hz", [&](const Node& n) { above60Hz = n.number(kMaxHeadroomRate); }},
    });
    return headroomCallback(package, upTo60Hz, above60Hz);
}

ServiceCallback frameRescueOf(const Node& node, const std::string& package) {
    int flag = 1;
    std::string tunables;
    node.object({
            {"flag", [&](const Node& n) { flag = n.integer(); }},
            {"tunables", [&](const Node& n) { tunables = n.text(); }},
    });
    node.require("tunables");
    return frameRescueCallback(package, flag, tunables);
}

Game gameOf(const Node& node) {
    Game game;
    auto& configuration = game.configuration;
    node.require("package");
    // The callbacks hold it, wherever it stands among the keys.
    const std::string& package = game.package = node.nameOf("package");
    node.object({
            {"package", [](const Node&) {}},
            {"weight", [&](const Node& n) { game.weight = n.integer(); }},
            {"headroomRates",
             [&](const Node& n) { configuration.push_back(headroomOf(n, package)); }},
            {"frameRescue",
             [&](const Node& n) { configuration.push_back(frameRescueOf(n, package)); }},
            {"targetFps",
             [&](const Node& n) {
                 configuration.push_back(targetFpsCallback(package, n.number(kMaxTargetFps)));
             }},
    });
    return game;
}

Rate rateOf(const Node& node) {
    Rate rate{0, 0};
    node.object({
            {"atMs",
             [&](const Node& n) {
                 rate.atNs = static_cast<int64_t>(n.number(kMaxEventMs) * kNsPerMs);
             }},
            {"hz", [&](const Node& n) { rate.periodNs = n.period(); }},
    });
    node.require("hz");
    return rate;
}

// One rate, or a list of them by time.
std::vector<Rate> ratesOf(const Node& node) {
    if (!node.isArray()) return {{0, node.period()}};
    std::vector<Rate> rates;
    node.array([&](const Node& n) {
        const Rate rate = rateOf(n);
        if (rates.empty() ? rate.atNs != 0 : rate.atNs <= rates.back().atNs) {
            n.fail("must come later than the one before it, and the first at 0");
        }
        rates.push_back(rate);
    });
    return rates;
}

ServiceCallback callbackOf(const Node& node) {
    ServiceCallback callback;
    node.object({
            {"hint", [&](const Node& n) { callback.hint = n.integer(); }},
            {"package", [&](const Node& n) { callback.package = n.text(); }},
            {"arg1", [&](const Node& n) { callback.arg1 = n.integer(); }},
            {"arg2", [&](const Node& n) { callback.arg2 = n.integer(); }},
            {"values",
             [&](const Node& n) {
                 n.array([&](const Node& value) { callback.values.push_back(value.integer()); });
             }},
    });
    node.require("hint");
    return callback;
}

PropertyWrite propertyOf(const Node& node) {
    PropertyWrite property;
    node.object({
            {"name", [&](const Node& n) { property.name = n.text(); }},
            {"value", [&](const Node& n) { property.value = n.text(); }},
    });
    node.require("name");
    node.require("value");
    return property;
}

// The platform's motion-event actions, by their names in a scenario.
const std::map<std::string, int>& touchActions() {
    static const std::map<std::string, int> sActions = {
            {"down", 0},        {"up", 1},        {"move", 2},  {"cancel", 3},
            {"pointerDown", 5}, {"pointerUp", 6}, {"hover", 7},
    };
    return sActions;
}

Touch touchOf(const Node& node) {
    const auto action = touchActions().find(node.text());
    if (action == touchActions().end()) {
        node.fail("must be one of down, up, move, cancel, pointerDown, pointerUp, hover");
    }
    return {action->second};
}

FenceMark fenceOf(const Node& node) {
    constexpr int kMaxFrame = 1'000'000'000;
    FenceMark mark;
    const auto frame = [](const Node& n) { return static_cast<size_t>(n.integer(1, kMaxFrame)); };
    node.object({
            {"layer", [&](const Node& n) { mark.layer = n.name(); }},
            {"first", [&](const Node& n) { mark.first = frame(n); }},
            {"last", [&](const Node& n) { mark.last = frame(n); }},
            {"every", [&](const Node& n) { mark.every = frame(n); }},
            {"timeline", [&](const Node& n) { mark.timeline = n.text(); }},
            {"immediate", [&](const Node& n) { mark.immediate = n.boolean(); }},
    });
    node.require("layer");
    node.require("timeline");
    if (mark.last < mark.first) node.fail("must not end before its first frame");
    return mark;
}

Bounds boundsOf(const Node& node) {
    constexpr int kMaxPixels = 100'000;  // a layer may be larger than its display, and beside it
    Bounds bounds{};
    const auto pixels = [](int32_t& edge) {
        return [&edge](const Node& n) { edge = n.integer(-kMaxPixels, kMaxPixels); };
    };
    node.object({{"left", pixels(bounds.left)},
                 {"top", pixels(bounds.top)},
                 {"right", pixels(bounds.right)},
                 {"bottom", pixels(bounds.bottom)}});
    for (const char* edge : {"left", "top", "right", "bottom"}) node.require(edge);
    if (bounds.right < bounds.left || bounds.bottom < bounds.top) {
        node.fail("must not end before it begins");
    }
    return bounds;
}

LayerFacts layerFactsOf(const Node& node) {
    constexpr int kMinBuffers = 2;  // one shown, one drawn
    constexpr int kMaxBuffers = 64;
    constexpr int kMaxMHz = 10'000;
    LayerFacts layer;
    node.object({
            {"layer", [&](const Node& n) { layer.layer = n.name(); }},
            {"producer",
             [&](const Node& n) {
                 const std::string kind = n.text();
                 if (kind == "vsync-driven") {
                     layer.producer = model::ProducerKind::kVsyncDriven;
                 } else if (kind == "free-running") {
                     layer.producer = model::ProducerKind::kFreeRunning;
                 } else {
                     n.fail("must be vsync-driven or free-running");
                 }
             }},
            {"buffers",
             [&](const Node& n) { layer.buffers = n.integer(kMinBuffers, kMaxBuffers); }},
            {"gpuShare", [&](const Node& n) { layer.gpuShare = n.number(1.0); }},
            {"gpuBaseMHz", [&](const Node& n) { layer.gpuBaseMHz = n.integer(1, kMaxMHz); }},
            {"bounds", [&](const Node& n) { layer.bounds = boundsOf(n); }},
            {"visible", [&](const Node& n) { layer.visible = n.boolean(); }},
            {"focused", [&](const Node& n) { layer.focused = n.boolean(); }},
            {"uid",
             [&](const Node& n) { layer.uid = static_cast<uid_t>(n.integer(0, INT32_MAX)); }},
    });
    node.require("layer");
    if (layer.gpuShare) node.require("gpuBaseMHz");
    if (layer.gpuBaseMHz > 0) node.require("gpuShare");
    return layer;
}

// One event, or with "count" and "everyMs" a row of the same.
void addEvents(const Node& node, std::vector<ScenarioEvent>& events) {
    constexpr int kMaxCount = 100'000;
    ScenarioEvent event;
    int kinds = 0;
    int count = 1;
    int64_t everyNs = 0;
    node.object({
            {"atMs",
             [&](const Node& n) {
                 event.atNs = static_cast<int64_t>(n.number(kMaxEventMs) * kNsPerMs);
             }},
            {"callback",
             [&](const Node& n) {
                 event.what = callbackOf(n);
                 ++kinds;
             }},
            {"property",
             [&](const Node& n) {
                 event.what = propertyOf(n);
                 ++kinds;
             }},
            {"touch",
             [&](const Node& n) {
                 event.what = touchOf(n);
                 ++kinds;
             }},
            {"count", [&](const Node& n) { count = n.integer(1, kMaxCount); }},
            {"everyMs",
             [&](const Node& n) {
                 everyNs = static_cast<int64_t>(n.number(kMaxEventMs) * kNsPerMs);
             }},
            {"unblock",
             [&](const Node& n) {
                 if (!n.boolean()) n.fail("must be true");
                 event.what = Unblock{};
                 ++kinds;
             }},
    });
    node.require("atMs");
    if (kinds != 1) node.fail("must hold exactly one of callback, property, touch, unblock");
    if (count > 1) node.require("everyMs");
    if (events.size() + static_cast<size_t>(count) > kMaxEvents) {
        node.fail("makes more than " + std::to_string(kMaxEvents) + " events");
    }
    for (int i = 0; i < count; ++i) {
        events.push_back(event);
        event.atNs += everyNs;
    }
}

Scenario scenarioOf(const Node& root, const std::string& fileName) {
    Scenario scenario;
    root.object({
            {"description", [&](const Node& n) { scenario.description = n.text(); }},
            {"recording",
             [&](const Node& n) {
                 scenario.recording = (std::filesystem::path(fileName).parent_path() / n.text())
                                              .lexically_normal();
             }},
            {"repeat", [&](const Node& n) { scenario.repeat = n.integer(1, kMaxRepeat); }},
            {"games",
             [&](const Node& n) {
                 n.array([&](const Node& game) { scenario.games.push_back(gameOf(game)); });
             }},
            {"properties",
             [&](const Node& n) {
                 n.array([&](const Node& property) {
                     scenario.properties.push_back(propertyOf(property));
                 });
             }},
            {"events",
             [&](const Node& n) {
                 n.array([&](const Node& event) { addEvents(event, scenario.events); });
             }},
            {"fences",
             [&](const Node& n) {
                 n.array([&](const Node& mark) { scenario.fences.push_back(fenceOf(mark)); });
             }},
            {"layers",
             [&](const Node& n) {
                 n.array([&](const Node& layer) {
                     scenario.layers.push_back(layerFactsOf(layer));
                 });
             }},
            {"refreshRate", [&](const Node& n) { scenario.refreshRates = ratesOf(n); }},
            {"application", [&](const Node& n) { scenario.application = n.text(); }},
    });
    return scenario;
}

// jsoncpp's report, which spans lines, as part of one sentence.
std::string oneLine(std::string text) {
    std::replace(text.begin(), text.end(), '\n', ' ');
    text.erase(0, text.find_first_not_of("* "));
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

}  // namespace

void add(Scenario& scenario, const Scenario& additions) {
    for (const Game& game : additions.games) {
        const auto known = std::find_if(scenario.games.begin(), scenario.games.end(),
                                        [&](const Game& g) { return g.package == game.package; });
        if (known == scenario.games.end()) {
            scenario.games.push_back(game);
        } else {
            known->configuration.insert(known->configuration.end(), game.configuration.begin(),
                                        game.configuration.end());
        }
    }
    scenario.properties.insert(scenario.properties.end(), additions.properties.begin(),
                               additions.properties.end());
    if (!additions.refreshRates.empty()) scenario.refreshRates = additions.refreshRates;
}

void placeLayers(Recording& recording, const Scenario& scenario) {
    for (const LayerFacts& facts : scenario.layers) {
        const auto index = recording.findLayer(facts.layer);
        if (!index) continue;  // which a note says
        Layer& layer = recording.layers[*index];
        layer.bounds = facts.bounds.value_or(layer.bounds);
        layer.visible = facts.visible.value_or(layer.visible);
        if (facts.focused) layer.focused = facts.focused;
        if (facts.uid) recording.processes[layer.process].uid = *facts.uid;
    }
    auto& layers = recording.layers;
    const bool isFocusTold = std::any_of(layers.begin(), layers.end(), [](const Layer& layer) {
        return layer.focused.value_or(false);
    });
    // Who does not have it then, is as good as told.
    for (Layer& layer : layers) {
        if (isFocusTold) layer.focused = layer.focused.value_or(false);
    }
}

std::string touchName(const Touch& touch) {
    for (const auto& [name, action] : touchActions()) {
        if (action == touch.action) return name;
    }
    return std::to_string(touch.action);
}

ScenarioResult parseScenario(const std::string& text, const std::string& fileName) {
    Json::CharReaderBuilder builder;
    builder["collectComments"] = false;
    builder["failIfExtra"] = true;
    builder["rejectDupKeys"] = true;
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    Json::Value document;
    std::string errors;
    try {
        if (!reader->parse(text.data(), text.data() + text.size(), &document, &errors)) {
            return {std::nullopt, fileName + ": not valid JSON: " + oneLine(errors)};
        }
        return {scenarioOf(Node(document, "", text, fileName), fileName), {}};
    } catch (const ScenarioError& error) {
        return {std::nullopt, error.what()};
    } catch (const Json::Exception& error) {  // nested too deeply
        return {std::nullopt, fileName + ": not valid JSON: " + oneLine(error.what())};
    }
}

}  // namespace corvane::replay
