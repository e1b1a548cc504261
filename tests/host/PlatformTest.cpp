// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// The emulated devices and strong pointers. What else the host stands in for is under
// test wherever the library's tests and the replay's rely on it.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/sync_file.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utils/RefBase.h>

#include <cerrno>
#include <thread>
#include <vector>

#include "corvane/host/Devices.h"

namespace corvane::host {
namespace {

constexpr char kBoostPath[] = "/dev/zufta";
constexpr unsigned long kBoostRequest = 0x400C6701;
constexpr unsigned long kSetDeadline = 0x40103E05;

int errorOf(int result) {
    return result < 0 ? errno : 0;
}

TEST(Devices, AnswerTheirOwnRequestsOnly) {
    EXPECT_EQ(ENOENT, errorOf(open(kBoostPath, O_RDONLY)));
    EXPECT_EQ(0, BoostDevice::openCount());
    BoostDevice::enable();
    BoostDevice::failOpen(EACCES);
    EXPECT_EQ(EACCES, errorOf(open(kBoostPath, O_RDONLY)));
    BoostDevice::failOpen(0);
    const int boost = open(kBoostPath, O_RDONLY);
    EXPECT_EQ(2, BoostDevice::openCount());
    const int32_t record[] = {2, 1'500'000, 690};
    EXPECT_EQ(0, ioctl(boost, kBoostRequest, record));
    EXPECT_EQ(ENOTTY, errorOf(ioctl(boost, kBoostRequest + 1, record)));

    const int fence = SyncFiles::create("a-timeline-with-a-name-longer-than-32-bytes");
    const uint64_t deadline[] = {77, 0};
    sync_file_info info{};
    EXPECT_EQ(0, ioctl(fence, SYNC_IOC_FILE_INFO, &info));
    EXPECT_STREQ("a-timeline-with-a-name-longer-t", info.name);
    EXPECT_EQ(ENOTTY, errorOf(ioctl(fence, kBoostRequest, record)));

    // The numbers given out again are other files.
    close(boost);
    close(fence);
    EXPECT_EQ(EBADF, errorOf(ioctl(fence, kSetDeadline, deadline)));
    const int others[] = {open("/dev/null", O_RDONLY), open("/dev/null", O_RDONLY)};
    for (const int other : others) {
        EXPECT_EQ(-1, ioctl(other, kBoostRequest, record));
        EXPECT_EQ(-1, ioctl(other, kSetDeadline, deadline));
        close(other);
    }
    EXPECT_EQ(1u, BoostDevice::requests().size());
    EXPECT_EQ(0u, SyncFiles::deadlines().size());
}

// What the last owner destroys, the others have used: no race, and ThreadSanitizer must see that.
struct Shared : public android::LightRefBase<Shared> {
    ~Shared() { mUsed = -1; }
    int mUsed = 0;
};

TEST(StrongPointer, LastOwnerMayDestroyWhatOthersUsed) {
    for (int round = 0; round < 100; ++round) {
        android::sp<Shared> object = android::sp<Shared>::make();
        std::vector<std::thread> owners;
        for (int i = 0; i < 3; ++i) {
            owners.emplace_back([owned = object]() mutable {
                EXPECT_EQ(0, owned->mUsed);
                owned.clear();
            });
        }
        object.clear();
        for (std::thread& owner : owners) owner.join();
    }
}

}  // namespace
}  // namespace corvane::host
