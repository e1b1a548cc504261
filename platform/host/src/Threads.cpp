// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "corvane/host/Threads.h"

#include <atomic>
#include <memory>
#include <system_error>
#include <thread>

namespace {

std::atomic<int> sFailures{0};  // constructions still to fail

using StatePtr = std::unique_ptr<std::thread::_State>;

bool takeFailure() {
    int left = sFailures.load(std::memory_order_relaxed);
    while (left > 0) {
        if (sFailures.compare_exchange_weak(left, left - 1, std::memory_order_relaxed)) return true;
    }
    return false;
}

}  // namespace

// std::thread::_M_start_thread(), into which every std::thread constructor ends. A member function
// takes its object as the first argument.
#define START_THREAD \
    "_ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE"
void startThread(std::thread* self, StatePtr state, void (*depend)()) asm(START_THREAD);
void wrapStartThread(std::thread* self, StatePtr state,
                     void (*depend)()) asm("__wrap_" START_THREAD);

void wrapStartThread(std::thread* self, StatePtr state, void (*depend)()) {
    if (takeFailure()) {
        throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
    }
    startThread(self, std::move(state), depend);
}

namespace corvane::host {

void failThreadCreation(int count) {
    sFailures.store(count, std::memory_order_relaxed);
}

}  // namespace corvane::host
