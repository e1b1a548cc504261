// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Mutexes, conditions, futures, and initialisations that happen once.
//
// The scheduler knows who holds what, so the real call is made once it cannot block, and a
// sanitizer sees the locking order and what each lock orders. A wait for a condition releases and
// takes the real mutex around it.

#include <cxxabi.h>
#include <pthread.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <future>
#include <mutex>

#include "Wraps.h"

namespace corvane::host {
namespace {

// glibc's marks in a mutex and in a condition, which offer no other way to ask.
bool mayRelock(const pthread_mutex_t& mutex) {
    constexpr int kKindMask = 3;
    return (mutex.__data.__kind & kKindMask) != PTHREAD_MUTEX_TIMED_NP;
}

clockid_t clockOf(const pthread_cond_t& condition) {
    constexpr unsigned kMonotonic = 2;
    return (condition.__data.__wrefs & kMonotonic) != 0 ? CLOCK_MONOTONIC : CLOCK_REALTIME;
}

int lock(SimThread& self, pthread_mutex_t* mutex, const void* caller) {
    Scheduler& scheduler = Scheduler::get();
    while (SimThread* holder = scheduler.holderOf(mutex)) {
        if (holder == &self && mayRelock(*mutex)) break;
        scheduler.block(Wait::kMutex, mutex, kNever, caller);
    }
    const int result = pthread_mutex_lock(mutex);
    if (result == 0) scheduler.addHeld(mutex, self);
    return result;
}

int unlock(pthread_mutex_t* mutex) {
    Scheduler& scheduler = Scheduler::get();
    const int result = pthread_mutex_unlock(mutex);
    if (result != 0) return result;
    scheduler.removeHeld(mutex);
    scheduler.wakeAll(Wait::kMutex, mutex);
    return 0;
}

int waitFor(SimThread& self, pthread_cond_t* condition, pthread_mutex_t* mutex, int64_t deadline,
            const void* caller) {
    Scheduler& scheduler = Scheduler::get();
    scheduler.point("wait", condition, caller);
    if (const int result = unlock(mutex); result != 0) return result;
    const bool inTime = scheduler.block(Wait::kCondition, condition, deadline, caller);
    if (const int result = lock(self, mutex, caller); result != 0) return result;
    return inTime ? 0 : ETIMEDOUT;
}

// An initialisation that another thread has begun: waits for its end.
void awaitInitialisation(SimThread& self, const void* object, const void* caller) {
    Scheduler& scheduler = Scheduler::get();
    scheduler.point("initialise", object, caller);
    SimThread* holder = scheduler.holderOf(object);
    while (holder != nullptr && holder != &self) {
        scheduler.block(Wait::kInitialisation, object, kNever, caller);
        holder = scheduler.holderOf(object);
    }
}

void endInitialisation(const void* object, const void* caller) {
    Scheduler& scheduler = Scheduler::get();
    scheduler.removeHeld(object);
    scheduler.wakeAll(Wait::kInitialisation, object);
    scheduler.point("initialised", object, caller);
}

}  // namespace
}  // namespace corvane::host

using namespace corvane::host;

CORVANE_WRAP int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
    SimThread* self = Scheduler::self();
    if (self == nullptr) return pthread_mutex_lock(mutex);
    Scheduler::get().point("lock", mutex, CORVANE_CALLER);
    return lock(*self, mutex, CORVANE_CALLER);
}

CORVANE_WRAP int __wrap_pthread_mutex_trylock(pthread_mutex_t* mutex) {
    SimThread* self = Scheduler::self();
    if (self == nullptr) return pthread_mutex_trylock(mutex);
    Scheduler::get().point("trylock", mutex, CORVANE_CALLER);
    const int result = pthread_mutex_trylock(mutex);
    if (result == 0) Scheduler::get().addHeld(mutex, *self);
    return result;
}

CORVANE_WRAP int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
    if (Scheduler::self() == nullptr) return pthread_mutex_unlock(mutex);
    const int result = unlock(mutex);
    Scheduler::get().point("unlock", mutex, CORVANE_CALLER);
    return result;
}

CORVANE_WRAP int __wrap_pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
    SimThread* self = Scheduler::self();
    if (self == nullptr) return pthread_cond_wait(condition, mutex);
    return waitFor(*self, condition, mutex, kNever, CORVANE_CALLER);
}

