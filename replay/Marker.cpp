// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/Marker.h"

#include "replay/TextCursor.h"

namespace corvane::replay {
namespace {

using Kind = TraceEvent::Kind;

// "PID|NAME|VALUE"; a name may hold any character, '|' included. Some kernels add a field of their
// own behind a counter's value.
bool parseNamedValue(std::string_view text, bool mayHaveFourth, TraceEvent& event) {
    const size_t first = text.find('|');
    size_t last = text.rfind('|');
    if (first == std::string_view::npos || first == last) return false;
    const auto pid = number<int>(text.substr(0, first));
    auto value = number<int64_t>(text.substr(last + 1));
    const size_t before = text.rfind('|', last - 1);
    if (mayHaveFourth && before > first) {
        if (const auto third = number<int64_t>(text.substr(before + 1, last - before - 1))) {
            value = third;
            last = before;
        }
    }
    if (!pid || !value) return false;
    event.pid = *pid;
    event.name = text.substr(first + 1, last - first - 1);
    event.value = *value;
    return !event.name.empty();
}

}  // namespace

Marker parseMarker(std::string_view text, TraceEvent& event) {
    if (text.empty()) return Marker::kDamaged;
    const char type = text.front();
    text.remove_prefix(1);
    if (type == 'E') {
        event.kind = Kind::kEnd;
        if (text.empty() || text == "|") return Marker::kEvent;
        if (!take(text, '|')) return Marker::kOther;
        const auto pid = takeNumber<int>(text);
        if (!pid || (!text.empty() && text.front() != '|')) return Marker::kDamaged;
        event.pid = *pid;
        return Marker::kEvent;
    }
    if (type != 'B' && type != 'C' && type != 'S' && type != 'F') return Marker::kOther;
    if (!take(text, '|')) return Marker::kOther;
    if (type == 'B') {
        event.kind = Kind::kBegin;
        const auto pid = takeNumber<int>(text);
        if (!pid || !take(text, '|')) return Marker::kDamaged;
        event.pid = *pid;
        event.name = text;
        return Marker::kEvent;
    }
    event.kind = type == 'C' ? Kind::kCounter : type == 'S' ? Kind::kAsyncBegin : Kind::kAsyncEnd;
    return parseNamedValue(text, type == 'C', event) ? Marker::kEvent : Marker::kDamaged;
}

std::string markerText(const TraceEvent& event) {
    const std::string pid = std::to_string(event.pid);
    const auto text = [&](char type) { return std::string(1, type) + "|" + pid + "|"; };
    const auto withValue = [&](char type) {
        return text(type) + std::string(event.name) + "|" + std::to_string(event.value);
    };
    switch (event.kind) {
        case Kind::kBegin:
            return text('B') + std::string(event.name);
        case Kind::kEnd:
            return event.pid == 0 ? "E" : "E|" + pid;
        case Kind::kCounter:
            return withValue('C');
        case Kind::kAsyncBegin:
            return withValue('S');
        case Kind::kAsyncEnd:
            return withValue('F');
    }
    return "";
}

}  // namespace corvane::replay
