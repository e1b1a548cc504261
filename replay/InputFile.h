// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <zlib.h>

#include <cstddef>
#include <string>

namespace corvane::replay {

// A file that is read once, from its beginning to its end; what gzip packed is unpacked on the way.
// Used from one thread.
class InputFile {
  public:
    // The name that stands for the standard input.
    static constexpr const char* kStandardInput = "-";

    explicit InputFile(const std::string& path);
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    // Fills `buffer` with what comes next and returns how much that is: 0 at the end, and from an
    // error on.
    size_t read(char* buffer, size_t size);

    // What the system says to a file that cannot be opened or read; empty while all is well.
    const std::string& error() const { return mError; }
    // The packed data are damaged or end early; what was read before them is good.
    bool isCutShort() const { return mCutShort; }

  private:
    gzFile mFile = nullptr;
    std::string mError;
    bool mCutShort = false;
};

// The whole of a small file, such as a scenario. Without a text `error` says why, as the end of a
// sentence that begins with the file's name.
struct TextResult {
    std::string text;
    std::string error;
};
TextResult readText(const std::string& path);

}  // namespace corvane::replay
