// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "layers/InGameTracker.h"

namespace android {

// The application process's tracker, null until it is created. Valid for the life of the process.
InGameTracker* inGameTracker();

// Creates it unless there is one. Out of memory, there still is none afterwards.
void createInGameTracker();

}  // namespace android
