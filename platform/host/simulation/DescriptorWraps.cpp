// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Timer and event descriptors, and what waits for them. All are real ones, so that epoll and every
// other call answer as ever. A timer descriptor is an event counter in truth: the scheduler counts
// it up when its deadline comes. Others than those created in the simulation go to the kernel.

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "Wraps.h"

namespace corvane::host {
namespace {

enum class Kind : uint8_t { kUnknown, kTimer, kEvent, kEpoll };

struct Descriptor {
    Kind kind = Kind::kUnknown;
    bool blocks = false;
    clockid_t clock = CLOCK_MONOTONIC;  // of a timer
};

constexpr int kMaxDescriptors = 65'536;
Descriptor sDescriptors[kMaxDescriptors];  // for the thread whose turn it is

Descriptor* find(int fd) {
    if (fd < 0 || fd >= kMaxDescriptors) return nullptr;
    Descriptor& descriptor = sDescriptors[fd];
    return descriptor.kind == Kind::kUnknown ? nullptr : &descriptor;
}

int remember(int fd, const Descriptor& descriptor) {
    if (fd >= 0 && fd < kMaxDescriptors) sDescriptors[fd] = descriptor;
    return fd;
}

const void* objectOf(int fd) {
    return reinterpret_cast<const void*>(static_cast<intptr_t>(fd));
}

// Not by read(): nobody handed anything over.
void clearExpiries(int fd) {
    const int savedErrno = errno;
    uint64_t expiries = 0;
    syscall(SYS_read, fd, &expiries, sizeof(expiries));
    errno = savedErrno;
}

int fail(int errnoValue) {
    errno = errnoValue;
    return -1;
}

}  // namespace
}  // namespace corvane::host

using namespace corvane::host;

CORVANE_WRAP int __wrap_timerfd_create(int clock, int flags) {
    if (Scheduler::self() == nullptr) return timerfd_create(clock, flags);
    // Never blocking in truth, since the wraps know how to wait for it.
    const int fd = eventfd(0, EFD_NONBLOCK | ((flags & TFD_CLOEXEC) != 0 ? EFD_CLOEXEC : 0));
    return remember(fd, {Kind::kTimer, (flags & TFD_NONBLOCK) == 0, clock});
}

// One-shot timers.
CORVANE_WRAP int __wrap_timerfd_settime(int fd, int flags, const itimerspec* when,
                                        itimerspec* old) {
    if (Scheduler::self() == nullptr) return timerfd_settime(fd, flags, when, old);
    Scheduler& scheduler = Scheduler::get();
    scheduler.point("arm", objectOf(fd), CORVANE_CALLER);
    const Descriptor* timer = find(fd);
    if (timer == nullptr || timer->kind != Kind::kTimer) {
        return timerfd_settime(fd, flags, when, old);  // fails, unless it was there before
    }
    if (!isValid(when->it_value) || toNs(when->it_interval) != 0) return fail(EINVAL);

    if (old != nullptr) {
        const int64_t deadline = scheduler.timerDeadline(fd);
        const int64_t left = deadline == kNever ? 0 : deadline - scheduler.now();
        *old = {{0, 0}, toTimespec(std::max<int64_t>(left, 0))};
    }
    scheduler.disarmTimer(fd);
    clearExpiries(fd);
    if (toNs(when->it_value) == 0) return 0;
    scheduler.armTimer(fd, (flags & TFD_TIMER_ABSTIME) != 0
                                   ? toSimulated(timer->clock, when->it_value)
                                   : addSaturated(scheduler.now(), toNs(when->it_value)));
    return 0;
}

CORVANE_WRAP int __wrap_eventfd(unsigned count, int flags) {
    const int fd = eventfd(count, flags);
    if (Scheduler::self() == nullptr) return fd;
    return remember(fd, {Kind::kEvent, (flags & EFD_NONBLOCK) == 0, CLOCK_MONOTONIC});
}

CORVANE_WRAP int __wrap_epoll_create1(int flags) {
    const int fd = epoll_create1(flags);
    if (Scheduler::self() == nullptr) return fd;
    return remember(fd, {Kind::kEpoll, true, CLOCK_MONOTONIC});
}

CORVANE_WRAP int __wrap_epoll_ctl(int epoll, int operation, int fd, epoll_event* event) {
    if (Scheduler::self() == nullptr) return epoll_ctl(epoll, operation, fd, event);
    Scheduler::get().point("epoll_ctl", objectOf(epoll), CORVANE_CALLER);
    const int result = epoll_ctl(epoll, operation, fd, event);
    Scheduler::get().wakeReaders();
    return result;
}

CORVANE_WRAP int __wrap_epoll_wait(int epoll, epoll_event* events, int maxEvents, int timeoutMs) {
    if (Scheduler::self() == nullptr) return epoll_wait(epoll, events, maxEvents, timeoutMs);
    constexpr int64_t kNsPerMs = 1'000'000;
    Scheduler& scheduler = Scheduler::get();
    scheduler.point("epoll_wait", objectOf(epoll), CORVANE_CALLER);
    const int64_t deadline =
            timeoutMs < 0 ? kNever : addSaturated(scheduler.now(), timeoutMs * kNsPerMs);
    while (true) {
        const int count = epoll_wait(epoll, events, maxEvents, 0);
        if (count != 0 || deadline <= scheduler.now()) return count;
        scheduler.block(Wait::kDescriptor, objectOf(epoll), deadline, CORVANE_CALLER);
    }
}

CORVANE_WRAP ssize_t __wrap_read(int fd, void* buffer, size_t size) {
    const Descriptor* descriptor = Scheduler::self() == nullptr ? nullptr : find(fd);
    if (descriptor == nullptr) return read(fd, buffer, size);
    Scheduler::get().point("read", objectOf(fd), CORVANE_CALLER);
    while (descriptor->blocks && !Scheduler::isReadable(fd)) {
        Scheduler::get().block(Wait::kDescriptor, objectOf(fd), kNever, CORVANE_CALLER);
    }
    return read(fd, buffer, size);
}

CORVANE_WRAP ssize_t __wrap_write(int fd, const void* buffer, size_t size) {
    if (Scheduler::self() == nullptr || find(fd) == nullptr) return write(fd, buffer, size);
    const ssize_t written = write(fd, buffer, size);
    Scheduler::get().wakeReaders();
    Scheduler::get().point("write", objectOf(fd), CORVANE_CALLER);
    return written;
}

CORVANE_WRAP int __wrap_close(int fd) {
    if (Scheduler::self() == nullptr || find(fd) == nullptr) return close(fd);
    Scheduler::get().point("close", objectOf(fd), CORVANE_CALLER);
    Scheduler::get().disarmTimer(fd);
    sDescriptors[fd] = {};
    return close(fd);
}
