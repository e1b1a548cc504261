// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/TraceReader.h"

#include <utility>

#include "replay/InputFile.h"
#include "replay/Marker.h"
#include "replay/TextTable.h"
#include "replay/TraceFormat.h"
#include "replay/perfetto/PerfettoParser.h"

namespace corvane::replay {
namespace {

constexpr size_t kBlock = 262'144;
// A viewer's page brings megabytes of its own before the trace begins.
constexpr uint64_t kMaxBeforeTrace = 67'108'864;
// Far more than a phone records; a device or a pipe may have no end at all.
constexpr uint64_t kMaxSize = 8'589'934'592;

// What writes each kind of thing into a Perfetto trace, as lines of its configuration.
constexpr const char* kPrintLines =
        "ftrace_events: \"ftrace/print\" and atrace_categories: \"gfx\" in ftrace_config";
constexpr const char* kFramesLine = "a data source named \"android.surfaceflinger.frametimeline\"";
constexpr const char* kSeeRecord = " (./corvane record prints the whole configuration)";

}  // namespace

TraceReader::TraceReader(EventSink events, FrameSink frames)
      : mEvents(std::move(events)), mFrames(std::move(frames)), mText(mEvents) {}

TraceReader::~TraceReader() = default;

void TraceReader::setLimit(std::function<bool()> isReached, std::string error) {
    mIsLimitReached = std::move(isReached);
    mLimitError = std::move(error);
}

std::string TraceReader::read(const std::string& path) {
    InputFile file(path);
    std::string block(kBlock, '\0');
    while (const size_t count = file.read(block.data(), block.size())) {
        const std::string error = take(path, std::string_view(block).substr(0, count));
        if (!error.empty()) return error;
    }
    finish();
    if (!file.error().empty()) return "cannot be read: " + file.error();
    mPackedIsCutShort = file.isCutShort();
    if (mPackedIsCutShort && mStats.ftrace == 0) return "cannot be unpacked: it is damaged";
    return "";
}

// Returns why the file is not read further, or an empty text.
std::string TraceReader::take(const std::string& path, std::string_view block) {
    if (mSize == 0) {
        std::string conversion = conversionOf(block, path);
        if (!conversion.empty()) return conversion;
        if (replay::isPerfetto(block)) openPackets();
    }
    mSize += block.size();
    if (mPackets) {
        mPackets->feed(block);
    } else {
        std::string error = takeText(block);
        if (!error.empty()) return error;
    }
    if (mIsLimitReached()) return mLimitError;
    if (mSize > kMaxSize) return "is longer than 8 GB; cut a part out of it";
    return "";
}

std::string TraceReader::takeText(std::string_view block) {
    mText.feed(block);
    if (mText.stats().ftrace > 0) return "";
    if (block.find('\0') != std::string_view::npos) return "is not a trace: it is no text";
    if (mSize > kMaxBeforeTrace) return "is not a trace: its first 64 MB have no ftrace line";
    return "";
}

void TraceReader::openPackets() {
    const auto print = [this](const Print& written) {
        TraceEvent event{TraceEvent::Kind::kEnd, written.timeNs, written.tid, 0, {}, 0};
        switch (parseMarker(written.text, event)) {
            case Marker::kEvent:
                mEvents(event);
                break;
            case Marker::kOther:
                break;
            case Marker::kDamaged:
                ++mDamagedMarkers;
                break;
        }
    };
    mPackets = std::make_unique<PerfettoParser>(print, mFrames);
}

void TraceReader::finish() {
    if (!mPackets) {
        mText.finish();
        mStats = mText.stats();
        return;
    }
    mPackets->finish();
    const PerfettoStats& packets = mPackets->stats();
    mStats.lines = packets.ftraceEvents + packets.frameMarks;
    mStats.ftrace = mStats.lines;
    mStats.damaged = mDamagedMarkers;
}

std::vector<std::string> TraceReader::notes() const {
    std::vector<std::string> notes;
    if (mPackedIsCutShort) {
        notes.emplace_back(
                "the compressed file is damaged or ends early; what comes before is "
                "played");
    }
    if (!mPackets) return notes;
    const PerfettoStats& stats = mPackets->stats();
    const auto count = [&](size_t number, const char* what, const char* why) {
        if (number > 0) notes.push_back(plural(number, what) + why);
    };
    if (stats.cutShort) {
        notes.emplace_back("the trace ends within a packet; what comes before is played");
    }
    if (stats.broken) {
        notes.emplace_back("the trace is damaged; nothing behind the damage is played");
    }
    count(stats.damagedPackets, "packet", " left out: damaged");
    count(stats.oversizedPackets, "packet", " left out: larger than 16 MB");
    count(stats.withoutState, "packet", " left out: they build on others that were lost");
    count(stats.unknownClocks, "event", " left out: no snapshot of the trace's tells their clock");
    count(stats.impossibleTimes, "event", " left out: of an impossible time, or damaged");
    count(stats.late, "event", " out of time's order by more than some seconds");
    count(stats.overranBundles, "time",
          " the kernel's trace buffer overran while the phone recorded: frames may be missing");
    count(stats.droppedBefore, "time",
          " packets were dropped while the phone recorded: frames may be missing");
    count(stats.overwrittenChunks, "chunk",
          " overwritten when the recorder's buffer was full: the recording's beginning is lost");
    count(stats.writerLosses, "packet", " lost while the phone recorded: frames may be missing");
    return notes;
}

std::string TraceReader::missing() const {
    if (!mPackets) return "";
    const PerfettoStats& stats = mPackets->stats();
    if (stats.prints > 0 && stats.frameMarks > 0) return "";
    std::string text = "; it was recorded without ";
    if (stats.prints == 0) text += kPrintLines;
    if (stats.prints == 0 && stats.frameMarks == 0) text += ", and without ";
    if (stats.frameMarks == 0) text += kFramesLine;
    return text + kSeeRecord;
}

}  // namespace corvane::replay
