// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/Terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>

namespace corvane::replay {
namespace {

std::string_view environment(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

}  // namespace

Terminal terminalOf(int fd) {
    Terminal terminal;
    if (isatty(fd) == 0) return terminal;
    terminal.styled = environment("NO_COLOR").empty() && environment("TERM") != "dumb";
    winsize size{};
    // A terminal that does not know its size says 0.
    if (ioctl(fd, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
        terminal.width = std::max<size_t>(size.ws_col, Terminal::kMinWidth);
    }
    return terminal;
}

}  // namespace corvane::replay
