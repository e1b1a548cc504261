// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "layers/InGameTracker.h"

namespace android {

// The application process's tracker, null until one is created. Each stays valid for the life of
// the process, also once another one has taken its place.
InGameTracker* inGameTracker();

// Creates one unless there is one. Out of memory, there still is none afterwards.
void createInGameTracker();

// Puts a new one, which has measured nothing, in the place of what there is. Out of memory, there
// is none afterwards.
void replaceInGameTracker();

}  // namespace android
