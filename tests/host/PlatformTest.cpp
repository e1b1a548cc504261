// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// The emulated devices, thread failures, log and trace capture, binder callers, and strong
// pointers.

#include <android/log.h>
#include <binder/IPCThreadState.h>
#include <cutils/trace.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <gui/SurfaceComposerClient.h>
#include <linux/sync_file.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <ui/Rect.h>
#include <unistd.h>
#include <utils/RefBase.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <regex>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "corvane/host/Binder.h"
#include "corvane/host/Clock.h"
#include "corvane/host/Devices.h"
#include "corvane/host/LogCapture.h"
#include "corvane/host/Threads.h"
#include "corvane/host/TraceCapture.h"

namespace corvane::host {
namespace {

constexpr char kBoostPath[] = "/dev/zufta";
constexpr unsigned long kBoostRequest = 0x400C6701;
constexpr unsigned long kSetDeadline = 0x40103E05;

TEST(BoostDevice, ExistsOnlyWhenEnabled) {
    EXPECT_EQ(-1, open(kBoostPath, O_RDONLY));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ(0, BoostDevice::openCount());

    BoostDevice::enable();
    BoostDevice::failOpen(EACCES);
    EXPECT_EQ(-1, open(kBoostPath, O_RDONLY));
    EXPECT_EQ(EACCES, errno);
    BoostDevice::failOpen(0);
    const int fd = open(kBoostPath, O_RDONLY);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(2, BoostDevice::openCount());
    const int32_t record[] = {2, 1'500'000, 690};
    EXPECT_EQ(0, ioctl(fd, kBoostRequest, record));
    BoostDevice::failIoctl(EIO);
    EXPECT_EQ(-1, ioctl(fd, kBoostRequest, record));
    EXPECT_EQ(EIO, errno);
    EXPECT_EQ(-1, ioctl(fd, kBoostRequest + 1, record));
    EXPECT_EQ(ENOTTY, errno);
    ASSERT_TRUE(BoostDevice::waitForRequests(2));
    const BoostRequest request = BoostDevice::requests()[0];
    EXPECT_EQ(2, request.level);
    EXPECT_EQ(1'500'000, request.headroomNs);
    EXPECT_EQ(690, request.freqMHz);
    EXPECT_EQ(static_cast<uint64_t>(gettid()), request.threadId);

    // The number given out again is another file.
    close(fd);
    const int other = open("/dev/null", O_RDONLY);
    EXPECT_EQ(-1, ioctl(other, kBoostRequest, record));
    EXPECT_EQ(2u, BoostDevice::requests().size());
    close(other);
}

TEST(SyncFiles, AnswerInfoAndTakeDeadlines) {
    const int fd = SyncFiles::create("a-timeline-with-a-name-longer-than-32-bytes");
    const uint64_t deadline[] = {77, 0};
    sync_file_info info{};
    ASSERT_EQ(0, ioctl(fd, SYNC_IOC_FILE_INFO, &info));
    EXPECT_STREQ("a-timeline-with-a-name-longer-t", info.name);
    EXPECT_EQ(0, ioctl(fd, kSetDeadline, deadline));
    SyncFiles::failInfo(EBADF);
    SyncFiles::failDeadline(ENOTTY);
    EXPECT_EQ(-1, ioctl(fd, SYNC_IOC_FILE_INFO, &info));
    EXPECT_EQ(EBADF, errno);
    EXPECT_EQ(-1, ioctl(fd, kSetDeadline, deadline));
    EXPECT_EQ(ENOTTY, errno);
    EXPECT_EQ(2, SyncFiles::infoCount());
    ASSERT_EQ(2u, SyncFiles::deadlines().size());
    EXPECT_EQ(fd, SyncFiles::deadlines()[0].fd);
    EXPECT_EQ(77u, SyncFiles::deadlines()[0].deadlineNs);
    close(fd);
    EXPECT_EQ(-1, ioctl(fd, kSetDeadline, deadline));
    EXPECT_EQ(EBADF, errno);
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
    const auto start = [] { std::thread([] {}).join(); };
    start();
    failThreadCreation(2);
    for (int i = 0; i < 2; ++i) {
        try {
            start();
            ADD_FAILURE() << "a thread was created";
        } catch (const std::system_error& error) {
            EXPECT_EQ(EAGAIN, error.code().value());
        }
    }
    start();
}

TEST(LogCapture, CollectsAllPrioritiesOfAllThreads) {
    LogCapture log;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back(
                [i] { __android_log_print(ANDROID_LOG_DEBUG, "Tag", "line %d of 100%%", i); });
    }
    EXPECT_TRUE(log.waitFor("of 100%", 4));
    for (std::thread& thread : threads) thread.join();
    const auto third = log.matching("line 3");
    ASSERT_EQ(1u, third.size());
    EXPECT_EQ(ANDROID_LOG_DEBUG, third[0].priority);
    EXPECT_EQ("Tag", third[0].tag);
    EXPECT_EQ("line 3 of 100%", third[0].text);
    log.clear();
    EXPECT_TRUE(log.lines().empty());
}

TEST(Binder, CallerBelongsToTheThreadAndTheScope) {
    const auto* self = android::IPCThreadState::self();
    EXPECT_EQ(getpid(), self->getCallingPid());
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
    EXPECT_EQ(getuid(), self->getCallingUid());
    android::SurfaceComposerClient::notifyPowerBoost(110);
    EXPECT_EQ(std::vector<int32_t>{110}, powerBoosts());
}

std::vector<std::string> linesOf(const std::string& path) {
    std::ifstream file(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    return lines;
}

TEST(TraceCapture, WritesFtraceText) {
    const std::string path = ::testing::TempDir() + "corvane_trace_" + std::to_string(getpid());
    EXPECT_EQ(0u, atrace_get_enabled_tags());
    atrace_begin(ATRACE_TAG_GRAPHICS, "before");
    EXPECT_FALSE(startTrace("/no/such/folder/trace", ATRACE_TAG_GRAPHICS));
    EXPECT_EQ(0u, atrace_get_enabled_tags());

    DrivenClock clock(1'000'000'000'007'000);
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
    atrace_begin(ATRACE_TAG_GRAPHICS, "after");
    EXPECT_EQ(0u, atrace_get_enabled_tags());

    std::vector<std::string> lines = linesOf(path);
    unlink(path.c_str());
    ASSERT_EQ(8u, lines.size());
    EXPECT_EQ("# tracer: nop", lines[0]);
    const std::string pid = std::to_string(getpid());
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
    ~Shared() { used = -1; }
    int used = 0;
};
struct LightShared : public android::LightRefBase<LightShared> {
    ~LightShared() { used = -1; }
    int used = 0;
};

template <typename T>
void useAndDropFromThreads() {
    for (int round = 0; round < 100; ++round) {
        android::sp<T> object = android::sp<T>::make();
        std::vector<std::thread> owners;
        for (int i = 0; i < 3; ++i) {
            owners.emplace_back([owned = object]() mutable {
                EXPECT_EQ(0, owned->used);
                owned.clear();
            });
        }
        object.clear();
        for (std::thread& owner : owners) owner.join();
    }
}

TEST(StrongPointer, LastOwnerMayDestroyWhatOthersUsed) {
    useAndDropFromThreads<Shared<android::RefBase>>();
    useAndDropFromThreads<LightShared>();
}

struct Counted : public android::RefBase {
    explicit Counted(int* alive) : mAlive(alive) { ++*mAlive; }
    ~Counted() override { --*mAlive; }
    int* const mAlive;
};

TEST(StrongPointer, OwnsMovesAndPromotes) {
    using android::sp;
    int alive = 0;
    sp<Counted> a = sp<Counted>::make(&alive);
    EXPECT_EQ(1, a->getStrongCount());
    sp<android::RefBase> base = a;
    EXPECT_EQ(base, a);
    EXPECT_EQ(2, a->getStrongCount());
    base = std::move(a);
    EXPECT_EQ(nullptr, a);
    EXPECT_EQ(1, base->getStrongCount());
    a = sp<Counted>::fromExisting(static_cast<Counted*>(base.get()));
    EXPECT_EQ(2, base->getStrongCount());
    sp<Counted>& alias = a;
    a = std::move(alias);
    EXPECT_EQ(2, base->getStrongCount());
    const android::wp<Counted> weak = a;
    EXPECT_EQ(a, weak.promote());
    EXPECT_EQ(nullptr, sp<Counted>::fromExisting(nullptr));
    a.clear();
    base = nullptr;
    EXPECT_EQ(0, alive);
    EXPECT_EQ(nullptr, weak.promote());
}

TEST(StrongPointerDeathTest, FromExistingRefusesWhatNobodyOwns) {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    int alive = 0;
    auto* orphan = new Counted(&alive);
    EXPECT_DEATH(android::sp<Counted>::fromExisting(orphan), "");
    android::sp<Counted>(orphan).clear();
}

TEST(Rect, ComparesAndMeasures) {
    using android::Rect;
    EXPECT_EQ(Rect::INVALID_RECT, Rect());
    EXPECT_FALSE(Rect().isValid());
    EXPECT_EQ(Rect(0, 0, 30, 40), Rect(30, 40));
    EXPECT_NE(Rect(1, 0, 30, 40), Rect(30, 40));
    EXPECT_EQ(29, Rect(1, 2, 30, 40).getWidth());
    EXPECT_EQ(38, Rect(1, 2, 30, 40).getHeight());
    EXPECT_EQ(-1, Rect(INT32_MIN, 0, INT32_MAX, 1).getWidth());  // wraps, does not trap
}

}  // namespace
}  // namespace corvane::host
