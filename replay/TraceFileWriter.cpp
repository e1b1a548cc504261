// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/TraceFileWriter.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
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
constexpr std::string_view kNoName = "thread";

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
        mPackets = std::make_unique<PerfettoWriter>([this](std::string_view b) { writeBytes(b); });
        return;
    }
    if (mFormat == TraceFormat::kPage) writeBytes(kPageHead);
    writeBytes(kTextHead);
}

TraceFileWriter::~TraceFileWriter() {
    if (mFile != nullptr) gzclose_w(mFile);
}

void TraceFileWriter::event(const TraceEvent& event) {
    const std::string text = markerText(event);
    if (mPackets) {
        nameThread(event);
        mPackets->print({event.timeNs, event.tid, text});
        return;
    }
    const bool inPage = mFormat == TraceFormat::kPage;
    const int64_t fraction = event.timeNs % kNsPerSecond;
    char behind[96];
    // Kernels write microseconds; digits beyond them appear only where they tell something.
    const bool isWhole = fraction % kNsPerUs == 0;
    std::snprintf(behind, sizeof(behind), "-%-7d [000] .... %6" PRId64 ".%0*" PRId64 ": ",
                  event.tid, event.timeNs / kNsPerSecond, isWhole ? 6 : 9,
                  isWhole ? fraction / kNsPerUs : fraction);
    const std::string task(event.task.empty() ? kNoName : event.task);
    writeBytes(oneLine(task, inPage) + behind + "tracing_mark_write: " + oneLine(text, inPage) +
               "\n");
}

void TraceFileWriter::frame(const FrameMark& mark) {
    if (mPackets) {
        mPackets->frame(mark);
    } else {
        ++mFramesLeftOut;
    }
}

void TraceFileWriter::write(std::vector<StoredEvent> events, const std::vector<Track>& tracks) {
    if (!mPackets) {
        for (auto& stored : eventsOf(tracks)) events.push_back(std::move(stored));
    }
    sortByTime(events);
    for (const auto& stored : events) event(stored.event());
    if (mPackets) mPackets->tracks(tracks);
}

// Markers are written by threads of the process that they name.
void TraceFileWriter::nameThread(const TraceEvent& event) {
    constexpr size_t kMaxThreads = 100'000;  // more than any recording has
    if (event.pid < 1 || event.task.empty() || mNamedThreads.size() >= kMaxThreads) return;
    if (mNamedThreads.insert(event.tid).second) {
        mPackets->thread(event.tid, event.pid, event.task);
    }
}

void TraceFileWriter::finish() {
    if (mPackets) mPackets->finish();
    if (mFormat == TraceFormat::kPage) writeBytes(kPageEnd);
    errno = 0;
    if (gzclose_w(std::exchange(mFile, nullptr)) != Z_OK) fail();
}

void TraceFileWriter::writeBytes(std::string_view bytes) {
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
