// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <android-base/properties.h>

#include "corvane/hooks.h"
#include "corvane/host/Simulation.h"
#include "explore/stories/Stories.h"
#include "hooks/GameTracker.h"

namespace corvane::explore {
namespace {

using android::base::SetProperty;
using host::Simulation;

constexpr char kSmartTouch[] = "debug.vendor.perf.smart_touch";
constexpr char kSmartTouchMove[] = "debug.vendor.perf.smart_touch.move";

constexpr int64_t kFrame = 100 * kMs;
constexpr int kWindowFrames = 10;  // of one second

enum Action { kDown = 0, kMove = 2 };

// A frame's drawing, its queueing, and what the platform asks on the way. Returns whether the frame
// is to be shown at once.
bool drawFrame() {
    const int64_t next = Simulation::now() + kFrame;
    aCorvaneSetVsyncTime(Simulation::now());
    aCorvaneQueueBuffer(true);
    Simulation::sleepFor(2 * kMs);
    aCorvaneQueueBuffer(false);
    bool isAuto = true;
    int64_t presentTime = 0;
    uint32_t flags = 0;
    aCorvaneFilterBuffer(&isAuto, &presentTime, &flags);
    // A tracker that was replaced knows nothing yet; none may know anything wrong.
    const int64_t interval = android::inGameTracker()->getFrameInterval();
    EXPLORE_CHECK(interval == -1 || interval == kFrame, "the frame interval is %lld ns",
                  static_cast<long long>(interval));
    Simulation::sleepUntil(next);
    return !isAuto;
}

void moveFinger() {
    bool consumeNow = false;
    aCorvaneSetTouchEvent(kMove);
    aCorvaneConsumeInputNow(&consumeNow);
}

}  // namespace

// The game's parts start one by one, each as if it were the first, while the game draws already.
void applicationInits() {
    constexpr int kFramesBefore = kWindowFrames - 2;
    SetProperty(kSmartTouch, "0");
    SetProperty(kSmartTouchMove, "1");
    aCorvaneAppInit();
    for (int i = 0; i < kFramesBefore; ++i) drawFrame();
    Simulation::restartSchedule();
    const int64_t begin = Simulation::now();
    auto initialising = [begin] {
        // As a frame begins or is queued, at the end of the window or near it.
        Simulation::sleepUntil(begin + static_cast<int64_t>(draw(3)) * kFrame +
                               drawOne<int64_t>({0, 2 * kMs}));
        aCorvaneAppInit();
        EXPLORE_CHECK(aCorvaneSmartTouchActive(), "smart touch is off after init");
    };
    auto drawing = [] {
        for (int i = 0; i < 4; ++i) drawFrame();
    };
    auto moving = [begin] {
        for (int i = 0; i < 4; ++i) {
            Simulation::sleepUntil(begin + i * kFrame + 2 * kMs);
            moveFinger();
        }
    };
    auto flipping = [begin] {
        Simulation::sleepUntil(begin + drawOne<int64_t>({0, 2 * kMs}));
        const uint64_t flips = draw(4);
        for (uint64_t i = 1; i <= flips; ++i) SetProperty(kSmartTouch, i % 2 == 0 ? "0" : "1");
    };
    std::thread threads[] = {start("init", initialising), start("init too", initialising),
                             start("render", drawing), start("input", moving),
                             start("flips", flipping)};
    for (std::thread& thread : threads) thread.join();
    Simulation::settle();

    for (int i = 0; i < 2 * kWindowFrames + 2; ++i) drawFrame();
    EXPLORE_CHECK(android::inGameTracker()->getFrameInterval() == kFrame,
                  "two windows have passed, and the frame interval is not known");
    const bool isOn = android::base::GetBoolProperty(kSmartTouch, false);
    aCorvaneSetTouchEvent(kDown);
    EXPLORE_CHECK(drawFrame() == isOn, "a flip of smart touch was lost");
}

}  // namespace corvane::explore
