// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/Settings.h"

#include <map>
#include <string>
#include <utility>
#include <variant>

namespace corvane::replay {
namespace {

Json::Value list() {
    return Json::Value(Json::arrayValue);
}

Json::Value propertyOf(const std::string& name, const std::string& value, const char* from) {
    Json::Value property;
    property["name"] = name;
    property["value"] = value;
    property["from"] = from;
    return property;
}

Json::Value propertiesOf(const Scenario& scenario, const std::vector<host::PerfCall>& calls) {
    std::map<std::string, std::string> written;
    for (const PropertyWrite& property : scenario.properties) {
        written[property.name] = property.value;
    }
    std::map<std::string, Json::Value> properties;
    for (const auto& call : calls) {
        if (call.entry != "perf_get_prop") continue;
        const char* from = written.count(call.package) > 0  ? "scenario"
                           : call.package == kDebugProperty ? "replay"
                                                            : "default";
        properties[call.package] = propertyOf(call.package, call.answer, from);
    }
    // Those that the library reads from the system are not on the service's record.
    for (const auto& [name, value] : written) {
        properties.emplace(name, propertyOf(name, value, "scenario"));
    }
    Json::Value values = list();
    for (auto& [name, value] : properties) values.append(std::move(value));
    return values;
}

Json::Value callbackOf(const ServiceCallback& callback, const Json::Value& atNs) {
    Json::Value value;
    value["atNs"] = atNs;
    value["hint"] = callback.hint;
    value["package"] = callback.package;
    value["arg1"] = callback.arg1;
    value["arg2"] = callback.arg2;
    value["values"] = list();
    for (const int number : callback.values) value["values"].append(number);
    return value;
}

Json::Value callbacksOf(const Scenario& scenario) {
    Json::Value values = list();
    for (const Game& game : scenario.games) {
        for (const auto& callback : game.configuration) {
            values.append(callbackOf(callback, Json::Value()));
        }
    }
    for (const ScenarioEvent& event : scenario.events) {
        if (const auto* callback = std::get_if<ServiceCallback>(&event.what)) {
            values.append(callbackOf(*callback, Json::Int64(event.atNs)));
        }
    }
    return values;
}

Json::Value eventsOf(const Scenario& scenario) {
    Json::Value values = list();
    for (const ScenarioEvent& event : scenario.events) {
        Json::Value value;
        value["atNs"] = Json::Int64(event.atNs);
        if (const auto* property = std::get_if<PropertyWrite>(&event.what)) {
            value["property"] = property->name;
            value["value"] = property->value;
        } else if (const auto* touch = std::get_if<Touch>(&event.what)) {
            value["touch"] = touchName(*touch);
        } else if (std::holds_alternative<Unblock>(event.what)) {
            value["unblock"] = true;
        } else {
            continue;  // told with the callbacks
        }
        values.append(std::move(value));
    }
    return values;
}

Json::Value fencesOf(const Scenario& scenario) {
    Json::Value values = list();
    for (const FenceMark& mark : scenario.fences) {
        Json::Value value;
        value["layer"] = mark.layer;
        value["timeline"] = mark.timeline;
        value["first"] = Json::UInt64(mark.first);
        value["last"] =
                mark.last == SIZE_MAX ? Json::Value() : Json::Value(Json::UInt64(mark.last));
        value["every"] = Json::UInt64(mark.every);
        value["immediate"] = mark.immediate;
        values.append(std::move(value));
    }
    return values;
}

}  // namespace

Json::Value settingsJson(const Scenario& scenario, const std::vector<host::PerfCall>& calls) {
    Json::Value settings;
    settings["properties"] = propertiesOf(scenario, calls);
    settings["games"] = list();
    for (const Game& game : scenario.games) {
        Json::Value value;
        value["package"] = game.package;
        value["weight"] = game.weight;
        settings["games"].append(std::move(value));
    }
    settings["callbacks"] = callbacksOf(scenario);
    settings["events"] = eventsOf(scenario);
    settings["fences"] = fencesOf(scenario);
    return settings;
}

}  // namespace corvane::replay
