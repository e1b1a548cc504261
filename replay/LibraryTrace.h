// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <filesystem>
#include <string>

#include "replay/FtraceParser.h"

namespace corvane::replay {

// The library's trace while it plays, which the findings are drawn from: a file without a name,
// which goes away with the process however that ends. It may be long: it is read piece by piece,
// and never held as a whole.
class LibraryTrace {
  public:
    // Starts it. Throws Stop when there is no place for it.
    LibraryTrace();
    ~LibraryTrace();
    LibraryTrace(const LibraryTrace&) = delete;
    LibraryTrace& operator=(const LibraryTrace&) = delete;

    // Nothing more is traced. Throws Stop when it is not whole.
    void end();
    // All events of an ended trace, in its order; any number of times. Throws Stop.
    void read(const FtraceParser::Sink& sink) const;

  private:
    std::string path() const { return "/proc/self/fd/" + std::to_string(mFd); }
    std::string failure(int error) const;

    const std::filesystem::path mFolder;
    int mFd = -1;
};

}  // namespace corvane::replay
