// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// The driven clock, and the library's calls that wait on it.

#include <pthread.h>
#include <sys/timerfd.h>
#include <time.h>
#include <utils/Timers.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <list>
#include <map>
#include <mutex>

#include "../src/WaitLimit.h"
#include "DrivenCalls.h"
#include "corvane/host/Clock.h"

namespace corvane::host {
namespace {

constexpr int64_t kNsPerSecond = 1'000'000'000;

// The driven time, 0 while the clock is the kernel's. Relaxed: whoever is to see a new time is
// woken through a mutex or a descriptor after it was stored.
std::atomic<int64_t> sDrivenNow{0};

int64_t drivenNow() {
    return sDrivenNow.load(std::memory_order_relaxed);
}

bool isValid(const timespec& time) {
    return time.tv_sec >= 0 && time.tv_nsec >= 0 && time.tv_nsec < kNsPerSecond;
}

// Both saturate: a wait without limit is one until the end of time.
int64_t toNs(const timespec& time) {
    constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
    return time.tv_sec >= kMax / kNsPerSecond ? kMax : time.tv_sec * kNsPerSecond + time.tv_nsec;
}

int64_t addSaturated(int64_t a, int64_t b) {
    int64_t sum = 0;
    return __builtin_add_overflow(a, b, &sum) ? std::numeric_limits<int64_t>::max() : sum;
}

timespec toTimespec(int64_t ns) {
    return {static_cast<time_t>(ns / kNsPerSecond), static_cast<long>(ns % kNsPerSecond)};
}

timespec realNow() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now;
}

// One thread that sleeps on the driven clock.
struct Sleeper {
    int64_t deadline;
    const pthread_cond_t* condition;  // null in nanosleep
    bool isSignalled = false;
};

// Everything that waits for the driven time. No other lock is taken while `mutex` is held.
struct Waits {
    std::mutex mutex;
    std::condition_variable changed;  // time moved, or a sleeper came
    std::list<Sleeper> sleepers;
    std::map<int, int64_t> timers;  // armed timer descriptors and their absolute deadlines

    // A sleeper that is due or signalled is as good as gone, though its thread may not have run
    // yet.
    bool isAsleep(const Sleeper& sleeper) const {
        return !sleeper.isSignalled && sleeper.deadline > drivenNow();
    }
    size_t countAsleep() const {
        return static_cast<size_t>(std::count_if(sleepers.begin(), sleepers.end(),
                                                 [this](const auto& s) { return isAsleep(s); }));
    }
};

// Never destroyed: the library's threads may sleep until the process ends.
Waits& waits() {
    static auto* instance = new Waits;
    return *instance;
}

// Keeps the calling thread on the list of sleepers while it lives. Called with the lock held.
class SleeperEntry {
  public:
    SleeperEntry(int64_t deadline, const pthread_cond_t* condition)
          : mEntry(waits().sleepers.insert(waits().sleepers.end(), {deadline, condition})) {
        waits().changed.notify_all();
    }
    ~SleeperEntry() { waits().sleepers.erase(mEntry); }
    SleeperEntry(const SleeperEntry&) = delete;
    SleeperEntry& operator=(const SleeperEntry&) = delete;

    const Sleeper& operator*() const { return *mEntry; }

  private:
    std::list<Sleeper>::iterator mEntry;
};

// Arms the real descriptor to expire after `ns`. False when it is none any more.
bool armReal(int fd, int64_t ns) {
    const itimerspec when{{0, 0}, toTimespec(std::max<int64_t>(ns, 1))};
    return timerfd_settime(fd, 0, &when, nullptr) == 0;
}

// With the lock held. A descriptor that was closed meanwhile is forgotten like one that fired.
void fireDueTimers(Waits& w) {
    for (auto it = w.timers.begin(); it != w.timers.end();) {
        if (it->second > drivenNow()) {
            ++it;
            continue;
        }
        armReal(it->first, 0);
        it = w.timers.erase(it);
    }
}

}  // namespace

bool isDriven() {
    return drivenNow() != 0;
}

// Threads that sleep on `condition` really were signalled. Without this note a signal would be lost
// that comes, with the caller's mutex released, between two of the short waits below.
void noteDrivenSignal(const pthread_cond_t* condition) {
    if (!isDriven()) return;
    Waits& w = waits();
    const std::lock_guard<std::mutex> lock(w.mutex);
    for (Sleeper& sleeper : w.sleepers) {
        if (sleeper.condition == condition) sleeper.isSignalled = true;
    }
}

DrivenClock::DrivenClock(int64_t startNs) {
    Waits& w = waits();
    const std::lock_guard<std::mutex> lock(w.mutex);
    if (startNs <= 0 || isDriven()) {
        fprintf(stderr, "DrivenClock: start time not positive, or the clock is driven already\n");
        abort();
    }
    sDrivenNow.store(startNs, std::memory_order_relaxed);
}

DrivenClock::~DrivenClock() {
    Waits& w = waits();
    const std::lock_guard<std::mutex> lock(w.mutex);
    // What is armed goes on in real time; sleepers are let go.
    for (const auto& [fd, deadline] : w.timers) armReal(fd, deadline - drivenNow());
    w.timers.clear();
    sDrivenNow.store(0, std::memory_order_relaxed);
    w.changed.notify_all();
}

