// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <string>

namespace corvane::replay {

// Sleeps until CLOCK_MONOTONIC reaches this time; returns at once when it has passed.
void sleepUntil(int64_t deadlineNs);

// Names the calling thread and lets it keep a timeline as exactly as the system allows.
void enterTimelineThread(const std::string& name);

}  // namespace corvane::replay
