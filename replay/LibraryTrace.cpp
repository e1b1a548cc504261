// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/LibraryTrace.h"

#include <cutils/trace.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

#include "corvane/host/TraceCapture.h"
#include "replay/Stop.h"

namespace corvane::replay {
namespace {

constexpr size_t kPieceBytes = 65'536;

}  // namespace

LibraryTrace::LibraryTrace() : mFolder(std::filesystem::temp_directory_path()) {
    std::string name = mFolder / "corvane-replay-XXXXXX";
    mFd = mkostemp(name.data(), O_CLOEXEC);
    if (mFd < 0) throw Stop{kFailed, failure(errno)};
    unlink(name.c_str());
    if (!host::startTrace(path(), ATRACE_TAG_GRAPHICS)) throw Stop{kFailed, failure(errno)};
}

LibraryTrace::~LibraryTrace() {
    host::stopTrace();
    close(mFd);
}

void LibraryTrace::end() {
    // Findings of half a trace would look like findings.
    if (const int error = host::stopTrace()) throw Stop{kFailed, failure(error)};
}

void LibraryTrace::read(const FtraceParser::Sink& sink) const {
    const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path().c_str(), "rbe"),
                                                     std::fclose);
    FtraceParser parser(sink);
    std::vector<char> piece(kPieceBytes);
    while (file && !std::feof(file.get()) && !std::ferror(file.get())) {
        const size_t size = std::fread(piece.data(), 1, piece.size(), file.get());
        parser.feed(std::string_view(piece.data(), size));
    }
    if (!file || std::ferror(file.get())) {
        throw Stop{kUnusable, "cannot read " + path() + ": " + std::strerror(errno)};
    }
    parser.finish();
}

std::string LibraryTrace::failure(int error) const {
    return "cannot write the library's trace in " + mFolder.string() + ": " + std::strerror(error);
}

}  // namespace corvane::replay
