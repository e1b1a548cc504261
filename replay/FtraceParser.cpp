// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/FtraceParser.h"

#include <algorithm>
#include <iterator>
#include <optional>

#include "replay/TextCursor.h"

namespace corvane::replay {
namespace {

using Kind = TraceEvent::Kind;

// What kernels and converters call the event that holds a marker.
constexpr std::string_view kMarkerFunction = "tracing_mark_write";
constexpr std::string_view kPrintFunction = "print";
constexpr std::string_view kUnresolvedFunction = "0";
// What the first line of a viewer's page begins with, in lower case. (Lines of ftrace may begin
// with "<" too: "<idle>-0".)
constexpr std::string_view kPageStarts[] = {"<!", "<html", "<head", "<script", "<meta"};
constexpr std::string_view kPageTrace = "class=\"trace-data\"";
constexpr std::string_view kScriptTrace = "linuxPerfData = \"";
constexpr std::string_view kScriptLineEnd = "\\n\\";
constexpr std::string_view kScriptTraceEnd = "\";";
constexpr std::string_view kScriptEnd = "</script>";
// "CPU:3 [LOST 1234 EVENTS]": the ring buffer overran.
constexpr std::string_view kLostCpu = "CPU:";
constexpr std::string_view kLostEvents = "[LOST ";

// A line of ftrace is at most a page long. Of a longer one only the end is looked at, where a
// page's tags may be.
constexpr size_t kMaxLine = 65'536;
constexpr size_t kEndOfOverlong = 4'096;

constexpr int64_t kNsPerSecond = 1'000'000'000;
// 31 years of uptime; more is a damaged number, and would not fit nanoseconds much later.
constexpr int64_t kMaxSeconds = 1'000'000'000;
constexpr int kFractionDigits = 9;  // ftrace writes 6, its nanosecond clocks 9
// Longer than any flags column that a kernel prints ("....", "d..2.", "-----").
constexpr size_t kMaxFlagsLength = 16;

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
    std::string_view task;
    int tid;
    int64_t timeNs;
    std::string_view function;
    std::string_view payload;
};

// "TASK-PID  (TGID)" with the optional TGID column, which ftrace fills with dashes when unknown.
bool parseThread(std::string_view text, Header& header) {
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
    if (digits == 0 || digits == text.size() || text[text.size() - 1 - digits] != '-') return false;
    const auto tid = number<int>(text.substr(text.size() - digits));
    if (!tid) return false;
    header.tid = *tid;
    header.task = text.substr(0, text.size() - digits - 1);
    skipBlanks(header.task);
    return true;
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
        if (!parseThread(line.substr(0, open), header)) return std::nullopt;
        return header;
    }
    return std::nullopt;
}

// Takes what stands before the marker where a converter wrote the function into the event's text.
bool takeMarkerText(Header& header) {
    if (header.function == kMarkerFunction || header.function == kUnresolvedFunction) return true;
    if (header.function != kPrintFunction) return false;
    const std::string_view text = header.payload;
    if (text.substr(0, kMarkerFunction.size()) == kMarkerFunction) {
        header.payload.remove_prefix(kMarkerFunction.size());
        if (!take(header.payload, ':')) header.payload = text;
        skipBlanks(header.payload);
    }
    return true;
}

// How many events the kernel says were lost here; nothing for another line.
std::optional<size_t> lostEvents(std::string_view line) {
    if (line.substr(0, kLostCpu.size()) != kLostCpu) return std::nullopt;
    const size_t at = line.find(kLostEvents);
    if (at == std::string_view::npos) return std::nullopt;
    std::string_view count = line.substr(at + kLostEvents.size());
    return takeNumber<size_t>(count).value_or(0);
}

bool isPage(std::string_view line) {
    const auto beginsWith = [&](std::string_view start) {
        return line.size() >= start.size() &&
               std::equal(start.begin(), start.end(), line.begin(), [](char lower, char c) {
                   return lower == (c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c);
               });
    };
    return std::any_of(std::begin(kPageStarts), std::end(kPageStarts), beginsWith);
}

}  // namespace

