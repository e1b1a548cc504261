// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Two simulated threads count, under one lock or (argument "racy") each under its own:
// ThreadSanitizer must tell the one from the other although they never run at the same time.

#include <cstdio>
#include <cstring>
#include <mutex>
#include <thread>

#include "corvane/host/Simulation.h"

int main(int argc, char** argv) {
    const bool isRacy = argc > 1 && strcmp(argv[1], "racy") == 0;
    int count = 0;
    {
        corvane::host::Simulation simulation(1);
        std::mutex mutex;
        const auto add = [&] {
            std::mutex ownMutex;
            for (int i = 0; i < 10; ++i) {
                {
                    const std::lock_guard<std::mutex> lock(isRacy ? ownMutex : mutex);
                    ++count;
                }
                corvane::host::Simulation::sleepFor(1);
            }
        };
        std::thread first(add);
        std::thread second(add);
        first.join();
        second.join();
    }
    printf("%d\n", count);
    return count == 20 ? 0 : 1;
}
