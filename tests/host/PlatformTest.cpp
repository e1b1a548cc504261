// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// The emulated devices, properties and strong pointers. What else the host stands in for is under
// test wherever the library's tests and the replay's rely on it.

#include <android-base/properties.h>
#include <cutils/properties.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/sync_file.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utils/RefBase.h>

#include <cerrno>
#include <cstring>
#include <string>
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

    // Everything else is the kernel's.
    int pipes[2];
    ASSERT_EQ(0, pipe(pipes));
    ASSERT_EQ(3, write(pipes[1], "abc", 3));
    int available = 0;
    EXPECT_EQ(0, ioctl(pipes[0], FIONREAD, &available));
    EXPECT_EQ(3, available);
}

TEST(Properties, ReadThroughEveryInterfaceWithinTheirLimits) {
    const struct {
        const char* value;
        int8_t asBool;    // with the default 9
        int32_t asInt32;  // with the default -5
        int64_t asInt64;
    } cases[] = {{"", 9, -5, -5},     {"1", 1, 1, 1},
                 {"0", 0, 0, 0},      {"yes", 1, -5, -5},
                 {"off", 0, -5, -5},  {"0x10", 9, 16, 16},
                 {"12ms", 9, 12, 12}, {"3000000000", 9, -5, 3'000'000'000},
                 {"010", 9, 8, 8},    {"99999999999999999999", 9, -5, -5}};
    char value[PROPERTY_VALUE_MAX];
    for (const auto& c : cases) {
        SCOPED_TRACE(c.value);
        ASSERT_TRUE(android::base::SetProperty("a.b", c.value));
        EXPECT_EQ(*c.value == '\0' ? "none" : c.value, android::base::GetProperty("a.b", "none"));
        EXPECT_EQ(c.asBool, property_get_bool("a.b", 9));
        for (const bool byDefault : {false, true}) {
            EXPECT_EQ(c.asBool == 9 ? byDefault : c.asBool == 1,
                      android::base::GetBoolProperty("a.b", byDefault));
        }
        EXPECT_EQ(c.asInt32, property_get_int32("a.b", -5));
        EXPECT_EQ(c.asInt64, property_get_int64("a.b", -5));
        EXPECT_EQ(static_cast<int>(strlen(c.value)), property_get("a.b", value, nullptr));
        EXPECT_STREQ(c.value, value);
    }
    EXPECT_EQ(91, property_get("not.there", value, std::string(200, 'd').c_str()));
    EXPECT_EQ(3, property_get_int32(nullptr, 3));
    EXPECT_TRUE(android::base::SetProperty("a", std::string(91, 'x')));
    EXPECT_EQ(-1, property_set("a", std::string(92, 'y').c_str()));
    EXPECT_EQ(std::string(91, 'x'), android::base::GetProperty("a", ""));
    for (const char* bad : {"", ".a", "a.", "a..b", "a b", "a/b"}) {
        EXPECT_FALSE(android::base::SetProperty(bad, "1")) << bad;
    }
    EXPECT_TRUE(android::base::SetProperty("ro.once", "1"));
    EXPECT_FALSE(android::base::SetProperty("ro.once", "2"));
    EXPECT_EQ("1", android::base::GetProperty("ro.once", ""));
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