void FtraceParser::feed(std::string_view piece) {
    while (!piece.empty()) {
        const size_t end = piece.find('\n');
        const std::string_view text = piece.substr(0, end);
        if (end == std::string_view::npos) {
            keepRest(text);
            return;
        }
        piece.remove_prefix(end + 1);
        if (mRest.empty() && !mOverlong && text.size() <= kMaxLine) {
            line(text);
            continue;
        }
        keepRest(text);
        line(mRest);
        mRest.clear();
        mOverlong = false;
    }
}

void FtraceParser::finish() {
    if (mRest.empty()) return;
    line(mRest);
    mRest.clear();
}

void FtraceParser::keepRest(std::string_view text) {
    mRest += text;
    if (mRest.size() <= kMaxLine) return;
    mRest.erase(0, mRest.size() - kEndOfOverlong);
    mOverlong = true;
}

void FtraceParser::line(std::string_view text) {
    if (!text.empty() && text.back() == '\r') text.remove_suffix(1);
    trimRight(text);
    if (text.empty()) return;
    if (!mAnyLine) {
        mAnyLine = true;
        std::string_view start = text;
        skipBlanks(start);
        if (isPage(start)) mPlace = Place::kPage;
    }
    switch (mPlace) {
        case Place::kText:
            textLine(text);
            break;
        case Place::kPage:
            pageLine(text);
            break;
        case Place::kPageTrace:
            pageTraceLine(text);
            break;
        case Place::kScriptTrace:
            scriptTraceLine(text);
            break;
    }
}

void FtraceParser::textLine(std::string_view text) {
    if (traceLine(text) || text.find(kPageTrace) == std::string_view::npos) return;
    pageLine(text);  // a page whose beginning is missing
}

void FtraceParser::pageLine(std::string_view text) {
    const size_t section = text.find(kPageTrace);
    if (section != std::string_view::npos) {
        const size_t open = text.find('>', section);
        if (open == std::string_view::npos) return;
        mPlace = Place::kPageTrace;
        mBegun = false;
        pageTraceLine(text.substr(open + 1));
        return;
    }
    if (text.find(kScriptTrace) == std::string_view::npos) return;
    mPlace = Place::kScriptTrace;
    mBegun = false;
}

void FtraceParser::pageTraceLine(std::string_view text) {
    const size_t end =
            !text.empty() && text.back() == '>' ? text.find(kScriptEnd) : std::string_view::npos;
    traceLine(text.substr(0, end));
    if (end == std::string_view::npos) return;
    mPlace = Place::kPage;
    pageLine(text.substr(end));
}

void FtraceParser::scriptTraceLine(std::string_view text) {
    const auto endsWith = [&](std::string_view end) {
        return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
    };
    if (endsWith(kScriptTraceEnd) || endsWith(kScriptEnd)) mPlace = Place::kPage;
    if (endsWith(kScriptLineEnd)) text.remove_suffix(kScriptLineEnd.size());
    if (mPlace == Place::kScriptTrace) traceLine(text);
}

// Whether it is a line as traces have it. The trace begins with the first such line; what comes
// before is no damage.
bool FtraceParser::traceLine(std::string_view text) {
    std::string_view start = text;
    skipBlanks(start);
    if (start.empty()) return true;
    if (start.front() == '#') {
        mBegun = true;
        return true;
    }
    auto header = mOverlong ? std::nullopt : parseHeader(text);
    if (!header) {
        if (const auto lost = lostEvents(start)) {
            mStats.lostEvents += *lost;
            return true;
        }
        if (!mBegun) return false;
        ++mStats.lines;
        ++mStats.damaged;
        return false;
    }
    mBegun = true;
    ++mStats.lines;
    ++mStats.ftrace;
    const bool isMarker = header->function == kMarkerFunction;
    if (!takeMarkerText(*header)) return true;
    if (header->payload.empty()) {
        if (isMarker) ++mStats.damaged;
        return true;
    }
    TraceEvent event{Kind::kEnd, header->timeNs, header->tid, 0, {}, 0, header->task};
    switch (parseMarker(header->payload, event)) {
        case Marker::kEvent:
            mSink(event);
            break;
        case Marker::kOther:
            break;
        case Marker::kDamaged:
            ++mStats.damaged;
            break;
    }
    return true;
}

ParseStats parseFtrace(std::string_view text, const FtraceParser::Sink& sink) {
    FtraceParser parser(sink);
    parser.feed(text);
    parser.finish();
    return parser.stats();
}

}  // namespace corvane::replay
