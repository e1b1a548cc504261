// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/perfetto/ClockTable.h"

#include <algorithm>
#include <iterator>

namespace corvane::replay {
namespace {

// Clocks of a sequence's own have these ids.
constexpr uint32_t kFirstOwnClock = 64;
constexpr uint32_t kLastOwnClock = 127;
// A clock may count in larger units; no real one does in larger ones than seconds.
constexpr uint64_t kMaxUnitNs = 1'000'000'000;
// Wall clocks stand at 1.8e18 ns.
constexpr uint64_t kMaxClockNs = 4'000'000'000'000'000'000;

std::optional<int64_t> nanoseconds(uint64_t timestamp, int64_t unitNs) {
    if (timestamp > kMaxClockNs / static_cast<uint64_t>(unitNs)) return std::nullopt;
    return static_cast<int64_t>(timestamp) * unitNs;
}

}  // namespace

ClockTable::Key ClockTable::keyOf(uint32_t clock, uint32_t sequence) {
    const bool own = clock >= kFirstOwnClock && clock <= kLastOwnClock;
    return {own ? sequence : 0, clock};
}

void ClockTable::add(const proto::ClockSnapshot& snapshot, uint32_t sequence) {
    std::optional<int64_t> bootNs;
    for (const auto& clock : snapshot.clocks()) {
        if (clock.clock_id() == kBootClock) bootNs = nanoseconds(clock.timestamp(), 1);
    }
    if (!bootNs || *bootNs > kMaxTimeNs) return;
    for (const auto& read : snapshot.clocks()) {
        if (read.clock_id() == kBootClock) continue;
        const uint64_t unit = read.has_unit_multiplier_ns() ? read.unit_multiplier_ns() : 1;
        if (unit < 1 || unit > kMaxUnitNs || mReadings >= kMaxReadings) continue;
        const auto clockNs = nanoseconds(read.timestamp(), static_cast<int64_t>(unit));
        if (!clockNs) continue;
        Clock& clock = mClocks[keyOf(read.clock_id(), sequence)];
        clock.unitNs = static_cast<int64_t>(unit);
        clock.incremental = read.is_incremental();
        if (clock.incremental) clock.lastNs = clockNs;
        // A clock that was set back counts from now on as it stands now.
        while (!clock.readings.empty() && clock.readings.back().clockNs >= *clockNs) {
            clock.readings.pop_back();
            --mReadings;
        }
        clock.readings.push_back({*clockNs, *bootNs});
        ++mReadings;
    }
}

void ClockTable::forgetIncrements(uint32_t sequence) {
    const auto first = mClocks.lower_bound({sequence, 0});
    for (auto entry = first; entry != mClocks.end() && entry->first.first == sequence; ++entry) {
        entry->second.lastNs.reset();
    }
}

std::optional<int64_t> ClockTable::toBoot(uint32_t id, uint32_t sequence, uint64_t timestamp) {
    if (id == kBootClock) {
        const auto timeNs = nanoseconds(timestamp, 1);
        return timeNs && *timeNs <= kMaxTimeNs ? timeNs : std::nullopt;
    }
    const auto entry = mClocks.find(keyOf(id, sequence));
    if (entry == mClocks.end() || entry->second.readings.empty()) return std::nullopt;
    Clock& clock = entry->second;
    auto clockNs = nanoseconds(timestamp, clock.unitNs);
    if (!clockNs) return std::nullopt;
    if (clock.incremental) {
        if (!clock.lastNs) return std::nullopt;
        clockNs = *clockNs + *clock.lastNs;  // each at most 4e18
        if (static_cast<uint64_t>(*clockNs) > kMaxClockNs) return std::nullopt;
        clock.lastNs = clockNs;
    }
    auto reading =
            std::upper_bound(clock.readings.begin(), clock.readings.end(), *clockNs,
                             [](int64_t time, const Reading& r) { return time < r.clockNs; });
    if (reading != clock.readings.begin()) --reading;
    const int64_t timeNs = *clockNs - reading->clockNs + reading->bootNs;
    return timeNs >= 0 && timeNs <= kMaxTimeNs ? std::optional(timeNs) : std::nullopt;
}

}  // namespace corvane::replay
