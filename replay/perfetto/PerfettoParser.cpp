// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/perfetto/PerfettoParser.h"

#include <google/protobuf/io/coded_stream.h>
#include <zlib.h>

#include <algorithm>
#include <optional>
#include <utility>

namespace corvane::replay {
namespace {

using google::protobuf::io::CodedInputStream;

// Snapshots read some ten clocks, statistics tell of some hundred writers; one that is larger is
// damaged, and would take many times its size in memory.
constexpr size_t kMaxSnapshot = 65'536;
constexpr size_t kMaxStats = 1U << 20U;
// Packets of a text of counters compress to a thirtieth; more than this is a bomb.
constexpr size_t kMaxRatio = 200;
constexpr size_t kUnpackedPiece = 65'536;
// The kernel's trace takes a page at most.
constexpr size_t kMaxPrint = 65'536;
// Recordings have some hundred writers.
constexpr size_t kMaxSequences = 10'000;
// A snapshot stands at every recording's beginning; marks wait for it only where that was
// overwritten.
constexpr size_t kMaxWaiting = 100'000;
constexpr size_t kMaxWaitingNames = 16U << 20U;
constexpr size_t kMaxLayerName = 4'096;
// The first snapshot tells all clocks; a trace in which many do not help is damaged.
constexpr size_t kMaxAttempts = 64;
// From here on clocks are not the system's but of those who write the trace.
constexpr uint32_t kFirstWriterClock = 64;

constexpr uint32_t kStateCleared = 1;
constexpr uint32_t kNeedsState = 2;

// FtraceEventBundle's fields.
enum BundleField : uint32_t {
    kEventField = 2,
    kLostField = 3,
    kClockField = 5,
    kFtraceTimeField = 6,
    kBootTimeField = 7
};
enum WireType : uint32_t { kVarint = 0, kFixed64 = 1, kBytes = 2, kFixed32 = 5 };

// What a bundle's events are timed with.
enum FtraceClock : uint32_t { kBoot = 0, kMonotonicRaw = 4 };

struct BundleHead {
    bool overran = false;
    uint32_t clock = kBoot;
    std::optional<int64_t> ftraceNs;  // both of one moment
    std::optional<int64_t> bootNs;
};

// Calls onNumber(field, value) and onBytes(field, start, size) for a message's fields; both say
// whether to go on. Returns whether the bytes are a message.
template <typename OnNumber, typename OnBytes>
bool walk(const std::string& bytes, OnNumber onNumber, OnBytes onBytes) {
    const auto* data = reinterpret_cast<const uint8_t*>(bytes.data());
    CodedInputStream in(data, static_cast<int>(bytes.size()));
    while (const uint32_t tag = in.ReadTag()) {
        uint64_t number = 0;
        uint32_t length = 0;
        switch (tag & 7U) {
            case kVarint:
                if (!in.ReadVarint64(&number) || !onNumber(tag >> 3U, number)) return false;
                break;
            case kFixed64:
                if (!in.Skip(8)) return false;
                break;
            case kFixed32:
                if (!in.Skip(4)) return false;
                break;
            case kBytes: {
                if (!in.ReadVarint32(&length)) return false;
                const int at = in.CurrentPosition();
                // A claim beyond the end does not even fit an int, perhaps.
                if (length > bytes.size() - static_cast<size_t>(at)) return false;
                if (!in.Skip(static_cast<int>(length))) return false;
                if (!onBytes(tag >> 3U, data + at, static_cast<int>(length))) return false;
                break;
            }
            default:
                return false;
        }
    }
    return in.ConsumedEntireMessage();
}

std::optional<int64_t> timeOf(uint64_t number) {
    if (number > static_cast<uint64_t>(ClockTable::kMaxTimeNs)) return std::nullopt;
    return static_cast<int64_t>(number);
}

template <typename Start>
void fillActual(const Start& start, FrameMark& mark) {
    mark.cookie = start.cookie();
    mark.token = start.token();
    mark.pid = start.pid();
    mark.present = start.present_type();
    mark.jank = start.jank_type();
}

std::optional<FrameMark> markOf(const proto::FrameTimelineEvent& event) {
    using Kind = FrameMark::Kind;
    FrameMark mark{};
    switch (event.event_case()) {
        case proto::FrameTimelineEvent::kExpectedDisplayFrameStart: {
            const auto& start = event.expected_display_frame_start();
            mark.kind = Kind::kExpectedDisplay;
            mark.cookie = start.cookie();
            mark.token = start.token();
            mark.pid = start.pid();
            return mark;
        }
        case proto::FrameTimelineEvent::kActualDisplayFrameStart:
            mark.kind = Kind::kActualDisplay;
            fillActual(event.actual_display_frame_start(), mark);
            return mark;
        case proto::FrameTimelineEvent::kExpectedSurfaceFrameStart: {
            const auto& start = event.expected_surface_frame_start();
            mark.kind = Kind::kExpectedSurface;
            mark.cookie = start.cookie();
            mark.token = start.token();
            mark.displayToken = start.display_frame_token();
            mark.pid = start.pid();
            mark.layer = start.layer_name();
            return mark;
        }
        case proto::FrameTimelineEvent::kActualSurfaceFrameStart: {
            const auto& start = event.actual_surface_frame_start();
            mark.kind = Kind::kActualSurface;
            fillActual(start, mark);
            mark.displayToken = start.display_frame_token();
            mark.layer = start.layer_name();
            mark.isBuffer = start.is_buffer();
            return mark;
        }
        case proto::FrameTimelineEvent::kFrameEnd:
            mark.kind = Kind::kEnd;
            mark.cookie = event.frame_end().cookie();
            return mark;
        case proto::FrameTimelineEvent::EVENT_NOT_SET:
            break;
    }
    return std::nullopt;
}

}  // namespace

PerfettoParser::PerfettoParser(PrintSink prints, FrameSink frames)
      : mFrames(std::move(frames)),
        mSorter(std::move(prints)),
        mStream([this](std::string_view packet) { outerPacket(packet); }) {}

void PerfettoParser::finish() {
    mStream.finish();
    resolveWaiting(true);
    mSorter.finish();
    mStats.oversizedPackets += mStream.oversized();
    mStats.cutShort = mStream.isCutShort();
    mStats.broken = mStream.isBroken();
    mStats.late = mSorter.late();
}

void PerfettoParser::outerPacket(std::string_view bytes) {
    if (!mOuter.ParseFromArray(bytes.data(), static_cast<int>(bytes.size())) || !read(mOuter)) {
        ++mStats.damagedPackets;
    }
    if (mOuter.has_compressed_packets()) unpack(mOuter.compressed_packets());
}

// Compressed packets within compressed ones are not looked into; nobody writes them.
void PerfettoParser::unpack(const std::string& compressed) {
    PacketStream stream([this](std::string_view bytes) {
        if (!mInner.ParseFromArray(bytes.data(), static_cast<int>(bytes.size())) || !read(mInner)) {
            ++mStats.damagedPackets;
        }
    });
    z_stream zlib{};
    if (inflateInit(&zlib) != Z_OK) {
        ++mStats.damagedPackets;
        return;
    }
    // zlib's interface is older than const.
    zlib.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(compressed.data()));
    zlib.avail_in = static_cast<uInt>(compressed.size());
    std::vector<Bytef> piece(kUnpackedPiece);
    int result = Z_OK;
    while (result == Z_OK && zlib.total_out / kMaxRatio <= compressed.size()) {
        zlib.next_out = piece.data();
        zlib.avail_out = static_cast<uInt>(piece.size());
        result = inflate(&zlib, Z_NO_FLUSH);
        stream.feed({reinterpret_cast<const char*>(piece.data()), piece.size() - zlib.avail_out});
    }
    inflateEnd(&zlib);
    stream.finish();
    if (result != Z_STREAM_END || stream.isCutShort() || stream.isBroken()) ++mStats.damagedPackets;
    mStats.oversizedPackets += stream.oversized();
}

