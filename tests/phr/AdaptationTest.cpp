// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <deque>
#include <fstream>
#include <numeric>
#include <random>
#include <string>

#include "phr/Headroom.h"
#include "phr/MonitorFixture.h"

namespace android {
namespace {

// What a layer's headroom is defined to be after each of its frames, built from single steps, whose
// arithmetic has tests of its own.
struct ModelledHeadroom {
    float rates[2] = {kRate, kRate};  // at up to 60 Hz, above
    float maxRates[2] = {};
    nsecs_t period = kPeriod;
    bool fast = false;  // above 60 Hz
    HeadroomRange range{};
    nsecs_t headroom = -1;
    int climbFrames = 0;
    int heldFrames = 0;
    std::deque<int32_t> weights;

    void derive() {
        if (rates[fast] == 0) return;
        range = deriveHeadroomRange(rates[fast], maxRates[fast], period);
        headroom = range.preset;
    }

    void restart() {
        weights.clear();
        climbFrames = heldFrames = 0;
        headroom = range.preset;
    }

    void move(bool down, nsecs_t by) {
        headroom = stepHeadroom(headroom, range, period, down, by).value_or(headroom);
    }

    void presetFrame(nsecs_t time) {
        if (time - period > 2 * kMs) move(false, kMs);
        if (period - time > 2 * kMs) move(true, kMs);
    }

    void adaptiveFrame(nsecs_t time) {
        weights.push_back(frameWeight(frameTimeRatio(time, period)));
        if (weights.size() < 15) return;
        if (weights.size() > 15) weights.pop_front();
        const int sum = std::accumulate(weights.begin(), weights.end(), 0);
        const int32_t heaviest = *std::max_element(weights.begin(), weights.end());
        if (sum >= 3 && heaviest >= 2) {
            climbFrames = 1;
            if (fast && sum >= 30) {
                heldFrames = 50;
                range.max = std::max(range.preset, headroomAtRate(maxRates[1], period));
            } else if (fast && --heldFrames < 0) {
                range.max = std::max(range.preset,
                                     static_cast<nsecs_t>(static_cast<double>(period) * 1.3));
            }
        }
        if (climbFrames == 0) return move(true, kMs / 10);
        move(false, 2 * kMs);
        if (++climbFrames <= 50) return;
        climbFrames = 0;
        if (sum == 15 && heaviest < 2) restart();
    }
};

// Whether a thread of this process sleeps, as one does that waits for a lock.
bool sleeps(pid_t thread) {
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string stat;
    std::getline(file, stat);
    const size_t name = stat.rfind(") ");
    return name != std::string::npos && stat[name + 2] == 'S';
}

class AdaptationTest : public PhrMonitorTest {
  protected:
    void startAs(bool adaptive) {
        if (adaptive) base::SetProperty("vendor.perf.phr.enable", "1");
        start();
        for (const bool fast : {false, true}) {
            mMaxRates[fast] = FeatureManager::getInstance()->getDefaultMaxHeadroomRate(fast);
        }
        monitor.setQuickTouchStatus(kLayer, true);
    }