int64_t DrivenClock::now() const {
    return drivenNow();
}

void DrivenClock::advance(int64_t deltaNs) {
    Waits& w = waits();
    const std::lock_guard<std::mutex> lock(w.mutex);
    sDrivenNow.store(addSaturated(drivenNow(), std::max<int64_t>(deltaNs, 0)),
                     std::memory_order_relaxed);
    fireDueTimers(w);
    w.changed.notify_all();
}

void DrivenClock::advanceTo(int64_t timeNs) {
    Waits& w = waits();
    const std::lock_guard<std::mutex> lock(w.mutex);
    sDrivenNow.store(std::max(drivenNow(), timeNs), std::memory_order_relaxed);
    fireDueTimers(w);
    w.changed.notify_all();
}

bool DrivenClock::waitForSleepers(size_t count) const {
    Waits& w = waits();
    std::unique_lock<std::mutex> lock(w.mutex);
    return w.changed.wait_for(lock, kWaitLimit, [&] { return w.countAsleep() >= count; });
}

size_t DrivenClock::sleepers() const {
    Waits& w = waits();
    const std::lock_guard<std::mutex> lock(w.mutex);
    return w.countAsleep();
}

int64_t DrivenClock::nextDeadline() const {
    Waits& w = waits();
    const std::lock_guard<std::mutex> lock(w.mutex);
    int64_t next = -1;
    const auto consider = [&next](int64_t deadline) {
        if (next < 0 || deadline < next) next = deadline;
    };
    for (const Sleeper& sleeper : w.sleepers) {
        if (w.isAsleep(sleeper)) consider(sleeper.deadline);
    }
    for (const auto& [fd, deadline] : w.timers) consider(deadline);
    return next;
}

int drivenClockGettime(clockid_t clock, timespec* time) {
    const int64_t now = clock == CLOCK_MONOTONIC ? drivenNow() : 0;
    if (now == 0) return clock_gettime(clock, time);
    *time = toTimespec(now);
    return 0;
}

// For conditions on the monotonic clock, as android::Condition's are.
//
// The driver cannot signal the caller's condition: it does not know whether that still exists by
// the time it would. So the thread itself looks at the driven time, in short real waits on the
// condition, and a real signal ends the wait at once.
int drivenTimedWait(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* deadline) {
    if (!isDriven()) return pthread_cond_timedwait(condition, mutex, deadline);
    if (!isValid(*deadline)) return EINVAL;

    constexpr int64_t kLookIntervalNs = 1'000'000;  // the driver waits for us at most so long
    const int64_t deadlineNs = toNs(*deadline);
    Waits& w = waits();
    std::unique_lock<std::mutex> lock(w.mutex);
    const SleeperEntry entry(deadlineNs, condition);
    int result = 0;
    while (result == 0) {
        const int64_t now = drivenNow();
        if ((*entry).isSignalled || now == 0) break;  // no longer driven: a spurious wake-up
        if (now >= deadlineNs) {
            result = ETIMEDOUT;
            break;
        }
        lock.unlock();
        const timespec look = toTimespec(toNs(realNow()) + kLookIntervalNs);
        const int waited = pthread_cond_timedwait(condition, mutex, &look);
        lock.lock();
        if (waited != ETIMEDOUT) {
            result = waited;
            break;
        }
    }
    return result;
}

int drivenNanosleep(const timespec* duration) {
    if (!isValid(*duration)) {
        errno = EINVAL;
        return -1;
    }
    Waits& w = waits();
    std::unique_lock<std::mutex> lock(w.mutex);
    const int64_t deadline = addSaturated(drivenNow(), toNs(*duration));
    const SleeperEntry entry(deadline, nullptr);
    w.changed.wait(lock, [deadline] { return !isDriven() || drivenNow() >= deadline; });
    return 0;
}

// One-shot timers on the monotonic clock. While driven, the real descriptor stays disarmed until
// the driven time reaches the deadline; then it expires at once, so that epoll and read see it.
int drivenTimerfdSettime(int fd, int flags, const itimerspec* when, itimerspec* old) {
    if (!isDriven()) return timerfd_settime(fd, flags, when, old);
    if (!isValid(when->it_value)) {
        errno = EINVAL;
        return -1;
    }
    Waits& w = waits();
    const std::lock_guard<std::mutex> lock(w.mutex);
    const itimerspec disarmed{};
    if (timerfd_settime(fd, 0, &disarmed, nullptr) != 0) return -1;

    const int64_t now = drivenNow();
    const auto armed = w.timers.find(fd);
    if (old != nullptr) {
        *old = {{0, 0}, toTimespec(armed == w.timers.end() ? 0 : armed->second - now)};
    }
    const int64_t value = toNs(when->it_value);
    if (value == 0) {
        w.timers.erase(fd);
        return 0;
    }
    w.timers[fd] = (flags & TFD_TIMER_ABSTIME) != 0 ? value : addSaturated(now, value);
    fireDueTimers(w);
    w.changed.notify_all();
    return 0;
}

}  // namespace corvane::host
