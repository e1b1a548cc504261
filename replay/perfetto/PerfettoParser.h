// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "replay/FrameMark.h"
#include "replay/perfetto/ClockTable.h"
#include "replay/perfetto/PacketStream.h"
#include "replay/perfetto/PrintSorter.h"
#include "replay/perfetto/trace.pb.h"

namespace corvane::replay {

// What was in a trace, and what could not be used, by reason.
struct PerfettoStats {
    size_t packets = 0;       // compressed ones by what they hold
    size_t ftraceEvents = 0;  // of any kind
    size_t prints = 0;        // of these, what processes wrote
    size_t frameMarks = 0;
    size_t damagedPackets =
            0;  // that are no such message, or compressed ones that cannot be unpacked
    size_t oversizedPackets = 0;
    size_t unknownClocks = 0;  // events of a clock that no snapshot ties to the trace's
    size_t impossibleTimes = 0;
    size_t withoutState = 0;  // packets that build on one that was lost
    size_t late = 0;          // prints far out of time's order
    // What the trace itself says was lost while it was recorded.
    size_t overranBundles = 0;       // before which the kernel's buffer overran
    size_t droppedBefore = 0;        // packets before which others were dropped
    uint64_t overwrittenChunks = 0;  // when the recorder's buffer was full
    uint64_t writerLosses = 0;       // packets that found no room
    bool cutShort = false;
    bool broken = false;  // nothing was read behind some byte
};

// Reads a Perfetto trace, which comes in pieces of any size, and hands on what processes wrote to
// the kernel's trace, in time's order, and the compositor's frame timeline, in the trace's; all
// times are of the boot clock.
//
// The bytes may be anything at all: what is damaged is counted and passed over. Memory does not
// grow with the trace: kMaxMemory is never exceeded. Used from one thread.
class PerfettoParser {
  public:
    // A packet and its copies, the same for the compressed packets within, the sorter's window, the
    // clocks' readings and the marks that wait for one.
    static constexpr size_t kMaxMemory = 256U << 20U;

    using PrintSink = std::function<void(const Print&)>;
    using FrameSink = std::function<void(const FrameMark&)>;

    PerfettoParser(PrintSink prints, FrameSink frames);

    void feed(std::string_view piece) { mStream.feed(piece); }
    // No more pieces come.
    void finish();

    const PerfettoStats& stats() const { return mStats; }

  private:
    // A sequence is what one writer of packets wrote.
    struct Sequence {
        bool hasState = false;
        uint32_t clock = kBootClock;
    };
    // Of a clock that no snapshot told of yet.
    struct WaitingMark {
        uint32_t clock;
        uint32_t sequence;
        uint64_t timestamp;
        FrameMark mark;
        std::string layer;
    };

    void outerPacket(std::string_view bytes);
    void unpack(const std::string& compressed);
    bool read(const proto::TracePacket& packet);
    Sequence& sequenceOf(const proto::TracePacket& packet);
    void readStats(const std::string& bytes);
    void readBundle(const std::string& bytes);
    bool readEvent(const void* bytes, int size, uint32_t ftraceClock, int64_t toBootNs);
    void readFrame(const proto::TracePacket& packet, uint32_t clock);
    void resolveWaiting(bool atEnd);

    const FrameSink mFrames;
    PrintSorter mSorter;
    PacketStream mStream;
    ClockTable mClocks;
    std::map<uint32_t, Sequence> mSequences;
    std::vector<WaitingMark> mWaiting;
    size_t mWaitingNames = 0;  // bytes
    size_t mAttempts = 0;      // to find their clocks in a later snapshot
    // Kept, so that their memory is used again.
    proto::TracePacket mOuter, mInner;
    proto::FtraceEvent mEvent;
    PerfettoStats mStats;
};

}  // namespace corvane::replay
