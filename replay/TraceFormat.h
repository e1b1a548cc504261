// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <string_view>

namespace corvane::replay {

// Whether the file that begins like this is a trace in Perfetto's own format.
bool isPerfetto(std::string_view head);

// What a file is whose trace must be converted first, and the command that does it, as the end of a
// sentence that begins with the file's name; empty where that is not needed. `head` is the file's
// beginning.
std::string conversionOf(std::string_view head, const std::string& path);

}  // namespace corvane::replay
