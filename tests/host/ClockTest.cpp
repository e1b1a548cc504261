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

bool isReadable(int fd, int timeoutMs) {
    pollfd p{fd, POLLIN, 0};
    return poll(&p, 1, timeoutMs) == 1;
}

TEST(Clock, IsTheKernelsUnlessDriven) {
    EXPECT_NEAR(systemTime(), clockGettime(), 1e10);
    const int64_t real = systemTime();
    {
        DrivenClock clock(kStart);
        EXPECT_EQ(kStart, systemTime(SYSTEM_TIME_MONOTONIC));
        EXPECT_EQ(kStart, clockGettime());
        clock.advance(3);
        EXPECT_EQ(kStart + 3, systemTime());
        clock.advanceTo(kStart + 10);
        clock.advanceTo(kStart);  // never back
        EXPECT_EQ(kStart + 10, clock.now());
        EXPECT_GT(systemTime(SYSTEM_TIME_REALTIME), 1'500'000'000'000'000'000);
    }
    EXPECT_GE(systemTime(), real);
}

TEST(Clock, ConditionWaitTimesOutAtTheDrivenDeadlineOnly) {
    DrivenClock clock(kStart);
    Mutex mutex;
    Condition condition;
    std::atomic<int> result{1};
    std::thread waiter([&] {
        Mutex::Autolock lock(mutex);
        result = condition.waitRelative(mutex, 10 * kMs);
    });
    ASSERT_TRUE(clock.waitForSleepers(1));
    EXPECT_EQ(kStart + 10 * kMs, clock.nextDeadline());
    clock.advance(10 * kMs - 1);
    EXPECT_EQ(1u, clock.sleepers());
    EXPECT_EQ(1, result);
    clock.advance(1);
    EXPECT_EQ(0u, clock.sleepers());
    waiter.join();
    EXPECT_EQ(-ETIMEDOUT, result);
    EXPECT_EQ(-1, clock.nextDeadline());
}

TEST(Clock, SignalEndsAConditionWait) {
    DrivenClock clock(kStart);
    Mutex mutex;
    Condition condition;
    // Signals without the mutex, which may fall between two looks at the time.
    for (int i = 0; i < 200; ++i) {
        int result = 1;
        std::thread waiter([&] {
            Mutex::Autolock lock(mutex);
            result = condition.waitRelative(mutex, INT64_MAX);
        });
        ASSERT_TRUE(clock.waitForSleepers(1));
        if (i % 2 == 0) {
            condition.signal();
        } else {
            condition.broadcast();
        }
        waiter.join();
        ASSERT_EQ(OK, result);
    }
}

TEST(Clock, PastDeadlineTimesOutAtOnce) {
    DrivenClock clock(kStart);
    Mutex mutex;
    Condition condition;
    Mutex::Autolock lock(mutex);
    EXPECT_EQ(-ETIMEDOUT, condition.waitRelative(mutex, 0));
}

TEST(Clock, NanosleepFollowsIt) {
    DrivenClock clock(kStart);
    std::vector<std::thread> threads;
    std::atomic<int> awake{0};
    for (int i = 1; i <= 4; ++i) {
        threads.emplace_back([&, i] {
            const timespec duration{0, i * kMs};
            EXPECT_EQ(0, nanosleep(&duration, nullptr));
            EXPECT_GE(systemTime(), kStart + i * kMs);
            ++awake;
        });
    }
    ASSERT_TRUE(clock.waitForSleepers(4));
    clock.advance(2 * kMs);
    EXPECT_EQ(2u, clock.sleepers());
    EXPECT_EQ(kStart + 3 * kMs, clock.nextDeadline());
    clock.advance(2 * kMs);
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(4, awake);
}

