// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "corvane/host/Simulation.h"
#include "explore/Story.h"

namespace corvane::explore {

// The order of one schedule, whole: the same one repeats it.
struct Order {
    host::Simulation::Policy policy = host::Simulation::Policy::kFifo;
    uint32_t depth = 3;  // of kPct
    uint64_t seed = 0;
};

std::string toText(const Order& order);  // as the command line takes it

struct Search {
    uint64_t schedules = 1'000;
    uint64_t seed = 1;  // of the first schedule; the next ones count up
    // None: a mixture, by the seed.
    std::optional<Order> policy;
    unsigned workers = 1;
};

struct Finding {
    uint64_t schedule = 0;  // its number, from 1
    Order order;
    std::string what;
};

struct Outcome {
    uint64_t schedules = 0;  // run
    uint64_t points = 0;     // scheduling points of a long run
    double seconds = 0;
    std::optional<Finding> finding;  // the first
};

// Runs the story in one order after the other until one fails. Every schedule runs in a process
// forked from this one, so that it finds the library untouched.
Outcome explore(const Story& story, const Search& search);

// Runs this one order again and prints what each thread did.
void printInterleaving(const Story& story, const Order& order);

}  // namespace corvane::explore
