// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "replay/Options.h"
#include "replay/ReplayInput.h"

namespace corvane::replay {

// Plays the input through the library in this process and writes what is to be told of it. Once in
// a process. Returns the exit status; throws Stop.
int replay(const Options& options, const ReplayInput& input);

}  // namespace corvane::replay
