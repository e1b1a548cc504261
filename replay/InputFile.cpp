// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/InputFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

namespace corvane::replay {
namespace {

constexpr unsigned kPackedBuffer = 262'144;  // what one read of the system takes
constexpr size_t kMaxText = 16'777'216;      // of a small file; far more than a person writes

}  // namespace

InputFile::InputFile(const std::string& path) {
    // A descriptor of its own, since closing the file closes it.
    const int fd = path == kStandardInput ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                                          : open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        mError = std::strerror(errno);
        return;
    }
    mFile = gzdopen(fd, "r");
    if (mFile == nullptr) {
        close(fd);
        mError = std::strerror(ENOMEM);
        return;
    }
    gzbuffer(mFile, kPackedBuffer);
}

InputFile::~InputFile() {
    if (mFile != nullptr) gzclose_r(mFile);
}

size_t InputFile::read(char* buffer, size_t size) {
    if (mFile == nullptr || !mError.empty() || mCutShort) return 0;
    const int count = gzread(mFile, buffer, static_cast<unsigned>(std::min<size_t>(size, INT_MAX)));
    if (count > 0) return static_cast<size_t>(count);
    const int systemError = errno;
    int error = Z_OK;
    const char* const text = gzerror(mFile, &error);
    if (error == Z_ERRNO) {
        mError = std::strerror(systemError);
    } else if (error == Z_DATA_ERROR || error == Z_BUF_ERROR) {
        mCutShort = true;
    } else if (error != Z_OK && error != Z_STREAM_END) {
        mError = text;
    }
    return 0;
}

TextResult readText(const std::string& path) {
    InputFile file(path);
    std::string text;
    char buffer[65'536];
    while (const size_t count = file.read(buffer, sizeof(buffer))) {
        text.append(buffer, count);
        if (text.size() > kMaxText) return {{}, "is larger than 16 MB, which no such file is"};
    }
    if (!file.error().empty()) return {{}, "cannot be read: " + file.error()};
    if (file.isCutShort()) return {{}, "cannot be unpacked: it is damaged"};
    return {std::move(text), {}};
}

}  // namespace corvane::replay