CORVANE_WRAP int __wrap_pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                               clockid_t clock, const timespec* deadline) {
    SimThread* self = Scheduler::self();
    if (self == nullptr) return pthread_cond_clockwait(condition, mutex, clock, deadline);
    if (!isValid(*deadline)) return EINVAL;
    return waitFor(*self, condition, mutex, toSimulated(clock, *deadline), CORVANE_CALLER);
}

CORVANE_WRAP int __wrap_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                               const timespec* deadline) {
    SimThread* self = Scheduler::self();
    if (self == nullptr) return pthread_cond_timedwait(condition, mutex, deadline);
    if (!isValid(*deadline)) return EINVAL;
    return waitFor(*self, condition, mutex, toSimulated(clockOf(*condition), *deadline),
                   CORVANE_CALLER);
}

CORVANE_WRAP int __wrap_pthread_cond_signal(pthread_cond_t* condition) {
    const int result = pthread_cond_signal(condition);
    if (Scheduler::self() == nullptr) return result;
    Scheduler::get().wakeOne(Wait::kCondition, condition);
    Scheduler::get().point("signal", condition, CORVANE_CALLER);
    return result;
}

CORVANE_WRAP int __wrap_pthread_cond_broadcast(pthread_cond_t* condition) {
    const int result = pthread_cond_broadcast(condition);
    if (Scheduler::self() == nullptr) return result;
    Scheduler::get().wakeAll(Wait::kCondition, condition);
    Scheduler::get().point("broadcast", condition, CORVANE_CALLER);
    return result;
}

// std::condition_variable keeps these out of line. A member function takes its object as the first
// argument.
#define WRAPPED(name, symbol) name asm("__wrap_" symbol) __attribute__((visibility("default")))

using StdLock = std::unique_lock<std::mutex>;

void WRAPPED(stdWait(std::condition_variable* condition, StdLock& lock),
             "_ZNSt18condition_variable4waitERSt11unique_lockISt5mutexE");
void WRAPPED(stdNotifyOne(std::condition_variable* condition),
             "_ZNSt18condition_variable10notify_oneEv");
void WRAPPED(stdNotifyAll(std::condition_variable* condition),
             "_ZNSt18condition_variable10notify_allEv");

void stdWait(std::condition_variable* condition, StdLock& lock) {
    SimThread* self = Scheduler::self();
    if (self == nullptr) return condition->wait(lock);
    waitFor(*self, condition->native_handle(), lock.mutex()->native_handle(), kNever,
            CORVANE_CALLER);
}

void stdNotifyOne(std::condition_variable* condition) {
    condition->notify_one();
    if (Scheduler::self() == nullptr) return;
    Scheduler::get().wakeOne(Wait::kCondition, condition->native_handle());
    Scheduler::get().point("signal", condition, CORVANE_CALLER);
}

void stdNotifyAll(std::condition_variable* condition) {
    condition->notify_all();
    if (Scheduler::self() == nullptr) return;
    Scheduler::get().wakeAll(Wait::kCondition, condition->native_handle());
    Scheduler::get().point("broadcast", condition, CORVANE_CALLER);
}

// The waits of std::future: until the word has another value than `seen`.
using Seconds = std::chrono::seconds;
using Nanoseconds = std::chrono::nanoseconds;
using FutexBase = std::__atomic_futex_unsigned_base;

#define FUTEX_BASE "_ZNSt28__atomic_futex_unsigned_base"
#define SINCE_EPOCH "NSt6chrono8durationIlSt5ratioILl1ELl1EEEENS2_IlS3_ILl1ELl1000000000EEEE"

bool realWaitUntil(FutexBase* base, unsigned* word, unsigned seen, bool hasTimeout, Seconds s,
                   Nanoseconds ns) asm(FUTEX_BASE "19_M_futex_wait_untilEPjjb" SINCE_EPOCH);
bool realWaitUntilSteady(FutexBase* base, unsigned* word, unsigned seen, bool hasTimeout, Seconds s,
                         Nanoseconds ns) asm(FUTEX_BASE
                                             "26_M_futex_wait_until_steadyEPjjb" SINCE_EPOCH);
