// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "ThreadTable.h"

#include <cstdio>

namespace corvane::host {
namespace {

// A slot is taken again once its thread is gone.
constexpr size_t kSlots = 2'048;
SimThread sSlots[kSlots];
size_t sNextSlot = 0;

SimThread* takeSlot() {
    for (size_t tried = 0; tried < kSlots; ++tried) {
        SimThread& thread = sSlots[sNextSlot];
        sNextSlot = (sNextSlot + 1) % kSlots;
        if (thread.state != ThreadState::kUnused) continue;  // joined or detached by nobody yet
        if (thread.isInSlot.load(std::memory_order_acquire)) continue;
        thread.isInSlot.store(true, std::memory_order_relaxed);
        return &thread;
    }
    return nullptr;
}

}  // namespace

void ThreadTable::clear() {
    mCount = 0;
    mNextId = 0;
}

SimThread* ThreadTable::add() {
    SimThread* thread = mCount == kMaxThreads ? nullptr : takeSlot();
    if (thread == nullptr) return nullptr;
    thread->turn.store(0, std::memory_order_relaxed);
    thread->id = mNextId++;
    thread->wait = Wait::kNothing;
    thread->timedOut = thread->isDetached = thread->hasHandle = false;
    thread->object = nullptr;
    thread->deadline = kNever;
    thread->yieldedAt = 0;
    thread->uninterrupted = thread->exitRounds = 0;
    mThreads[mCount++] = thread;
    char name[kNameSize];
    snprintf(name, sizeof(name), "thread %u", thread->id);
    setName(thread->id, name);
    return thread;
}

void ThreadTable::remove(SimThread& thread) {
    size_t index = 0;
    while (index < mCount && mThreads[index] != &thread) ++index;
    if (index == mCount) return;
    --mCount;
    for (; index < mCount; ++index) {
        mThreads[index] = mThreads[index + 1];
        // No memmove(): ThreadSanitizer would take it for the program's.
        asm volatile("" ::: "memory");
    }
    thread.hasHandle = false;
    thread.state = ThreadState::kUnused;
}

SimThread* ThreadTable::find(pthread_t handle) const {
    for (SimThread* thread : *this) {
        if (thread->hasHandle && !thread->isDetached &&
            pthread_equal(thread->handle, handle) != 0) {
            return thread;
        }
    }
    return nullptr;
}

void ThreadTable::setName(uint32_t id, const char* name) {
    char* to = mNames[id % kMaxNames];
    for (size_t left = kNameSize; left > 1 && *name != '\0'; --left) {
        *to++ = *name++;
        asm volatile("" ::: "memory");  // nor strncpy(), for the same reason
    }
    *to = '\0';
}

}  // namespace corvane::host
