// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <string>

#include "replay/Recording.h"

namespace corvane::replay {

// What a recording holds, for a person who has not played it: layers and their packages, the
// display's rates with what told them, and the counters. Lines of at most `width` columns, except
// for the names that are to be copied.
std::string listReport(const Recording& recording, const std::string& file, size_t width);

}  // namespace corvane::replay
