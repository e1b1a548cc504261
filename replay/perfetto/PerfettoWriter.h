// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "replay/FrameMark.h"
#include "replay/Track.h"
#include "replay/perfetto/PrintSorter.h"
#include "replay/perfetto/trace.pb.h"

namespace corvane::replay {

// Writes a Perfetto trace, packet by packet. All times are of the boot clock, the format's default,
// so that no snapshot of clocks is needed. Used from one thread.
class PerfettoWriter {
  public:
    using Out = std::function<void(std::string_view)>;

    explicit PerfettoWriter(Out out) : mOut(std::move(out)) {}

    // What a thread wrote to the kernel's trace; written in bundles.
    void print(const Print& print);
    void frame(const FrameMark& mark);
    // What a thread of this process is called.
    void thread(int tid, int pid, std::string_view name);
    // Rows that viewers show in this order.
    void tracks(const std::vector<Track>& tracks);
    // Writes what is left of a bundle.
    void finish();

  private:
    void write(proto::TracePacket& packet);
    void writeEvent(int64_t timeNs, const proto::TrackEvent& event);
    void describe(const Track& track, uint64_t uuid, uint64_t parent, int rank);
    void writeSlices(const Track& track, uint64_t uuid, uint64_t parent, int rank);

    const Out mOut;
    proto::FtraceEventBundle mBundle;
    size_t mBundleText = 0;
    uint64_t mLastUuid = 0;
    bool mAnyPacket = false;
};

}  // namespace corvane::replay
