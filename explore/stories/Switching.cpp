// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <string>
#include <vector>

#include "corvane/hooks.h"
#include "corvane/host/PerfService.h"
#include "corvane/host/Simulation.h"
#include "explore/stories/Game.h"
#include "explore/stories/Stories.h"
#include "layers/LayerManager.h"

namespace corvane::explore {
namespace {

using android::LayerManager;
using game::Call;
using game::kPackage;
using game::kPeriod;
using host::PerfService;
using host::Simulation;

constexpr int kTargetFps = 4171;
constexpr int kHeadroomRates = 4187;
constexpr int kFrameRescue = 4189;

enum class Change { kPacing, kNoHeadroom, kNoRescue };

void configure(Change change) {
    switch (change) {
        case Change::kPacing:
            PerfService::push(kTargetFps, kPackage, 3'000, 0, {});
            break;
        case Change::kNoHeadroom:
            PerfService::push(kHeadroomRates, kPackage, 0, 0, {0, 0, 0, 0});
            break;
        case Change::kNoRescue:
            PerfService::push(kFrameRescue, std::string(kPackage) + ":", 0, 0, {0});
            break;
    }
}

enum class Act { kStop, kStopAndInit, kRetire, kRateSwitch, kUnblock };

void doAct(Act act) {
    LayerManager* manager = LayerManager::getInstance();
    constexpr int64_t kLongSilence = 3'000 * kMs;
    switch (act) {
        case Act::kStop:
            manager->stop();
            break;
        case Act::kStopAndInit:
            manager->stop();
            manager->init(true, 0, 0);
            break;
        case Act::kRetire:
            manager->cleanupInactiveLayers(Simulation::now() + kLongSilence);
            manager->cleanupInactiveLayers(Simulation::now() + 2 * kLongSilence);
            break;
        case Act::kRateSwitch:
            corvaneSetVsyncPeriod(kPeriod / 2);
            break;
        case Act::kUnblock:
            corvaneUnblockPendingBuffer();
            break;
    }
}

}  // namespace

void switching() {
    game::warmUp();
    Simulation::restartSchedule();
    const int64_t begin = Simulation::now() + kPeriod;
    const Act act =
            drawOne({Act::kStop, Act::kStopAndInit, Act::kRetire, Act::kRateSwitch, Act::kUnblock});
    const int64_t actTime = begin + drawOne<int64_t>({0, kMs, kPeriod / 2, kPeriod});
    const Change change = drawOne({Change::kPacing, Change::kNoHeadroom, Change::kNoRescue});
    const bool isPaced = change == Change::kPacing;
    std::vector<Call> calls;
    auto queueing = [&] {
        for (int i = 0; i < 3; ++i) {
            Simulation::sleepUntil(begin + i * kPeriod + drawOne<int64_t>({0, kMs}));
            calls.push_back(game::queueFrame());
        }
    };
    auto compositing = [&] {
        for (int i = 0; i < 3; ++i) {
            Simulation::sleepUntil(begin + i * kPeriod);
            game::composite(2);
        }
    };
    auto configuring = [&] {
        Simulation::sleepUntil(begin + drawOne<int64_t>({0, kMs, kPeriod}));
        configure(change);
    };
    auto acting = [&] {
        Simulation::sleepUntil(actTime);
        doAct(act);
        EXPLORE_CHECK(Simulation::now() == actTime, "the act took %lld ns",
                      static_cast<long long>(Simulation::now() - actTime));
    };
    std::thread threads[] = {start("queue", queueing), start("compositor", compositing),
                             start("service", configuring), start("act", acting)};
    for (std::thread& thread : threads) thread.join();
    for (const Call& call : calls) {
        constexpr int64_t kLongestPace = 1'000 * kMs;
        EXPLORE_CHECK(call.end - call.begin <= (isPaced ? kLongestPace : 2 * kPeriod),
                      "a buffer was held for %lld ns",
                      static_cast<long long>(call.end - call.begin));
        // Without headroom control there is nothing to unblock: what is held goes at its time.
        const bool letsGo = act != Act::kRateSwitch &&
                            (act != Act::kUnblock || change == Change::kNoRescue) && !isPaced &&
                            call.begin < actTime;
        EXPLORE_CHECK(!letsGo || call.end <= actTime,
                      "queued at %lld and let go at %lld, not at %lld: a wake-up was lost",
                      static_cast<long long>(call.begin - begin),
                      static_cast<long long>(call.end - begin),
                      static_cast<long long>(actTime - begin));
    }
    game::stop();
}

}  // namespace corvane::explore
