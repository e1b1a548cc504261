// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "Holders.h"
#include "Schedule.h"
#include "SimThread.h"
#include "ThreadTable.h"
#include "Timers.h"
#include "corvane/host/Simulation.h"

namespace corvane::host {

// Decides who runs. All members but sOn and tSelf are for the thread whose turn it is,
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

    // What one thread holds while others wait for it: mutexes and initialisations.
    SimThread* holderOf(const void* object) const { return mHolders.of(object); }
    void addHeld(const void* object, SimThread& holder);
    void removeHeld(const void* object) { mHolders.remove(object); }

    // Threads. A child can run from prepareThread() on; its own first act is runFirst().
    SimThread& prepareThread();
    void abandonThread(SimThread& child);
    static void runFirst(SimThread& self);
    void exitThread(SimThread& self);
    void joinThread(SimThread& child, const void* caller);
    // Joined or detached: its handle may come back.
    void releaseThread(SimThread& child) { mThreads.remove(child); }
    ThreadTable& table() { return mThreads; }

    // Of the kernel's, by a bare system call.
    static bool isReadable(int fd);
    // Timer descriptors. At its deadline one becomes readable.
    void armTimer(int fd, int64_t deadline);
    void disarmTimer(int fd) { mTimers.disarm(fd); }
    int64_t timerDeadline(int fd) const { return mTimers.deadlineOf(fd); }

    void record(const char* what, const void* object, const void* caller);
    pid_t processId() const { return kFirstId; }
    static pid_t threadIdOf(const SimThread& thread) {
        return kFirstId + static_cast<pid_t>(thread.id);
    }

  private:
    static constexpr pid_t kFirstId = 1'000;

    static SimThread& running() { return *tSelf; }
    void makeReady(SimThread& thread, bool timedOut);
    void countStep();
    void elapse(int64_t ns);
    void endWaitSpuriously();
    void wakeDue();
    void expire(int fd);
    bool advance();  // false when nothing is due

    SimThread* firstIn(ThreadState state) const;
    SimThread& letRun(SimThread& thread);
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
    ThreadTable mThreads{};
    size_t mReadyCount = 0;
    Holders mHolders{};
    Timers mTimers{};
};

}  // namespace corvane::host
