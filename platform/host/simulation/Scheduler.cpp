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
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace corvane::host {
namespace {

// How often threads may yield to each other in vain before that counts as stuck.
constexpr uint64_t kMaxIdleSpins = 1'000'000;

// Of Options::spuriousWakeups: one scheduling point in this many ends a condition wait.
constexpr uint64_t kSpuriousShare = 32;

// The slots of all threads. A slot is taken again once its thread is gone.
constexpr size_t kSlots = 2'048;
SimThread sSlots[kSlots];
size_t sNextSlot = 0;
pthread_key_t sExitKey;

// A bare system call: neither the C library's cancellation points nor a sanitizer's hooks.
long futex(std::atomic<uint32_t>& word, int operation, uint32_t value) {
    return syscall(SYS_futex, reinterpret_cast<uint32_t*>(&word), operation | FUTEX_PRIVATE_FLAG,
                   value, nullptr, nullptr, 0);
}

bool isReadable(int fd) {
    pollfd p{fd, POLLIN, 0};
    return syscall(SYS_poll, &p, 1, 0) == 1;
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

// Like strncpy() and std::copy(), but no call that ThreadSanitizer would take for the program's.
void copyText(char* to, const char* from, size_t size) {
    for (; size > 1 && *from != '\0'; --size) {
        *to++ = *from++;
        asm volatile("" ::: "memory");
    }
    *to = '\0';
}

void removeAt(SimThread** list, size_t index, size_t count) {
    for (; index + 1 < count; ++index) {
        list[index] = list[index + 1];
        asm volatile("" ::: "memory");
    }
}

// Appends to a text of fixed size, and cuts what does not fit.
class Text {
  public:
    void add(const char* format, ...) __attribute__((format(printf, 2, 3))) {
        va_list arguments;
        va_start(arguments, format);
        const int length = vsnprintf(mText + mLength, sizeof(mText) - mLength, format, arguments);
        va_end(arguments);
        if (length > 0)
            mLength = std::min(mLength + static_cast<size_t>(length), sizeof(mText) - 1);
    }
    const char* c_str() const { return mText; }

  private:
    char mText[16'384] = {};
    size_t mLength = 0;
};

const char* describe(Wait wait) {
    switch (wait) {
        case Wait::kNothing:
            return "nothing";
        case Wait::kMutex:
            return "a mutex";
        case Wait::kCondition:
            return "a condition";
        case Wait::kInitialisation:
            return "an initialisation";
        case Wait::kThreadEnd:
            return "the end of a thread";
        case Wait::kDescriptor:
            return "a descriptor";
        case Wait::kFuture:
            return "a future";
        case Wait::kSleep:
            return "the clock";
        case Wait::kWakeup:
            return "its wake-up";
    }
    return "?";
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
    mNextId = 0;
    mThreadCount = mReadyCount = mHeldCount = mTimerCount = 0;
    SimThread& owner = prepareThread();
    pthread_getname_np(pthread_self(), mNames[owner.id], kNameSize);
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
    int64_t next = kNever;
    for (size_t i = 0; i < mThreadCount; ++i) {
        if (mThreads[i]->state == ThreadState::kBlocked) {
            next = std::min(next, mThreads[i]->deadline);
        }
    }
    for (size_t i = 0; i < mTimerCount; ++i) next = std::min(next, mTimers[i].deadline);
    return next;
}

void Scheduler::restartSchedule() {
    mFirstStep = mSteps;
    mSchedule.drawChangePoints();
    for (size_t i = 0; i < mThreadCount; ++i) mThreads[i]->priority = mSchedule.drawPriority();
    mPrioritiesChanged = true;
}

size_t Scheduler::threads() const {
    size_t count = 0;
    for (size_t i = 0; i < mThreadCount; ++i) {
        if (mThreads[i]->state != ThreadState::kFinished) ++count;
    }
    return count;
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
    const size_t first = mThreadCount == 0 ? 0 : random.below(mThreadCount);
    for (size_t i = 0; i < mThreadCount; ++i) {
        SimThread& thread = *mThreads[(first + i) % mThreadCount];
        if (thread.state == ThreadState::kBlocked && thread.wait == Wait::kCondition) {
            makeReady(thread, false);
            return;
        }
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
    // In the order in which they began to wait.
    while (true) {
        SimThread* first = nullptr;
        for (size_t i = 0; i < mThreadCount; ++i) {
            SimThread* thread = mThreads[i];
            if (thread->state != ThreadState::kBlocked || thread->wait != wait ||
                thread->object != object) {
                continue;
            }
            if (first == nullptr || thread->order < first->order) first = thread;
        }
        if (first == nullptr) return;
        makeReady(*first, false);
    }
}

void Scheduler::wakeOne(Wait wait, const void* object) {
    SimThread* chosen = nullptr;
    uint64_t candidates = 0;
    for (size_t i = 0; i < mThreadCount; ++i) {
        SimThread* thread = mThreads[i];
        if (thread->state != ThreadState::kBlocked || thread->wait != wait ||
            thread->object != object) {
            continue;
        }
        ++candidates;
        const bool isChosen = mOptions.policy == Simulation::Policy::kFifo
                                      ? chosen == nullptr || thread->order < chosen->order
                                      : mSchedule.random().below(candidates) == 0;
        if (isChosen) chosen = thread;
    }
    if (chosen != nullptr) makeReady(*chosen, false);
}

void Scheduler::wakeReaders() {
    for (size_t i = 0; i < mThreadCount; ++i) {
        SimThread& thread = *mThreads[i];
        if (thread.state != ThreadState::kBlocked || thread.wait != Wait::kDescriptor) continue;
        if (isReadable(static_cast<int>(reinterpret_cast<intptr_t>(thread.object)))) {
            makeReady(thread, false);
        }
    }
}

SimThread* Scheduler::holderOf(const void* object) const {
    for (size_t i = 0; i < mHeldCount; ++i) {
        if (mHeld[i].object == object) return mHeld[i].holder;
    }
    return nullptr;
}

void Scheduler::addHeld(const void* object, SimThread& holder) {
    if (mHeldCount == kMaxHeld) stuck("too many locks are held");
    mHeld[mHeldCount++] = {object, &holder};
}

void Scheduler::removeHeld(const void* object) {
    for (size_t i = mHeldCount; i-- > 0;) {
        if (mHeld[i].object != object) continue;
        mHeld[i] = mHeld[--mHeldCount];
        return;
    }
}

SimThread& Scheduler::prepareThread() {
    if (mThreadCount == kMaxThreads) stuck("too many threads");
    for (size_t tried = 0; tried < kSlots; ++tried) {
        SimThread& thread = sSlots[sNextSlot];
        sNextSlot = (sNextSlot + 1) % kSlots;
        if (thread.state != ThreadState::kUnused) continue;  // joined or detached by nobody yet
        if (thread.isInSlot.load(std::memory_order_acquire)) continue;
        thread.turn.store(0, std::memory_order_relaxed);
        thread.isInSlot.store(true, std::memory_order_relaxed);
        thread.id = mNextId++;
        thread.wait = Wait::kNothing;
        thread.timedOut = thread.isDetached = thread.hasHandle = false;
        thread.object = nullptr;
        thread.deadline = kNever;
        thread.since = mNow;
        thread.priority = mSchedule.drawPriority();
        thread.yieldedAt = 0;
        thread.uninterrupted = thread.exitRounds = 0;
        thread.state = ThreadState::kReady;
        thread.order = ++mOrder;
        mThreads[mThreadCount++] = &thread;
        ++mReadyCount;
        mPrioritiesChanged = true;
        char name[kNameSize];
        snprintf(name, sizeof(name), "thread %u", thread.id);
        setName(thread, name);
        return thread;
    }
    stuck("too many threads");
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

SimThread* Scheduler::threadOf(pthread_t handle) {
    for (size_t i = 0; i < mThreadCount; ++i) {
        SimThread* thread = mThreads[i];
        if (thread->hasHandle && !thread->isDetached &&
            pthread_equal(thread->handle, handle) != 0) {
            return thread;
        }
    }
    return nullptr;
}

void Scheduler::joinThread(SimThread& child, const void* caller) {
    point("join", &child, caller);
    while (child.state != ThreadState::kFinished) block(Wait::kThreadEnd, &child, kNever, caller);
}

void Scheduler::releaseThread(SimThread& child) {
    size_t index = 0;
    while (index < mThreadCount && mThreads[index] != &child) ++index;
    if (index == mThreadCount) return;
    removeAt(mThreads, index, mThreadCount--);
    child.hasHandle = false;
    child.state = ThreadState::kUnused;
}

void Scheduler::setName(const SimThread& thread, const char* name) {
    copyText(mNames[thread.id % kMaxNames], name, kNameSize);
}

const char* Scheduler::nameOf(uint32_t id) const {
    return mNames[id % kMaxNames];
}

void Scheduler::armTimer(int fd, int64_t deadline) {
    disarmTimer(fd);
    if (mTimerCount == kMaxTimers) stuck("too many armed timers");
    mTimers[mTimerCount++] = {fd, deadline, ++mOrder};
    if (deadline <= mNow) wakeDue();
}

void Scheduler::disarmTimer(int fd) {
    for (size_t i = 0; i < mTimerCount; ++i) {
        if (mTimers[i].fd != fd) continue;
        mTimers[i] = mTimers[--mTimerCount];
        return;
    }
}

int64_t Scheduler::timerDeadline(int fd) const {
    for (size_t i = 0; i < mTimerCount; ++i) {
        if (mTimers[i].fd == fd) return mTimers[i].deadline;
    }
    return kNever;
}

// Everything that is due, in the order of the deadlines and then of the calls.
void Scheduler::wakeDue() {
    while (true) {
        SimThread* thread = nullptr;
        for (size_t i = 0; i < mThreadCount; ++i) {
            SimThread* candidate = mThreads[i];
            if (candidate->state != ThreadState::kBlocked || candidate->deadline > mNow) continue;
            if (thread == nullptr || candidate->deadline < thread->deadline ||
                (candidate->deadline == thread->deadline && candidate->order < thread->order)) {
                thread = candidate;
            }
        }
        const Timer* timer = nullptr;
        for (size_t i = 0; i < mTimerCount; ++i) {
            const Timer& candidate = mTimers[i];
            if (candidate.deadline > mNow) continue;
            if (timer == nullptr || candidate.deadline < timer->deadline ||
                (candidate.deadline == timer->deadline && candidate.order < timer->order)) {
                timer = &candidate;
            }
        }
        if (thread == nullptr && timer == nullptr) return;
        const bool isTimer =
                timer != nullptr &&
                (thread == nullptr || timer->deadline < thread->deadline ||
                 (timer->deadline == thread->deadline && timer->order < thread->order));
        if (!isTimer) {
            makeReady(*thread, true);
            continue;
        }
        const int fd = timer->fd;
        disarmTimer(fd);
        // The descriptor is an event counter in truth. Not by write(), which a sanitizer would take
        // for the writer's handing something over.
        const uint64_t expiries = 1;
        syscall(SYS_write, fd, &expiries, sizeof(expiries));
        wakeReaders();
    }
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
    SimThread* first = nullptr;
    for (size_t i = 0; i < mThreadCount; ++i) {
        SimThread* thread = mThreads[i];
        if (thread->state == state && (first == nullptr || thread->order < first->order)) {
            first = thread;
        }
    }
    return first;
}

SimThread* Scheduler::chooseReady() {
    if (mReadyCount == 0) return nullptr;
    if (mOptions.policy == Simulation::Policy::kFifo) return firstIn(ThreadState::kReady);
    SimThread* chosen = nullptr;
    uint64_t toSkip = 0;
    if (mOptions.policy == Simulation::Policy::kRandom && mReadyCount > 1) {
        toSkip = mSchedule.random().below(mReadyCount);
    }
    for (size_t i = 0; i < mThreadCount; ++i) {
        SimThread* thread = mThreads[i];
        if (thread->state != ThreadState::kReady) continue;
        if (mOptions.policy == Simulation::Policy::kRandom) {
            if (toSkip-- == 0) return thread;
        } else if (chosen == nullptr || thread->priority > chosen->priority) {
            chosen = thread;
        }
    }
    return chosen;
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
            yielding->state = ThreadState::kReady;
            ++mReadyCount;
            return *yielding;
        }
        if (SimThread* settling = firstIn(ThreadState::kSettling)) {
            ++mProgress;
            settling->state = ThreadState::kReady;
            ++mReadyCount;
            return *settling;
        }
        if (advance()) {
            ++mProgress;
            continue;
        }
        if (yielding == nullptr) stuck("deadlock: no thread can run, and nothing is due");
        if (++mIdleSpins > kMaxIdleSpins) stuck("livelock: threads only yield to each other");
        yielding->state = ThreadState::kReady;
        ++mReadyCount;
        return *yielding;
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
    static Text report;
    report.add("simulation: %s, at %lld ns after %llu scheduling points\n", why,
               static_cast<long long>(mNow), static_cast<unsigned long long>(mSteps));
    for (size_t i = 0; i < mThreadCount; ++i) {
        const SimThread& thread = *mThreads[i];
        if (thread.state == ThreadState::kFinished) continue;
        report.add("  #%u %s: ", thread.id, nameOf(thread.id));
        if (thread.state != ThreadState::kBlocked) {
            report.add("can run\n");
            continue;
        }
        report.add("waits for %s", describe(thread.wait));
        if (thread.wait == Wait::kThreadEnd) {
            const auto& child = *static_cast<const SimThread*>(thread.object);
            report.add(", #%u %s,", child.id, nameOf(child.id));
        }
        report.add(" since %lld ns", static_cast<long long>(thread.since));
        if (thread.deadline != kNever) {
            report.add(" until %lld ns", static_cast<long long>(thread.deadline));
        }
        if (const SimThread* holder = holderOf(thread.object)) {
            report.add(", held by #%u %s", holder->id, nameOf(holder->id));
        }
        report.add("\n");
    }
    if (mOptions.onStuck != nullptr) mOptions.onStuck(report.c_str());
    fputs(report.c_str(), stderr);
    abort();
}

}  // namespace corvane::host
