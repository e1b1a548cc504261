// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <chrono>

namespace corvane::host {

// How long a test's wait for something that must happen lasts, in real time, before it fails.
constexpr std::chrono::seconds kWaitLimit{10};

}  // namespace corvane::host
