// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Preloaded into a test program, it lets every thread but the first come late to each of its locks,
// as on a phone whose cores are all taken. tools/check-delays.sh runs the suite so.

#include <dlfcn.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

extern "C" int pthread_mutex_lock(pthread_mutex_t* mutex) {
    static const auto next =
            reinterpret_cast<decltype(&pthread_mutex_lock)>(dlsym(RTLD_NEXT, "pthread_mutex_lock"));
    if (syscall(SYS_gettid) != getpid()) {
        // Longer than a scheduler's slice; the bare call, which no simulation answers.
        constexpr timespec kDelay{0, 5'000'000};  // 5 ms
        syscall(SYS_nanosleep, &kDelay, nullptr);
    }
    return next(mutex);
}
