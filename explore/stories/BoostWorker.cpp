// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <array>
#include <atomic>
#include <cstdlib>

#include "corvane/host/Devices.h"
#include "corvane/host/PerfService.h"
#include "corvane/host/Simulation.h"
#include "explore/stories/Stories.h"
#include "perf/PerfProxy.h"

namespace corvane::explore {
namespace {

using android::PerfProxy;
using host::Simulation;

constexpr size_t kUsers = 3;
constexpr int kTasks = 3;

// What one thread makes of the gateway to the service.
struct User {
    PerfProxy* proxy = nullptr;
    std::array<std::atomic<int>, kTasks> runs{};

    void use() {
        proxy = PerfProxy::getInstance();
        for (auto& count : runs) {
            const uint64_t id = proxy->postTask([&count] { ++count; });
            EXPLORE_CHECK(id != 0, "a running worker took no task");
        }
        proxy->frameHint(1, 0, 1, "com.example.game", 500);
        proxy->setLowLatency(1, true);
    }
};

// The process ends while threads that nobody asks use the worker, as a compositor's may. What dies
// with it must not be what they use.
[[noreturn]] void exitMeanwhile() {
    auto posting = [] {
        while (true) {
            PerfProxy::getInstance()->postTask([] {});
            PerfProxy::getInstance()->frameHint(4, 0, 1, "com.example.game", 500);
            Simulation::sleepFor(kMs);
        }
    };
    std::thread first = start("first", posting);
    std::thread second = start("second", posting);
    Simulation::sleepFor(static_cast<int64_t>(draw(3)) * kMs);
    exit(0);
}

}  // namespace

void boostWorker() {
    if (draw(4) == 0) exitMeanwhile();
    std::array<User, kUsers> users;
    {
        auto first = [&] { users[0].use(); };
        auto second = [&] { users[1].use(); };
        auto third = [&] { users[2].use(); };
        std::thread threads[] = {start("first", first), start("second", second),
                                 start("third", third)};
        for (std::thread& thread : threads) thread.join();
    }
    Simulation::settle();
    size_t done = 0;
    for (const User& user : users) {
        EXPLORE_CHECK(user.proxy == users[0].proxy, "there are two instances");
        for (const auto& count : user.runs) {
            EXPLORE_CHECK(count == 1, "a task ran %d times", count.load());
            ++done;
        }
    }
    EXPLORE_CHECK(done == kUsers * kTasks, "%zu tasks ran", done);
    EXPLORE_CHECK(Simulation::threads() == 2, "%zu threads besides this one",
                  Simulation::threads() - 1);
    EXPLORE_CHECK(host::BoostDevice::openCount() == 1, "the boost device was opened %d times",
                  host::BoostDevice::openCount());
    EXPLORE_CHECK(host::BoostDevice::requests().size() == kUsers, "%zu boosts",
                  host::BoostDevice::requests().size());

    // The one lock moves: each is given back before the next is taken.
    int held = 0;
    for (const host::PerfCall& call : host::PerfService::calls()) {
        if (call.entry == "perf_lock_acq") ++held;
        if (call.entry == "perf_lock_rel") --held;
        EXPLORE_CHECK(held <= 1, "%d low-latency locks are held", held);
    }
    EXPLORE_CHECK(held == 1, "the low-latency lock was lost");
    const int64_t stopTime = Simulation::now();
    delete PerfProxy::getInstance();
    EXPLORE_CHECK(Simulation::now() == stopTime, "the worker ended late");
}

}  // namespace corvane::explore
