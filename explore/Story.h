// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <thread>
#include <utility>
#include <vector>

namespace corvane::explore {

// A small closed piece of concurrent work on the library's real classes, run many times, each time
// in another order and in a process of its own. It starts its threads, joins them, takes down what
// it built and checks what must hold in every order. docs/exploration.md tells how to write one.
struct Story {
    const char* name;
    const char* what;  // one line for the user
    void (*run)();     // on the owner's thread of a simulation
    // Threads that live as long as the process by design: watchers of properties.
    size_t watchers = 0;
    // What time passes at each scheduling point. With some, no two deadlines of the timer queue are
    // equal, which it may dispatch in any order.
    int64_t callCostNs = 0;
};

const std::vector<Story>& stories();

// Ends this schedule: it broke what must hold in every one. Any thread.
[[noreturn]] void fail(const char* format, ...) __attribute__((format(printf, 1, 2)));

#define EXPLORE_CHECK(condition, ...)                            \
    do {                                                         \
        if (!(condition)) ::corvane::explore::fail(__VA_ARGS__); \
    } while (false)

// A drawn variation of the story, of the schedule's seed too: one of [0, bound).
uint64_t draw(uint64_t bound);

template <typename T>
T drawOne(std::initializer_list<T> choices) {
    return choices.begin()[draw(choices.size())];
}

// A thread of the story with its name in the interleaving.
std::thread startNamed(const char* name, void (*run)(void*), void* argument);

template <typename Function>
std::thread start(const char* name, Function& run) {
    return startNamed(
            name, [](void* function) { (*static_cast<Function*>(function))(); }, &run);
}

constexpr int64_t kMs = 1'000'000;

}  // namespace corvane::explore
