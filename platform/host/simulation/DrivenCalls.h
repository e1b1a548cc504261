// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <pthread.h>
#include <sys/timerfd.h>
#include <time.h>

namespace corvane::host {

// What the wraps do while a DrivenClock drives the clock and no simulation is on.
bool isDriven();
void noteDrivenSignal(const pthread_cond_t* condition);
int drivenClockGettime(clockid_t clock, timespec* time);
int drivenTimedWait(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* deadline);
int drivenNanosleep(const timespec* duration);
int drivenTimerfdSettime(int fd, int flags, const itimerspec* when, itimerspec* old);

}  // namespace corvane::host
