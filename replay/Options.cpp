// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/Options.h"

#include <charconv>
#include <string_view>
#include <utility>

#include "replay/Scenario.h"

namespace corvane::replay {

const char* const kUsage =
        "usage: corvane-replay [OPTIONS] [FILE]\n"
        "\n"
        "Plays a recording of a phone's compositor through the library's hooks, in real time, and\n"
        "prints what the library saw and did. FILE is ftrace text as atrace, systrace (plain or\n"
        ".html) or 'traceconv systrace' write it.\n"
        "\n"
        "  --config FILE          play with a scenario: which packages are games and how they are\n"
        "                         configured, properties, and events by time (JSON); it may name\n"
        "                         the recording and how often it is played\n"
        "  --default-config FILE  the scenario to use when neither FILE nor --config is given\n"
        "  --repeat N             play the recording N times end to end, 1 to 1000\n"
        "  --json FILE            also write the report for programs\n"
        "  --trace FILE           keep the library's own trace, which Perfetto opens\n"
        "  --help                 this text\n"
        "\n"
        "FILE may be - for standard output; the text of the report goes to standard error then.\n"
        "\n"
        "An interrupt (Ctrl-C) or a termination signal ends the replay with the report so far.\n"
        "\n"
        "Exit status: 0 played, 1 the library or the output failed, 2 the command line, the\n"
        "recording or the scenario is not usable; 130 ended by an interrupt, 143 by termination.\n";

namespace {

constexpr const char* kSeeHelp = " (--help lists the options)";

bool parseRepeat(std::string_view text, int& repeat) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), repeat);
    return error == std::errc() && end == text.data() + text.size() && repeat >= 1 &&
           repeat <= kMaxRepeat;
}

}  // namespace

OptionsResult parseOptions(int argc, const char* const* argv) {
    Options options;
    std::string defaultScenario;
    const std::pair<std::string_view, std::string*> files[] = {
            {"--config", &options.scenario},
            {"--default-config", &defaultScenario},
            {"--json", &options.json},
            {"--trace", &options.trace},
    };
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
        const size_t equals = argument.find('=');
        const std::string name = argument.substr(0, equals);
        std::string* file = nullptr;
        for (const auto& [option, target] : files) {
            if (name == option) file = target;
        }
        if (file == nullptr && name != "--repeat") {
            return {std::nullopt, "unknown option '" + argument + "'" + kSeeHelp};
        }
        std::string value;
        if (equals != std::string::npos) {
            value = argument.substr(equals + 1);
        } else if (i + 1 < argc) {
            value = argv[++i];
        }
        if (value.empty()) return {std::nullopt, "option " + name + " needs a value" + kSeeHelp};
        if (file != nullptr) {
            *file = value;
        } else if (!parseRepeat(value, options.repeat)) {
            return {std::nullopt, "--repeat needs a number from 1 to " +
                                          std::to_string(kMaxRepeat) + ", not '" + value + "'"};
        }
    }
    if (options.scenario.empty() && options.recording.empty()) options.scenario = defaultScenario;
    if (options.scenario.empty() && options.recording.empty()) {
        return {std::nullopt, std::string("no recording given") + kSeeHelp};
    }
    return {std::move(options), {}};
}

}  // namespace corvane::replay
