// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/Options.h"

#include <algorithm>
#include <charconv>
#include <functional>
#include <map>
#include <string_view>
#include <utility>
#include <vector>

#include "replay/Comparison.h"
#include "replay/Figure.h"
#include "replay/Scenario.h"

namespace corvane::replay {

const char* const kUsage =
        "usage: corvane-replay [OPTIONS] [FILE]\n"
        "\n"
        "Plays a recording of a phone's compositor through the library's hooks, prints what the\n"
        "library saw and did, and compares the phone with the library to the phone without it.\n"
        "FILE is ftrace text as atrace, systrace (plain or .html) or 'traceconv systrace' write\n"
        "it, packed by gzip or not; - is standard input. Time is simulated: a replay takes a\n"
        "fraction of the recording's length, and the same input gives the same output.\n"
        "\n"
        "  --config FILE          play with a scenario: which packages are games and how they are\n"
        "                         configured, properties, and events by time (JSON); it may name\n"
        "                         the recording and how often it is played\n"
        "  --default-config FILE  the scenario to use when neither FILE nor --config is given\n"
        "  --game PACKAGE[:headroom=80,target=30,rescue=1]\n"
        "                         the package is a game, with these features on: buffers held to\n"
        "                         that percentage of a vsync period, paced to those frames per\n"
        "                         second, late frames rescued; may be given several times\n"
        "  --list                 tell the recording's layers, packages, rates and counters, and\n"
        "                         play nothing\n"
        "  --from S, --to S       play only what is between these seconds of the recording\n"
        "  --layer PART           play only layers whose names contain this\n"
        "  --refresh-rate HZ[,HZ@S...]\n"
        "                         the display's rate, and later ones from these seconds on, where\n"
        "                         the recording tells it wrong\n"
        "  --repeat N             play the recording N times end to end, 1 to 1000\n"
        "  --against POLICY[,...] compare with none (the recorded phone, which is the default),\n"
        "                         interval (frames begin a fixed number of vsyncs apart) or\n"
        "                         shallow (at most one buffer waits)\n"
        "  --fail-if FIGURE>VALUE end with status 3 when a figure of the comparison is above (or,\n"
        "                         with <, below) this with the library, for a layer of a game if\n"
        "                         there is one, else for any; times in ms, as in latency-p95>40\n"
        "  --open-loop            queue buffers at their recorded times, whatever the library "
        "does;\n"
        "                         nothing is compared then\n"
        "  --realtime             the same against the machine's clock, which tells what hooks "
        "cost\n"
        "  --seed N               another order of what is due at one instant\n"
        "  --json FILE            also write the report for programs\n"
        "  --report FILE.html     also write the report as a page with timelines, for a browser\n"
        "  --trace FILE           also write what happened for ui.perfetto.dev: ftrace text "
        "(.txt,\n"
        "                         .html) or a Perfetto trace (.pftrace)\n"
        "  --help                 this text\n"
        "\n"
        "An output FILE may be - for standard output; the text of the report goes to standard "
        "error then.\n"
        "\n"
        "An interrupt (Ctrl-C) or a termination signal ends the replay with the report so far.\n"
        "\n"
        "Exit status: 0 played, 1 the library or the output failed, 2 the command line, the\n"
        "recording or the scenario is not usable, 3 a --fail-if holds; 130 ended by an interrupt, "
        "143 by termination.\n";

namespace {

constexpr double kNsPerSecond = 1e9;
constexpr const char* kSeeHelp = " (--help lists the options)";

constexpr double kMaxSeconds = 86'400.0;  // a day

template <typename T>
bool parseNumber(std::string_view text, T least, T most, T& value) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() && value >= least &&
           value <= most;
}

std::string parseRepeat(const std::string& text, int& repeat) {
    if (parseNumber(text, 1, kMaxRepeat, repeat)) return "";
    return "needs a number from 1 to " + std::to_string(kMaxRepeat) + ", not '" + text + "'";
}

std::string parseSeed(const std::string& text, std::optional<uint64_t>& seed) {
    uint64_t value = 0;
    if (!parseNumber<uint64_t>(text, 0, UINT64_MAX, value)) {
        return "needs a whole number from 0 on, not '" + text + "'";
    }
    seed = value;
    return "";
}

// "FIGURE>VALUE" or "FIGURE<VALUE"; times in milliseconds.
std::string parseLimit(const std::string& text, std::vector<Limit>& limits) {
    constexpr double kNsPerMs = 1e6;
    constexpr double kMost = 1e12;
    const size_t relation = std::min(text.find_first_of("<>"), text.size());
    const Figure* figure = figureOf(std::string_view(text).substr(0, relation));
    double value = 0.0;
    if (relation == text.size() || figure == nullptr ||
        !parseNumber(std::string_view(text).substr(relation + 1), 0.0, kMost, value)) {
        std::string keys;
        for (const Figure& known : figures()) keys += std::string(" ") + known.key;
        return "needs FIGURE>VALUE or FIGURE<VALUE, not '" + text + "'; figures are" + keys;
    }
    if (figure->unit == Figure::Unit::kTime) value *= kNsPerMs;
    limits.push_back({text, figure, text[relation] == '>', value});
    return "";
}

// "NAME[,NAME...]"; each policy once, in the order given.
std::string parsePolicies(const std::string& text, std::vector<std::string>& policies) {
    const auto& names = policyNames();
    for (size_t begin = 0; begin <= text.size();) {
        const size_t end = std::min(text.find(',', begin), text.size());
        const std::string name = text.substr(begin, end - begin);
        if (std::find(names.begin(), names.end(), name) == names.end()) {
            return "knows none, interval and shallow, not '" + name + "'";
        }
        if (std::find(policies.begin(), policies.end(), name) == policies.end()) {
            policies.push_back(name);
        }
        begin = end + 1;
    }
    return "";
}

std::string parseSeconds(const std::string& text, std::optional<int64_t>& timeNs) {
    double value = 0.0;
    if (!parseNumber(text, 0.0, kMaxSeconds, value)) {
        return "needs seconds, such as 1.5, not '" + text + "'";
    }
    timeNs = static_cast<int64_t>(value * kNsPerSecond);
    return "";
}

// "HZ[,HZ@SECONDS...]", ascending.
std::string parseRates(const std::string& text, std::vector<Rate>& rates) {
    const std::string failure = "needs rates from " + std::to_string(kMinRefreshHz) + " to " +
                                std::to_string(kMaxRefreshHz) +
                                " Hz, such as 120 or 60,120@1.5, not '" + text + "'";
    rates.clear();
    for (size_t begin = 0; begin <= text.size();) {
        const size_t end = std::min(text.find(',', begin), text.size());
        const std::string item = text.substr(begin, end - begin);
        const size_t at = item.find('@');
        double hz = 0.0;
        std::optional<int64_t> fromNs = 0;
        if (!parseNumber<double>(item.substr(0, at), kMinRefreshHz, kMaxRefreshHz, hz)) {
            return failure;
        }
        if (at != std::string::npos && !parseSeconds(item.substr(at + 1), fromNs).empty()) {
            return failure;
        }
        const bool isFirst = rates.empty();
        if (isFirst ? *fromNs != 0 : *fromNs <= rates.back().atNs) return failure;
        rates.push_back({*fromNs, static_cast<int64_t>(kNsPerSecond / hz)});
        begin = end + 1;
    }
    return "";
}

// One of the features behind a --game's package.
bool addFeature(const std::string& key, const std::string& value, Game& game, Scenario& scenario) {
    constexpr double kPercent = 100.0;
    double number = 0.0;
    int flag = 0;
    if (key == "headroom" && parseNumber(value, 1.0, kMaxHeadroomRate * kPercent, number)) {
        const double rate = number / kPercent;
        game.configuration.push_back(headroomCallback(game.package, rate, rate));
        scenario.properties.push_back({"vendor.perf.phr.enable", "1"});
        return true;
    }
    if (key == "target" && parseNumber(value, 1.0, kMaxTargetFps, number)) {
        game.configuration.push_back(targetFpsCallback(game.package, number));
        scenario.properties.push_back({"vendor.rdxe.enable.target_fps", "true"});
        return true;
    }
    if (key == "rescue" && parseNumber(value, 0, 2, flag)) {
        // The library's own defaults; it wants one tunable at least.
        constexpr const char* kTunables = "jank=1.3;1.6;1.9_baseFreq=500;800;3000";
        game.configuration.push_back(frameRescueCallback(game.package, flag, kTunables));
        return true;
    }
    return false;
}

// "PACKAGE[:KEY=VALUE,...]"; packages have no colon.
std::string parseGame(const std::string& text, Scenario& scenario) {
    constexpr int kWeight = 2;  // one of those that the service gives to games
    Game game;
    const size_t colon = text.find(':');
    game.package = text.substr(0, colon);
    game.weight = kWeight;
    if (game.package.empty()) return "needs a package, not '" + text + "'";
    for (size_t begin = colon; begin < text.size();) {
        const size_t end = std::min(text.find(',', begin + 1), text.size());
        const std::string item = text.substr(begin + 1, end - begin - 1);
        const size_t equals = item.find('=');
        if (equals == std::string::npos ||
            !addFeature(item.substr(0, equals), item.substr(equals + 1), game, scenario)) {
            return "knows headroom=1..1000 (percent), target=1..1000 (fps) and rescue=0..2, not '" +
                   item + "'";
        }
        begin = end;
    }
    scenario.games.push_back(std::move(game));
    return "";
}

}  // namespace

