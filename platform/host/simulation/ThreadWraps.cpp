// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Threads: start, end, join, names, numbers and priorities; and the basic blocks of instrumented
// code.

#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <thread>
#include <utility>

#include "Wraps.h"
#include "corvane/host/Threads.h"

namespace corvane::host {
namespace {

std::atomic<int> sFailures{0};  // constructions of std::thread still to fail

using StatePtr = std::unique_ptr<std::thread::_State>;

// The work of a std::thread that waits for its turn first.
class SimulatedState : public std::thread::_State {
  public:
    SimulatedState(SimThread& thread, StatePtr work) : mThread(thread), mWork(std::move(work)) {}

    void _M_run() override {
        Scheduler::runFirst(mThread);
        mWork->_M_run();
        mWork.reset();
    }

  private:
    SimThread& mThread;
    StatePtr mWork;
};

void* runSimulated(void* slot) {
    auto& self = *static_cast<SimThread*>(slot);
    Scheduler::runFirst(self);
    return self.routine(self.argument);
}

void noteHandle(SimThread& child, pthread_t handle, const void* caller) {
    child.handle = handle;
    child.hasHandle = true;
    Scheduler::get().point("start", &child, caller);
}

void detach(pthread_t handle) {
    SimThread* child = Scheduler::get().table().find(handle);
    if (child == nullptr) return;
    child->isDetached = true;
    if (child->state == ThreadState::kFinished) Scheduler::get().releaseThread(*child);
}

void awaitEnd(SimThread* child, const void* caller) {
    if (child != nullptr) Scheduler::get().joinThread(*child, caller);
}

void forget(SimThread* child) {
    if (child != nullptr) Scheduler::get().releaseThread(*child);
}

}  // namespace

void failThreadCreation(int count) {
    sFailures.store(count, std::memory_order_relaxed);
}

bool takeThreadFailure() {
    int left = sFailures.load(std::memory_order_relaxed);
    while (left > 0) {
        if (sFailures.compare_exchange_weak(left, left - 1, std::memory_order_relaxed)) return true;
    }
    return false;
}

}  // namespace corvane::host

using namespace corvane::host;

// std::thread's constructors all end in _M_start_thread(). A member function takes its object as
// the first argument.
#define START_THREAD \
    "_ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE"
#define WRAPPED(name, symbol) name asm("__wrap_" symbol) __attribute__((visibility("default")))

void realStartThread(std::thread* thread, StatePtr state, void (*depend)()) asm(START_THREAD);
void WRAPPED(startThread(std::thread* thread, StatePtr state, void (*depend)()), START_THREAD);
void WRAPPED(joinThread(std::thread* thread), "_ZNSt6thread4joinEv");
void WRAPPED(detachThread(std::thread* thread), "_ZNSt6thread6detachEv");

void startThread(std::thread* thread, StatePtr state, void (*depend)()) {
    startSimulatedThread(thread, std::move(state), depend);
}

void corvane::host::startSimulatedThread(std::thread* thread, StatePtr state, void (*depend)()) {
    if (Scheduler::self() == nullptr) return realStartThread(thread, std::move(state), depend);
    SimThread& child = Scheduler::get().prepareThread();
    try {
        realStartThread(thread, std::make_unique<SimulatedState>(child, std::move(state)), depend);
    } catch (...) {
        Scheduler::get().abandonThread(child);
        throw;
    }
    noteHandle(child, thread->native_handle(), CORVANE_CALLER);
}

void joinThread(std::thread* thread) {
    SimThread* child = nullptr;
    if (Scheduler::self() != nullptr && thread->joinable()) {
        child = Scheduler::get().table().find(thread->native_handle());
        awaitEnd(child, CORVANE_CALLER);
    }
    thread->join();
    forget(child);
}

void detachThread(std::thread* thread) {
    if (Scheduler::self() != nullptr) detach(thread->native_handle());
    thread->detach();
}

CORVANE_WRAP int __wrap_pthread_create(pthread_t* handle, const pthread_attr_t* attributes,
                                       void* (*routine)(void*), void* argument) {
    if (Scheduler::self() == nullptr) return pthread_create(handle, attributes, routine, argument);
    SimThread& child = Scheduler::get().prepareThread();
    child.routine = routine;
    child.argument = argument;
    if (const int error = pthread_create(handle, attributes, runSimulated, &child); error != 0) {
        Scheduler::get().abandonThread(child);
        return error;
    }
    int state = PTHREAD_CREATE_JOINABLE;
    if (attributes != nullptr) pthread_attr_getdetachstate(attributes, &state);
    child.isDetached = state == PTHREAD_CREATE_DETACHED;
    noteHandle(child, *handle, CORVANE_CALLER);
    return 0;
}

CORVANE_WRAP int __wrap_pthread_join(pthread_t handle, void** result) {
    SimThread* child =
            Scheduler::self() == nullptr ? nullptr : Scheduler::get().table().find(handle);
    awaitEnd(child, CORVANE_CALLER);
    const int error = pthread_join(handle, result);
    forget(child);
    return error;
}

CORVANE_WRAP int __wrap_pthread_detach(pthread_t handle) {
    if (Scheduler::self() != nullptr) detach(handle);
    return pthread_detach(handle);
}

CORVANE_WRAP int __wrap_pthread_setname_np(pthread_t handle, const char* name) {
    if (Scheduler::self() != nullptr) {
        if (SimThread* thread = Scheduler::get().table().find(handle)) {
            Scheduler::get().table().setName(thread->id, name);
        }
    }
    return pthread_setname_np(handle, name);
}

CORVANE_WRAP int __wrap_sched_yield() {
    if (Scheduler::self() == nullptr) return sched_yield();
    Scheduler::get().yield(CORVANE_CALLER);
    return 0;
}

CORVANE_WRAP int __wrap_setpriority(__priority_which_t which, id_t who, int nice) {
    SimThread* self = Scheduler::self();
    if (self == nullptr || which != PRIO_PROCESS || who != 0) return setpriority(which, who, nice);
    self->scheduling.nice = nice;
    return 0;
}

CORVANE_WRAP int __wrap_sched_setscheduler(pid_t thread, int policy, const sched_param* param) {
    SimThread* self = Scheduler::self();
    if (self == nullptr || thread != 0) return sched_setscheduler(thread, policy, param);
    self->scheduling.policy = policy;
    self->scheduling.priority = param->sched_priority;
    return 0;
}

CORVANE_WRAP pid_t __wrap_gettid() {
    const SimThread* self = Scheduler::self();
    return self == nullptr ? gettid() : Scheduler::threadIdOf(*self);
}

// Called by code that is compiled with -fsanitize-coverage=trace-pc.
CORVANE_WRAP void __sanitizer_cov_trace_pc() {
    if (Scheduler::self() != nullptr) Scheduler::get().basicBlock(CORVANE_CALLER);
}
