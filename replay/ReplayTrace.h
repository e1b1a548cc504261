// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <vector>

#include "replay/LibraryTrace.h"
#include "replay/Report.h"
#include "replay/Track.h"

namespace corvane::replay {

// What a viewer shows of a replay, on the time base of the library's own trace.

// The recording's vsyncs and counters, as the replayed phone's compositor would write them; a
// recording can be made of them again. And the library's trace.
std::vector<StoredEvent> replayEvents(const ReportSource& source, const LibraryTrace& trace);

// What the library did, as rows: the display, each layer's with what became of its buffers, the
// calls to the service.
std::vector<Track> replayTracks(const ReportSource& source, const LibraryTrace& trace);

}  // namespace corvane::replay
