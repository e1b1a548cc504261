// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

namespace corvane::host {

// Lets the next `count` std::thread constructions of the library, and of a test that is linked with
// its objects, fail as an exhausted system would (std::system_error, EAGAIN). 0 ends it.
void failThreadCreation(int count);

}  // namespace corvane::host
