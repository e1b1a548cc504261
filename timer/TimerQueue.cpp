// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "timer/TimerQueue.h"

#include <android/log.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "base/SaturatingCast.h"

namespace android {

namespace {

constexpr char kLogTag[] = "Corvane.TimerQueue";
constexpr int kWatchedFds = 2;  // the timer and the wake counter
constexpr nsecs_t kNsPerSecond = 1'000'000'000;

// Wraps a task as the handler of an empty message.
class FuncHandler : public MessageHandler {
  public:
    explicit FuncHandler(std::function<void()> function) : mFunction(std::move(function)) {}

    void handleMessage(const Message&) override {
        if (mFunction) mFunction();
    }

  private:
    const std::function<void()> mFunction;
};

void logErrno(const char* operation) {
    __android_log_print(ANDROID_LOG_ERROR, kLogTag, "%s: %s", operation, strerror(errno));
}

// Resets the counter of a timer or event descriptor, so that epoll reports only what comes after.
void drain(int fd, const char* failure) {
    uint64_t count = 0;
    if (read(fd, &count, sizeof(count)) < 0 && errno != EAGAIN) logErrno(failure);
}

void closeFd(int& fd) {
    if (fd >= 0) close(fd);
    fd = -1;
}

}  // namespace

TimerQueue::TimerQueue() {
    mInitialized = openDescriptors();
}

TimerQueue::~TimerQueue() {
    wake();
    // The entries go last. One whose destruction posts or cancels must find a closed queue, not a
    // heap that is being destroyed.
    mInitialized = false;
    closeFd(mEpollFd);
    closeFd(mTimerFd);
    closeFd(mEventFd);
}

bool TimerQueue::openDescriptors() {
    mEpollFd = epoll_create1(EPOLL_CLOEXEC);
    if (mEpollFd < 0) {
        logErrno("epoll_create1 failed");
        return false;
    }
    mTimerFd = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
    if (mTimerFd < 0) {
        logErrno("timerfd_create failed");
        return false;
    }
    mEventFd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (mEventFd < 0) {
        logErrno("eventfd failed");
        return false;
    }
    return watch(mTimerFd, "epoll_ctl(timerfd) failed") &&
           watch(mEventFd, "epoll_ctl(eventfd) failed");
}

bool TimerQueue::watch(int fd, const char* failure) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = fd;
    if (epoll_ctl(mEpollFd, EPOLL_CTL_ADD, fd, &event) == 0) return true;
    logErrno(failure);
    return false;
}

uint64_t TimerQueue::sendMessage(const sp<MessageHandler>& handler, const Message& message) {
    return sendMessageDelayed(0, handler, message);
}

uint64_t TimerQueue::sendMessageDelayed(nsecs_t delayNs, const sp<MessageHandler>& handler,
                                        const Message& message) {
    if (!mInitialized) return 0;

    const nsecs_t now = systemTime(SYSTEM_TIME_MONOTONIC);
    Mutex::Autolock lock(mLock);
    const nsecs_t when = saturatingAdd(now, std::max<nsecs_t>(delayNs, 0));
    const bool becomesFront = mHeap.empty() || when < mHeap.front().when;
    const uint64_t id = mNextId++;
    mHeap.push_back({when, handler, message, id});
    std::push_heap(mHeap.begin(), mHeap.end(), std::greater<>());
    if (becomesFront) armTimerLocked(when);
    return id;
}

uint64_t TimerQueue::postTask(std::function<void()> task) {
    return postTaskDelayed(0, std::move(task));
}

uint64_t TimerQueue::postTaskDelayed(nsecs_t delayNs, std::function<void()> task) {
    if (!mInitialized) return 0;
    return sendMessageDelayed(delayNs, sp<FuncHandler>::make(std::move(task)), Message());
}

void TimerQueue::cancelTask(uint64_t id) {
    if (id == 0 || !mInitialized) return;
    std::vector<TimerEntry> dropped;  // outlives the lock
    Mutex::Autolock lock(mLock);
    mCancelled.insert(id);
    dropCancelledFrontLocked(dropped);
}

void TimerQueue::removeMessages(const sp<MessageHandler>& handler) {
    cancelMatching([&](const TimerEntry& entry) { return entry.handler == handler; });
}

