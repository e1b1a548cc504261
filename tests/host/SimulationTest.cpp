// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <android-base/properties.h>
#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>
#include <utils/Condition.h>
#include <utils/Mutex.h>
#include <utils/Timers.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <future>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "corvane/host/Simulation.h"

namespace android {
namespace {

using corvane::host::Simulation;

constexpr int64_t kStart = 5'000'000'000;
constexpr int64_t kMs = 1'000'000;

timespec toTimespec(int64_t ns) {
    return {ns / 1'000'000'000, ns % 1'000'000'000};
}

// Waits with epoll until the descriptor is readable; whether it was.
bool poll(int fd, int timeoutMs) {
    const int epoll = epoll_create1(EPOLL_CLOEXEC);
    epoll_event event{EPOLLIN, {}};
    epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event);
    const bool isReadable = epoll_wait(epoll, &event, 1, timeoutMs) == 1;
    close(epoll);
    return isReadable;
}

// Waits of every kind that only time ends, begun by threads of their own at one instant: each ends
// at its deadline to the nanosecond.
TEST(SimulationTest, TheClockJumpsFromDeadlineToDeadline) {
    Simulation simulation(kStart);
    Mutex mutex;
    Condition condition;
    std::mutex stdMutex;
    std::condition_variable stdCondition;
    std::promise<void> promise;
    const auto future = promise.get_future().share();
    const int event = eventfd(0, 0);
    using std::chrono::nanoseconds;
    const std::function<void(int64_t)> waits[] = {
            [](int64_t ns) {
                const timespec duration = toTimespec(ns);
                nanosleep(&duration, nullptr);
            },
            [](int64_t ns) {
                const timespec until = toTimespec(Simulation::now() + ns);
                clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
            },
            [](int64_t ns) { Simulation::sleepFor(ns); },
            [&](int64_t ns) {
                Mutex::Autolock lock(mutex);
                EXPECT_EQ(-ETIMEDOUT, condition.waitRelative(mutex, ns));
            },
            [&](int64_t ns) {
                std::unique_lock<std::mutex> lock(stdMutex);
                EXPECT_FALSE(stdCondition.wait_for(lock, nanoseconds(ns), [] { return false; }));
            },
            [&](int64_t ns) {
                std::unique_lock<std::mutex> lock(stdMutex);
                const auto until = std::chrono::system_clock::now() + nanoseconds(ns);
                EXPECT_EQ(std::cv_status::timeout, stdCondition.wait_until(lock, until));
            },
            [&](int64_t ns) {
                EXPECT_EQ(std::future_status::timeout, future.wait_for(nanoseconds(ns)));
            },
            [&](int64_t ns) { EXPECT_FALSE(poll(event, static_cast<int>(ns / kMs))); },
            [](int64_t ns) {
                const int timer = timerfd_create(CLOCK_MONOTONIC, 0);
                itimerspec when{{0, 0}, toTimespec(Simulation::now() - 1)};
                timerfd_settime(timer, TFD_TIMER_ABSTIME, &when, nullptr);
                EXPECT_TRUE(poll(timer, 0)) << "the deadline is past";
                when.it_value = toTimespec(ns);
                timerfd_settime(timer, 0, &when, nullptr);
                EXPECT_FALSE(poll(timer, 0)) << "armed again, it has not expired";
                EXPECT_TRUE(poll(timer, -1));
                uint64_t expiries = 0;
                EXPECT_EQ(8, read(timer, &expiries, sizeof(expiries)));
                EXPECT_EQ(1u, expiries);
                // Closed while armed: its deadline is none, as the end of the test sees.
                timerfd_settime(timer, 0, &when, nullptr);
                close(timer);
            },
            [](int64_t ns) {
                EXPECT_FALSE(
                        base::WaitForProperty("never", "set", std::chrono::milliseconds(ns / kMs)));
            },
    };
    int64_t delay = 100 * kMs;
    std::vector<std::thread> threads;
    std::atomic<size_t> ended{0};
    for (const auto& wait : waits) {
        threads.emplace_back([&, delay] {
            wait(delay);
            EXPECT_EQ(kStart + delay, Simulation::now());
            EXPECT_EQ(kStart + delay, systemTime());
            EXPECT_EQ(kStart + delay, std::chrono::steady_clock::now().time_since_epoch().count());
            ++ended;
        });
        delay -= kMs;
    }
    simulation.settle();
    EXPECT_EQ(kStart, Simulation::now()) << "settling takes no time";
    EXPECT_EQ(kStart + delay + kMs, Simulation::nextDeadline());
    simulation.advanceTo(kStart + 95 * kMs);
    EXPECT_EQ(5u, ended);
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(kStart + 100 * kMs, Simulation::now());
    EXPECT_EQ(std::size(waits), ended);
    EXPECT_EQ(-1, Simulation::nextDeadline());
    close(event);
}

struct SlowStatic {
    SlowStatic() { Simulation::sleepFor(3 * kMs); }
};

// What one thread waits for and another does 3 ms later: the wait ends then, not before.
TEST(SimulationTest, WhatAnotherThreadDoesEndsAWait) {
    Simulation simulation(kStart);
    Mutex mutex;
    Condition condition;
    std::mutex stdMutex;
    std::condition_variable stdCondition;
    std::promise<void> promise;
    std::once_flag once;
    std::thread sleeper;
    bool isSet = false;
    const int event = eventfd(0, 0);
    const uint64_t one = 1;
    uint64_t count = 0;
    const auto slowStatic = [] { static const SlowStatic sSlow; };
    const auto slowOnce = [&] { std::call_once(once, [] { Simulation::sleepFor(3 * kMs); }); };
    const auto none = [] {};
    struct {
        const char* what;
        std::function<void()> before, wait, act;  // `act` comes 3 ms after `before`
    } const kCases[] = {
            {"mutex", [&] { stdMutex.lock(); }, [&] { std::lock_guard<std::mutex> lock(stdMutex); },
             [&] { stdMutex.unlock(); }},
            {"condition", none,
             [&] {
                 Mutex::Autolock lock(mutex);
                 while (!isSet) condition.wait(mutex);
             },
             [&] {
                 Mutex::Autolock lock(mutex);
                 isSet = true;
                 condition.signal();
             }},
            {"std condition", none,
             [&] {
                 std::unique_lock<std::mutex> lock(stdMutex);
                 stdCondition.wait(lock);
             },
             [&] { stdCondition.notify_all(); }},
            {"future", none, [&] { promise.get_future().get(); }, [&] { promise.set_value(); }},
            {"thread", [&] { sleeper = std::thread([] { Simulation::sleepFor(3 * kMs); }); },
             [&] { sleeper.join(); }, none},
            {"epoll", none, [&] { EXPECT_TRUE(poll(event, -1)); },
             [&] { EXPECT_EQ(8, write(event, &one, sizeof(one))); }},
            {"read", [&] { EXPECT_EQ(8, read(event, &count, sizeof(count))); },
             [&] { EXPECT_EQ(8, read(event, &count, sizeof(count))); },
             [&] { EXPECT_EQ(8, write(event, &one, sizeof(one))); }},
            {"static", [&] { std::thread(slowStatic).detach(); }, slowStatic, none},
            {"once", [&] { std::thread(slowOnce).detach(); }, slowOnce, none},
            {"property", none, [] { EXPECT_TRUE(base::WaitForProperty("p", "1")); },
             [] { EXPECT_TRUE(base::SetProperty("p", "1")); }},
    };
    for (const auto& test : kCases) {
        SCOPED_TRACE(test.what);
        const int64_t start = Simulation::now();
        test.before();
        Simulation::settle();
        std::atomic<int64_t> end{0};
        std::thread waiter([&] {
            test.wait();
            end = Simulation::now();
        });
        simulation.advance(3 * kMs - 1);
        EXPECT_EQ(0, end) << "too early";
        simulation.advance(1);
        test.act();
        waiter.join();
        EXPECT_EQ(start + 3 * kMs, end);
    }
    close(event);
}

TEST(SimulationTest, ASignalWakesOneAndABroadcastAll) {
    Simulation simulation(kStart);
    Mutex mutex;
    Condition condition;
    int woken = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            Mutex::Autolock lock(mutex);
            EXPECT_EQ(OK, condition.waitRelative(mutex, kMs));
            ++woken;
        });
    }
    const auto wokenAfter = [&](const std::function<void()>& call) {
        simulation.settle();
        call();
        simulation.settle();
        Mutex::Autolock lock(mutex);
        return woken;
    };
    EXPECT_EQ(1, wokenAfter([&] { condition.signal(); }));
    EXPECT_EQ(2, wokenAfter([&] { condition.signal(); }));
    EXPECT_EQ(4, wokenAfter([&] { condition.broadcast(); }));
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(kStart, Simulation::now());
}

