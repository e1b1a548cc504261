// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <atomic>
#include <cstdint>
#include <string>

namespace corvane::replay {

// Sleeps until CLOCK_MONOTONIC reaches this time; returns at once when it has passed.
void sleepUntil(int64_t deadlineNs);

// The same, but returns early, within a tenth of a second, once `stopped` is set; that may be done
// in a signal handler.
void sleepUntil(int64_t deadlineNs, const std::atomic<bool>& stopped);

// Names the calling thread and lets it keep a timeline as exactly as the system allows.
void enterTimelineThread(const std::string& name);

// Whether a thread that entered was refused real-time priority, which users other than root are.
bool isRealTimeRefused();

}  // namespace corvane::replay