void realFutexNotifyAll(unsigned* word) asm(FUTEX_BASE "19_M_futex_notify_allEPj");

bool WRAPPED(futexWaitUntil(FutexBase* base, unsigned* word, unsigned seen, bool hasTimeout,
                            Seconds s, Nanoseconds ns),
             FUTEX_BASE "19_M_futex_wait_untilEPjjb" SINCE_EPOCH);
bool WRAPPED(futexWaitUntilSteady(FutexBase* base, unsigned* word, unsigned seen, bool hasTimeout,
                                  Seconds s, Nanoseconds ns),
             FUTEX_BASE "26_M_futex_wait_until_steadyEPjjb" SINCE_EPOCH);
void WRAPPED(futexNotifyAll(unsigned* word), FUTEX_BASE "19_M_futex_notify_allEPj");

namespace {

// False when the time-out came.
bool waitForWord(const unsigned* word, unsigned seen, int64_t deadline, const void* caller) {
    Scheduler::get().point("wait", word, caller);
    if (__atomic_load_n(word, __ATOMIC_RELAXED) != seen) return true;
    return Scheduler::get().block(Wait::kFuture, word, deadline, caller);
}

int64_t deadlineAt(clockid_t clock, Seconds s, Nanoseconds ns) {
    return toSimulated(clock, {static_cast<time_t>(s.count()), static_cast<long>(ns.count())});
}

}  // namespace

bool futexWaitUntil(FutexBase* base, unsigned* word, unsigned seen, bool hasTimeout, Seconds s,
                    Nanoseconds ns) {
    if (Scheduler::self() == nullptr) return realWaitUntil(base, word, seen, hasTimeout, s, ns);
    return waitForWord(word, seen, hasTimeout ? deadlineAt(CLOCK_REALTIME, s, ns) : kNever,
                       CORVANE_CALLER);
}

bool futexWaitUntilSteady(FutexBase* base, unsigned* word, unsigned seen, bool hasTimeout,
                          Seconds s, Nanoseconds ns) {
    if (Scheduler::self() == nullptr) {
        return realWaitUntilSteady(base, word, seen, hasTimeout, s, ns);
    }
    return waitForWord(word, seen, hasTimeout ? deadlineAt(CLOCK_MONOTONIC, s, ns) : kNever,
                       CORVANE_CALLER);
}

void futexNotifyAll(unsigned* word) {
    realFutexNotifyAll(word);
    if (Scheduler::self() == nullptr) return;
    Scheduler::get().wakeAll(Wait::kFuture, word);
    Scheduler::get().point("notify", word, CORVANE_CALLER);
}

// Statics inside functions.

CORVANE_WRAP int __wrap___cxa_guard_acquire(abi::__guard* guard) {
    SimThread* self = Scheduler::self();
    if (self == nullptr) return abi::__cxa_guard_acquire(guard);
    awaitInitialisation(*self, guard, CORVANE_CALLER);
    const int isOurs = abi::__cxa_guard_acquire(guard);
    if (isOurs != 0) Scheduler::get().addHeld(guard, *self);
    return isOurs;
}

CORVANE_WRAP void __wrap___cxa_guard_release(abi::__guard* guard) {
    abi::__cxa_guard_release(guard);
    if (Scheduler::self() != nullptr) endInitialisation(guard, CORVANE_CALLER);
}

CORVANE_WRAP void __wrap___cxa_guard_abort(abi::__guard* guard) {
    abi::__cxa_guard_abort(guard);
    if (Scheduler::self() != nullptr) endInitialisation(guard, CORVANE_CALLER);
}

CORVANE_WRAP int __wrap_pthread_once(pthread_once_t* once, void (*routine)()) {
    SimThread* self = Scheduler::self();
    if (self == nullptr) return pthread_once(once, routine);
    awaitInitialisation(*self, once, CORVANE_CALLER);
    Scheduler::get().addHeld(once, *self);
    // A throwing routine leaves `once` undone, for the next to try.
    struct End {
        pthread_once_t* once;
        const void* caller;
        ~End() { endInitialisation(once, caller); }
    } end{once, CORVANE_CALLER};
    return pthread_once(once, routine);
}