PerfettoParser::Sequence& PerfettoParser::sequenceOf(const proto::TracePacket& packet) {
    const uint32_t id = packet.trusted_packet_sequence_id();
    const auto entry = mSequences.find(id);
    if (entry != mSequences.end()) return entry->second;
    // Only a damaged trace has that many: it loses what was known of them.
    if (mSequences.size() >= kMaxSequences) mSequences.clear();
    return mSequences[id];
}

// Returns whether the packet's own messages are well-formed.
bool PerfettoParser::read(const proto::TracePacket& packet) {
    if (!packet.has_compressed_packets()) ++mStats.packets;
    const uint32_t id = packet.trusted_packet_sequence_id();
    Sequence& sequence = sequenceOf(packet);
    if (packet.previous_packet_dropped() != 0 && !packet.first_packet_on_sequence()) {
        ++mStats.droppedBefore;
        sequence.hasState = false;
        mClocks.forgetIncrements(id);
    }
    if ((packet.sequence_flags() & kStateCleared) != 0) sequence = {true, kBootClock};
    if (packet.trace_packet_defaults().has_timestamp_clock_id()) {
        sequence.clock = packet.trace_packet_defaults().timestamp_clock_id();
    }
    if ((packet.sequence_flags() & kNeedsState) != 0 && !sequence.hasState) {
        ++mStats.withoutState;
        return true;
    }
    if (packet.has_clock_snapshot()) {
        proto::ClockSnapshot snapshot;
        if (packet.clock_snapshot().size() > kMaxSnapshot ||
            !snapshot.ParseFromString(packet.clock_snapshot())) {
            return false;
        }
        mClocks.add(snapshot, id);
        if (!mWaiting.empty() && ++mAttempts <= kMaxAttempts) resolveWaiting(false);
    }
    if (packet.has_trace_stats()) readStats(packet.trace_stats());
    if (packet.has_ftrace_events()) readBundle(packet.ftrace_events());
    const uint32_t clock =
            packet.has_timestamp_clock_id() ? packet.timestamp_clock_id() : sequence.clock;
    if (packet.has_frame_timeline_event()) {
        readFrame(packet, clock);
    } else if (packet.has_timestamp() && clock != kBootClock) {
        mClocks.toBoot(clock, id, packet.timestamp());  // moves an incremental clock on
    }
    return true;
}

