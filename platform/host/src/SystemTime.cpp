// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// systemTime() for the whole process: libutils' own would read the kernel's clock even in simulated
// time.

#include <time.h>
#include <utils/Timers.h>

#include <cstdlib>

nsecs_t systemTime(int clock) {
    static constexpr clockid_t kClocks[] = {CLOCK_REALTIME, CLOCK_MONOTONIC,
                                            CLOCK_PROCESS_CPUTIME_ID, CLOCK_THREAD_CPUTIME_ID,
                                            CLOCK_BOOTTIME};
    if (clock < SYSTEM_TIME_REALTIME || clock > SYSTEM_TIME_BOOTTIME) abort();
    timespec now{};
    clock_gettime(kClocks[clock], &now);
    return seconds_to_nanoseconds(now.tv_sec) + now.tv_nsec;
}
