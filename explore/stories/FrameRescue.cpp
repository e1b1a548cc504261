// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <atomic>
#include <vector>

#include "corvane/host/Devices.h"
#include "corvane/host/Simulation.h"
#include "explore/stories/Stories.h"
#include "gfr/GFRMonitor.h"
#include "perf/PerfProxy.h"

namespace corvane::explore {
namespace {

using android::GFRMonitor;
using android::GfrTunables;
using android::PerfProxy;
using host::BoostDevice;
using host::BoostRequest;
using host::Simulation;

constexpr int64_t kPeriod = 16 * kMs;
constexpr int kFirst = 1;  // the layer whose configuration changes
constexpr int kSecond = 2;

// The layer of a request is told by its headroom.
constexpr int kHeadroomPerLayer = 1'000;

std::vector<BoostRequest> requestsOf(int layer) {
    std::vector<BoostRequest> result;
    for (const BoostRequest& request : BoostDevice::requests()) {
        if (request.headroomNs / kHeadroomPerLayer == layer) result.push_back(request);
    }
    return result;
}

// How often rescue was switched for the first layer; odd while that goes on. A frame that begins
// while the layer is off is none of its frames.
std::atomic<int> sSwitches{0};

// A layer's frames, each late enough for a drawn number of its checks.
void drawFrames(GFRMonitor& monitor, int layer) {
    int switches = 0;
    const auto begin = [&] {
        switches = sSwitches;
        monitor.onQueueBegin(layer, Simulation::now(), layer * kHeadroomPerLayer + 1,
                             layer * kHeadroomPerLayer + 2);
    };
    const auto checkReleased = [&](const char* when) {
        const auto requests = requestsOf(layer);
        if (layer == kFirst && (switches % 2 != 0 || switches != sSwitches)) return;
        EXPLORE_CHECK(requests.empty() || requests.back().level == 0,
                      "layer %d: boost %d is not released %s", layer, requests.back().level, when);
    };
    for (int frame = 0; frame < 3; ++frame) {
        begin();
        checkReleased("when the next frame begins");
        // A check of the frame before must not come any more.
        if (draw(2) == 0) Simulation::sleepFor(kMs);
        checkReleased("until the next frame ends");
        monitor.onQueueEnd(layer, Simulation::now(), 0.0f);
        // To the very time of a check, or a little beside it.
        constexpr int64_t kFirstCheck = kPeriod * 13 / 10;
        constexpr int64_t kSecondCheck = kPeriod * 16 / 10;
        Simulation::sleepFor(
                drawOne<int64_t>({kPeriod, kFirstCheck - 1, kFirstCheck, kSecondCheck}));
    }
    begin();
    checkReleased("at the end");
}

void changeConfiguration(GFRMonitor& monitor) {
    GfrTunables tunables;
    tunables.dynamic = true;
    monitor.updateLayerTunables(kFirst, tunables);
    Simulation::sleepFor(drawOne<int64_t>({kPeriod * 13 / 10, kPeriod * 16 / 10}));
    // From now on the layer is off: what is due at this instant too comes before, or not at all.
    ++sSwitches;
    monitor.setGFRActive(kFirst, false);
    const size_t before = requestsOf(kFirst).size();
    if (draw(2) == 0) Simulation::sleepFor(kMs);
    const size_t after = requestsOf(kFirst).size();
    EXPLORE_CHECK(before == after, "a layer is boosted although it is switched off");
    monitor.setGFRActive(kFirst, true);
    ++sSwitches;
}

}  // namespace

void frameRescue() {
    {
        GFRMonitor monitor;
        EXPLORE_CHECK(monitor.init(), "the monitor does not start");
        monitor.setVsyncInfo(kPeriod, 60);
        for (const int layer : {kFirst, kSecond}) {
            monitor.registerLayer(layer, "layer", "com.example.game");
            monitor.setGFRActive(layer, true);
        }
        auto first = [&] { drawFrames(monitor, kFirst); };
        auto second = [&] { drawFrames(monitor, kSecond); };
        auto configure = [&] { changeConfiguration(monitor); };
        std::thread threads[] = {start("queue 1", first), start("queue 2", second),
                                 start("callback", configure)};
        for (std::thread& thread : threads) thread.join();
        if (draw(2) == 0) monitor.unregisterLayer(kFirst);
        const int64_t stopTime = Simulation::now();
        monitor.forceStop();
        EXPLORE_CHECK(Simulation::now() == stopTime, "the monitor stopped late");
    }
    // Within a frame the levels rise one by one; none comes twice.
    for (const int layer : {kFirst, kSecond}) {
        int32_t level = 0;
        for (const BoostRequest& request : requestsOf(layer)) {
            // A layer that was switched off and on begins anew.
            const bool isNext =
                    request.level == level + 1 || (layer == kFirst && request.level == 1);
            EXPLORE_CHECK(request.level == 0 || isNext, "layer %d: boost %d comes after %d", layer,
                          request.level, level);
            level = request.level;
        }
    }
    delete PerfProxy::getInstance();
}

}  // namespace corvane::explore
