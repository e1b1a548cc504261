// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>

namespace corvane::replay {

// What a report may make use of where it is printed.
struct Terminal {
    // Of a page, where there is no terminal.
    static constexpr size_t kDefaultWidth = 100;
    // Narrower, the columns of numbers alone do not fit; the terminal then breaks the lines.
    static constexpr size_t kMinWidth = 80;

    size_t width = kDefaultWidth;  // columns
    bool styled = false;           // it understands and the user wants bold text
};

// The terminal behind a descriptor. NO_COLOR and TERM=dumb switch styles off.
Terminal terminalOf(int fd);

}  // namespace corvane::replay
