// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>
#include <json/json.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "replay/Options.h"
#include "replay/Scenario.h"

namespace corvane::replay {
namespace {

// From words; "''" is an empty one.
OptionsResult parse(const std::string& line) {
    std::istringstream stream(line);
    std::vector<std::string> words = {"corvane-replay"};
    for (std::string word; stream >> word;) words.push_back(word == "''" ? "" : word);
    std::vector<const char*> arguments;
    for (const auto& word : words) arguments.push_back(word.c_str());
    return parseOptions(static_cast<int>(arguments.size()), arguments.data());
}

// JSON with ' for ", which saves the reader the backslashes.
std::string quoted(std::string json) {
    std::replace(json.begin(), json.end(), '\'', '"');
    return json;
}
ScenarioResult scenarioOf(const std::string& json) {
    return parseScenario(quoted(json), "folder/s.json");
}

std::string textOf(const std::vector<ServiceCallback>& callbacks) {
    std::string text;
    for (const auto& callback : callbacks) {
        text += callback.package + " " + std::to_string(callback.hint) + ": " +
                std::to_string(callback.arg1);
        for (const int value : callback.values) text += " " + std::to_string(value);
        text += "; ";
    }
    return text;
}

TEST(Options, AreTakenInEitherForm) {
    const Options options =
            parse("--repeat 3 --json=out.json - --trace t --config c.json --default-config d.json "
                  "--game com.a:headroom=80,target=30,rescue=1 --game=com.b --from 1.5 "
                  "--to=2 --layer x --refresh-rate 60,120@1.5")
                    .options.value();
    EXPECT_EQ(options.recording + options.json + options.trace + options.scenario +
                      options.part.layer,
              "-out.jsontc.jsonx");
    EXPECT_EQ(options.repeat, 3);
    EXPECT_EQ(options.additions.games.at(1).package, "com.b");
    EXPECT_EQ(textOf(options.additions.games[0].configuration),
              "com.a 4187: 0 0 80 1 80; com.a 4171: 3000; "
              "com.a:jank=1.3;1.6;1.9_baseFreq=500;800;3000 4189: 0 1; ");
    EXPECT_EQ(options.additions.properties.size(), 2U);
    EXPECT_EQ(options.part.fromNs, 1'500'000'000);
    EXPECT_EQ(options.part.toNs, 2'000'000'000);
    EXPECT_EQ(options.additions.refreshRates.at(1).atNs, 1'500'000'000);
    EXPECT_EQ(options.additions.refreshRates[1].periodNs, 8'333'333);
    EXPECT_EQ(parse("--default-config d.json").options.value().scenario, "d.json");
    EXPECT_EQ(parse("--default-config d.json a.txt").options.value().scenario, "");
    EXPECT_EQ(parse("-- --odd").options.value().recording, "--odd");
    EXPECT_TRUE(parse("--help --nonsense").options.value().help);
}

// Each quotes what is wrong, which is the end of the line.
TEST(Options, WrongOnesGetOneClearLine) {
    for (const std::string line :
         {"--frobnicate", "a.txt -x", "a.txt b.txt", "a.txt --repeat 0", "a.txt --repeat 2x",
          "a.txt --repeat 1001", "a.txt --repeat 99999999999999999999", "a.txt --game :headroom=80",
          "a.txt --game b:headroom=80,x=1", "a.txt --game b:headroom=nan",
          "a.txt --game b:", "a.txt --from -1", "a.txt --refresh-rate 5",
          "a.txt --refresh-rate 60,90", "a.txt --refresh-rate 60@1", "a.txt --seed -1",
          "a.txt --against none,nix", "a.txt --fail-if latency-p95>x"}) {
        const auto result = parse(line);
        EXPECT_FALSE(result.options);
        const std::string item = line.substr(line.find_last_of(" :,=") + 1);
        EXPECT_NE(result.error.find(item + "'"), std::string::npos) << line << result.error;
        EXPECT_EQ(result.error.find('\n'), std::string::npos) << result.error;
    }
    EXPECT_EQ(parse("").error.find("no recording"), 0U);
    EXPECT_EQ(parse("a.txt --json").error.find("option --json needs"), 0U);
    EXPECT_EQ(parse("a.txt --json=").error.find("option --json needs"), 0U);
    EXPECT_EQ(parse("a.txt --from 2 --to 2").error.find("--to must"), 0U);
    EXPECT_EQ(parse("a.txt --list --fail-if fps<1").error.find("--list plays nothing"), 0U);
    EXPECT_EQ(parse("''").error, "the recording's name is empty");
}

constexpr char kWhole[] = R"({
        'description': 'all of it', 'recording': '../recordings/r.txt', 'repeat': 2,
        'games': [{'frameRescue': {'flag': 2, 'tunables': 'golden=0.8'}, 'package': 'a.b',
                   'weight': 3, 'headroomRates': {'upTo60Hz': 0.8, 'above60Hz': 1.25},
                   'targetFps': 59.94}],
        'properties': [{'name': 'p', 'value': '1'}],
        'events': [
            {'atMs': 1.5, 'callback': {'hint': 4192, 'arg1': 1, 'arg2': -1, 'values': [1, 2]}},
            {'atMs': 2, 'property': {'name': 'q', 'value': ''}},
            {'atMs': 0, 'unblock': true},
            {'atMs': 5, 'touch': 'move', 'count': 3, 'everyMs': 8}],
        'layers': [{'layer': 'a', 'uid': 77, 'focused': true, 'buffers': 4},
                   {'layer': 'a.b', 'visible': false, 'gpuShare': 1, 'gpuBaseMHz': 500,
                    'bounds': {'left': -5, 'top': 6, 'right': 7, 'bottom': 8}}],
        'application': 'a.b',
        'refreshRate': [{'atMs': 0, 'hz': 120}, {'atMs': 500, 'hz': 60}],
        'fences': [{'layer': 'a.b', 'first': 3, 'every': 2, 'timeline': 't', 'immediate': true}]
        })";

TEST(Scenario, IsReadWhole) {
    const auto result = scenarioOf(kWhole);
    ASSERT_TRUE(result.scenario) << result.error;
    const Scenario& scenario = *result.scenario;
    EXPECT_EQ(scenario.recording + scenario.application, "recordings/r.txta.b");
    EXPECT_EQ(scenario.repeat, 2);
    EXPECT_EQ(scenario.games.at(0).weight, 3);
    EXPECT_EQ(textOf(scenario.games[0].configuration),
              "a.b:golden=0.8 4189: 0 2; a.b 4187: 0 0 80 1 125; a.b 4171: 5994; ")
            << "one of a kind, so that the order does not matter";
    Scenario additions;
    additions.games = {{"a.b", 1, {targetFpsCallback("a.b", 30)}}, {"c", 1, {}}};
    additions.refreshRates = {{0, 1}};
    Scenario both = scenario;
    add(both, additions);
    EXPECT_EQ(both.games.size() * 10 + both.games[0].configuration.size(), 24U);
    EXPECT_EQ(both.refreshRates.size(), 1U);
    EXPECT_EQ(scenario.refreshRates.at(1).periodNs, 16'666'666);
    std::string events;
    for (const auto& [atNs, what] : scenario.events) {
        events += "cput"[what.index()] + std::to_string(atNs / 1'000) + " ";
    }
    EXPECT_EQ(events, "c1500 p2000 u0 t5000 t13000 t21000 ");
    EXPECT_EQ(std::get<ServiceCallback>(scenario.events[0].what).arg2, -1);
    EXPECT_EQ(std::get<PropertyWrite>(scenario.events[1].what).name, "q");
    EXPECT_EQ(std::get<Touch>(scenario.events[5].what).action, 2);
    const FenceMark& fences = scenario.fences.at(0);
    EXPECT_TRUE(fences.first == 3 && fences.last == SIZE_MAX && fences.immediate);

    // Focus, geometry and users come from it, as no trace tells them.
    Recording recording;
    recording.processes = {{1, 10'000}, {2, 10'001}};
    recording.layers.resize(2);
    recording.layers[0].name = "busy";
    recording.layers[0].frames = 9;
    recording.layers[1].name = "a.b";
    recording.layers[1].process = 1;
    EXPECT_EQ(recording.focusedProcess(), 0U);
    placeLayers(recording, scenario);
    EXPECT_EQ(recording.focusedProcess(), 1U);
    EXPECT_EQ(recording.processes[1].uid, 77U);
    EXPECT_TRUE(!*recording.layers[0].focused && recording.layers[0].visible);
    EXPECT_FALSE(recording.layers[1].visible);
    EXPECT_EQ(recording.layers[1].bounds.left + recording.layers[1].bounds.bottom, 3);
}

// One place of a scenario that is right, a wrong value for it, and what is said of it.
TEST(Scenario, MistakesNameTheKeyAndItsPlace) {
    std::istringstream cases(quoted(R"(
        gmaes [] unknown key; games[0].wieght 1 unknown key; games {} a list;
        games[0] {'weight':1} package; games[0] [] an object; games[0].package 7 a text;
        games[0].package '' not be empty; games[0].weight 1.5 an integer;
        games[0].targetFps -1 from 0; games[0].headroomRates.upTo60Hz '1' a number;
        games[0].frameRescue {} tunables; refreshRate 0 at least 10;
        refreshRate 1e308 from 0 to 1000; refreshRate[1] {'hz':90} later;
        refreshRate[0] {'atMs':0} hz; repeat 0 from 1 to 1000; properties[0] {'name':'p'} value;
        events[0] {'atMs':1} exactly one; events[0] {'unblock':true} atMs;
        events[0].atMs 1e99 from 0; events[0].callback.values[1] [] an integer;
        events[2].unblock false true; events[3].touch 'slap' down;
        events[3] {'atMs':1,'touch':'up','count':2} everyMs; fences[0] {'layer':'a'} timeline;
        fences[0] {'layer':'a','timeline':'t','first':2,'last':1} end before;
        fences[0].every 0 from 1; layers[0].layer '' not be empty;
        layers[0].buffers 0 from 2 to 64; layers[0].uid -1 from 0;
        layers[0] {'layer':'a','gpuShare':1} gpuBaseMHz;
        layers[0] {'layer':'a','gpuBaseMHz':9} gpuShare; layers[1].gpuShare 1.01 from 0 to 1;
        layers[1].bounds {'left':0} top;
        layers[1].bounds {'left':9,'top':0,'right':8,'bottom':9} end before)"));
    Json::Value whole, value;
    std::istringstream(quoted(kWhole)) >> whole;
    for (std::string line; std::getline(cases, line, ';');) {
        std::istringstream words(line);
        std::string place, wrongValue, what;
        words >> place >> wrongValue >> std::ws;
        std::getline(words, what);
        std::istringstream(wrongValue) >> value;
        Json::Value wrong = whole;
        Json::Path(place).make(wrong) = value;
        const std::string error = scenarioOf(wrong.toStyledString()).error;
        EXPECT_NE(error.find(": " + place + ": "), std::string::npos) << line << ": " << error;
        EXPECT_NE(error.find(what), std::string::npos) << line << ": " << error;
        EXPECT_EQ(error.find('\n'), std::string::npos) << error;
    }
    Json::Value touches = whole["events"][3];
    touches["count"] = 100'000;
    whole["events"].clear();
    for (int i = 0; i < 11; ++i) whole["events"].append(touches);
    EXPECT_NE(scenarioOf(whole.toStyledString()).error.find("events[10]: "), std::string::npos);
    for (const std::string& text :
         {std::string("{'repeat': NaN}"), std::string("{'repeat': 1e400}"), std::string(),
          std::string("{'repeat': 1, 'repeat': 2}"), std::string("{'repeat': 1} x"),
          std::string(5'000, '[')}) {
        const std::string error = scenarioOf(text).error;
        EXPECT_EQ(error.find("folder/s.json: not valid JSON"), 0U) << error;
        EXPECT_EQ(error.find('\n'), std::string::npos) << error;
    }
    EXPECT_NE(scenarioOf("[]").error.find("the scenario: must be an object"), std::string::npos);
    const std::string second = "{'games': [\n{'package': 'a'},\n{'package': 'a',\n 'wieght': 1}]}";
    EXPECT_NE(scenarioOf(second).error.find("s.json:4: games[1].wieght: "), std::string::npos);
}

}  // namespace
}  // namespace corvane::replay
