// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <android-base/properties.h>

#include <algorithm>
#include <cstdlib>

#include "corvane/host/Simulation.h"
#include "explore/stories/Stories.h"
#include "perf/PerfProxy.h"
#include "phr/PHRMonitor.h"

namespace corvane::explore {
namespace {

using android::PHRMonitor;
using host::Simulation;

constexpr int64_t kLongPeriod = 16 * kMs;
constexpr int64_t kShortPeriod = 8 * kMs;
constexpr int kLowFps = 60;
constexpr int kHighFps = 120;
constexpr int kLayer = 7;
constexpr int kNewLayer = 8;

// Headroom rates of a layer in 16ths of a period, which the periods are multiples of.
struct Rates {
    int low;
    int high;
};

void setRates(PHRMonitor& monitor, Rates rates) {
    monitor.updateHeadRoom(kLayer, static_cast<float>(rates.low) / 16,
                           static_cast<float>(rates.high) / 16);
}

void switchTo(PHRMonitor& monitor, bool high) {
    monitor.setVsyncInfo(high ? kShortPeriod : kLongPeriod, high ? kHighFps : kLowFps);
}

void expectDerived(PHRMonitor& monitor, int layer, Rates rates, bool high) {
    const auto state = monitor.getLayerState(layer);
    const android::Mutex::Autolock lock(state->mFieldsLock);
    const int64_t period = high ? kShortPeriod : kLongPeriod;
    const int64_t preset = period * (high ? rates.high : rates.low) / 16;
    EXPLORE_CHECK(state->mPresetHeadroom == preset, "layer %d: the preset is %lld, not %lld", layer,
                  static_cast<long long>(state->mPresetHeadroom), static_cast<long long>(preset));
    // The default ceiling, and that of a heavy window, which is for high rates alone.
    const int64_t ceiling = std::max(preset, high ? period / 10 * 18 : period / 10 * 9);
    const int64_t heavyCeiling = std::max(preset, period / 10 * 13);
    const int64_t max = state->mMaxHeadroom;
    const auto isNear = [max](int64_t value) {
        constexpr int64_t kRounding = 2;  // rates are floats
        return std::abs(max - value) <= kRounding;
    };
    EXPLORE_CHECK(isNear(ceiling) || (high && isNear(heavyCeiling)),
                  "layer %d: the ceiling is %lld, not %lld", layer, static_cast<long long>(max),
                  static_cast<long long>(ceiling));
    EXPLORE_CHECK(state->mHeadroom >= preset && state->mHeadroom <= max,
                  "layer %d: the headroom is %lld, not of %lld to %lld", layer,
                  static_cast<long long>(state->mHeadroom), static_cast<long long>(preset),
                  static_cast<long long>(max));
}

// A monitor that holds nothing back: its buffers are instant ones.
class Monitored {
  public:
    static constexpr Rates kRates{4, 8};

    Monitored(bool isDynamic, bool startsHigh) {
        android::base::SetProperty("vendor.perf.phr.enable", "1");
        android::base::SetProperty("vendor.perf.phr.dynamic.enable", isDynamic ? "1" : "0");
        EXPLORE_CHECK(monitor.init(), "the headroom thread does not start");
        switchTo(monitor, startsHigh);
        add(kLayer, kRates);
        monitor.setQuickTouchStatus(kLayer, true);
        // A window of frames on time: a longer one makes it heavy.
        constexpr int kFramesBefore = 14;
        for (int i = 0; i < kFramesBefore; ++i) queue(kLongPeriod);
        Simulation::restartSchedule();
    }

    ~Monitored() {
        monitor.forceStop();
        delete android::PerfProxy::getInstance();
    }
    Monitored(const Monitored&) = delete;
    Monitored& operator=(const Monitored&) = delete;

    void queue(int64_t frameTime) {
        monitor.onBufferIncrement(kLayer, frameTime, Simulation::now(), /*instant=*/true);
    }

    void add(int layer, Rates rates) {
        monitor.registerLayer(layer, "com.example.game/Main", static_cast<float>(rates.low) / 16,
                              static_cast<float>(rates.high) / 16);
    }

    PHRMonitor monitor;
};

}  // namespace

// However many changes meet a switch of the display's rate: when all is done, headrooms are those
// of the rate and the period in force.
void rateSwitches() {
    constexpr Rates kChangedRates{6, 12};
    constexpr Rates kNewRates{8, 4};
    const bool startsHigh = draw(2) != 0;
    const bool switchesBack = draw(4) == 0;
    Monitored monitored(/*isDynamic=*/draw(2) != 0, startsHigh);
    PHRMonitor& monitor = monitored.monitor;
    auto displaying = [&] {
        switchTo(monitor, !startsHigh);
        if (switchesBack) switchTo(monitor, startsHigh);
    };
    auto queueing = [&] { monitored.queue(drawOne({kShortPeriod / 2, 3 * kLongPeriod})); };
    auto configuring = [&] { setRates(monitor, kChangedRates); };
    auto registering = [&] { monitored.add(kNewLayer, kNewRates); };
    std::thread threads[] = {start("display", displaying), start("queue", queueing),
                             start("service", configuring), start("register", registering)};
    for (std::thread& thread : threads) thread.join();
    const bool isHigh = startsHigh == switchesBack;
    expectDerived(monitor, kLayer, kChangedRates, isHigh);
    expectDerived(monitor, kNewLayer, kNewRates, isHigh);
}

// The same for the ceiling, which a heavy frame raises by the period and nothing lowers again.
void heavyFrames() {
    Monitored monitored(/*isDynamic=*/true, /*startsHigh=*/false);
    auto displaying = [&] { switchTo(monitored.monitor, true); };
    auto queueing = [&] { monitored.queue(3 * kLongPeriod); };
    std::thread threads[] = {start("display", displaying), start("queue", queueing)};
    for (std::thread& thread : threads) thread.join();
    expectDerived(monitored.monitor, kLayer, Monitored::kRates, /*high=*/true);
}

}  // namespace corvane::explore
