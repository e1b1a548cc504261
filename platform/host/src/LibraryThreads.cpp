// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Thread starts that can be told to fail: those of the library, and of a test that is linked with
// its objects. Linked into each of them; all others go to libcorvane_simulation straight away.

#include <memory>
#include <system_error>
#include <thread>
#include <utility>

#include "corvane/host/Threads.h"

using namespace corvane::host;

#define WRAP_START_THREAD \
    "__wrap__ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE"
__attribute__((visibility("hidden"))) void startLibraryThread(
        std::thread* thread, std::unique_ptr<std::thread::_State> state,
        void (*depend)()) asm(WRAP_START_THREAD);

void startLibraryThread(std::thread* thread, std::unique_ptr<std::thread::_State> state,
                        void (*depend)()) {
    if (takeThreadFailure()) {
        throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
    }
    startSimulatedThread(thread, std::move(state), depend);
}
