// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "Scheduler.h"

#include <linux/futex.h>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>

#include "StuckReport.h"

namespace corvane::host {
namespace {

// How often threads may yield to each other in vain before that counts as stuck.
constexpr uint64_t kMaxIdleSpins = 1'000'000;

// Of Options::spuriousWakeups: one scheduling point in this many ends a condition wait.
constexpr uint64_t kSpuriousShare = 32;

pthread_key_t sExitKey;

// A bare system call: neither the C library's cancellation points nor a sanitizer's hooks.
long futex(std::atomic<uint32_t>& word, int operation, uint32_t value) {
    return syscall(SYS_futex, reinterpret_cast<uint32_t*>(&word), operation | FUTEX_PRIVATE_FLAG,
                   value, nullptr, nullptr, 0);
}

void onThreadExit(void* slot) {
    auto& thread = *static_cast<SimThread*>(slot);
    // After all other destructors, which may still wait and wake, but before the sanitizers' own,
    // which come in the last round.
    if (++thread.exitRounds < PTHREAD_DESTRUCTOR_ITERATIONS - 1) {
        pthread_setspecific(sExitKey, slot);
        return;
    }
    Scheduler::get().exitThread(thread);
}

}  // namespace

std::atomic<bool> Scheduler::sOn{false};
thread_local SimThread* Scheduler::tSelf __attribute__((tls_model("initial-exec"))) = nullptr;
Scheduler Scheduler::sScheduler;

void Scheduler::begin(const Simulation::Options& options) {
    if (options.startNs <= 0 || sOn.load(std::memory_order_relaxed)) {
        fputs("Simulation: start time not positive, or one is on already\n", stderr);
        abort();
    }
    static const int sPrepared = [] {
        // In a forked child nobody would take the turn.
        pthread_atfork(nullptr, nullptr, [] { sOn.store(false, std::memory_order_relaxed); });
        return pthread_key_create(&sExitKey, onThreadExit);
    }();
    if (sPrepared != 0) abort();

    mOptions = options;
    mSchedule.start(options);
    mNow = options.startNs;
    mSteps = mFirstStep = mOrder = mProgress = mIdleSpins = 0;
    mPrioritiesChanged = false;
    mReadyCount = 0;
    mThreads.clear();
    mHolders.clear();
    mTimers.clear();
    SimThread& owner = prepareThread();
    char name[16] = {};  // the kernel's limit
    pthread_getname_np(pthread_self(), name, sizeof(name));
    mThreads.setName(owner.id, name);
    owner.handle = pthread_self();
    owner.hasHandle = true;
    tSelf = &owner;
    sOn.store(true, std::memory_order_relaxed);
}

void Scheduler::end() {
    SimThread* owner = self();
    if (owner == nullptr) return;  // a forked child
    settle();
    sOn.store(false, std::memory_order_relaxed);
    tSelf = nullptr;
    owner->state = ThreadState::kUnused;
    owner->isInSlot.store(false, std::memory_order_release);
}

int64_t Scheduler::nextDeadline() const {
    int64_t next = mTimers.first().deadline;
    for (const SimThread* thread : mThreads) {
        if (thread->state == ThreadState::kBlocked) next = std::min(next, thread->deadline);
    }
    return next;
}

void Scheduler::restartSchedule() {
    mFirstStep = mSteps;
    mSchedule.drawChangePoints();
    for (SimThread* thread : mThreads) thread->priority = mSchedule.drawPriority();
    mPrioritiesChanged = true;
}

size_t Scheduler::threads() const {
    return static_cast<size_t>(
            std::count_if(mThreads.begin(), mThreads.end(), [](const SimThread* thread) {
                return thread->state != ThreadState::kFinished;
            }));
}

void Scheduler::record(const char* what, const void* object, const void* caller) {
    if (mOptions.onEvent == nullptr) return;
    mOptions.onEvent({mNow, running().id, what, object, caller});
}

void Scheduler::countStep() {
    if (++mSteps > mOptions.maxSteps) stuck("the limit of scheduling points is reached");
}

void Scheduler::elapse(int64_t ns) {
    if (ns <= 0) return;
    mNow += ns;
    wakeDue();
}

void Scheduler::endWaitSpuriously() {
    Random& random = mSchedule.random();
    if (random.below(kSpuriousShare) != 0) return;
    const size_t count = mThreads.size();
    const size_t first = random.below(count);
    for (size_t i = 0; i < count; ++i) {
        SimThread& thread = mThreads[(first + i) % count];
        if (thread.isWaiting(Wait::kCondition)) return makeReady(thread, false);
    }
}

void Scheduler::point(const char* what, const void* object, const void* caller) {
    countStep();
    record(what, object, caller);
    if (mOptions.callCost.maxNs > 0) elapse(mSchedule.random().from(mOptions.callCost));
    if (mOptions.spuriousWakeups) endWaitSpuriously();
    SimThread* next = choosePreempting(false);
    if (next == nullptr) return;
    running().order = ++mOrder;
    passTurnTo(*next);
}

void Scheduler::basicBlock(const void* caller) {
    if (!mOptions.basicBlocks) return;
    countStep();
    SimThread* next = choosePreempting(true);
    if (next == nullptr) return;
    record("preempted", nullptr, caller);
    running().order = ++mOrder;
    passTurnTo(*next);
}

bool Scheduler::block(Wait wait, const void* object, int64_t deadline, const void* caller) {
    SimThread& self = running();
    self.wait = wait;
    self.object = object;
    self.deadline = deadline;
    self.since = mNow;
    self.order = ++mOrder;
    self.state = ThreadState::kBlocked;
    --mReadyCount;
    record("waits", object, caller);
    if (deadline <= mNow) makeReady(self, true);
    passTurnTo(chooseNext());
    record(self.timedOut ? "timed out" : "woken", object, caller);
    return !self.timedOut;
}

void Scheduler::yield(const void* caller) {
    countStep();
    record("yield", nullptr, caller);
    SimThread& self = running();
    self.state = ThreadState::kYielding;
    self.order = ++mOrder;
    --mReadyCount;
    passTurnTo(chooseNext());
}

void Scheduler::settle() {
    SimThread& self = running();
    self.state = ThreadState::kSettling;
    self.order = ++mOrder;
    --mReadyCount;
    passTurnTo(chooseNext());
}

void Scheduler::makeReady(SimThread& thread, bool timedOut) {
    if (thread.wait != Wait::kWakeup) {
        thread.timedOut = timedOut;
        if (mOptions.wakeupCost.maxNs > 0) {
            thread.wait = Wait::kWakeup;
            thread.deadline = mNow + mSchedule.random().from(mOptions.wakeupCost);
            thread.order = ++mOrder;
            if (thread.deadline > mNow) return;
        }
    }
    thread.wait = Wait::kNothing;
    thread.object = nullptr;
    thread.deadline = kNever;
    thread.state = ThreadState::kReady;
    thread.order = ++mOrder;
    ++mReadyCount;
    mPrioritiesChanged = true;
}

void Scheduler::wakeAll(Wait wait, const void* object) {
    const auto waits = [=](const SimThread& thread) { return thread.isWaiting(wait, object); };
    while (SimThread* thread = mThreads.first(waits)) makeReady(*thread, false);
}

void Scheduler::wakeOne(Wait wait, const void* object) {
    const auto waits = [=](const SimThread& thread) { return thread.isWaiting(wait, object); };
    SimThread* chosen = mThreads.first(waits);
    if (mOptions.policy != Simulation::Policy::kFifo) {
        uint64_t candidates = 0;
        for (SimThread* thread : mThreads) {
            if (!waits(*thread)) continue;
            if (mSchedule.random().below(++candidates) == 0) chosen = thread;
        }
    }
    if (chosen != nullptr) makeReady(*chosen, false);
}

void Scheduler::wakeReaders() {
    for (SimThread* thread : mThreads) {
        if (thread->isWaiting(Wait::kDescriptor) &&
            isReadable(static_cast<int>(reinterpret_cast<intptr_t>(thread->object)))) {
            makeReady(*thread, false);
        }
    }
}

bool Scheduler::isReadable(int fd) {
    pollfd p{fd, POLLIN, 0};
    return syscall(SYS_poll, &p, 1, 0) == 1;
}

void Scheduler::addHeld(const void* object, SimThread& holder) {
    if (!mHolders.add(object, holder)) stuck("too many locks are held");
}

SimThread& Scheduler::prepareThread() {
    SimThread* thread = mThreads.add();
    if (thread == nullptr) stuck("too many threads");
    thread->since = mNow;
    thread->priority = mSchedule.drawPriority();
    thread->order = ++mOrder;
    mPrioritiesChanged = true;
    thread->state = ThreadState::kReady;
    ++mReadyCount;
    return *thread;
}

void Scheduler::abandonThread(SimThread& child) {
    --mReadyCount;
    child.isInSlot.store(false, std::memory_order_relaxed);
    releaseThread(child);
}

void Scheduler::runFirst(SimThread& self) {
    tSelf = &self;
    pthread_setspecific(sExitKey, &self);
    awaitTurn(self);
}

void Scheduler::exitThread(SimThread& self) {
    countStep();
    record("exit", nullptr, nullptr);
    self.state = ThreadState::kFinished;
    --mReadyCount;
    wakeAll(Wait::kThreadEnd, &self);
    if (self.isDetached) releaseThread(self);
    tSelf = nullptr;
    handTurn(chooseNext());
    self.isInSlot.store(false, std::memory_order_release);
}

void Scheduler::joinThread(SimThread& child, const void* caller) {
    point("join", &child, caller);
    while (child.state != ThreadState::kFinished) block(Wait::kThreadEnd, &child, kNever, caller);
}

void Scheduler::armTimer(int fd, int64_t deadline) {
    if (!mTimers.arm({fd, deadline, ++mOrder})) stuck("too many armed timers");
    if (deadline <= mNow) wakeDue();
}

// Everything that is due, in the order of the deadlines and then of the calls.
void Scheduler::wakeDue() {
    while (true) {
        SimThread* thread = nullptr;
        for (SimThread* candidate : mThreads) {
            if (candidate->state != ThreadState::kBlocked || candidate->deadline > mNow) continue;
            if (thread == nullptr || candidate->deadline < thread->deadline ||
                (candidate->deadline == thread->deadline && candidate->order < thread->order)) {
                thread = candidate;
            }
        }
        const Timers::Timer timer = mTimers.first();
        const bool isTimerDue = timer.deadline <= mNow;
        if (thread == nullptr && !isTimerDue) return;
        if (thread != nullptr &&
            (!isTimerDue || thread->deadline < timer.deadline ||
             (thread->deadline == timer.deadline && thread->order < timer.order))) {
            makeReady(*thread, true);
        } else {
            expire(timer.fd);
        }
    }
}

void Scheduler::expire(int fd) {
    mTimers.disarm(fd);
    // The descriptor is an event counter in truth. Not by write(), which a sanitizer would take for
    // the writer's handing something over.
    const uint64_t expiries = 1;
    syscall(SYS_write, fd, &expiries, sizeof(expiries));
    wakeReaders();
}

bool Scheduler::advance() {
    const int64_t next = nextDeadline();
    if (next == kNever) return false;
    if (next > mOptions.maxNs) stuck("the limit of simulated time is reached");
    mNow = std::max(mNow, next);
    wakeDue();
    return true;
}

SimThread* Scheduler::firstIn(ThreadState state) const {
    return mThreads.first([=](const SimThread& thread) { return thread.state == state; });
}

SimThread* Scheduler::chooseReady() {
    if (mReadyCount == 0) return nullptr;
    switch (mOptions.policy) {
        case Simulation::Policy::kFifo:
            return firstIn(ThreadState::kReady);
        case Simulation::Policy::kRandom: {
            uint64_t toSkip = mReadyCount > 1 ? mSchedule.random().below(mReadyCount) : 0;
            for (SimThread* thread : mThreads) {
                if (thread->state == ThreadState::kReady && toSkip-- == 0) return thread;
            }
            return nullptr;
        }
        case Simulation::Policy::kPct: {
            SimThread* chosen = nullptr;
            for (SimThread* thread : mThreads) {
                if (thread->state != ThreadState::kReady) continue;
                if (chosen == nullptr || thread->priority > chosen->priority) chosen = thread;
            }
            return chosen;
        }
    }
    return nullptr;
}

SimThread& Scheduler::letRun(SimThread& thread) {
    thread.state = ThreadState::kReady;
    ++mReadyCount;
    return thread;
}

SimThread& Scheduler::chooseNext() {
    while (true) {
        if (SimThread* ready = chooseReady()) {
            ++mProgress;
            mIdleSpins = 0;
            return *ready;
        }
        SimThread* yielding = firstIn(ThreadState::kYielding);
        // One that yields again before anybody else ran only spins: for him the clock may move.
        if (yielding != nullptr && yielding->yieldedAt != mProgress) {
            yielding->yieldedAt = mProgress;
            return letRun(*yielding);
        }
        if (SimThread* settling = firstIn(ThreadState::kSettling)) {
            ++mProgress;
            return letRun(*settling);
        }
        if (advance()) {
            ++mProgress;
            continue;
        }
        if (yielding == nullptr) stuck("deadlock: no thread can run, and nothing is due");
        if (++mIdleSpins > kMaxIdleSpins) stuck("livelock: threads only yield to each other");
        return letRun(*yielding);
    }
}

// Null when the running thread keeps its turn.
SimThread* Scheduler::choosePreempting(bool isBasicBlock) {
    SimThread& self = running();
    SimThread* next = nullptr;
    switch (mOptions.policy) {
        case Simulation::Policy::kFifo:
            return nullptr;
        case Simulation::Policy::kRandom:
            if (mReadyCount <= 1 || self.uninterrupted > 0) return nullptr;
            if (mSchedule.mayPreempt(isBasicBlock)) next = chooseReady();
            break;
        case Simulation::Policy::kPct:
            if (mSchedule.isChangePoint(steps(), self.priority)) mPrioritiesChanged = true;
            if (!mPrioritiesChanged || self.uninterrupted > 0) return nullptr;
            mPrioritiesChanged = false;
            next = chooseReady();
            break;
    }
    return next == &self ? nullptr : next;
}

void Scheduler::passTurnTo(SimThread& next) {
    SimThread& self = running();
    if (&next == &self) return;
    const int savedErrno = errno;
    handTurn(next);
    awaitTurn(self);
    errno = savedErrno;
}

void Scheduler::handTurn(SimThread& next) {
    next.turn.store(1, std::memory_order_release);
    futex(next.turn, FUTEX_WAKE, 1);
}

void Scheduler::awaitTurn(SimThread& self) {
    while (self.turn.load(std::memory_order_acquire) == 0) futex(self.turn, FUTEX_WAIT, 0);
    self.turn.store(0, std::memory_order_relaxed);
}

void Scheduler::stuck(const char* why) {
    const char* report = stuckReport(why, mNow, mSteps, mThreads, mHolders);
    if (mOptions.onStuck != nullptr) mOptions.onStuck(report);
    fputs(report, stderr);
    abort();
}

}  // namespace corvane::host
