// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <optional>
#include <string>

namespace corvane::replay {

struct Options {
    std::string recording;  // empty: the scenario names one
    std::string scenario;   // empty: none
    int repeat = 0;         // 0: as the scenario says, else once
    std::string json;       // empty: not written
    std::string trace;      // empty: not kept
    bool help = false;
};

// Without options `error` is one line that says what is wrong with the command line.
struct OptionsResult {
    std::optional<Options> options;
    std::string error;
};
OptionsResult parseOptions(int argc, const char* const* argv);

extern const char* const kUsage;

}  // namespace corvane::replay
