// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

namespace corvane::replay {

// Exit statuses. One that a signal ended has 128 and the signal's number, as a shell reports it.
constexpr int kPlayed = 0;
constexpr int kFailed = 1;
constexpr int kUnusable = 2;
constexpr int kLimitExceeded = 3;  // a --fail-if holds
constexpr int kSignalled = 128;

// Thrown to end the program with one sentence.
struct Stop {
    int status;
    std::string sentence;
};

}  // namespace corvane::replay