OptionsResult parseOptions(int argc, const char* const* argv) {
    Options options;
    std::string defaultScenario;
    // Each takes its value, and returns what is wrong with it.
    using Take = std::function<std::string(const std::string& value)>;
    const auto text = [](std::string& target) {
        return [&target](const std::string& value) {
            target = value;
            return std::string();
        };
    };
    const std::map<std::string, Take> takes = {
            {"--config", text(options.scenario)},
            {"--default-config", text(defaultScenario)},
            {"--json", text(options.json)},
            {"--report", text(options.report)},
            {"--trace", text(options.trace)},
            {"--layer", text(options.part.layer)},
            {"--from", [&](const auto& value) { return parseSeconds(value, options.part.fromNs); }},
            {"--to", [&](const auto& value) { return parseSeconds(value, options.part.toNs); }},
            {"--game", [&](const auto& value) { return parseGame(value, options.additions); }},
            {"--refresh-rate",
             [&](const auto& value) { return parseRates(value, options.additions.refreshRates); }},
            {"--against", [&](const auto& value) { return parsePolicies(value, options.against); }},
            {"--fail-if", [&](const auto& value) { return parseLimit(value, options.limits); }},
            {"--seed", [&](const auto& value) { return parseSeed(value, options.seed); }},
            {"--repeat", [&](const auto& value) { return parseRepeat(value, options.repeat); }},
    };
    const std::map<std::string, bool*> flags = {{"--list", &options.list},
                                                {"--open-loop", &options.openLoop},
                                                {"--realtime", &options.realtime}};
    bool onlyFiles = false;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (onlyFiles || argument.empty() || argument[0] != '-' || argument == "-") {
            if (!options.recording.empty()) {
                return {std::nullopt, "more than one recording: '" + options.recording + "' and '" +
                                              argument + "'"};
            }
            if (argument.empty()) return {std::nullopt, "the recording's name is empty"};
            options.recording = argument;
            continue;
        }
        if (argument == "--") {
            onlyFiles = true;
            continue;
        }
        if (argument == "--help" || argument == "-h") {
            options.help = true;
            return {std::move(options), {}};
        }
        if (const auto flag = flags.find(argument); flag != flags.end()) {
            *flag->second = true;
            continue;
        }
        const size_t equals = argument.find('=');
        const std::string name = argument.substr(0, equals);
        const auto take = takes.find(name);
        if (take == takes.end()) {
            return {std::nullopt, "unknown option '" + argument + "'" + kSeeHelp};
        }
        std::string value;
        if (equals != std::string::npos) {
            value = argument.substr(equals + 1);
        } else if (i + 1 < argc) {
            value = argv[++i];
        }
        if (value.empty()) return {std::nullopt, "option " + name + " needs a value" + kSeeHelp};
        const std::string wrong = take->second(value);
        if (!wrong.empty()) return {std::nullopt, name + " " + wrong};
    }
    const Selection& part = options.part;
    if (part.toNs && *part.toNs <= part.fromNs.value_or(0)) {
        return {std::nullopt, "--to must be later than --from"};
    }
    const bool plays = !options.json.empty() || !options.report.empty() || !options.trace.empty() ||
                       !options.against.empty() || !options.limits.empty();
    if (options.list && plays) {
        return {std::nullopt,
                "--list plays nothing, so that --json, --report, --trace, --against and --fail-if "
                "do not go with it"};
    }
    options.openLoop = options.openLoop || options.realtime;
    if (options.openLoop && !(options.against.empty() && options.limits.empty())) {
        return {std::nullopt,
                "--against and --fail-if need the device model, which --open-loop and --realtime "
                "do "
                "without"};
    }
    if (options.realtime && options.seed) {
        return {std::nullopt, "--seed orders simulated time, which --realtime does without"};
    }
    if (options.against.empty()) options.against = {"none"};
    if (options.scenario.empty() && options.recording.empty()) {
        options.scenario = defaultScenario;
        options.isDefaultScenario = true;
    }
    if (options.scenario.empty() && options.recording.empty()) {
        return {std::nullopt, std::string("no recording given") + kSeeHelp};
    }
    return {std::move(options), {}};
}

}  // namespace corvane::replay
