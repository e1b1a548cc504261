// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace corvane::replay {

// One atrace marker of a trace. Its texts are valid until the sink returns.
struct TraceEvent {
    enum class Kind { kCounter, kBegin, kEnd, kAsyncBegin, kAsyncEnd };

    Kind kind;
    int64_t timeNs;
    int tid;                     // the thread that wrote the line
    int pid;                     // the process that the marker names; 0 when it names none
    std::string_view name;       // empty for kEnd
    int64_t value;               // the counter's value, or the cookie of an asynchronous slice
    std::string_view task = {};  // the thread's name, where the trace tells it
};

enum class Marker { kEvent, kOther, kDamaged };

// Reads the text of a marker, as a process writes it to the kernel's trace: "B|pid|name", "E|pid",
// "C|pid|name|value", "S" and "F" for asynchronous slices. Sets of `event`, which is a kEnd of
// no process before, what the text tells.
Marker parseMarker(std::string_view text, TraceEvent& event);

// The text of which parseMarker() makes this event.
std::string markerText(const TraceEvent& event);

}  // namespace corvane::replay