TEST(SimulationTest, ThreadsStartAndEndInTurn) {
    struct AtExit {
        std::function<void()> end;
        ~AtExit() {
            Simulation::sleepFor(kMs);  // destructors still take part
            end();
        }
    };
    Simulation simulation(kStart);
    std::mutex mutex;
    std::vector<int> ended;
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&, i] {
            static thread_local AtExit sAtExit;
            sAtExit.end = [&, i] {
                const std::lock_guard<std::mutex> lock(mutex);
                ended.push_back(i);
            };
            EXPECT_EQ(gettid(), Simulation::threadId());
            EXPECT_EQ(Simulation::processId() + 1 + i, gettid()) << "the same in every run";
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ((std::vector<int>{0, 1, 2}), ended);
    EXPECT_EQ(kStart + kMs, Simulation::now());

    for (int i = 0; i < 3'000; ++i) std::thread([] {}).join();  // slots are used again
}

TEST(SimulationTest, WhoOnlyYieldsLetsTheClockMove) {
    Simulation simulation(kStart);
    std::thread worker(Simulation::sleepFor, 5 * kMs);
    while (Simulation::now() == kStart) std::this_thread::yield();
    EXPECT_EQ(kStart + 5 * kMs, Simulation::now());
    worker.join();
}

TEST(SimulationTest, CallsAndWakeUpsMayTakeTime) {
    Simulation::Options options;
    options.startNs = kStart;
    options.wakeupCost = {kMs, kMs};
    options.callCost = {10, 10};
    Simulation simulation(options);
    simulation.sleepFor(5 * kMs);
    EXPECT_EQ(kStart + 6 * kMs, Simulation::now());
    Mutex mutex;
    { Mutex::Autolock lock(mutex); }
    EXPECT_EQ(kStart + 6 * kMs + 2 * 10, Simulation::now());
}

void deadlock() {
    Simulation simulation(kStart);
    Mutex first, second;
    const auto both = [](const char* name, Mutex& mine, Mutex& other) {
        pthread_setname_np(pthread_self(), name);
        Mutex::Autolock lock(mine);
        Simulation::sleepFor(kMs);
        Mutex::Autolock otherLock(other);
    };
    std::thread one([&] { both("one", first, second); });
    std::thread two([&] { both("two", second, first); });
    one.join();
    two.join();
}

TEST(SimulationTest, ADeadlockIsReported) {
    EXPECT_DEATH(deadlock(),
                 "deadlock.*at 5001000000 ns.*\n"
                 ".*waits for the end of a thread, #1 one, since 5000000000 ns\n"
                 ".*#1 one: waits for a mutex since 5001000000 ns, held by #2 two\n"
                 ".*#2 two: waits for a mutex since 5001000000 ns, held by #1 one\n");
}

// Schedules.

// Three threads add to a number under a lock, but read it in another section than they write it.
// Returns what each wrote, in the order in which they did.
std::string runWithLostUpdates(Simulation::Policy policy, uint64_t seed) {
    Simulation::Options options;
    options.policy = policy;
    options.seed = seed;
    options.steps = 100;
    options.spuriousWakeups = true;
    Simulation simulation(options);
    Mutex mutex;
    Condition condition;
    int number = 0;
    std::string written;
    const auto add = [&](char name) {
        for (int i = 0; i < 3; ++i) {
            mutex.lock();
            const int read = number;
            condition.waitRelative(mutex, 1);
            mutex.unlock();
            condition.signal();
            Mutex::Autolock lock(mutex);
            number = read + 1;
            written += name + std::to_string(number);
        }
    };
    std::thread threads[] = {std::thread(add, 'a'), std::thread(add, 'b'), std::thread(add, 'c')};
    for (std::thread& thread : threads) thread.join();
    return written;
}

TEST(SimulationTest, ASeedRepeatsItsOrderAndAnotherHasItsOwn) {
    for (const auto policy : {Simulation::Policy::kRandom, Simulation::Policy::kPct}) {
        std::set<std::string> orders;
        std::set<char> numbers;
        for (uint64_t seed = 0; seed < 20; ++seed) {
            const std::string written = runWithLostUpdates(policy, seed);
            EXPECT_EQ(written, runWithLostUpdates(policy, seed));
            orders.insert(written);
            numbers.insert(written.back());
        }
        EXPECT_GT(orders.size(), 10u);
        EXPECT_GT(numbers.size(), 1u);
        EXPECT_LT(*numbers.begin(), '9');
    }
}

}  // namespace
}  // namespace android
