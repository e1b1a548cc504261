// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

#include "replay/Marker.h"

namespace corvane::replay {

struct ParseStats {
    size_t lines = 0;       // neither blank nor comment, nor before the trace begins
    size_t ftrace = 0;      // of these, well-formed ftrace lines of any kind
    size_t damaged = 0;     // of these, skipped as damaged
    size_t lostEvents = 0;  // that the kernel says it had no room for
};

// Reads ftrace text as atrace, systrace (plain or inside its .html) and `traceconv systrace` write
// it, with or without the TGID column, and hands every atrace marker to `sink` in the text's order.
//
// The text may be anything at all, and comes in pieces of any size. A line that is not well-formed
// is counted and skipped; a well-formed line of another event (a scheduler switch, say) is skipped
// and not counted as damaged. Neither is what a recording tool says before the trace begins, nor a
// page's own text and scripts. One pass over the text; no more than the longest line is kept.
class FtraceParser {
  public:
    using Sink = std::function<void(const TraceEvent&)>;

    explicit FtraceParser(Sink sink) : mSink(std::move(sink)) {}

    void feed(std::string_view piece);
    // No more pieces come.
    void finish();

    const ParseStats& stats() const { return mStats; }

  private:
    // Where in the text the next line stands.
    enum class Place {
        kText,        // a trace's own text
        kPage,        // a viewer's page, outside of its traces
        kPageTrace,   // a section of the page that holds an agent's trace
        kScriptTrace  // the same as the first viewers had it: a text of their script, line by line
    };

    void keepRest(std::string_view text);
    void line(std::string_view text);
    void textLine(std::string_view text);
    void pageLine(std::string_view text);
    void pageTraceLine(std::string_view text);
    void scriptTraceLine(std::string_view text);
    bool traceLine(std::string_view text);

    const Sink mSink;
    ParseStats mStats;
    Place mPlace = Place::kText;
    bool mAnyLine = false;   // one that is not blank was seen
    bool mBegun = false;     // the trace at this place has begun
    bool mOverlong = false;  // the kept line lost its beginning
    std::string mRest;       // a line whose end has not come yet
};

// The same for a text that is there as a whole.
ParseStats parseFtrace(std::string_view text, const FtraceParser::Sink& sink);

}  // namespace corvane::replay
