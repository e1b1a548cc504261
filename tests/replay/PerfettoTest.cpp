// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "replay/TextTable.h"
#include "replay/perfetto/PerfettoParser.h"
#include "replay/perfetto/PerfettoWriter.h"

namespace corvane::replay {
namespace {

constexpr uint32_t kOwnClock = 64;  // of a writer's, incremental, in microseconds

// Messages byte by byte: fields by their numbers, which hold a number or bytes.
std::string varint(uint64_t value) {
    std::string text;
    for (; value >= 0x80; value >>= 7U) text += static_cast<char>(value | 0x80U);
    return text + static_cast<char>(value);
}
std::string number(uint64_t field, uint64_t value) {
    return varint(field << 3U) + varint(value);
}
std::string bytes(uint64_t field, const std::string& value) {
    return varint(field << 3U | 2U) + varint(value.size()) + value;
}
std::string framed(const std::string& packet) {
    return bytes(1, packet);
}

std::string compressed(const std::string& packets) {
    std::string zipped(compressBound(packets.size()), '\0');
    uLongf size = zipped.size();
    compress(reinterpret_cast<Bytef*>(zipped.data()), &size,
             reinterpret_cast<const Bytef*>(packets.data()), packets.size());
    return framed(bytes(50, zipped.substr(0, size)));
}

// What packets hold, and what may stand beside it.
std::string sequence(uint64_t id) {
    return number(10, id);
}
const std::string kDropped = number(42, 1);  // packets before this one

std::string snapshot(uint64_t bootNs, uint32_t clock, uint64_t time) {
    const std::string unit = clock == kOwnClock ? number(3, 1) + number(4, 1'000) : "";
    return bytes(6, bytes(1, number(1, kBootClock) + number(2, bootNs)) +
                            bytes(1, number(1, clock) + number(2, time) + unit));
}
std::string print(uint64_t time, const std::string& text, const std::string& clocks = "") {
    return bytes(1, bytes(2, number(1, time) + number(2, 7) + bytes(3, bytes(2, text))) + clocks);
}
std::string frameEnd(uint64_t time, uint32_t clock = 0) {
    return number(8, time) + (clock == 0 ? "" : number(58, clock)) +
           bytes(76, bytes(5, number(1, 1)));
}

std::string nameOf(const Print& print) {
    return std::to_string(print.timeNs) + format(" %d ", print.tid) + std::string(print.text);
}

struct Parsed {
    std::vector<std::string> prints;
    std::vector<int64_t> markTimes;
    PerfettoStats stats;
};

Parsed parse(std::string_view trace, size_t piece = SIZE_MAX) {
    Parsed parsed;
    PerfettoParser parser([&](const Print& print) { parsed.prints.push_back(nameOf(print)); },
                          [&](const FrameMark& mark) { parsed.markTimes.push_back(mark.timeNs); });
    for (; !trace.empty(); trace.remove_prefix(std::min(piece, trace.size()))) {
        parser.feed(trace.substr(0, piece));
    }
    parser.finish();
    parsed.stats = parser.stats();
    return parsed;
}

// Random recordings, written as a phone does: processor by processor, in rounds; some packets
// compressed; frames in a clock of their own, which stands still while the phone sleeps.
TEST(Perfetto, GivesBackWhatWasRecordedHoweverItIsCut) {
    for (unsigned seed = 0; seed < 10; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        const auto below = [&](unsigned n) { return static_cast<int>(random() % n); };
        int64_t nowNs = 1'000'000'000'000;
        int64_t behindNs = 77'000'000;
        std::string trace;
        std::multimap<int64_t, std::string> prints;
        std::vector<int64_t> marks;
        PerfettoWriter writer([&](std::string_view bytes) { trace += bytes; });
        for (int round = 0; round < 20; ++round) {
            if (round == 0 || below(4) == 0) {
                nowNs += 5'000'000;
                behindNs += 5'000'000;
                trace += framed(snapshot(nowNs, kMonotonicClock, nowNs - behindNs));
            }
            const size_t roundStart = trace.size();
            for (int cpu = 0; cpu < 3; ++cpu) {
                int64_t timeNs = nowNs;
                for (int i = below(50); i > 0; --i) {
                    timeNs += below(3) * 1'000;
                    const std::string text(static_cast<size_t>(1 + below(30)), 'x');
                    const Print print{timeNs, below(4), text};
                    prints.emplace(timeNs, nameOf(print));
                    writer.print(print);
                }
                writer.finish();
            }
            for (int i = below(10); i > 0; --i) {
                marks.push_back(nowNs + i);
                trace += framed(frameEnd(nowNs + i - behindNs, kMonotonicClock));
            }
            if (below(3) == 0) {
                const std::string packets = trace.substr(roundStart);
                trace.resize(roundStart);
                if (!packets.empty()) trace += compressed(packets);
            }
            if (below(2) == 0) trace += "\x9a\x06\x03xyz\x10\x05";  // fields that nobody knows
            nowNs += 200'000;
        }
        std::vector<std::string> expected;
        for (const auto& [timeNs, text] : prints) expected.push_back(text);
        for (const size_t piece : {SIZE_MAX, size_t{1}, size_t{7}, size_t{1'000}}) {
            const Parsed parsed = parse(trace, piece);
            EXPECT_EQ(parsed.prints, expected);
            EXPECT_EQ(parsed.markTimes, marks);
            EXPECT_EQ(parsed.stats.damagedPackets + parsed.stats.unknownClocks, 0U);
            EXPECT_FALSE(parsed.stats.cutShort || parsed.stats.broken);
        }
    }
}

// Everything that cannot be used is counted by its reason, and what stands behind it is read.
TEST(Perfetto, CountsWhatItCannotUse) {
    const std::string good = framed(print(5, "C|1|a|1\n"));
    const std::string huge = "\x0a" + varint(PacketStream::kMaxPacket + 1);
    std::string nested = good;
    for (int i = 0; i < 5; ++i) nested = compressed(nested);
    const std::string losses = framed(bytes(35, bytes(1, number(3, 3) + number(19, 4))));
    using Stats = PerfettoStats;
    const struct {
        const char* what;
        std::string bytes;
        size_t Stats::*counted;
        size_t times = 1;
    } kCases[] = {
            {"no message", framed("\x0f"), &Stats::damagedPackets},
            {"an event longer than its bundle", framed("\x0a\x02\x12\x7f"), &Stats::damagedPackets},
            {"a 2 GiB claim in a packet", framed("\x0a\x06\x12\xff\xff\xff\xff\x07"),
             &Stats::damagedPackets},
            {"no zlib stream", framed("\x92\x03\x01x"), &Stats::damagedPackets},
            {"a bomb", compressed(std::string(50'000'000, '\0')), &Stats::damagedPackets},
            {"compressed within compressed", nested, &Stats::prints},
            {"a huge packet", huge + std::string(PacketStream::kMaxPacket + 1, 'x'),
             &Stats::oversizedPackets},
            {"packets dropped", framed(kDropped), &Stats::droppedBefore},
            {"state lost", framed(number(13, 2) + print(5, "x")), &Stats::withoutState},
            {"overwritten", losses + losses, &Stats::overwrittenChunks, 3},
            {"writer's losses", losses + losses, &Stats::writerLosses, 4},
            {"an overrun", framed(bytes(1, number(3, 1))), &Stats::overranBundles},
            {"an unknown ftrace clock", framed(print(5, "x", number(5, 2))), &Stats::unknownClocks},
            {"a frame of an unknown clock", framed(frameEnd(5, 3)), &Stats::unknownClocks},
            {"an impossible time", framed(print(UINT64_MAX, "x")), &Stats::impossibleTimes},
    };
    for (const auto& test : kCases) {
        const Parsed parsed = parse(test.bytes + good, 65'536);
        EXPECT_EQ(parsed.stats.*test.counted, test.times) << test.what;
        EXPECT_EQ(parsed.prints, std::vector<std::string>{"5 7 C|1|a|1"}) << test.what;
    }
    // And what ends the reading.
    for (const std::string& end :
         {"\x0b" + good, std::string(11, '\xff'), std::string("\x0a"), "\x0a" + varint(9),
          std::string("\x0a\xff"), huge, "\x0a" + varint(uint64_t{1} << 31U)}) {
        const Parsed parsed = parse(good + end);
        EXPECT_EQ(parsed.stats.broken, end[0] != '\x0a');
        EXPECT_EQ(parsed.stats.cutShort, end[0] == '\x0a');
        EXPECT_EQ(parsed.prints.size(), 1U);
    }
}

TEST(Perfetto, BringsEveryClockToTheBootClock) {
    const auto withDefault = [](uint32_t id, uint32_t clock) {
        return framed(sequence(id) + number(13, 1) + bytes(59, number(58, clock)));
    };
    const auto own = [](uint64_t time, uint32_t id, const std::string& dropped = "") {
        return framed(sequence(id) + frameEnd(time) + dropped);
    };
    const std::string monotonic = framed(snapshot(1'000, kMonotonicClock, 400));
    const std::string later = framed(snapshot(9'000, kMonotonicClock, 700));
    const std::string frames =
            framed(frameEnd(300, 3)) + framed(frameEnd(500, 3)) + framed(frameEnd(800, 3));
    const struct {
        std::string bytes;
        std::vector<int64_t> times;
        size_t unknown;
    } kCases[] = {
            {monotonic + later + frames, {900, 1'100, 9'100}, 0},
            {frames + monotonic + framed(frameEnd(600, 3)), {900, 1'100, 1'400, 1'200}, 0},
            {frames, {300, 500, 800}, 0},
            {frames + framed(frameEnd(800)), {800}, 3},
            {monotonic + withDefault(2, 3) + own(500, 2) + own(500, 3), {1'100, 500}, 0},
            {framed(sequence(4) + snapshot(10'000'000, kOwnClock, 0)) + withDefault(4, kOwnClock) +
                     own(5, 4) + own(5, 4) + own(1, 4, kDropped),
             {10'005'000, 10'010'000},
             1},
            {framed(print(50, "x", number(5, 2) + number(6, 10) + number(7, 110))), {150}, 0},
    };
    for (size_t i = 0; i < std::size(kCases); ++i) {
        const Parsed parsed = parse(kCases[i].bytes);
        std::vector<int64_t> times = parsed.markTimes;
        for (const auto& print : parsed.prints) times.push_back(std::stoll(print));
        EXPECT_EQ(times, kCases[i].times) << i;
        EXPECT_EQ(parsed.stats.unknownClocks, kCases[i].unknown) << i;
    }
}

// Slices that overlap must not nest wrongly: each written track, taken alone, ends what it begins.
TEST(Perfetto, WritesTracksThatAnyReaderDecodes) {
    std::mt19937 random(11);
    std::vector<Track> tracks = {{"layer a.b/c#1"}};
    std::multiset<std::string> expected, found;
    for (int i = 0; i < 4; ++i) {
        Track track{format("row %d", i), 0};
        for (int k = 0; k < 100; ++k) {
            const int begin = static_cast<int>(random() % 10'000);
            const int end = begin + static_cast<int>(random() % 300);
            track.slices.push_back({begin, end, std::to_string(k)});
            expected.insert(format("row %d %d %d %d", i, k, begin, end));
        }
        tracks.push_back(track);
    }
    tracks.push_back({"row of headroom", 0, Track::Unit::kNs, {}, {}, {{5, 0.5}, {6, 1.5}}});
    tracks.push_back({"modes", std::nullopt, Track::Unit::kNone, {}, {{7, "mode 60"}}});
    std::map<uint64_t, proto::TrackDescriptor> rows;
    std::map<uint64_t, std::string> open;
    std::string others, file;
    PerfettoWriter([&](std::string_view bytes) { file += bytes; }).tracks(tracks);
    PacketStream([&](std::string_view bytes) {
        proto::TracePacket packet;
        proto::TrackDescriptor row;
        proto::TrackEvent event;
        ASSERT_TRUE(packet.ParseFromString(std::string(bytes)) &&
                    row.ParseFromString(packet.track_descriptor()) &&
                    event.ParseFromString(packet.track_event()));
        if (packet.has_track_descriptor()) rows[row.uuid()] = row;
        if (!packet.has_track_event()) return;
        const std::string name = rows.at(event.track_uuid()).name();
        const std::string at = " " + std::to_string(packet.timestamp());
        if (event.type() == proto::TrackEvent::TYPE_SLICE_BEGIN) {
            ASSERT_TRUE(open.emplace(event.track_uuid(), name + " " + event.name() + at).second);
        } else if (event.type() == proto::TrackEvent::TYPE_SLICE_END) {
            ASSERT_EQ(open.count(event.track_uuid()), 1U);
            found.insert(open.extract(event.track_uuid()).mapped() + at);
        } else {
            others += name + event.name() + std::to_string(event.double_counter_value()) + ";";
        }
    }).feed(file);
    EXPECT_EQ(found, expected);
    EXPECT_TRUE(open.empty());
    EXPECT_EQ(others, "row of headroom0.500000;row of headroom1.500000;modesmode 600.000000;");
    for (const auto& [uuid, row] : rows) {
        if (row.name().find("row") != 0) continue;
        EXPECT_EQ(rows.at(row.parent_uuid()).name(), "layer a.b/c#1");
    }
}

}  // namespace
}  // namespace corvane::replay
