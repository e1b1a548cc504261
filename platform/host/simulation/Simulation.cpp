// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "corvane/host/Simulation.h"

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "Scheduler.h"

namespace corvane::host {
namespace {

cpu_set_t sProcessorsBefore;
bool sIsPinned = false;

// The threads that this one starts stay on its processor as well.
void pin() {
    sIsPinned = false;
    const int processor = sched_getcpu();
    if (processor < 0 || sched_getaffinity(0, sizeof(sProcessorsBefore), &sProcessorsBefore) != 0) {
        return;
    }
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(processor, &one);
    sIsPinned = sched_setaffinity(0, sizeof(one), &one) == 0;
}

void unpin() {
    if (sIsPinned) sched_setaffinity(0, sizeof(sProcessorsBefore), &sProcessorsBefore);
    sIsPinned = false;
}

Simulation::Options optionsFrom(int64_t startNs) {
    Simulation::Options options;
    options.startNs = startNs;
    return options;
}

}  // namespace

Simulation::Simulation(const Options& options) {
    if (options.onOneProcessor) pin();
    Scheduler::get().begin(options);
}

Simulation::Simulation(int64_t startNs) : Simulation(optionsFrom(startNs)) {}

Simulation::~Simulation() {
    Scheduler::get().end();
    unpin();
}

int64_t Simulation::now() {
    return Scheduler::get().now();
}

void Simulation::sleepUntil(int64_t timeNs) {
    Scheduler& scheduler = Scheduler::get();
    const void* caller = __builtin_return_address(0);
    scheduler.point("sleep", nullptr, caller);
    if (timeNs > scheduler.now()) scheduler.block(Wait::kSleep, nullptr, timeNs, caller);
}

void Simulation::sleepFor(int64_t durationNs) {
    sleepUntil(addSaturated(now(), durationNs));
}

void Simulation::settle() {
    Scheduler::get().settle();
}

void Simulation::advanceTo(int64_t timeNs) {
    sleepUntil(timeNs);
    settle();
}

void Simulation::advance(int64_t durationNs) {
    sleepFor(durationNs);
    settle();
}

void Simulation::yield() {
    Scheduler::get().yield(__builtin_return_address(0));
}

int64_t Simulation::nextDeadline() {
    const int64_t next = Scheduler::get().nextDeadline();
    return next == kNever ? -1 : next;
}

uint64_t Simulation::steps() {
    return Scheduler::get().steps();
}

void Simulation::restartSchedule() {
    Scheduler::get().restartSchedule();
}

size_t Simulation::threads() {
    return Scheduler::get().threads();
}

Simulation::Scheduling Simulation::schedulingOf(const char* threadName) {
    const ThreadTable& table = Scheduler::get().table();
    for (const SimThread* thread : table) {
        if (std::strcmp(table.nameOf(thread->id), threadName) == 0) return thread->scheduling;
    }
    return {};
}

bool Simulation::isOn() {
    return Scheduler::self() != nullptr;
}

pid_t Simulation::threadId() {
    const SimThread* self = Scheduler::self();
    return self == nullptr ? gettid() : Scheduler::threadIdOf(*self);
}

pid_t Simulation::processId() {
    return isOn() ? Scheduler::get().processId() : getpid();
}

const char* Simulation::threadName(uint32_t thread) {
    return Scheduler::get().table().nameOf(thread);
}

Simulation::Uninterrupted::Uninterrupted() {
    if (SimThread* self = Scheduler::self()) ++self->uninterrupted;
}

Simulation::Uninterrupted::~Uninterrupted() {
    if (SimThread* self = Scheduler::self()) --self->uninterrupted;
}

}  // namespace corvane::host
