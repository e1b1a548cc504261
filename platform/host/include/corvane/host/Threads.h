// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <memory>
#include <thread>

namespace corvane::host {

#define CORVANE_EXPORT __attribute__((visibility("default")))

// Lets the next `count` std::thread constructions of the library, and of a test that is linked with
// its objects, fail as an exhausted system would (std::system_error, EAGAIN). 0 ends it.
CORVANE_EXPORT void failThreadCreation(int count);

// For the wraps of the library: whether this construction is one of those, and what std::thread's
// constructors do when it is none. Takes the place of std::thread::_M_start_thread().
CORVANE_EXPORT bool takeThreadFailure();
CORVANE_EXPORT void startSimulatedThread(std::thread* thread,
                                         std::unique_ptr<std::thread::_State> state,
                                         void (*depend)());

#undef CORVANE_EXPORT

}  // namespace corvane::host
