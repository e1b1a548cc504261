// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/Application.h"

#include <json/json.h>

#include <algorithm>
#include <memory>
#include <variant>

namespace corvane::replay {
namespace {

std::string oneLine(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    return Json::writeString(builder, value);
}

std::optional<Json::Value> parse(const std::string& json) {
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    Json::Value value;
    if (!reader->parse(json.data(), json.data() + json.size(), &value, nullptr)) {
        return std::nullopt;
    }
    return value;
}

Json::Value propertyValue(const PropertyWrite& property) {
    Json::Value value;
    value["name"] = property.name;
    value["value"] = property.value;
    return value;
}

PropertyWrite propertyFrom(const Json::Value& value) {
    return {value["name"].asString(), value["value"].asString()};
}

Json::Value stepValues(const std::vector<AppStep>& steps) {
    Json::Value list(Json::arrayValue);
    for (const auto& step : steps) {
        Json::Value value;
        value["at"] = Json::Int64(step.atNs);
        value["kind"] = static_cast<int>(step.kind);
        if (step.kind == AppStep::Kind::kTouch) value["action"] = step.action;
        if (step.kind == AppStep::Kind::kProperty) value["property"] = propertyValue(step.property);
        list.append(std::move(value));
    }
    return list;
}

std::vector<AppStep> stepsFrom(const Json::Value& list) {
    std::vector<AppStep> steps;
    for (const auto& value : list) {
        steps.push_back({value["at"].asInt64(), static_cast<AppStep::Kind>(value["kind"].asInt()),
                         value["action"].asInt(), propertyFrom(value["property"])});
    }
    return steps;
}

template <typename T>
Json::Value listOf(const std::vector<T>& values) {
    Json::Value list(Json::arrayValue);
    for (const T value : values) {
        if constexpr (sizeof(T) == sizeof(int64_t)) {
            list.append(Json::Int64(value));
        } else {
            list.append(value);
        }
    }
    return list;
}

}  // namespace

AppPlan planOf(const Recording& recording, size_t layer, int repeat, int64_t passNs,
               const Scenario& scenario) {
    AppPlan plan;
    plan.properties = scenario.properties;
    const Process& process = recording.processes[recording.layers[layer].process];
    plan.passes = repeat;
    plan.passNs = passNs;
    for (const auto& step : recording.steps) {
        if (step.kind == Step::Kind::kVsync) {
            plan.steps.push_back({step.timeNs, AppStep::Kind::kVsync, 0, {}});
        } else if (step.kind == Step::Kind::kQueue && step.layer == layer) {
            plan.steps.push_back({step.timeNs, AppStep::Kind::kQueue, 0, {}});
        }
    }
    for (const int64_t timeNs : process.dequeues) {
        plan.steps.push_back({timeNs, AppStep::Kind::kDequeue, 0, {}});
    }
    for (const auto& event : scenario.events) {
        if (event.atNs > passNs * repeat) continue;
        if (const auto* touch = std::get_if<Touch>(&event.what)) {
            plan.events.push_back({event.atNs, AppStep::Kind::kTouch, touch->action, {}});
        } else if (const auto* property = std::get_if<PropertyWrite>(&event.what)) {
            plan.events.push_back({event.atNs, AppStep::Kind::kProperty, 0, *property});
        }
    }
    for (auto* steps : {&plan.steps, &plan.events}) {
        std::stable_sort(steps->begin(), steps->end(),
                         [](const AppStep& a, const AppStep& b) { return a.atNs < b.atNs; });
    }
    return plan;
}

std::string toJson(const AppPlan& plan) {
    Json::Value root;
    root["properties"] = Json::Value(Json::arrayValue);
    for (const auto& property : plan.properties) {
        root["properties"].append(propertyValue(property));
    }
    root["steps"] = stepValues(plan.steps);
    root["events"] = stepValues(plan.events);
    root["passes"] = plan.passes;
    root["passNs"] = Json::Int64(plan.passNs);
    if (plan.simulatedFromNs) root["simulatedFrom"] = Json::Int64(*plan.simulatedFromNs);
    return oneLine(root);
}

std::optional<AppPlan> appPlanFrom(const std::string& json) {
    const auto root = parse(json);
    if (!root || !root->isObject()) return std::nullopt;
    AppPlan plan;
    for (const auto& value : (*root)["properties"]) plan.properties.push_back(propertyFrom(value));
    plan.steps = stepsFrom((*root)["steps"]);
    plan.events = stepsFrom((*root)["events"]);
    plan.passes = (*root)["passes"].asInt();
    plan.passNs = (*root)["passNs"].asInt64();
    if (root->isMember("simulatedFrom")) plan.simulatedFromNs = (*root)["simulatedFrom"].asInt64();
    return plan;
}

Json::Value valueOf(const Spread& spread) {
    Json::Value value;
    value["count"] = Json::UInt64(spread.count);
    value["p50Ns"] = Json::Int64(spread.p50);
    value["p99Ns"] = Json::Int64(spread.p99);
    value["maxNs"] = Json::Int64(spread.max);
    return value;
}

Json::Value valueOf(const AppResult& result) {
    Json::Value root;
    root["error"] = result.error;
    root["frames"] = Json::UInt64(result.frames);
    root["instantNs"] = listOf(result.instantNs);
    root["powerBoosts"] = listOf(result.powerBoosts);
    root["inputConsumed"] = Json::UInt64(result.inputConsumed);
    root["inputHeld"] = Json::UInt64(result.inputHeld);
    root["hooks"] = Json::Value(Json::arrayValue);
    for (const auto& [name, spread] : result.hooks) {
        Json::Value hook = valueOf(spread);
        hook["name"] = name;
        root["hooks"].append(std::move(hook));
    }
    return root;
}

std::string toJson(const AppResult& result) {
    return oneLine(valueOf(result));
}

std::optional<AppResult> appResultFrom(const std::string& json) {
    const auto root = parse(json);
    if (!root || !root->isObject()) return std::nullopt;
    AppResult result;
    result.error = (*root)["error"].asString();
    result.frames = (*root)["frames"].asUInt64();
    for (const auto& value : (*root)["instantNs"]) result.instantNs.push_back(value.asInt64());
    for (const auto& value : (*root)["powerBoosts"]) result.powerBoosts.push_back(value.asInt());
    result.inputConsumed = (*root)["inputConsumed"].asUInt64();
    result.inputHeld = (*root)["inputHeld"].asUInt64();
    for (const auto& value : (*root)["hooks"]) {
        result.hooks.emplace_back(value["name"].asString(),
                                  Spread{value["count"].asUInt64(), value["p50Ns"].asInt64(),
                                         value["p99Ns"].asInt64(), value["maxNs"].asInt64()});
    }
    return result;
}

}  // namespace corvane::replay
