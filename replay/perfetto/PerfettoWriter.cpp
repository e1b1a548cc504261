// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/perfetto/PerfettoWriter.h"

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>

#include <algorithm>
#include <utility>

namespace corvane::replay {
namespace {

// Small, so that a file that is cut short loses little.
constexpr size_t kMaxBundleText = 8'192;
// We write alone, so one sequence does.
constexpr uint32_t kSequence = 1;
constexpr uint32_t kStateCleared = 1;
constexpr uint32_t kPacketTag = 1U << 3U | 2U;

template <typename Start>
void fillDisplay(const FrameMark& mark, Start& start) {
    start.set_cookie(mark.cookie);
    start.set_token(mark.token);
    start.set_pid(mark.pid);
}

template <typename Start>
void fillSurface(const FrameMark& mark, Start& start) {
    fillDisplay(mark, start);
    start.set_display_frame_token(mark.displayToken);
    start.set_layer_name(std::string(mark.layer));
}

template <typename Start>
void fillActual(const FrameMark& mark, Start& start) {
    start.set_present_type(mark.present);
    start.set_jank_type(mark.jank);
}

proto::TrackEvent eventOf(uint64_t uuid, proto::TrackEvent::Type type) {
    proto::TrackEvent event;
    event.set_track_uuid(uuid);
    event.set_type(type);
    return event;
}

}  // namespace

void PerfettoWriter::print(const Print& print) {
    auto& event = *mBundle.add_event();
    event.set_timestamp(static_cast<uint64_t>(print.timeNs));
    event.set_pid(static_cast<uint32_t>(print.tid));
    event.mutable_print()->set_buf(std::string(print.text) + "\n");
    mBundleText += print.text.size();
    if (mBundleText >= kMaxBundleText) finish();
}

void PerfettoWriter::finish() {
    if (mBundle.event_size() == 0) return;
    mBundle.set_cpu(0);
    proto::TracePacket packet;
    packet.set_ftrace_events(mBundle.SerializeAsString());
    write(packet);
    mBundle.Clear();
    mBundleText = 0;
}

void PerfettoWriter::frame(const FrameMark& mark) {
    proto::TracePacket packet;
    packet.set_timestamp(static_cast<uint64_t>(mark.timeNs));
    auto& event = *packet.mutable_frame_timeline_event();
    switch (mark.kind) {
        case FrameMark::Kind::kExpectedDisplay:
            fillDisplay(mark, *event.mutable_expected_display_frame_start());
            break;
        case FrameMark::Kind::kActualDisplay:
            fillDisplay(mark, *event.mutable_actual_display_frame_start());
            fillActual(mark, *event.mutable_actual_display_frame_start());
            break;
        case FrameMark::Kind::kExpectedSurface:
            fillSurface(mark, *event.mutable_expected_surface_frame_start());
            break;
        case FrameMark::Kind::kActualSurface:
            fillSurface(mark, *event.mutable_actual_surface_frame_start());
            fillActual(mark, *event.mutable_actual_surface_frame_start());
            event.mutable_actual_surface_frame_start()->set_is_buffer(mark.isBuffer);
            break;
        case FrameMark::Kind::kEnd:
            event.mutable_frame_end()->set_cookie(mark.cookie);
            break;
    }
    write(packet);
}

void PerfettoWriter::thread(int tid, int pid, std::string_view name) {
    proto::ProcessTree tree;
    auto& thread = *tree.add_threads();
    thread.set_tid(tid);
    thread.set_name(std::string(name));
    thread.set_tgid(pid);
    proto::TracePacket packet;
    packet.set_process_tree(tree.SerializeAsString());
    write(packet);
}

void PerfettoWriter::tracks(const std::vector<Track>& tracks) {
    std::vector<uint64_t> uuids;
    for (const auto& track : tracks) {
        const uint64_t uuid = ++mLastUuid;
        const uint64_t parent = track.parent ? uuids[*track.parent] : 0;
        const auto rank = static_cast<int>(uuids.size());
        uuids.push_back(uuid);
        describe(track, uuid, parent, rank);
        writeSlices(track, uuid, parent, rank);
        for (const auto& mark : track.marks) {
            auto event = eventOf(uuid, proto::TrackEvent::TYPE_INSTANT);
            event.set_name(mark.name);
            writeEvent(mark.timeNs, event);
        }
        for (const auto& value : track.values) {
            auto event = eventOf(uuid, proto::TrackEvent::TYPE_COUNTER);
            event.set_double_counter_value(value.value);
            writeEvent(value.timeNs, event);
        }
    }
}

void PerfettoWriter::describe(const Track& track, uint64_t uuid, uint64_t parent, int rank) {
    proto::TrackDescriptor descriptor;
    descriptor.set_uuid(uuid);
    descriptor.set_name(track.name);
    if (parent != 0) descriptor.set_parent_uuid(parent);
    descriptor.set_child_ordering(proto::TrackDescriptor::EXPLICIT);
    descriptor.set_sibling_order_rank(rank);
    if (!track.values.empty()) {
        auto& counter = *descriptor.mutable_counter();
        if (track.unit == Track::Unit::kNs) {
            counter.set_unit(proto::TrackDescriptor::CounterDescriptor::UNIT_TIME_NS);
        }
        if (track.unit == Track::Unit::kCount) {
            counter.set_unit(proto::TrackDescriptor::CounterDescriptor::UNIT_COUNT);
        }
    }
    proto::TracePacket packet;
    packet.set_track_descriptor(descriptor.SerializeAsString());
    write(packet);
}

// The format nests a track's slices. Those that overlap go to further tracks of the same name,
// which viewers show as one row.
void PerfettoWriter::writeSlices(const Track& track, uint64_t uuid, uint64_t parent, int rank) {
    struct Lane {
        uint64_t uuid;
        int64_t endNs;
    };
    std::vector<Lane> lanes = {{uuid, INT64_MIN}};
    std::vector<const Track::Slice*> slices;
    for (const auto& slice : track.slices) slices.push_back(&slice);
    std::stable_sort(slices.begin(), slices.end(),
                     [](const auto* a, const auto* b) { return a->beginNs < b->beginNs; });
    for (const auto* slice : slices) {
        auto lane = std::find_if(lanes.begin(), lanes.end(),
                                 [&](const Lane& l) { return l.endNs <= slice->beginNs; });
        if (lane == lanes.end()) {
            Track further;
            further.name = track.name;
            describe(further, ++mLastUuid, parent, rank);
            lane = lanes.insert(lane, {mLastUuid, INT64_MIN});
        }
        lane->endNs = std::max(slice->beginNs, slice->endNs);
        auto event = eventOf(lane->uuid, proto::TrackEvent::TYPE_SLICE_BEGIN);
        event.set_name(slice->name);
        writeEvent(slice->beginNs, event);
        writeEvent(lane->endNs, eventOf(lane->uuid, proto::TrackEvent::TYPE_SLICE_END));
    }
}

void PerfettoWriter::writeEvent(int64_t timeNs, const proto::TrackEvent& event) {
    proto::TracePacket packet;
    packet.set_timestamp(static_cast<uint64_t>(timeNs));
    packet.set_track_event(event.SerializeAsString());
    write(packet);
}

void PerfettoWriter::write(proto::TracePacket& packet) {
    packet.set_trusted_packet_sequence_id(kSequence);
    if (!std::exchange(mAnyPacket, true)) {
        packet.set_sequence_flags(kStateCleared);
        packet.set_first_packet_on_sequence(true);
    }
    std::string bytes;
    {
        google::protobuf::io::StringOutputStream stream(&bytes);
        google::protobuf::io::CodedOutputStream out(&stream);
        out.WriteTag(kPacketTag);
        out.WriteVarint32(static_cast<uint32_t>(packet.ByteSizeLong()));
        packet.SerializeWithCachedSizes(&out);
    }
    mOut(bytes);
}

}  // namespace corvane::replay
