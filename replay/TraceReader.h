// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "replay/FrameMark.h"
#include "replay/FtraceParser.h"

namespace corvane::replay {

class PerfettoParser;

// Reads one trace file, block by block, and tells its format by its content: ftrace text, the same
// within a viewer's page, or Perfetto's packets, each also packed by gzip. Used from one thread.
class TraceReader {
  public:
    using EventSink = FtraceParser::Sink;
    using FrameSink = std::function<void(const FrameMark&)>;

    // Frames come from Perfetto traces only.
    TraceReader(EventSink events, FrameSink frames);
    ~TraceReader();
    TraceReader(const TraceReader&) = delete;
    TraceReader& operator=(const TraceReader&) = delete;

    // Reading ends with this error once `isReached` says so; it is asked after each block.
    void setLimit(std::function<bool()> isReached, std::string error);

    // Reads the file; "-" is the standard input. Returns why it is not usable, as the end of a
    // sentence that begins with its name, or an empty text. To be called once.
    std::string read(const std::string& path);

    // After read():
    bool isPerfetto() const { return mPackets != nullptr; }
    // A Perfetto trace's ftrace events and frames count as lines.
    const ParseStats& stats() const { return mStats; }
    // What was lost or could not be used, by reason, a sentence each.
    std::vector<std::string> notes() const;
    // What a Perfetto trace without what a recording needs lacks, and how to record it; continues a
    // sentence. Empty for another format.
    std::string missing() const;

  private:
    std::string take(const std::string& path, std::string_view block);
    std::string takeText(std::string_view block);
    void openPackets();
    void finish();

    const EventSink mEvents;
    const FrameSink mFrames;
    std::function<bool()> mIsLimitReached = [] { return false; };
    std::string mLimitError;
    FtraceParser mText;
    std::unique_ptr<PerfettoParser> mPackets;
    size_t mDamagedMarkers = 0;  // in packets
    ParseStats mStats;
    uint64_t mSize = 0;
    bool mPackedIsCutShort = false;
};

}  // namespace corvane::replay
