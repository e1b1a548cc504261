// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/Track.h"

#include <algorithm>
#include <cmath>

namespace corvane::replay {
namespace {

// Rows are nobody's; in text they need a process and a thread.
constexpr int kPid = 1;
constexpr std::string_view kTask = "replay";

}  // namespace

std::vector<StoredEvent> eventsOf(const std::vector<Track>& tracks) {
    using Kind = TraceEvent::Kind;
    std::vector<StoredEvent> events;
    std::vector<std::string> names;
    int64_t cookie = 0;
    const auto add = [&](Kind kind, int64_t timeNs, const std::string& name, int64_t value) {
        events.emplace_back(TraceEvent{kind, timeNs, kPid, kPid, name, value, kTask});
    };
    const auto slice = [&](int64_t beginNs, int64_t endNs, const std::string& name) {
        add(Kind::kAsyncBegin, beginNs, name, ++cookie);
        add(Kind::kAsyncEnd, std::max(beginNs, endNs), name, cookie);
    };
    for (const auto& track : tracks) {
        const std::string above = track.parent ? names[*track.parent] + " / " : "";
        const std::string& name = names.emplace_back(above + track.name);
        for (const auto& s : track.slices) slice(s.beginNs, s.endNs, name + ": " + s.name);
        for (const auto& mark : track.marks) {
            slice(mark.timeNs, mark.timeNs, name + ": " + mark.name);
        }
        for (const auto& v : track.values) {
            add(Kind::kCounter, v.timeNs, name, std::llround(v.value));
        }
    }
    return events;
}

void sortByTime(std::vector<StoredEvent>& events) {
    std::stable_sort(events.begin(), events.end(), [](const StoredEvent& a, const StoredEvent& b) {
        return a.timeNs() < b.timeNs();
    });
}

}  // namespace corvane::replay
