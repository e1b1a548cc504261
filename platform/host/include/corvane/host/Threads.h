// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

namespace corvane::host {

// Lets the library's next `count` std::thread constructions fail as an exhausted system would
// (std::system_error, EAGAIN). 0 ends it.
void failThreadCreation(int count);

}  // namespace corvane::host
