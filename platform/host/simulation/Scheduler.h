// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "Schedule.h"
#include "corvane/host/Simulation.h"

namespace corvane::host {

constexpr int64_t kNever = std::numeric_limits<int64_t>::max();

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
    pthread_t handle{};
    void* (*routine)(void*) = nullptr;  // what it is to run
    void* argument = nullptr;
};

// Decides who runs. All members but the two inline static ones are for the thread whose turn it is,
// and that alone orders the accesses to them: a turn is passed on by releasing SimThread::turn and
// taken by acquiring it.
class Scheduler {
  public:
    static Scheduler& get() { return sScheduler; }

    // The calling thread's slot, or null when it does not take part. One relaxed load while no
    // simulation is on.
    static SimThread* self() { return sOn.load(std::memory_order_relaxed) ? tSelf : nullptr; }

    constexpr Scheduler() = default;

    void begin(const Simulation::Options& options);
    void end();

    int64_t now() const { return mNow; }
    uint64_t steps() const { return mSteps - mFirstStep; }
    void restartSchedule();
    int64_t nextDeadline() const;
    size_t threads() const;

    // A scheduling point: the running thread may lose its turn here.
    void point(const char* what, const void* object, const void* caller);
    void basicBlock(const void* caller);

    // Parks the running thread until it is woken or the deadline comes. False when it came.
    bool block(Wait wait, const void* object, int64_t deadline, const void* caller);
    void yield(const void* caller);
    void settle();

    void wakeAll(Wait wait, const void* object);
    void wakeOne(Wait wait, const void* object);
    // Wakes those who wait for a descriptor that is readable by now.
    void wakeReaders();

    // The things that one thread holds while others wait for them: mutexes and initialisations.
    SimThread* holderOf(const void* object) const;
    void addHeld(const void* object, SimThread& holder);
    void removeHeld(const void* object);

    // Threads. A child can run from prepareThread() on; its own first act is runFirst().
    SimThread& prepareThread();
    void abandonThread(SimThread& child);
    static void runFirst(SimThread& self);
    void exitThread(SimThread& self);
    SimThread* threadOf(pthread_t handle);
    void joinThread(SimThread& child, const void* caller);
    void releaseThread(SimThread& child);  // joined or detached: its handle may come back
    void setName(const SimThread& thread, const char* name);
    const char* nameOf(uint32_t id) const;

    // Timer descriptors: their deadlines. The descriptor itself becomes readable by fireTimer.
    void armTimer(int fd, int64_t deadline);
    void disarmTimer(int fd);
    int64_t timerDeadline(int fd) const;

    void record(const char* what, const void* object, const void* caller);
    pid_t processId() const { return kFirstId; }
    static pid_t threadIdOf(const SimThread& thread) {
        return kFirstId + static_cast<pid_t>(thread.id);
    }

  private:
    static constexpr size_t kMaxThreads = 1'024;  // at one time
    static constexpr size_t kMaxHeld = 4'096;
    static constexpr size_t kMaxTimers = 1'024;
    static constexpr size_t kMaxNames = 4'096;
    static constexpr size_t kNameSize = 16;  // the kernel's limit
    static constexpr pid_t kFirstId = 1'000;

    struct Held {
        const void* object = nullptr;
        SimThread* holder = nullptr;
    };
    struct Timer {
        int fd = -1;
        int64_t deadline = 0;
        uint64_t order = 0;
    };

    static SimThread& running() { return *tSelf; }
    void makeReady(SimThread& thread, bool timedOut);
    void countStep();
    void elapse(int64_t ns);
    void endWaitSpuriously();
    void wakeDue();
    bool advance();  // false when nothing is due

    SimThread* firstIn(ThreadState state) const;
    SimThread* chooseReady();
    SimThread& chooseNext();
    SimThread* choosePreempting(bool isBasicBlock);
    void passTurnTo(SimThread& next);
    static void handTurn(SimThread& next);
    static void awaitTurn(SimThread& self);

    [[noreturn]] void stuck(const char* why);

    static std::atomic<bool> sOn;
    static thread_local SimThread* tSelf;
    static Scheduler sScheduler;

    Simulation::Options mOptions{};
    Schedule mSchedule{};
    int64_t mNow = 0;
    uint64_t mSteps = 0;
    uint64_t mFirstStep = 0;  // of the schedule
    uint64_t mOrder = 0;
    uint64_t mProgress = 0;  // grows whenever one runs who did not merely yield
    uint64_t mIdleSpins = 0;
    bool mPrioritiesChanged = false;
    uint32_t mNextId = 0;

    // In the order of their ids.
    SimThread* mThreads[kMaxThreads] = {};
    size_t mThreadCount = 0;
    size_t mReadyCount = 0;
    Held mHeld[kMaxHeld] = {};
    size_t mHeldCount = 0;
    Timer mTimers[kMaxTimers] = {};
    size_t mTimerCount = 0;
    char mNames[kMaxNames][kNameSize] = {};
};

}  // namespace corvane::host