    // Compares monitor and model over frames of changing load, while display, rates and quick touch
    // change.
    void followsTheModel(bool adaptive) {
        startAs(adaptive);
        ModelledHeadroom model;
        std::copy(mMaxRates, std::end(mMaxRates), model.maxRates);
        model.derive();
        std::minstd_rand random(1);
        const auto oneIn = [&random](unsigned int count) { return random() % count == 0; };
        // Times of a frame in percent of the period: the usual one, and one that comes now and
        // then.
        constexpr nsecs_t kLoads[][2] = {{50, 90}, {100, 100}, {100, 130}, {50, 160}, {200, 130}};
        const nsecs_t* load = kLoads[0];
        unsigned int rarity = 1;
        for (int frame = 0; frame < 50'000; ++frame) {
            if (oneIn(400)) {
                constexpr std::pair<nsecs_t, int> kDisplays[] = {{kPeriod, 60},
                                                                 {kPeriod, 90},
                                                                 {kPeriod / 2, 61},
                                                                 {kPeriod / 4, 240}};
                const auto& [period, fps] = kDisplays[random() % 4];
                monitor.setVsyncInfo(period, fps);
                if (period != model.period) {  // which decides whether anything is new
                    model.period = period;
                    model.fast = fps > 60;
                    model.derive();
                }
            }
            if (oneIn(400)) {
                const float rates[] = {static_cast<float>(random() % 18) / 8 - 0.125f,
                                       static_cast<float>(random() % 18) / 8 - 0.125f};
                monitor.updateHeadRoom(kLayer, rates[0], rates[1]);
                for (const bool fast : {false, true}) {
                    if (rates[fast] >= 0) model.rates[fast] = rates[fast];
                }
                model.derive();
            }
            if (oneIn(1'000)) {
                monitor.setQuickTouchStatus(kLayer, true);  // nothing new
                monitor.setQuickTouchStatus(kLayer, false);
                monitor.setQuickTouchStatus(kLayer, true);
                if (adaptive) model.restart();
            }
            if (oneIn(80)) {
                load = kLoads[random() % 5];
                rarity = 1u << random() % 8;
            }
            nsecs_t time = model.period * load[oneIn(rarity)] / 100;
            // At the border of what the preset headroom takes for a frame on time.
            if (!adaptive && oneIn(4)) time = model.period + (oneIn(2) ? 2 : -2) * kMs;
            time += static_cast<nsecs_t>(random() % 3) - 1;
            monitor.checkAndUpdateHeadroom(state.get(), time);
            adaptive ? model.adaptiveFrame(time) : model.presetFrame(time);
            ASSERT_EQ(state->mHeadroom, model.headroom) << frame;
            ASSERT_EQ(maxHeadroom(), model.range.max) << frame;
        }
    }

    // Runs `step`, while the display switches just before it gets hold of the layer's record. The
    // layer is unregistered meanwhile, so that the switch itself leaves the record alone.
    void switchPeriodDuring(const std::function<void()>& step, nsecs_t period, int fps) {
        std::atomic<pid_t> stepper{0};
        std::future<void> call;
        {
            Mutex::Autolock lock(state->mFieldsLock);
            call = std::async(std::launch::async, [&] {
                stepper = gettid();
                step();
            });
            EXPECT_TRUE(becomes([&] { return stepper != 0 && sleeps(stepper); }));
            monitor.unregisterLayer(kLayer);
            monitor.setVsyncInfo(period, fps);
        }
        ASSERT_TRUE(returns(call));
    }

    float mMaxRates[2] = {};
};

TEST_F(AdaptationTest, PresetHeadroomFollowsFrameTimes) {
    followsTheModel(/*adaptive=*/false);
}

TEST_F(AdaptationTest, AdaptiveHeadroomFollowsFrameWeights) {
    followsTheModel(/*adaptive=*/true);
}

TEST_F(AdaptationTest, BearsAnyFrameTimeAndCountsNoneWithQuickTouchOff) {
    startAs(/*adaptive=*/false);
    for (const auto& [time, headroom] : {std::pair(INT64_MAX, 5 * kMs), {INT64_MIN, 4 * kMs}}) {
        monitor.checkAndUpdateHeadroom(state.get(), time);
        EXPECT_EQ(state->mHeadroom, headroom) << time;
    }
    monitor.setQuickTouchStatus(kLayer, false);
    monitor.onBufferIncrement(kLayer, 2 * kPeriod, kStart, false);
    EXPECT_EQ(state->mHeadroom, 4 * kMs);
    EXPECT_EQ(state->mPendingCount, 0);
}

TEST_F(AdaptationTest, ChangesOfTheRecordTakeThePeriodOfTheirMoment) {
    startAs(/*adaptive=*/false);
    const auto onTime = [this] { monitor.checkAndUpdateHeadroom(state.get(), kPeriod); };
    switchPeriodDuring(onTime, kPeriod / 2, 120);
    EXPECT_EQ(state->mHeadroom, kHeadroom + kMs) << "late at the new period";
    state = addLayer(kLayer, kRate);
    switchPeriodDuring([this] { monitor.updateHeadRoom(kLayer, -1, -1); }, kPeriod, 60);
    EXPECT_EQ(state->mHeadroom, kHeadroom);
}

TEST_F(AdaptationTest, CeilingIsThatOfThePeriodOfItsMoment) {
    startAs(/*adaptive=*/true);
    monitor.setVsyncInfo(kPeriod / 2, 120);
    const auto overload = [this] { monitor.checkAndUpdateHeadroom(state.get(), kPeriod); };
    for (int frame = 0; frame < 14; ++frame) overload();
    switchPeriodDuring(overload, kPeriod / 4, 240);
    EXPECT_EQ(maxHeadroom(), headroomAtRate(mMaxRates[1], kPeriod / 4));
}

}  // namespace
}  // namespace android