// Statistics count from the recording's beginning; the last ones hold.
void PerfettoParser::readStats(const std::string& bytes) {
    proto::TraceStats stats;
    if (bytes.size() > kMaxStats || !stats.ParseFromString(bytes)) {
        ++mStats.damagedPackets;
        return;
    }
    mStats.overwrittenChunks = 0;
    mStats.writerLosses = 0;
    for (const auto& buffer : stats.buffer_stats()) {
        mStats.overwrittenChunks += buffer.chunks_overwritten();
        mStats.writerLosses += buffer.trace_writer_packet_loss();
    }
}

void PerfettoParser::readBundle(const std::string& bytes) {
    BundleHead head;
    const auto onNumber = [&](uint32_t field, uint64_t number) {
        if (field == kLostField && number != 0) head.overran = true;
        if (field == kClockField) head.clock = static_cast<uint32_t>(number);
        if (field == kFtraceTimeField) head.ftraceNs = timeOf(number);
        if (field == kBootTimeField) head.bootNs = timeOf(number);
        return true;
    };
    size_t events = 0;
    const auto count = [&](uint32_t field, const uint8_t*, int) {
        events += field == kEventField ? 1 : 0;
        return true;
    };
    bool intact = walk(bytes, onNumber, count);
    if (head.overran) ++mStats.overranBundles;
    mStats.ftraceEvents += events;
    // Boot time runs on while the phone sleeps; within a bundle both clocks go alike.
    int64_t toBootNs = 0;
    if (head.clock != kBoot && head.ftraceNs && head.bootNs) {
        toBootNs = *head.bootNs - *head.ftraceNs;
        head.clock = kBoot;
    }
    if (head.clock != kBoot && head.clock != kMonotonicRaw) {
        mStats.unknownClocks += events;
        return;
    }
    const auto ignore = [](uint32_t, uint64_t) { return true; };
    const auto read = [&](uint32_t field, const uint8_t* data, int size) {
        if (field == kEventField && !readEvent(data, size, head.clock, toBootNs)) intact = false;
        return true;
    };
    walk(bytes, ignore, read);
    if (!intact) ++mStats.damagedPackets;
}

