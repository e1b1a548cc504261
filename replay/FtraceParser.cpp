// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/FtraceParser.h"

#include <charconv>
#include <optional>

namespace corvane::replay {
namespace {

using Kind = TraceEvent::Kind;

constexpr std::string_view kMarkerFunction = "tracing_mark_write";
constexpr std::string_view kHtmlSection = "class=\"trace-data\"";
constexpr std::string_view kHtmlSectionEnd = "</script>";

constexpr int64_t kNsPerSecond = 1'000'000'000;
// 31 years of uptime; more is a damaged number, and would not fit nanoseconds much later.
constexpr int64_t kMaxSeconds = 1'000'000'000;
constexpr int kFractionDigits = 9;  // ftrace writes 6, its nanosecond clocks 9
// Longer than any flags column that a kernel prints ("....", "d..2.", "-----").
constexpr size_t kMaxFlagsLength = 16;

constexpr bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

constexpr bool isBlank(char c) {
    return c == ' ' || c == '\t';
}

void skipBlanks(std::string_view& text) {
    while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
}

void trimRight(std::string_view& text) {
    while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
}

// The whole of `text` as a decimal number.
template <typename T>
std::optional<T> number(std::string_view text) {
    T value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

// Takes the number at the front of `text`.
template <typename T>
std::optional<T> takeNumber(std::string_view& text) {
    T value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc()) return std::nullopt;
    text.remove_prefix(static_cast<size_t>(end - text.data()));
    return value;
}

bool take(std::string_view& text, char c) {
    if (text.empty() || text.front() != c) return false;
    text.remove_prefix(1);
    return true;
}

// Takes "SECONDS.FRACTION:" at the front of `text`.
std::optional<int64_t> takeTime(std::string_view& text) {
    if (text.empty() || !isDigit(text.front())) return std::nullopt;
    const auto seconds = takeNumber<int64_t>(text);
    if (!seconds || *seconds > kMaxSeconds || !take(text, '.')) return std::nullopt;
    int64_t fraction = 0;
    int digits = 0;
    while (!text.empty() && isDigit(text.front()) && digits < kFractionDigits) {
        fraction = fraction * 10 + (text.front() - '0');
        text.remove_prefix(1);
        ++digits;
    }
    if (digits == 0 || !take(text, ':')) return std::nullopt;
    for (; digits < kFractionDigits; ++digits) fraction *= 10;
    return *seconds * kNsPerSecond + fraction;
}

struct Header {
    int tid;
    int64_t timeNs;
    std::string_view function;
    std::string_view payload;
};

// "TASK-PID  (TGID)" with the optional TGID column, which ftrace fills with dashes when unknown.
std::optional<int> threadOf(std::string_view text) {
    constexpr size_t kMaxTgidColumn = 16;
    trimRight(text);
    if (!text.empty() && text.back() == ')') {
        const size_t open = text.rfind('(');
        if (open != std::string_view::npos && text.size() - open <= kMaxTgidColumn) {
            text = text.substr(0, open);
            trimRight(text);
        }
    }
    size_t digits = 0;
    while (digits < text.size() && isDigit(text[text.size() - 1 - digits])) ++digits;
    if (digits == 0 || digits == text.size() || text[text.size() - 1 - digits] != '-') {
        return std::nullopt;
    }
    return number<int>(text.substr(text.size() - digits));
}

// " FLAGS TIME: FUNCTION: PAYLOAD", the part behind the CPU column.
bool parseBehindCpu(std::string_view text, Header& header) {
    skipBlanks(text);
    auto time = takeTime(text);
    if (!time) {  // the flags column, which some kernels do not print
        size_t length = 0;
        while (length < text.size() && length <= kMaxFlagsLength && !isBlank(text[length]))
            ++length;
        if (length > kMaxFlagsLength) return false;
        text.remove_prefix(length);
        skipBlanks(text);
        time = takeTime(text);
        if (!time) return false;
    }
    skipBlanks(text);
    const size_t colon = text.find(':');
    if (colon == 0 || colon == std::string_view::npos) return false;
    header.timeNs = *time;
    header.function = text.substr(0, colon);
    header.payload = text.substr(colon + 1);
    skipBlanks(header.payload);
    return true;
}

// Tasks choose their names, so the CPU column is the first "[digits]" behind which a line goes on
// as ftrace lines do.
std::optional<Header> parseHeader(std::string_view line) {
    for (size_t open = line.find('['); open != std::string_view::npos;
         open = line.find('[', open + 1)) {
        std::string_view rest = line.substr(open + 1);
        size_t digits = 0;
        while (digits < rest.size() && digits < 5 && isDigit(rest[digits])) ++digits;
        if (digits == 0 || digits == rest.size() || rest[digits] != ']') continue;
        Header header;
        if (!parseBehindCpu(rest.substr(digits + 1), header)) continue;
        const auto tid = threadOf(line.substr(0, open));
        if (!tid) return std::nullopt;
        header.tid = *tid;
        return header;
    }
    return std::nullopt;
}

enum class Marker { kEvent, kOther, kDamaged };

// "PID|NAME|VALUE"; a name may hold any character, '|' included.
bool parseNamedValue(std::string_view text, TraceEvent& event) {
    const size_t first = text.find('|');
    const size_t last = text.rfind('|');
    if (first == std::string_view::npos || first == last) return false;
    const auto pid = number<int>(text.substr(0, first));
    const auto value = number<int64_t>(text.substr(last + 1));
    if (!pid || !value) return false;
    event.pid = *pid;
    event.name = text.substr(first + 1, last - first - 1);
    event.value = *value;
    return !event.name.empty();
}

Marker parseMarker(std::string_view text, TraceEvent& event) {
    if (text.empty()) return Marker::kDamaged;
    const char type = text.front();
    text.remove_prefix(1);
    if (type == 'E') {
        event.kind = Kind::kEnd;
        if (text.empty() || text == "|") return Marker::kEvent;
        if (!take(text, '|')) return Marker::kOther;
        const auto pid = number<int>(text);
        if (!pid) return Marker::kDamaged;
        event.pid = *pid;
        return Marker::kEvent;
    }
    if (type != 'B' && type != 'C' && type != 'S' && type != 'F') return Marker::kOther;
    if (!take(text, '|')) return Marker::kDamaged;
    if (type == 'B') {
        event.kind = Kind::kBegin;
        const auto pid = takeNumber<int>(text);
        if (!pid || !take(text, '|')) return Marker::kDamaged;
        event.pid = *pid;
        event.name = text;
        return Marker::kEvent;
    }
    event.kind = type == 'C' ? Kind::kCounter : type == 'S' ? Kind::kAsyncBegin : Kind::kAsyncEnd;
    return parseNamedValue(text, event) ? Marker::kEvent : Marker::kDamaged;
}

void parseLine(std::string_view line, const std::function<void(const TraceEvent&)>& sink,
               ParseStats& stats) {
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    trimRight(line);
    std::string_view text = line;
    skipBlanks(text);
    if (text.empty() || text.front() == '#') return;
    ++stats.lines;
    const auto header = parseHeader(line);
    if (!header) {
        ++stats.damaged;
        return;
    }
    ++stats.ftrace;
    if (header->function != kMarkerFunction) return;
    TraceEvent event{Kind::kEnd, header->timeNs, header->tid, 0, {}, 0};
    switch (parseMarker(header->payload, event)) {
        case Marker::kEvent:
            sink(event);
            break;
        case Marker::kOther:
            break;
        case Marker::kDamaged:
            ++stats.damaged;
            break;
    }
}

void parseLines(std::string_view text, const std::function<void(const TraceEvent&)>& sink,
                ParseStats& stats) {
    while (!text.empty()) {
        const size_t end = text.find('\n');
        parseLine(text.substr(0, end), sink, stats);
        if (end == std::string_view::npos) break;
        text.remove_prefix(end + 1);
    }
}

}  // namespace

ParseStats parseFtrace(std::string_view text, const std::function<void(const TraceEvent&)>& sink) {
    ParseStats stats;
    size_t tag = text.find(kHtmlSection);
    if (tag == std::string_view::npos) {
        parseLines(text, sink, stats);
        return stats;
    }
    // The viewer's page holds one section per tracing agent; only ftrace's has markers.
    while (tag != std::string_view::npos) {
        const size_t open = text.find('>', tag);
        if (open == std::string_view::npos) break;
        const size_t close = text.find(kHtmlSectionEnd, open);
        const std::string_view section = text.substr(open + 1, close - (open + 1));
        if (section.find(kMarkerFunction) != std::string_view::npos) {
            parseLines(section, sink, stats);
        }
        if (close == std::string_view::npos) break;
        tag = text.find(kHtmlSection, close);
    }
    return stats;
}

}  // namespace corvane::replay
