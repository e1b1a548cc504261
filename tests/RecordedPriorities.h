// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>

#include <map>
#include <mutex>
#include <string>
#include <vector>

// Takes the place of the system's calls that raise a thread's priority, which not every machine
// allows a test. For one source of a program.

namespace android {

class RecordedPriorities {
  public:
    static void add(const char* call, long target, long scheduling, long value) {
        char name[16] = {};
        pthread_getname_np(pthread_self(), name, sizeof(name));
        const std::lock_guard<std::mutex> lock(mutex());
        calls()[name].push_back(std::string(call) + " " + std::to_string(target) + " " +
                                std::to_string(scheduling) + " " + std::to_string(value));
    }

    static std::vector<std::string> of(const std::string& thread) {
        const std::lock_guard<std::mutex> lock(mutex());
        return calls()[thread];
    }

    // What a thread of the frame path asks for: nice -8, then SCHED_FIFO 1, for itself alone.
    static std::vector<std::string> ofTheFramePath() {
        return {"setpriority 0 0 -8", "sched_setscheduler 0 1 1"};
    }

  private:
    static std::mutex& mutex() {
        static auto* instance = new std::mutex;
        return *instance;
    }
    static std::map<std::string, std::vector<std::string>>& calls() {
        static auto* instance = new std::map<std::string, std::vector<std::string>>;
        return *instance;
    }
};

}  // namespace android

extern "C" {

int setpriority(__priority_which_t which, id_t who, int nice) noexcept {
    android::RecordedPriorities::add("setpriority", who, which, nice);
    return 0;
}

int sched_setscheduler(pid_t pid, int policy, const sched_param* param) noexcept {
    android::RecordedPriorities::add("sched_setscheduler", pid, policy, param->sched_priority);
    return 0;
}
}
