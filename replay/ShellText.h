// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

namespace corvane::replay {

// One word as a shell takes it.
std::string shellQuoted(const std::string& word);

}  // namespace corvane::replay
