// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <pthread.h>

#include <cstddef>
#include <cstdint>

#include "SimThread.h"

namespace corvane::host {

// The threads that take part, in the order of their ids. For the thread whose turn it is.
class ThreadTable {
  public:
    constexpr ThreadTable() = default;

    // Forgets all; their numbers start at 0 again.
    void clear();

    // A slot for the next thread; null when there are too many.
    SimThread* add();
    void remove(SimThread& thread);

    size_t size() const { return mCount; }
    SimThread& operator[](size_t index) const { return *mThreads[index]; }
    SimThread* const* begin() const { return mThreads; }
    SimThread* const* end() const { return mThreads + mCount; }

    // Of those for which the predicate holds, the one in its state for the longest time; or null.
    template <typename Predicate>
    SimThread* first(Predicate holds) const {
        SimThread* first = nullptr;
        for (SimThread* thread : *this) {
            if (holds(*thread) && (first == nullptr || thread->order < first->order)) {
                first = thread;
            }
        }
        return first;
    }

    // Null when the handle is none of theirs any more.
    SimThread* find(pthread_t handle) const;

    // Names, by the ids; those of threads that have ended stay for a while.
    void setName(uint32_t id, const char* name);
    const char* nameOf(uint32_t id) const { return mNames[id % kMaxNames]; }

  private:
    static constexpr size_t kMaxThreads = 1'024;  // at one time
    static constexpr size_t kMaxNames = 4'096;
    static constexpr size_t kNameSize = 16;  // the kernel's limit

    SimThread* mThreads[kMaxThreads] = {};
    size_t mCount = 0;
    uint32_t mNextId = 0;
    char mNames[kMaxNames][kNameSize] = {};
};

}  // namespace corvane::host
