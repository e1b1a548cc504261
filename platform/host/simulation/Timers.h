// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "SimThread.h"

namespace corvane::host {

// The armed timer descriptors and their deadlines. For the thread whose turn it is.
class Timers {
  public:
    struct Timer {
        int fd = -1;
        int64_t deadline = kNever;
        uint64_t order = 0;  // as SimThread::order
    };

    constexpr Timers() = default;

    void clear() { mCount = 0; }

    // False when there is no room.
    bool arm(const Timer& timer) {
        disarm(timer.fd);
        if (mCount == kMaxTimers) return false;
        mTimers[mCount++] = timer;
        return true;
    }

    void disarm(int fd) {
        for (size_t i = 0; i < mCount; ++i) {
            if (mTimers[i].fd != fd) continue;
            mTimers[i] = mTimers[--mCount];
            return;
        }
    }

    int64_t deadlineOf(int fd) const {
        for (size_t i = 0; i < mCount; ++i) {
            if (mTimers[i].fd == fd) return mTimers[i].deadline;
        }
        return kNever;
    }

    // The one that is due first, or one that never is.
    Timer first() const {
        Timer first;
        for (size_t i = 0; i < mCount; ++i) {
            const Timer& timer = mTimers[i];
            const bool isEarlier = timer.deadline < first.deadline ||
                                   (timer.deadline == first.deadline && timer.order < first.order);
            if (isEarlier) first = timer;
        }
        return first;
    }

  private:
    static constexpr size_t kMaxTimers = 1'024;

    Timer mTimers[kMaxTimers] = {};
    size_t mCount = 0;
};

}  // namespace corvane::host