// Returns whether it is one.
bool PerfettoParser::readEvent(const void* bytes, int size, uint32_t ftraceClock,
                               int64_t toBootNs) {
    if (!mEvent.ParseFromArray(bytes, size)) return false;
    if (!mEvent.has_print()) return true;
    ++mStats.prints;
    std::string_view text = mEvent.print().buf();
    if (text.size() > kMaxPrint) return false;
    while (!text.empty() && (text.back() == '\n' || text.back() == '\0')) text.remove_suffix(1);
    auto timeNs = timeOf(mEvent.timestamp());
    if (ftraceClock == kMonotonicRaw) {
        timeNs = mClocks.toBoot(kMonotonicRawClock, 0, mEvent.timestamp());
        if (!timeNs) {
            ++mStats.unknownClocks;
            return true;
        }
    }
    if (!mEvent.has_timestamp() || !timeNs || *timeNs + toBootNs < 0 ||
        *timeNs + toBootNs > ClockTable::kMaxTimeNs) {
        ++mStats.impossibleTimes;
        return true;
    }
    mSorter.add({*timeNs + toBootNs, static_cast<int>(mEvent.pid()), text});
    return true;
}

void PerfettoParser::readFrame(const proto::TracePacket& packet, uint32_t clock) {
    auto mark = markOf(packet.frame_timeline_event());
    if (!mark) return;
    ++mStats.frameMarks;
    if (!packet.has_timestamp() || mark->layer.size() > kMaxLayerName) {
        ++mStats.impossibleTimes;
        return;
    }
    const uint32_t sequence = packet.trusted_packet_sequence_id();
    if (const auto timeNs = mClocks.toBoot(clock, sequence, packet.timestamp())) {
        mark->timeNs = *timeNs;
        mFrames(*mark);
    } else if (clock < kFirstWriterClock && mWaiting.size() < kMaxWaiting &&
               mWaitingNames < kMaxWaitingNames) {
        mWaiting.push_back({clock, sequence, packet.timestamp(), *mark, std::string(mark->layer)});
        mWaitingNames += mark->layer.size();
    } else {
        ++mStats.unknownClocks;
    }
}

// Hands on the marks whose clock is known by now. At the end, a trace without any snapshot can be
// used if one clock times all of it.
void PerfettoParser::resolveWaiting(bool atEnd) {
    const bool oneClock = atEnd && mStats.frameMarks == mWaiting.size() && mStats.prints == 0 &&
                          std::all_of(mWaiting.begin(), mWaiting.end(), [&](const auto& waiting) {
                              return waiting.clock == mWaiting.front().clock;
                          });
    std::vector<WaitingMark> waiting = std::exchange(mWaiting, {});
    mWaitingNames = 0;
    for (auto& entry : waiting) {
        const auto timeNs = oneClock ? timeOf(entry.timestamp)
                                     : mClocks.toBoot(entry.clock, entry.sequence, entry.timestamp);
        if (timeNs) {
            entry.mark.timeNs = *timeNs;
            entry.mark.layer = entry.layer;
            mFrames(entry.mark);
        } else if (atEnd) {
            ++mStats.unknownClocks;
        } else {
            mWaitingNames += entry.layer.size();
            mWaiting.push_back(std::move(entry));
        }
    }
}

}  // namespace corvane::replay
