// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace corvane::replay {

// Stands for standard input among the inputs, for standard output among the outputs.
constexpr const char* kStandardStream = "-";

// Throws Stop when an output is one of the inputs, by whatever name, or another output. Empty paths
// are none. Changes nothing, so that it can go before the first output is opened.
void refuseClashes(const std::vector<std::string>& inputs, const std::vector<std::string>& outputs);

// A file that is written at the program's end and opened before it plays, so that nobody waits for
// a report that has no place. Used from one thread.
class OutputFile {
  public:
    // Empties the file or creates it; throws Stop when it cannot. An empty path is no file.
    explicit OutputFile(std::string path);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    bool isOpen() const { return mFd >= 0; }
    bool isStandardOutput() const { return mPath == kStandardStream; }
    // The next piece. Once one has failed, nothing more is written.
    void write(std::string_view piece);
    // Writes the last piece and closes the file. Returns what failed since it was opened, as a
    // sentence, or nothing.
    std::string finish(std::string_view last = {});

  private:
    const std::string mPath;
    int mFd = -1;
    int mError = 0;  // of the first write that failed
};

}  // namespace corvane::replay
