// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <zlib.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "replay/FrameMark.h"
#include "replay/Marker.h"
#include "replay/Track.h"

namespace corvane::replay {

class PerfettoWriter;

enum class TraceFormat { kText, kPage, kPerfetto };

// The format that a file's ending names, ".gz" left aside: .txt, .html, .pftrace or
// .perfetto-trace.
std::optional<TraceFormat> formatOfName(std::string_view path);

// Writes a trace file as it comes; gzip packs it where its name ends in ".gz". Throws Stop when the
// file cannot be written. Used from one thread.
class TraceFileWriter {
  public:
    // Empties the file or creates it; "-" is the standard output.
    TraceFileWriter(std::string path, TraceFormat format);
    ~TraceFileWriter();
    TraceFileWriter(const TraceFileWriter&) = delete;
    TraceFileWriter& operator=(const TraceFileWriter&) = delete;

    void event(const TraceEvent& event);
    // Text has no form for these: they are left out of it and counted.
    void frame(const FrameMark& mark);
    // All of these events in time's order, and the rows, which text has as further events.
    void write(std::vector<StoredEvent> events, const std::vector<Track>& tracks);
    // Writes what is left and closes the file.
    void finish();

    size_t framesLeftOut() const { return mFramesLeftOut; }

  private:
    void writeBytes(std::string_view bytes);
    void nameThread(const TraceEvent& event);
    [[noreturn]] void fail();

    const std::string mPath;
    const TraceFormat mFormat;
    gzFile mFile = nullptr;
    std::unique_ptr<PerfettoWriter> mPackets;
    std::set<int> mNamedThreads;
    size_t mFramesLeftOut = 0;
};

}  // namespace corvane::replay
