// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <limits>

#include "hooks/GameTracker.h"
#include "hooks/SmartTouch.h"

namespace android {
namespace {

constexpr nsecs_t kMs = 1'000'000;
constexpr nsecs_t kNow = 1'000 * kMs;
constexpr nsecs_t kFrame = 20 * kMs;
constexpr nsecs_t kTouch = 4 * kMs;
constexpr nsecs_t kLatest = kFrame - kTouch - 500'000;  // 15.5 ms
constexpr nsecs_t kMaxNs = std::numeric_limits<nsecs_t>::max();
constexpr nsecs_t kMinNs = std::numeric_limits<nsecs_t>::min();

TEST(InputDecision, FollowsItsRules) {
    using D = InputDecision;
    // Everything else is in the middle of a gesture: the latest check and consumption 1 ms ago.
    struct Row {
        const char* what;
        D expected;
        nsecs_t vsync = kNow - kMs;
        nsecs_t lastConsume = kNow - kMs;
        nsecs_t lastCheck = kNow - kMs;
        nsecs_t frame = kFrame;
    };
    const Row byVsync[] = {
            {"early in the frame", D::PEND_BEFORE_VSYNC},
            {"last chance", D::PEND_BEFORE_VSYNC, kNow - kLatest},
            {"after it", D::CONSUME_FOR_VSYNC, kNow - kLatest - 1},
            {"no vsync known", D::NONE, 0},
            {"consumed a frame ago", D::PEND_BEFORE_VSYNC, kNow - kMs, kNow - kFrame},
            {"longer ago", D::CONSUME_FOR_VSYNC, kNow - kMs, kNow - kFrame - 1},
            {"two frames' pause", D::PEND_BEFORE_VSYNC, kNow - kMs, kNow, kNow - 2 * kFrame},
            {"more", D::CONSUME_FIRST_MOVE, kNow - kMs, kNow, kNow - 2 * kFrame - 1},
            {"frame interval unknown", D::CONSUME_FIRST_MOVE, kNow, kNow, kNow - kMs, -1},
            {"frame interval 0", D::CONSUME_FIRST_MOVE, kNow, kNow, kNow - kMs, 0},
            // The vsync time is the application's own.
            {"vsync at the end of time", D::PEND_BEFORE_VSYNC, kMaxNs},
            {"vsync before all time", D::CONSUME_FOR_VSYNC, kMinNs},
    };
    for (const Row& r : byVsync) {
        EXPECT_EQ(r.expected, decideInput({kNow, r.frame, kTouch, r.lastCheck, false, r.vsync,
                                           r.lastConsume, kNow - kMs, 0, 0}))
                << r.what;
    }
    const struct {
        const char* what;
        D expected;
        nsecs_t lastQueue;
        int32_t pendCount;
        nsecs_t firstPend;
        nsecs_t touch;
    } byQueue[] = {
            {"last chance", D::PEND_BEFORE_QUEUE, kNow - kLatest, 0, 0, kTouch},
            {"after it", D::CONSUME_FOR_QUEUE, kNow - kLatest - 1, 0, 0, kTouch},
            {"held for a frame", D::PEND_BEFORE_QUEUE, kNow - kMs, 3, kNow - kFrame, kTouch},
            {"for longer", D::CONSUME_FOR_QUEUE, kNow - kMs, 1, kNow - kFrame - 1, kTouch},
            {"moves slower than frames", D::CONSUME_FOR_QUEUE, kNow - kMs, 0, 0, kFrame},
    };
    for (const auto& r : byQueue) {
        EXPECT_EQ(r.expected, decideInput({kNow, kFrame, r.touch, kNow - kMs, true, 0, 0,
                                           r.lastQueue, r.pendCount, r.firstPend}))
                << r.what;
    }
}

// Whoever measures with a tracker while it is replaced goes on measuring with that one.
TEST(GameTrackerTest, AReplacedTrackerKeepsWhatItMeasured) {
    replaceInGameTracker();
    InGameTracker* first = inGameTracker();
    createInGameTracker();
    EXPECT_EQ(inGameTracker(), first);
    const auto queue = [first](nsecs_t from, nsecs_t until) {
        for (nsecs_t time = from; time <= until; time += kFrame) first->queueBuffer(time);
    };
    queue(0, 500 * kMs);
    replaceInGameTracker();
    EXPECT_EQ(inGameTracker()->getFrameInterval(), -1);
    queue(500 * kMs + kFrame, 1'000 * kMs);
    EXPECT_EQ(first->getFpsMode(), 60) << "50 buffers";
    EXPECT_EQ(inGameTracker()->getFpsMode(), -1);
}

}  // namespace
}  // namespace android
