// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/Spool.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "replay/Stop.h"

namespace corvane::replay {
namespace {

constexpr int kNoFile = -1;

// Constant at first and never destroyed: records may come from any thread until the process ends.
std::atomic<int> sFile{kNoFile};
std::atomic<uint32_t> sBlocks{0};
std::atomic<int> sError{0};  // the first failure's errno

void fail(int error) {
    int none = 0;
    sError.compare_exchange_strong(none, error);
}

int openFile() {
    std::error_code error;
    std::string name = std::filesystem::temp_directory_path(error) / "corvane-replay-XXXXXX";
    const int fd = mkostemp(name.data(), O_CLOEXEC);
    if (fd >= 0) unlink(name.c_str());
    return fd;
}

// The one file, whichever thread needs it first.
int file() {
    const int known = sFile;
    if (known != kNoFile) return known;
    const int fd = openFile();
    if (fd < 0) return fd;
    int opened = kNoFile;
    if (sFile.compare_exchange_strong(opened, fd)) return fd;
    close(fd);
    return opened;
}

off_t offsetOf(uint32_t block) {
    return static_cast<off_t>(block) * static_cast<off_t>(SpoolFile::kBlockBytes);
}

// Calls `transfer` with how much is done until all is. 0 or an errno.
template <typename Transfer>
int transferAll(size_t bytes, Transfer transfer) {
    for (size_t done = 0; done < bytes;) {
        const ssize_t some = transfer(done);
        if (some < 0 && errno != EINTR) return errno;
        if (some == 0) return EIO;
        if (some > 0) done += static_cast<size_t>(some);
    }
    return 0;
}

}  // namespace

uint32_t SpoolFile::append(const void* records, size_t bytes) {
    const uint32_t block = sBlocks++;
    write(block, records, bytes);
    return block;
}

void SpoolFile::write(uint32_t block, const void* records, size_t bytes) {
    const int fd = file();
    const int error = fd < 0 ? errno : transferAll(bytes, [&](size_t done) {
        return pwrite(fd, static_cast<const char*>(records) + done, bytes - done,
                      offsetOf(block) + static_cast<off_t>(done));
    });
    if (error != 0) fail(error);
}

void SpoolFile::read(uint32_t block, void* records, size_t bytes) {
    check();
    const int error = transferAll(bytes, [&](size_t done) {
        return pread(sFile, static_cast<char*>(records) + done, bytes - done,
                     offsetOf(block) + static_cast<off_t>(done));
    });
    if (error == 0) return;
    fail(error);
    check();
}

void SpoolFile::check() {
    if (sError == 0) return;
    std::error_code ignored;
    throw Stop{kFailed, "cannot keep what is replayed in a file in " +
                                std::filesystem::temp_directory_path(ignored).string() + ": " +
                                std::strerror(sError)};
}

}  // namespace corvane::replay