TEST(Clock, NanosleepRefusesAnInvalidDuration) {
    for (const bool driven : {false, true}) {
        const auto clock = driven ? std::make_unique<DrivenClock>(kStart) : nullptr;
        for (const timespec bad : {timespec{0, -1}, timespec{0, 1'000'000'000}, timespec{-1, 0}}) {
            errno = 0;
            EXPECT_EQ(-1, nanosleep(&bad, nullptr));
            EXPECT_EQ(EINVAL, errno);
        }
        const timespec none{0, 0};
        EXPECT_EQ(0, nanosleep(&none, nullptr));
    }
}

// Many threads that wait in every way while the clock moves: each wait ends, none before its time.
TEST(Clock, CarriesManyThreads) {
    constexpr int kThreadsEach = 4;
    constexpr int kRounds = 20;
    DrivenClock clock(kStart);
    Mutex mutex;
    Condition condition;
    std::atomic<int> running{2 * kThreadsEach};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreadsEach; ++i) {
        threads.emplace_back([&, i] {
            for (int round = 0; round < kRounds; ++round) {
                const int64_t deadline = systemTime() + (i + 1) * kMs;
                Mutex::Autolock lock(mutex);
                // Ends by a signal of the others, or by time.
                if (condition.waitRelative(mutex, (i + 1) * kMs) == -ETIMEDOUT) {
                    EXPECT_GE(systemTime(), deadline);
                }
            }
            --running;
        });
        threads.emplace_back([&, i] {
            for (int round = 0; round < kRounds; ++round) {
                const int64_t deadline = systemTime() + (i + 1) * kMs;
                const timespec duration{0, (i + 1) * kMs};
                nanosleep(&duration, nullptr);
                EXPECT_GE(systemTime(), deadline);
                condition.broadcast();
            }
            --running;
        });
    }
    while (running > 0) {
        const int64_t next = clock.nextDeadline();
        if (next < 0) {
            std::this_thread::yield();
        } else {
            clock.advanceTo(next);
        }
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(0u, clock.sleepers());
}

class TimerDescriptor : public ::testing::Test {
  protected:
    TimerDescriptor() : mFd(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)) {}
    ~TimerDescriptor() override { close(mFd); }

    int arm(int64_t ns, int flags) {
        const itimerspec when{{0, 0}, {ns / 1'000'000'000, ns % 1'000'000'000}};
        return timerfd_settime(mFd, flags, &when, nullptr);
    }

    const int mFd;
};

TEST_F(TimerDescriptor, ExpiresAtTheDrivenDeadline) {
    DrivenClock clock(kStart);
    for (const bool absolute : {true, false}) {
        const int64_t deadline = clock.now() + 7 * kMs;
        ASSERT_EQ(0, absolute ? arm(deadline, TFD_TIMER_ABSTIME) : arm(7 * kMs, 0));
        EXPECT_EQ(deadline, clock.nextDeadline());
        clock.advance(7 * kMs - 1);
        EXPECT_FALSE(isReadable(mFd, 20));
        clock.advance(1);
        EXPECT_TRUE(isReadable(mFd, 10'000));
        uint64_t expiries = 0;
        EXPECT_EQ(8, read(mFd, &expiries, sizeof(expiries)));
        EXPECT_EQ(1u, expiries);
        EXPECT_EQ(-1, clock.nextDeadline());
    }
}

TEST_F(TimerDescriptor, PastDeadlineExpiresAtOnceAndDisarmingClearsIt) {
    DrivenClock clock(kStart);
    ASSERT_EQ(0, arm(kStart - 1, TFD_TIMER_ABSTIME));
    EXPECT_TRUE(isReadable(mFd, 10'000));
    ASSERT_EQ(0, arm(0, 0));
    EXPECT_FALSE(isReadable(mFd, 0));

    const itimerspec when{{0, 0}, {0, 1}};
    EXPECT_EQ(-1, timerfd_settime(-1, 0, &when, nullptr));
    EXPECT_EQ(EBADF, errno);
}

TEST_F(TimerDescriptor, GoesOnInRealTimeWhenTheClockIsLetGo) {
    {
        DrivenClock clock(kStart);
        ASSERT_EQ(0, arm(kStart + 5 * kMs, TFD_TIMER_ABSTIME));
    }
    EXPECT_TRUE(isReadable(mFd, 10'000));
}

TEST_F(TimerDescriptor, ClosedDescriptorIsForgotten) {
    DrivenClock clock(kStart);
    const int other = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK);
    const itimerspec when{{0, 0}, {0, 1}};
    ASSERT_EQ(0, timerfd_settime(other, 0, &when, nullptr));
    close(other);
    clock.advance(kMs);
    EXPECT_EQ(-1, clock.nextDeadline());
}

}  // namespace
}  // namespace android
