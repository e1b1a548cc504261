// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <limits>

#include "corvane/host/Simulation.h"

namespace corvane::host {

constexpr int64_t kNever = std::numeric_limits<int64_t>::max();

// Saturates: a wait without limit is one until the end of time.
inline int64_t addSaturated(int64_t a, int64_t b) {
    int64_t sum = 0;
    return __builtin_add_overflow(a, b, &sum) ? kNever : sum;
}

// What a parked thread waits for.
enum class Wait : uint8_t {
    kNothing,
    kMutex,
    kCondition,
    kInitialisation,  // of a static, or by pthread_once
    kThreadEnd,
    kDescriptor,
    kFuture,
    kSleep,
    kWakeup,  // it was woken, which takes its time
};

enum class ThreadState : uint8_t {
    kUnused,
    kReady,
    kYielding,  // can run, after those that are ready
    kSettling,  // can run, when nobody else can
    kBlocked,
    kFinished,
};

// A thread that takes part. Fixed storage: ThreadSanitizer follows allocated memory from thread to
// thread, and is not to see that of the scheduler.
struct SimThread {
    std::atomic<uint32_t> turn{0};  // futex: 1 = it is this thread's turn
    uint32_t id = 0;
    ThreadState state = ThreadState::kUnused;
    Wait wait = Wait::kNothing;
    bool timedOut = false;  // how its last wait ended
    bool isDetached = false;
    bool hasHandle = false;
    std::atomic<bool> isInSlot{false};  // its clearing is an ending thread's last act here
    const void* object = nullptr;       // of the wait
    int64_t deadline = kNever;
    int64_t since = 0;       // when the wait began
    uint64_t order = 0;      // grows with every change of state: who was first
    uint64_t priority = 0;   // kPct
    uint64_t yieldedAt = 0;  // the progress when it last yielded
    int uninterrupted = 0;   // depth of Simulation::Uninterrupted
    int exitRounds = 0;      // of pthread key destructors
    Simulation::Scheduling scheduling{};
    pthread_t handle{};
    void* (*routine)(void*) = nullptr;  // what it is to run
    void* argument = nullptr;

    bool isWaiting(Wait kind) const { return state == ThreadState::kBlocked && wait == kind; }
    bool isWaiting(Wait kind, const void* what) const { return isWaiting(kind) && object == what; }
};

}  // namespace corvane::host
