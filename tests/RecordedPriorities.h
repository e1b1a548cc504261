// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <sched.h>
#include <sys/resource.h>

#include <string>
#include <vector>

// Takes the place of the system's calls that raise a thread's priority, which not every machine
// allows a test. For one source of a program.

namespace android {

// What was asked for, in order: "setpriority 0 0 -8" by a thread for itself.
inline std::vector<std::string>& recordedPriorities() {
    static auto* calls = new std::vector<std::string>;
    return *calls;
}

}  // namespace android

extern "C" {

int setpriority(__priority_which_t which, id_t who, int nice) noexcept {
    android::recordedPriorities().push_back("setpriority " + std::to_string(which) + " " +
                                            std::to_string(who) + " " + std::to_string(nice));
    return 0;
}

int sched_setscheduler(pid_t pid, int policy, const sched_param* param) noexcept {
    android::recordedPriorities().push_back("sched_setscheduler " + std::to_string(pid) + " " +
                                            std::to_string(policy) + " " +
                                            std::to_string(param->sched_priority));
    return 0;
}
}
