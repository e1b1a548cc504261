// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <memory>

#include "replay/AppProcess.h"
#include "replay/Playback.h"
#include "replay/ReplayInput.h"

namespace corvane::replay {

// The application that the scenario touches, as a process of its own; null when it touches none.
std::unique_ptr<AppProcess> startApplication(const ReplayInput& input, const Playback& player);

// The steps by which the application's clock follows this process's.
Playback::NextAction clockOf(AppProcess& application);

}  // namespace corvane::replay
