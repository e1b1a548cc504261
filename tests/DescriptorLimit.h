// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <iterator>

namespace android {

// The number that the process's next descriptor will get.
inline int nextDescriptor() {
    const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(fd);
    return fd;
}

inline size_t openDescriptors() {
    const std::filesystem::directory_iterator open("/proc/self/fd");
    return static_cast<size_t>(std::distance(open, {}));
}

// While it lives, the process can open only `count` more descriptors, provided that those open have
// no gaps below the next. UBSan opens a pipe when it first meets an object's type, so a test
// creates one object of each type before it limits.
class ScopedDescriptorLimit {
  public:
    explicit ScopedDescriptorLimit(int count) {
        EXPECT_EQ(0, getrlimit(RLIMIT_NOFILE, &mPrevious));
        rlimit limit = mPrevious;
        limit.rlim_cur = static_cast<rlim_t>(nextDescriptor() + count);
        EXPECT_EQ(0, setrlimit(RLIMIT_NOFILE, &limit));
    }
    ~ScopedDescriptorLimit() { setrlimit(RLIMIT_NOFILE, &mPrevious); }

  private:
    rlimit mPrevious{};
};

}  // namespace android
