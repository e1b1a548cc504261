// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "corvane/hooks.h"
#include "corvane/host/PerfService.h"
#include "corvane/host/Simulation.h"
#include "explore/stories/Game.h"
#include "explore/stories/Stories.h"
#include "features/FeatureManager.h"

namespace corvane::explore {
namespace {

using host::Simulation;

// The service tells that activities are switching, or are stable again.
void tellActivities(bool stable) {
    constexpr int kActivity = 4192;
    constexpr int kSwitching = 2;
    host::PerfService::push(kActivity, game::kPackage, kSwitching, stable ? 0 : 1, {});
}

// Whether a touch lets the buffer go that is held when it comes.
bool touchLetsGo() {
    const int64_t vsync = Simulation::now() + game::kPeriod;
    const int64_t touch = vsync + 2 * kMs;
    game::Call call{};
    auto queueing = [&] {
        Simulation::sleepUntil(vsync + kMs);
        call = game::queueFrame();
    };
    std::thread queue = start("queue", queueing);
    Simulation::sleepUntil(vsync);
    game::composite(2);
    Simulation::sleepUntil(touch);
    corvaneUnblockPendingBuffer();
    queue.join();
    EXPLORE_CHECK(call.end >= touch, "the buffer was not held");
    return call.end == touch;
}

}  // namespace

// What two callbacks at once leave behind is one state, for all that go by it: a touch lets the
// held buffer go exactly when activities are stable by what the service told last.
void activitySwitches() {
    game::warmUp();
    Simulation::restartSchedule();
    const int64_t begin = Simulation::now() + game::kPeriod;
    auto telling = [begin] {
        Simulation::sleepUntil(begin + drawOne<int64_t>({0, 0, kMs}));
        tellActivities(false);
        if (draw(2) != 0) tellActivities(true);
    };
    auto tellingToo = [begin] {
        Simulation::sleepUntil(begin + drawOne<int64_t>({0, 0, kMs}));
        tellActivities(true);
    };
    auto queueing = [begin] {
        Simulation::sleepUntil(begin);
        const game::Call call = game::queueFrame();
        EXPLORE_CHECK(call.end - call.begin <= 2 * game::kPeriod, "a buffer was held for %lld ns",
                      static_cast<long long>(call.end - call.begin));
    };
    auto compositing = [begin] {
        Simulation::sleepUntil(begin);
        game::composite(2);
        Simulation::sleepFor(kMs);
        corvaneUnblockPendingBuffer();
    };
    std::thread threads[] = {start("service", telling), start("service too", tellingToo),
                             start("queue", queueing), start("compositor", compositing)};
    for (std::thread& thread : threads) thread.join();

    game::queueFrame();  // takes along what the touch may have left for it
    const bool isStable = android::FeatureManager::getInstance()->isActvStable();
    EXPLORE_CHECK(touchLetsGo() == isStable, "activities are %s, and a touch lets %s buffer go",
                  isStable ? "stable" : "switching", isStable ? "no" : "the");
    game::stop();
}

}  // namespace corvane::explore
