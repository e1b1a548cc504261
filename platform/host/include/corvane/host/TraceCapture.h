// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <string>

namespace corvane::host {

// Writes the process's atrace events to a file as ftrace text, the format that Perfetto's UI and
// traceconv open. Off until started; the enabled-tags test then costs one load.

// Starts writing to `path`, with these tag bits enabled. False when the file cannot be created.
bool startTrace(const std::string& path, uint64_t tags);

// Completes the file and switches tracing off. Returns the errno of the first write that failed
// since the start, 0 when the file has everything or tracing is off.
int stopTrace();

}  // namespace corvane::host
