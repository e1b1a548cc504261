// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "replay/Marker.h"

namespace corvane::replay {

// A row of a timeline, as a viewer shows it. Plain data; all times are of one clock.
struct Track {
    enum class Unit { kNone, kCount, kNs };
    struct Slice {
        int64_t beginNs;
        int64_t endNs;
        std::string name;
    };
    struct Mark {
        int64_t timeNs;
        std::string name;
    };
    struct Value {
        int64_t timeNs;
        double value;
    };

    std::string name;
    // Index of the row under which it stands; that row comes before this one.
    std::optional<size_t> parent = std::nullopt;
    Unit unit = Unit::kNone;
    // Slices may overlap. A row has slices and marks, or values, or neither: a group.
    std::vector<Slice> slices = {};
    std::vector<Mark> marks = {};
    std::vector<Value> values = {};
};

// An event of a trace that keeps its own texts.
struct StoredEvent {
    explicit StoredEvent(const TraceEvent& event)
          : mEvent(event), mName(event.name), mTask(event.task) {}

    int64_t timeNs() const { return mEvent.timeNs; }
    TraceEvent event() const {
        TraceEvent event = mEvent;
        event.name = mName;
        event.task = mTask;
        return event;
    }

  private:
    TraceEvent mEvent;
    std::string mName;
    std::string mTask;
};

// The rows as asynchronous slices and counters. A row's name and those above it stand before its
// slices' own.
std::vector<StoredEvent> eventsOf(const std::vector<Track>& tracks);

void sortByTime(std::vector<StoredEvent>& events);

}  // namespace corvane::replay
