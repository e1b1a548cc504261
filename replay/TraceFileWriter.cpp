// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/TraceFileWriter.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <utility>

#include "replay/OutputFile.h"
#include "replay/Stop.h"
#include "replay/perfetto/PerfettoWriter.h"

namespace corvane::replay {
namespace {

constexpr std::string_view kPacked = ".gz";
constexpr unsigned kBuffer = 262'144;
constexpr mode_t kMode = 0666;
constexpr int64_t kNsPerSecond = 1'000'000'000;
constexpr int64_t kNsPerUs = 1'000;
// Tracks are nobody's; in text they need a process and a thread.
constexpr int kTracksPid = 1;

constexpr const char* kTextHead =
        "# tracer: nop\n#\n#           TASK-PID    CPU#  ||||   TIMESTAMP  FUNCTION\n";
// Viewers find the trace in a page by the class of its section.
constexpr const char* kPageHead =
        "<!DOCTYPE html>\n<html>\n<head><meta charset=\"utf-8\"><title>Trace</title></head>\n"
        "<body>\n<p>Open this file in ui.perfetto.dev.</p>\n"
        "<script class=\"trace-data\" type=\"application/text\">\n";
constexpr const char* kPageEnd = "</script>\n</body>\n</html>\n";
// What would end the section from within.
constexpr std::string_view kSectionEnd = "</";

bool endsWith(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

// A marker is the end of one line.
std::string oneLine(std::string text, bool inPage) {
    for (char& c : text) {
        if (c == '\n' || c == '\r' || c == '\0') c = ' ';
    }
    if (!inPage) return text;
    for (size_t at = text.find(kSectionEnd); at != std::string::npos;
         at = text.find(kSectionEnd, at)) {
        text[at] = '(';
    }
    return text;
}

}  // namespace

std::optional<TraceFormat> formatOfName(std::string_view path) {
    if (endsWith(path, kPacked)) path.remove_suffix(kPacked.size());
    if (endsWith(path, ".txt")) return TraceFormat::kText;
    if (endsWith(path, ".html")) return TraceFormat::kPage;
    if (endsWith(path, ".pftrace") || endsWith(path, ".perfetto-trace")) {
        return TraceFormat::kPerfetto;
    }
    return std::nullopt;
}

TraceFileWriter::TraceFileWriter(std::string path, TraceFormat format)
      : mPath(std::move(path)), mFormat(format) {
    const int fd = mPath == kStandardStream
                           ? fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0)
                           : open(mPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kMode);
    if (fd < 0) {
        throw Stop{kUnusable, "cannot write " + mPath + ": " + std::strerror(errno)};
    }
    // "T" writes what comes as it is.
    mFile = gzdopen(fd, endsWith(mPath, kPacked) ? "wb" : "wbT");
    if (mFile == nullptr) {
        close(fd);
        fail();
    }
    gzbuffer(mFile, kBuffer);
    if (mFormat == TraceFormat::kPerfetto) {
        mPackets = std::make_unique<PerfettoWriter>([this](std::string_view b) { write(b); });
        return;
    }
    if (mFormat == TraceFormat::kPage) write(kPageHead);
    write(kTextHead);
}

TraceFileWriter::~TraceFileWriter() {
    if (mFile != nullptr) gzclose_w(mFile);
}

void TraceFileWriter::event(const TraceEvent& event) {
    const std::string text = markerText(event);
    if (mPackets) {
        mPackets->print({event.timeNs, event.tid, text});
        return;
    }
    const int64_t fraction = event.timeNs % kNsPerSecond;
    char head[96];
    // Kernels write microseconds; digits beyond them appear only where they tell something.
    if (fraction % kNsPerUs == 0) {
        std::snprintf(head, sizeof(head), "thread-%-7d [000] .... %6" PRId64 ".%06" PRId64,
                      event.tid, event.timeNs / kNsPerSecond, fraction / kNsPerUs);
    } else {
        std::snprintf(head, sizeof(head), "thread-%-7d [000] .... %6" PRId64 ".%09" PRId64,
                      event.tid, event.timeNs / kNsPerSecond, fraction);
    }
    write(head + (": tracing_mark_write: " + oneLine(text, mFormat == TraceFormat::kPage)) + "\n");
}

void TraceFileWriter::frame(const FrameMark& mark) {
    if (mPackets) {
        mPackets->frame(mark);
    } else {
        ++mFramesLeftOut;
    }
}

void TraceFileWriter::tracks(const std::vector<Track>& tracks) {
    if (mPackets) {
        mPackets->tracks(tracks);
    } else {
        textTracks(tracks);
    }
}

void TraceFileWriter::textTracks(const std::vector<Track>& tracks) {
    using Kind = TraceEvent::Kind;
    struct Entry {
        Kind kind;
        int64_t timeNs;
        std::string name;
        int64_t value;
    };
    std::vector<Entry> entries;
    std::vector<std::string> names;
    int64_t cookie = 0;
    for (const auto& track : tracks) {
        const std::string above = track.parent ? names[*track.parent] + " / " : "";
        const std::string& name = names.emplace_back(above + track.name);
        const auto slice = [&](int64_t beginNs, int64_t endNs, const std::string& what) {
            const std::string full = name + ": " + what;
            entries.push_back({Kind::kAsyncBegin, beginNs, full, ++cookie});
            entries.push_back({Kind::kAsyncEnd, std::max(beginNs, endNs), full, cookie});
        };
        for (const auto& s : track.slices) slice(s.beginNs, s.endNs, s.name);
        for (const auto& mark : track.marks) slice(mark.timeNs, mark.timeNs, mark.name);
        for (const auto& v : track.values) {
            entries.push_back({Kind::kCounter, v.timeNs, name, std::llround(v.value)});
        }
    }
    std::stable_sort(entries.begin(), entries.end(),
                     [](const Entry& a, const Entry& b) { return a.timeNs < b.timeNs; });
    for (const auto& e : entries) {
        event({e.kind, e.timeNs, kTracksPid, kTracksPid, e.name, e.value});
    }
}

void TraceFileWriter::finish() {
    if (mPackets) mPackets->finish();
    if (mFormat == TraceFormat::kPage) write(kPageEnd);
    errno = 0;
    if (gzclose_w(std::exchange(mFile, nullptr)) != Z_OK) fail();
}

void TraceFileWriter::write(std::string_view bytes) {
    while (!bytes.empty()) {
        const size_t count = std::min<size_t>(bytes.size(), INT32_MAX);
        errno = 0;
        if (gzwrite(mFile, bytes.data(), static_cast<unsigned>(count)) <= 0) fail();
        bytes.remove_prefix(count);
    }
}

void TraceFileWriter::fail() {
    const char* const why = errno != 0 ? std::strerror(errno) : "out of memory";
    throw Stop{kFailed, "cannot write " + mPath + ": " + why};
}

}  // namespace corvane::replay
