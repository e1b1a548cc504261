// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// The driven clock: what waits on it, and that a real signal still ends a wait.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>
#include <utils/Condition.h>
#include <utils/Mutex.h>
#include <utils/Timers.h>

#include <atomic>
#include <cerrno>
#include <optional>
#include <thread>
#include <vector>

#include "corvane/host/Clock.h"

namespace android {
namespace {

using corvane::host::DrivenClock;

constexpr int64_t kStart = 5'000'000'000;
constexpr int64_t kMs = 1'000'000;

int64_t clockGettime() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1'000'000'000 + now.tv_nsec;
}

int sleepFor(int64_t ns) {
    const timespec duration{0, ns};
    return nanosleep(&duration, nullptr);
}

class DrivenClockTest : public ::testing::Test {
  protected:
    DrivenClockTest() : mFd(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)) {}
    ~DrivenClockTest() override { close(mFd); }

    int waitFor(int64_t ns) {
        Mutex::Autolock lock(mMutex);
        return mCondition.waitRelative(mMutex, ns);
    }
    static int arm(int fd, int64_t ns, int flags = 0) {
        const itimerspec when{{0, 0}, {ns / 1'000'000'000, ns % 1'000'000'000}};
        return timerfd_settime(fd, flags, &when, nullptr);
    }
    bool hasExpired(int timeoutMs) const {
        pollfd p{mFd, POLLIN, 0};
        return poll(&p, 1, timeoutMs) == 1;
    }

    const int mFd;
    std::optional<DrivenClock> mClock{kStart};
    Mutex mMutex;
    Condition mCondition;
};

TEST_F(DrivenClockTest, LeavesTheKernelsClockWhenItGoes) {
    EXPECT_EQ(kStart, systemTime(SYSTEM_TIME_MONOTONIC));
    EXPECT_EQ(kStart, clockGettime());
    mClock->advance(3);
    EXPECT_EQ(kStart + 3, systemTime());
    mClock->advanceTo(kStart + 10);
    mClock->advanceTo(kStart);  // never back
    EXPECT_EQ(kStart + 10, mClock->now());
    EXPECT_GT(systemTime(SYSTEM_TIME_REALTIME), 1'500'000'000'000'000'000);
    mClock.reset();
    EXPECT_NEAR(systemTime(), clockGettime(), 1e10);
}

TEST_F(DrivenClockTest, ConditionWaitTimesOutAtTheDeadlineOnly) {
    EXPECT_EQ(-ETIMEDOUT, waitFor(0)) << "it is due already";
    std::atomic<int> result{1};
    std::thread waiter([&] { result = waitFor(10 * kMs); });
    ASSERT_TRUE(mClock->waitForSleepers(1));
    EXPECT_EQ(kStart + 10 * kMs, mClock->nextDeadline());
    mClock->advance(10 * kMs - 1);
    EXPECT_EQ(1u, mClock->sleepers());
    EXPECT_EQ(1, result);
    mClock->advance(1);
    EXPECT_EQ(0u, mClock->sleepers());
    waiter.join();
    EXPECT_EQ(-ETIMEDOUT, result);
    EXPECT_EQ(-1, mClock->nextDeadline());
}

TEST_F(DrivenClockTest, SignalEndsAConditionWait) {
    // Signals without the mutex, which may fall between two looks at the time.
    for (int i = 0; i < 200; ++i) {
        int result = 1;
        std::thread waiter([&] { result = waitFor(INT64_MAX); });
        ASSERT_TRUE(mClock->waitForSleepers(1));
        if (i % 2 == 0) {
            mCondition.signal();
        } else {
            mCondition.broadcast();
        }
        waiter.join();
        ASSERT_EQ(OK, result);
    }
}

TEST_F(DrivenClockTest, NanosleepFollowsIt) {
    std::vector<std::thread> threads;
    for (int i = 1; i <= 4; ++i) {
        threads.emplace_back([i] {
            EXPECT_EQ(0, sleepFor(i * kMs));
            EXPECT_GE(systemTime(), kStart + i * kMs);
        });
    }
    ASSERT_TRUE(mClock->waitForSleepers(4));
    mClock->advance(2 * kMs);
    EXPECT_EQ(2u, mClock->sleepers());
    EXPECT_EQ(kStart + 3 * kMs, mClock->nextDeadline());
    mClock->advance(2 * kMs);
    for (std::thread& thread : threads) thread.join();

    for (int driven = 1; driven >= 0; --driven) {
        if (driven == 0) mClock.reset();
        for (const timespec bad : {timespec{0, -1}, timespec{0, 1'000'000'000}, timespec{-1, 0}}) {
            errno = 0;
            EXPECT_EQ(-1, nanosleep(&bad, nullptr));
            EXPECT_EQ(EINVAL, errno);
        }
        EXPECT_EQ(0, sleepFor(0));
    }
}

// Many threads that wait in every way while the clock moves: each wait ends, none before its time.
TEST_F(DrivenClockTest, CarriesManyThreads) {
    constexpr int kThreads = 8;
    constexpr int kRounds = 20;
    std::atomic<int> running{kThreads};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            const int64_t waitNs = (i / 2 + 1) * kMs;
            for (int round = 0; round < kRounds; ++round) {
                const int64_t deadline = systemTime() + waitNs;
                // A condition wait ends by a signal of the others, or by time.
                const bool byTime = i % 2 == 0 ? waitFor(waitNs) != OK : sleepFor(waitNs) == 0;
                if (byTime) {
                    EXPECT_GE(systemTime(), deadline);
                }
                if (i % 2 != 0) mCondition.broadcast();
            }
            --running;
        });
    }
    while (running > 0) {
        const int64_t next = mClock->nextDeadline();
        if (next < 0) {
            std::this_thread::yield();
        } else {
            mClock->advanceTo(next);
        }
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(0u, mClock->sleepers());
}

TEST_F(DrivenClockTest, TimerDescriptorExpiresAtTheDeadline) {
    for (const bool absolute : {true, false}) {
        const int64_t deadline = mClock->now() + 7 * kMs;
        ASSERT_EQ(0, absolute ? arm(mFd, deadline, TFD_TIMER_ABSTIME) : arm(mFd, 7 * kMs));
        EXPECT_EQ(deadline, mClock->nextDeadline());
        mClock->advance(7 * kMs - 1);
        EXPECT_FALSE(hasExpired(20));
        mClock->advance(1);
        EXPECT_TRUE(hasExpired(10'000));
        uint64_t expiries = 0;
        EXPECT_EQ(8, read(mFd, &expiries, sizeof(expiries)));
        EXPECT_EQ(1u, expiries);
        EXPECT_EQ(-1, mClock->nextDeadline());
    }
    ASSERT_EQ(0, arm(mFd, kStart - 1, TFD_TIMER_ABSTIME));
    EXPECT_TRUE(hasExpired(10'000)) << "the deadline is past";
    ASSERT_EQ(0, arm(mFd, 0));
    EXPECT_FALSE(hasExpired(0)) << "disarmed";

    const int closed = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK);
    ASSERT_EQ(0, arm(closed, 1));
    close(closed);
    mClock->advance(kMs);
    EXPECT_EQ(-1, mClock->nextDeadline()) << "a closed descriptor is forgotten";
    EXPECT_EQ(-1, arm(-1, 1));
    EXPECT_EQ(EBADF, errno);

    ASSERT_EQ(0, arm(mFd, 5 * kMs));
    mClock.reset();
    EXPECT_TRUE(hasExpired(10'000)) << "it goes on in real time when the clock is let go";
}

}  // namespace
}  // namespace android
