// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// The emulated devices, thread failures, trace capture, binder callers, and strong pointers. Log
// capture and the devices' bookkeeping are under test wherever the library's tests read them.

#include <binder/IPCThreadState.h>
#include <cutils/trace.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/sync_file.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utils/RefBase.h>

#include <atomic>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <regex>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "corvane/host/Binder.h"
#include "corvane/host/Devices.h"
#include "corvane/host/Simulation.h"
#include "corvane/host/Threads.h"
#include "corvane/host/TraceCapture.h"

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

TEST(Devices, EverythingElseGoesToTheKernel) {
    BoostDevice::enable();
    const std::string path = ::testing::TempDir() + "corvane_open_test_" + std::to_string(getpid());
    const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600);
    ASSERT_GE(fd, 0);
    struct stat status {};
    ASSERT_EQ(0, fstat(fd, &status));
    EXPECT_EQ(0600u, status.st_mode & 0777);
    ASSERT_EQ(3, write(fd, "abc", 3));
    lseek(fd, 0, SEEK_SET);
    int available = 0;
    EXPECT_EQ(0, ioctl(fd, FIONREAD, &available));
    EXPECT_EQ(3, available);
    close(fd);
    unlink(path.c_str());
}

TEST(Threads, FailAsManyTimesAsTold) {
    failThreadCreation(2);
    for (const int error : {EAGAIN, EAGAIN, 0}) {
        int caught = 0;
        try {
            std::thread([] {}).join();
        } catch (const std::system_error& e) {
            caught = e.code().value();
        }
        EXPECT_EQ(error, caught);
    }
}

TEST(Binder, CallerBelongsToTheThreadAndTheScope) {
    const auto* self = android::IPCThreadState::self();
    {
        const ScopedBinderCaller outer(100, 10'001);
        {
            const ScopedBinderCaller inner(200, 10'002);
            EXPECT_EQ(200, self->getCallingPid());
            EXPECT_EQ(10'002u, self->getCallingUid());
        }
        EXPECT_EQ(100, self->getCallingPid());
        std::thread([] {
            EXPECT_EQ(getpid(), android::IPCThreadState::self()->getCallingPid());
        }).join();
    }
    EXPECT_EQ(getpid(), self->getCallingPid());
    EXPECT_EQ(getuid(), self->getCallingUid());
}

TEST(TraceCapture, WritesFtraceText) {
    const std::string path = ::testing::TempDir() + "corvane_trace_" + std::to_string(getpid());
    EXPECT_FALSE(startTrace("/no/such/folder/trace", ATRACE_TAG_GRAPHICS));
    EXPECT_EQ(0u, atrace_get_enabled_tags());
    atrace_begin(ATRACE_TAG_GRAPHICS, "before");

    Simulation simulation(1'000'000'000'007'000);
    ASSERT_TRUE(startTrace(path, ATRACE_TAG_GRAPHICS));
    EXPECT_EQ(static_cast<uint64_t>(ATRACE_TAG_GRAPHICS), atrace_get_enabled_tags());
    std::thread([] {
        pthread_setname_np(pthread_self(), "a thread");
        atrace_begin(ATRACE_TAG_GRAPHICS, "slice\nC|1|forged|1");
        atrace_end(ATRACE_TAG_GRAPHICS);
        atrace_async_begin(ATRACE_TAG_GRAPHICS, "async", -3);
        atrace_async_end(ATRACE_TAG_GRAPHICS, "async", -3);
        atrace_int64(ATRACE_TAG_GRAPHICS, "counter", INT64_MIN);
    }).join();
    stopTrace();
    EXPECT_EQ(0u, atrace_get_enabled_tags());
    atrace_begin(ATRACE_TAG_GRAPHICS, "after");

    std::ifstream file(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    unlink(path.c_str());
    ASSERT_EQ(8u, lines.size());
    EXPECT_EQ("# tracer: nop", lines[0]);
    const std::string pid = std::to_string(Simulation::processId());
    const std::string events[] = {"B|" + pid + "|slice C|1|forged|1", "E|" + pid,
                                  "S|" + pid + "|async|-3", "F|" + pid + "|async|-3",
                                  "C|" + pid + "|counter|-9223372036854775808"};
    const std::regex line(" *a thread-\\d+ +\\( *" + pid +
                          "\\) \\[\\d{3}\\] \\.{4} 1000000\\.000007: tracing_mark_write: (.*)");
    for (size_t i = 0; i < std::size(events); ++i) {
        std::smatch match;
        ASSERT_TRUE(std::regex_match(lines[i + 3], match, line)) << lines[i + 3];
        EXPECT_EQ(events[i], match[1]);
    }
}

// What the last owner destroys, the others have used: no race, and the sanitizer must see that.
template <typename Base>
struct Shared : public Base {
    explicit Shared(std::atomic<int>* alive) : mAlive(alive) { ++*mAlive; }
    ~Shared() {
        mUsed = -1;
        --*mAlive;
    }
    std::atomic<int>* const mAlive;
    int mUsed = 0;
};
struct Counted : public Shared<android::RefBase> {
    using Shared::Shared;
};
struct LightCounted : public Shared<android::LightRefBase<LightCounted>> {
    using Shared::Shared;
};

template <typename T>
void useAndDropFromThreads() {
    std::atomic<int> alive{0};
    for (int round = 0; round < 100; ++round) {
        android::sp<T> object = android::sp<T>::make(&alive);
        std::vector<std::thread> owners;
        for (int i = 0; i < 3; ++i) {
            owners.emplace_back([owned = object]() mutable {
                EXPECT_EQ(0, owned->mUsed);
                owned.clear();
            });
        }
        object.clear();
        for (std::thread& owner : owners) owner.join();
        EXPECT_EQ(0, alive);
    }
}

TEST(StrongPointer, LastOwnerMayDestroyWhatOthersUsed) {
    useAndDropFromThreads<Counted>();
    useAndDropFromThreads<LightCounted>();
}

}  // namespace
}  // namespace corvane::host
