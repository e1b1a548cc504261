// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "explore/Story.h"

namespace corvane::explore {

// One per file of this folder.
void heldBuffer();
void additionalDelay();
void frameRescue();
void timerQueue();
void boostWorker();
void hooks();
void scenes();
void switching();
void activitySwitches();
void applicationInits();
void rateSwitches();
void heavyFrames();

}  // namespace corvane::explore
