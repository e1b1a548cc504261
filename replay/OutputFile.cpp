// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/OutputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

#include "replay/Stop.h"

namespace corvane::replay {
namespace {

constexpr mode_t kMode = 0666;  // less what the user's mask takes

// A file by what it is, not by one of its names. Two devices of one number are no clash: a terminal
// is read and written, and the null device takes everything.
std::string identityOf(const std::string& path, int standardFd) {
    struct stat status {};
    const bool standard = path == kStandardStream;
    const int result = standard ? fstat(standardFd, &status) : stat(path.c_str(), &status);
    if (result == 0 && (S_ISREG(status.st_mode) || S_ISFIFO(status.st_mode))) {
        return std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
    }
    if (standard) return path;
    if (result == 0) return "";
    std::error_code ignored;
    return std::filesystem::weakly_canonical(path, ignored);
}

std::string nameOf(const std::string& path) {
    return path == kStandardStream ? "standard output" : path;
}

}  // namespace

void refuseClashes(const std::vector<std::string>& inputs,
                   const std::vector<std::string>& outputs) {
    for (size_t i = 0; i < outputs.size(); ++i) {
        if (outputs[i].empty()) continue;
        const std::string identity = identityOf(outputs[i], STDOUT_FILENO);
        if (identity.empty()) continue;
        for (const auto& input : inputs) {
            // Standard input and output are two even where neither is a file.
            if (input.empty() || (input == kStandardStream && identity == kStandardStream))
                continue;
            if (identityOf(input, STDIN_FILENO) == identity) {
                throw Stop{kUnusable, nameOf(outputs[i]) + " would be written over the input"};
            }
        }
        for (size_t other = 0; other < i; ++other) {
            if (outputs[other].empty()) continue;
            if (identityOf(outputs[other], STDOUT_FILENO) == identity) {
                throw Stop{kUnusable, "two outputs would be written to " + nameOf(outputs[i])};
            }
        }
    }
}

OutputFile::OutputFile(std::string path) : mPath(std::move(path)) {
    if (mPath.empty()) return;
    mFd = isStandardOutput() ? dup(STDOUT_FILENO)
                             : open(mPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kMode);
    if (mFd >= 0) return;
    throw Stop{kUnusable, "cannot write " + nameOf(mPath) + ": " + std::strerror(errno)};
}

OutputFile::~OutputFile() {
    if (mFd >= 0) close(mFd);
}

void OutputFile::write(std::string_view piece) {
    while (!piece.empty() && mError == 0) {
        const ssize_t count = ::write(mFd, piece.data(), piece.size());
        if (count > 0) {
            piece.remove_prefix(static_cast<size_t>(count));
        } else if (count == 0 || errno != EINTR) {
            mError = count == 0 ? EIO : errno;
        }
    }
}

std::string OutputFile::finish(std::string_view last) {
    write(last);
    // Some file systems tell only now that the disk is full.
    if (close(std::exchange(mFd, -1)) != 0 && mError == 0 && errno != EINTR) mError = errno;
    return mError == 0 ? "" : "cannot write " + nameOf(mPath) + ": " + std::strerror(mError);
}

}  // namespace corvane::replay