void TimerQueue::removeMessages(const sp<MessageHandler>& handler, int what) {
    cancelMatching([&](const TimerEntry& entry) {
        return entry.handler == handler && entry.message.what == what;
    });
}

template <typename Predicate>
void TimerQueue::cancelMatching(Predicate matches) {
    if (!mInitialized) return;
    std::vector<TimerEntry> dropped;  // outlives the lock
    Mutex::Autolock lock(mLock);
    for (const TimerEntry& entry : mHeap) {
        if (matches(entry)) mCancelled.insert(entry.id);
    }
    dropCancelledFrontLocked(dropped);
}

int TimerQueue::pollOnce(int timeoutMs) {
    if (!mInitialized) return POLL_ERROR;

    epoll_event events[kWatchedFds];
    const int count = epoll_wait(mEpollFd, events, kWatchedFds, timeoutMs);
    if (count < 0) {
        if (errno == EINTR) return POLL_WAKE;
        logErrno("epoll_wait error");
        return POLL_ERROR;
    }

    int result = POLL_TIMEOUT;
    for (int i = 0; i < count; ++i) {
        const int fd = events[i].data.fd;
        if (fd == mTimerFd) {
            drain(mTimerFd, "read(timerfd) failed");
            dispatchDue();
            result = POLL_CALLBACK;
        } else if (fd == mEventFd) {
            drain(mEventFd, "read(eventfd) failed");
            result = POLL_WAKE;
        }
    }
    return result;
}

void TimerQueue::wake() {
    if (!mInitialized) return;
    const uint64_t increment = 1;
    if (write(mEventFd, &increment, sizeof(increment)) < 0 && errno != EAGAIN) {
        logErrno("write(eventfd) failed");
    }
}

void TimerQueue::dispatchDue() {
    std::vector<TimerEntry> due;
    std::vector<TimerEntry> dropped;  // outlives the lock
    const nsecs_t now = systemTime(SYSTEM_TIME_MONOTONIC);
    {
        Mutex::Autolock lock(mLock);
        while (!mHeap.empty()) {
            if (takeCancelledLocked(mHeap.front().id)) {
                dropped.push_back(popFrontLocked());
            } else if (now < mHeap.front().when) {
                break;
            } else {
                due.push_back(popFrontLocked());
            }
        }
        rearmFromHeapLocked(dropped);
    }
    for (const TimerEntry& entry : due) entry.handler->handleMessage(entry.message);
}

void TimerQueue::armTimerLocked(nsecs_t when) {
    if (mTimerFd < 0) return;
    itimerspec expiry{};
    expiry.it_value.tv_sec = static_cast<time_t>(when / kNsPerSecond);
    expiry.it_value.tv_nsec = static_cast<long>(when % kNsPerSecond);
    if (timerfd_settime(mTimerFd, TFD_TIMER_ABSTIME, &expiry, nullptr) < 0) {
        const int error = errno;
        __android_log_print(ANDROID_LOG_ERROR, kLogTag, "Failed to set timerfd %s (%i)",
                            strerror(error), error);
    }
}

void TimerQueue::disarmTimerLocked() {
    if (mTimerFd < 0) return;
    const itimerspec expiry{};
    if (timerfd_settime(mTimerFd, 0, &expiry, nullptr) < 0) {
        __android_log_print(ANDROID_LOG_ERROR, kLogTag, "Failed to disarm timerfd");
    }
}

void TimerQueue::rearmFromHeapLocked(std::vector<TimerEntry>& dropped) {
    while (!mHeap.empty() && takeCancelledLocked(mHeap.front().id)) {
        dropped.push_back(popFrontLocked());
    }
    if (mHeap.empty()) {
        disarmTimerLocked();
    } else {
        armTimerLocked(mHeap.front().when);
    }
}

void TimerQueue::dropCancelledFrontLocked(std::vector<TimerEntry>& dropped) {
    const bool changes = !mHeap.empty() && mCancelled.count(mHeap.front().id) != 0;
    if (changes) rearmFromHeapLocked(dropped);
}

bool TimerQueue::takeCancelledLocked(uint64_t id) {
    return mCancelled.erase(id) != 0;
}

TimerQueue::TimerEntry TimerQueue::popFrontLocked() {
    std::pop_heap(mHeap.begin(), mHeap.end(), std::greater<>());
    TimerEntry entry = std::move(mHeap.back());
    mHeap.pop_back();
    return entry;
}

}  // namespace android
