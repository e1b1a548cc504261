// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>

namespace corvane::replay {

// One atrace marker of a trace. `name` points into the parsed text.
struct TraceEvent {
    enum class Kind { kCounter, kBegin, kEnd, kAsyncBegin, kAsyncEnd };

    Kind kind;
    int64_t timeNs;
    int tid;                // the thread that wrote the line
    int pid;                // the process that the marker names; 0 when it names none
    std::string_view name;  // empty for kEnd
    int64_t value;          // the counter's value, or the cookie of an asynchronous slice
};

struct ParseStats {
    size_t lines = 0;    // neither blank nor comment
    size_t ftrace = 0;   // of these, well-formed ftrace lines of any kind
    size_t damaged = 0;  // of these, skipped as damaged
};

// Reads ftrace text as atrace, systrace (plain or inside its .html) and `traceconv systrace` write
// it, with or without the TGID column, and hands every atrace marker to `sink` in the text's order.
//
// The text may be anything at all. A line that is not well-formed is counted and skipped; a
// well-formed line of another event (a scheduler switch, say) is skipped and not counted as
// damaged. One pass over the text; no allocation.
ParseStats parseFtrace(std::string_view text, const std::function<void(const TraceEvent&)>& sink);

}  // namespace corvane::replay
