// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

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

// With ' for ", which saves the reader the backslashes.
ScenarioResult scenarioOf(std::string json) {
    std::replace(json.begin(), json.end(), '\'', '"');
    return parseScenario(json, "folder/s.json");
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
                  "--game com.a:headroom=80,target=30,rescue=1 --game=com.b --list --from 1.5 "
                  "--to=2 --layer x --refresh-rate 60,120@1.5")
                    .options.value();
    EXPECT_EQ(options.recording + options.json + options.trace + options.scenario,
              "-out.jsontc.json");
    EXPECT_EQ(options.repeat, 3);
    ASSERT_EQ(options.additions.games.size(), 2U);
    EXPECT_EQ(textOf(options.additions.games[0].configuration),
              "com.a 4187: 0 0 80 1 80; com.a 4171: 3000; "
              "com.a:jank=1.3;1.6;1.9_baseFreq=500;800;3000 4189: 0 1; ");
    EXPECT_EQ(options.additions.properties.size(), 2U);
    EXPECT_TRUE(options.list);
    EXPECT_EQ(options.part.fromNs, 1'500'000'000);
    EXPECT_EQ(options.part.toNs, 2'000'000'000);
    EXPECT_EQ(options.part.layer, "x");
    ASSERT_EQ(options.additions.refreshRates.size(), 2U);
    EXPECT_EQ(options.additions.refreshRates[1].atNs, 1'500'000'000);
    EXPECT_EQ(options.additions.refreshRates[1].periodNs, 8'333'333);
    EXPECT_EQ(parse("--default-config d.json").options.value().scenario, "d.json");
    EXPECT_EQ(parse("--default-config d.json a.txt").options.value().scenario, "");
    EXPECT_EQ(parse("-- --odd").options.value().recording, "--odd");
    EXPECT_TRUE(parse("--help --nonsense").options.value().help);
}

TEST(Options, WrongOnesGetOneClearLine) {
    const std::pair<const char*, const char*> kCases[] = {{"", "no recording"},
                                                          {"--frobnicate --help", "--frobnicate"},
                                                          {"-x a.txt", "-x"},
                                                          {"a.txt b.txt", "b.txt"},
                                                          {"a.txt --json", "--json"},
                                                          {"a.txt --json=", "--json"},
                                                          {"a.txt --repeat 0", "'0'"},
                                                          {"a.txt --repeat 2x", "'2x'"},
                                                          {"a.txt --repeat 1001", "'1001'"},
                                                          {"a.txt --repeat 99999999999999999999",
                                                           "--repeat"},
                                                          {"a.txt --game :headroom=80", "--game"},
                                                          {"a.txt --game b:x=1", "'x=1'"},
                                                          {"a.txt --game b:headroom=nan",
                                                           "headroom=nan"},
                                                          {"a.txt --game b:", "''"},
                                                          {"a.txt --from -1", "'-1'"},
                                                          {"a.txt --from 2 --to 2", "--to"},
                                                          {"a.txt --refresh-rate 5", "'5'"},
                                                          {"a.txt --refresh-rate 60,90", "60,90"},
                                                          {"a.txt --refresh-rate 60@1", "60@1"},
                                                          {"''", "empty"}};
    for (const auto& [arguments, names] : kCases) {
        const auto result = parse(arguments);
        EXPECT_FALSE(result.options);
        EXPECT_NE(result.error.find(names), std::string::npos) << result.error;
        EXPECT_EQ(result.error.find('\n'), std::string::npos) << result.error;
    }
}

TEST(Scenario, IsReadWhole) {
    const auto result = scenarioOf(R"({
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
        })");
    ASSERT_TRUE(result.scenario) << result.error;
    const Scenario& scenario = *result.scenario;
    EXPECT_EQ(scenario.recording + scenario.application, "recordings/r.txta.b");
    EXPECT_EQ(scenario.repeat, 2);
    ASSERT_EQ(scenario.games.size(), 1U);
    EXPECT_EQ(scenario.games[0].weight, 3);
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
    ASSERT_EQ(scenario.refreshRates.size(), 2U);
    EXPECT_EQ(scenario.refreshRates[1].periodNs, 16'666'666);
    ASSERT_EQ(scenario.events.size(), 6U);
    EXPECT_EQ(scenario.events[0].atNs, 1'500'000);
    EXPECT_EQ(std::get<ServiceCallback>(scenario.events[0].what).arg2, -1);
    EXPECT_EQ(std::get<PropertyWrite>(scenario.events[1].what).name, "q");
    EXPECT_TRUE(std::holds_alternative<Unblock>(scenario.events[2].what));
    EXPECT_EQ(std::get<Touch>(scenario.events[5].what).action, 2);
    EXPECT_EQ(scenario.events[5].atNs, 21'000'000);
    ASSERT_EQ(scenario.fences.size(), 1U);
    EXPECT_EQ(scenario.fences[0].first, 3U);
    EXPECT_EQ(scenario.fences[0].last, SIZE_MAX);
    EXPECT_TRUE(scenario.fences[0].immediate);

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

TEST(Scenario, MistakesNameTheKeyAndItsPlace) {
    const struct {
        std::string text;
        const char* place;
        const char* what;
    } kCases[] = {
            {"{\n'gmaes': []}", "s.json:2: gmaes: ", "unknown key"},
            {"{'games': [\n{},\n{'package': 'a', 'wieght': 1}]}",
             "s.json:2: games[0]: ", "'package'"},
            {"{'games': [\n{'package': 'a'},\n{'package': 'a',\n 'wieght': 1}]}",
             "s.json:4: games[1].wieght: ", "unknown key"},
            {"{'games': [{'package': 7}]}", "games[0].package: ", "a text"},
            {"{'games': [{'package': ''}]}", "games[0].package: ", "not be empty"},
            {"{'games': [{'package': 'a', 'weight': 1.5}]}", "games[0].weight: ", "an integer"},
            {"{'games': {}}", "games: ", "a list"},
            {"{'games': [{'package': 'a', 'targetFps': -1}]}", "games[0].targetFps: ", "from 0"},
            {"{'games': [{'package': 'a', 'headroomRates': {'upTo60Hz': '1'}}]}",
             "games[0].headroomRates.upTo60Hz: ", "a number"},
            {"{'games': [{'package': 'a', 'frameRescue': {}}]}",
             "games[0].frameRescue: ", "'tunables'"},
            {"{'refreshRate': 0}", "refreshRate: ", "at least 10"},
            {"{'refreshRate': 1e308}", "refreshRate: ", "from 0 to 1000"},
            {"{'refreshRate': [{'hz': 60}, {'hz': 90}]}", "refreshRate[1]: ", "later"},
            {"{'refreshRate': [{'atMs': 0}]}", "refreshRate[0]: ", "'hz'"},
            {"{'games': [[]]}", "games[0]: ", "an object"},
            {"{'repeat': 0}", "repeat: ", "from 1 to 1000"},
            {"{'properties': [{'name': 'p'}]}", "properties[0]: ", "'value'"},
            {"{'events': [{'atMs': 1}]}", "events[0]: ", "exactly one"},
            {"{'events': [{'unblock': true}]}", "events[0]: ", "'atMs'"},
            {"{'events': [{'atMs': 1, 'unblock': false}]}", "events[0].unblock: ", "true"},
            {"{'events': [{'atMs': 1, 'touch': 'slap'}]}", "events[0].touch: ", "down"},
            {"{'events': [{'atMs': 1, 'touch': 'up', 'count': 2}]}", "events[0]: ", "'everyMs'"},
            {"{'events': [{'atMs': 1e99, 'unblock': true}]}", "events[0].atMs: ", "from 0"},
            {"{'events': [{'atMs': 1, 'callback': {'hint': 1, 'values': [1, []]}}]}",
             "events[0].callback.values[1]: ", "an integer"},
            {"{'fences': [{'layer': 'a'}]}", "fences[0]: ", "'timeline'"},
            {"{'fences': [{'layer': 'a', 'timeline': 't', 'every': 0}]}",
             "fences[0].every: ", "from 1"},
            {"{'fences': [{'layer': 'a', 'timeline': 't', 'first': 2, 'last': 1}]}",
             "fences[0]: ", "end before"},
            {"{'layers': [{'layer': ''}]}", "layers[0].layer: ", "not be empty"},
            {"{'layers': [{'layer': 'a', 'buffers': 0}]}", "layers[0].buffers: ", "from 2 to 64"},
            {"{'layers': [{'layer': 'a', 'gpuShare': 1.01, 'gpuBaseMHz': 9}]}",
             "layers[0].gpuShare: ", "from 0 to 1"},
            {"{'layers': [{'layer': 'a', 'gpuShare': 1}]}", "layers[0]: ", "'gpuBaseMHz'"},
            {"{'layers': [{'layer': 'a', 'gpuBaseMHz': 9}]}", "layers[0]: ", "'gpuShare'"},
            {"{'layers': [{'layer': 'a', 'uid': -1}]}", "layers[0].uid: ", "from 0"},
            {"{'layers': [{'layer': 'a', 'bounds': {'left': 0}}]}", "layers[0].bounds: ", "'top'"},
            {"{'layers': [{'layer': 'a', 'bounds': "
             "{'left': 9, 'top': 0, 'right': 8, 'bottom': 9}}]}",
             "layers[0].bounds: ", "end before"},
            {"[]", "the scenario: ", "an object"},
            {"{'repeat': NaN}", "s.json: ", "not valid JSON"},
            {"{'repeat': 1e400}", "s.json: ", "not valid JSON"},
            {"{'repeat': 1, 'repeat': 2}", "s.json: ", "not valid JSON"},
            {"", "s.json: ", "not valid JSON"},
            {"{'repeat': 1} x", "s.json: ", "not valid JSON"},
            {std::string(5'000, '['), "s.json: ", "not valid JSON"},
    };
    for (const auto& test : kCases) {
        const auto result = scenarioOf(test.text);
        EXPECT_FALSE(result.scenario) << test.text;
        EXPECT_NE(result.error.find(test.place), std::string::npos) << result.error;
        EXPECT_NE(result.error.find(test.what), std::string::npos) << result.error;
        EXPECT_EQ(result.error.find('\n'), std::string::npos) << result.error;
    }
    std::string events = "{'events': [";
    for (int i = 0; i < 11; ++i) {
        events += "{'atMs': 1, 'unblock': true, 'count': 100000, 'everyMs': 1},";
    }
    events.back() = ']';
    EXPECT_NE(scenarioOf(events + "}").error.find("events[10]: "), std::string::npos);
}

}  // namespace
}  // namespace corvane::replay
