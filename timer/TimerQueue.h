// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <utils/Looper.h>
#include <utils/Mutex.h>
#include <utils/RefBase.h>
#include <utils/Timers.h>

#include <cstdint>
#include <functional>
#include <unordered_set>
#include <vector>

namespace android {

// A single-consumer queue of delayed messages and tasks on the monotonic clock.
//
// Any thread may post, cancel, remove or wake; exactly one thread, the owner's, calls pollOnce().
// Handlers run on that thread with no lock held, so they may post and cancel themselves.
// Cancelling is lazy: it records the id, and the entry is dropped when it reaches the top of the
// heap.
//
// mLock is innermost: docs/architecture.md has all locks and their order.
class TimerQueue : public RefBase {
  public:
    // Results of pollOnce(), with the values of the platform looper's poll codes.
    enum : int {
        POLL_WAKE = -1,
        POLL_CALLBACK = -2,
        POLL_TIMEOUT = -3,
        POLL_ERROR = -4,
    };

    TimerQueue();
    TimerQueue(const TimerQueue&) = delete;
    TimerQueue& operator=(const TimerQueue&) = delete;

    // False when a descriptor could not be set up, and from the destructor's wake-up on. The queue
    // then accepts nothing.
    bool isInitialized() const { return mInitialized; }

    // Each post returns the entry's id, never 0, or 0 with nothing posted when not initialised.
    // A delay is in nanoseconds from now; a negative one counts as 0.
    uint64_t sendMessage(const sp<MessageHandler>& handler, const Message& message);
    uint64_t sendMessageDelayed(nsecs_t delayNs, const sp<MessageHandler>& handler,
                                const Message& message);
    uint64_t postTask(std::function<void()> task);
    uint64_t postTaskDelayed(nsecs_t delayNs, std::function<void()> task);

    // Cancels a pending entry. An entry already collected for dispatch still runs. Cancel only ids
    // that are still pending: the id of one that has run stays recorded for the queue's life.
    void cancelTask(uint64_t id);

    // Cancels the pending entries of this handler object, all or those with this `what`.
    void removeMessages(const sp<MessageHandler>& handler);
    void removeMessages(const sp<MessageHandler>& handler, int what);

    // Waits once, at most timeoutMs milliseconds (-1 = without limit), and dispatches what is due.
    int pollOnce(int timeoutMs);

    // Makes the blocked pollOnce(), or else the next one, return.
    void wake();

  protected:
    ~TimerQueue() override;

  private:
    struct TimerEntry {
        nsecs_t when;  // absolute monotonic deadline
        sp<MessageHandler> handler;
        Message message;
        uint64_t id;

        // Keeps the earliest deadline in front of a std heap. There is no tie-break: equal
        // deadlines run in whatever order the heap yields.
        bool operator>(const TimerEntry& other) const { return when > other.when; }
    };

    // Each stops at the first step that fails, with its message.
    bool openDescriptors();
    bool watch(int fd, const char* failure);

    void dispatchDue();
    void armTimerLocked(nsecs_t when) REQUIRES(mLock);
    void disarmTimerLocked() REQUIRES(mLock);

    // Drops cancelled entries from the front, then sets the timer to the front's deadline. What it
    // drops goes to `dropped`: a handler must not be destroyed under the lock, since its destructor
    // may call this queue.
    void rearmFromHeapLocked(std::vector<TimerEntry>& dropped) REQUIRES(mLock);

    // The same after a cancellation, at the price of a system call only when the front is
    // concerned.
    void dropCancelledFrontLocked(std::vector<TimerEntry>& dropped) REQUIRES(mLock);

    template <typename Predicate>
    void cancelMatching(Predicate matches) EXCLUDES(mLock);

    bool takeCancelledLocked(uint64_t id) REQUIRES(mLock);
    TimerEntry popFrontLocked() REQUIRES(mLock);

    int mEpollFd = -1;
    int mTimerFd = -1;          // one-shot, armed for the earliest pending deadline
    int mEventFd = -1;          // wake counter
    bool mInitialized = false;  // written by the constructor and the destructor alone

    Mutex mLock;
    std::vector<TimerEntry> mHeap GUARDED_BY(mLock);
    std::unordered_set<uint64_t> mCancelled GUARDED_BY(mLock);  // ids, pruned at the heap's front
    uint64_t mNextId GUARDED_BY(mLock) = 1;
};

}  // namespace android
