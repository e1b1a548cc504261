// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

#include "replay/Options.h"
#include "replay/Recording.h"
#include "replay/Scenario.h"

namespace corvane::replay {

// What is played: the recording, as far as it was chosen, and the scenario with what the command
// line added.
struct ReplayInput {
    Scenario scenario;
    std::string file;  // of the recording
    Recording recording;
    int repeat;
};

// Throws Stop when there is nothing that can be played.
ReplayInput loadInput(const Options& options);

}  // namespace corvane::replay
