// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <limits>

#include "hooks/SmartTouch.h"

namespace android {
namespace {

constexpr nsecs_t kMs = 1'000'000;
constexpr nsecs_t kNow = 1000 * kMs;
constexpr nsecs_t kFrame = 20 * kMs;
constexpr nsecs_t kTouch = 4 * kMs;
constexpr nsecs_t kLatest = kFrame - kTouch - 500'000;  // 15.5 ms
constexpr nsecs_t kMaxNs = std::numeric_limits<nsecs_t>::max();
constexpr nsecs_t kMinNs = std::numeric_limits<nsecs_t>::min();

// In the middle of a gesture, the latest vsync, consumption and queue 1 ms ago.
InputTimes vsyncPath() {
    return {kNow,       kFrame,     kTouch, kNow - kMs, /*queueHeadroomOk=*/false,
            kNow - kMs, kNow - kMs, 0,      0,          0};
}

InputTimes queuePath() {
    return {kNow, kFrame, kTouch, kNow - kMs, /*queueHeadroomOk=*/true, 0, 0, kNow - kMs, 0, 0};
}

using Change = void (*)(InputTimes&);

TEST(InputDecision, FollowsItsRules) {
    const struct {
        const char* name;
        InputTimes base;
        Change change;
        InputDecision expected;
    } cases[] = {
            {"pause of two frames and more", vsyncPath(),
             [](InputTimes& t) { t.lastCheckTime = kNow - 2 * kFrame - 1; },
             InputDecision::CONSUME_FIRST_MOVE},
            {"pause of exactly two frames", vsyncPath(),
             [](InputTimes& t) { t.lastCheckTime = kNow - 2 * kFrame; },
             InputDecision::PEND_BEFORE_VSYNC},
            {"pause on the queue path", queuePath(), [](InputTimes& t) { t.lastCheckTime = 0; },
             InputDecision::CONSUME_FIRST_MOVE},
            {"frame interval unknown", vsyncPath(), [](InputTimes& t) { t.frameInterval = -1; },
             InputDecision::CONSUME_FIRST_MOVE},
            {"frame interval 0", vsyncPath(), [](InputTimes& t) { t.frameInterval = 0; },
             InputDecision::CONSUME_FIRST_MOVE},

            {"no vsync known", vsyncPath(), [](InputTimes& t) { t.vsyncTime = 0; },
             InputDecision::NONE},
            {"early in the frame", vsyncPath(), [](InputTimes&) {},
             InputDecision::PEND_BEFORE_VSYNC},
            {"last chance before vsync", vsyncPath(),
             [](InputTimes& t) { t.vsyncTime = kNow - kLatest; }, InputDecision::PEND_BEFORE_VSYNC},
            {"after the last chance before vsync", vsyncPath(),
             [](InputTimes& t) { t.vsyncTime = kNow - kLatest - 1; },
             InputDecision::CONSUME_FOR_VSYNC},
            {"consumed one frame ago", vsyncPath(),
             [](InputTimes& t) { t.lastConsumeTime = kNow - kFrame; },
             InputDecision::PEND_BEFORE_VSYNC},
            {"consumed longer ago", vsyncPath(),
             [](InputTimes& t) { t.lastConsumeTime = kNow - kFrame - 1; },
             InputDecision::CONSUME_FOR_VSYNC},

            {"early after a queue", queuePath(), [](InputTimes&) {},
             InputDecision::PEND_BEFORE_QUEUE},
            {"last chance before a queue", queuePath(),
             [](InputTimes& t) { t.lastQueueTime = kNow - kLatest; },
             InputDecision::PEND_BEFORE_QUEUE},
            {"after the last chance before a queue", queuePath(),
             [](InputTimes& t) { t.lastQueueTime = kNow - kLatest - 1; },
             InputDecision::CONSUME_FOR_QUEUE},
            {"held for one frame", queuePath(),
             [](InputTimes& t) {
                 t.pendCount = 3;
                 t.firstPendTime = kNow - kFrame;
             },
             InputDecision::PEND_BEFORE_QUEUE},
            {"held for longer", queuePath(),
             [](InputTimes& t) {
                 t.pendCount = 1;
                 t.firstPendTime = kNow - kFrame - 1;
             },
             InputDecision::CONSUME_FOR_QUEUE},
            {"a first pend long ago that ended", queuePath(),
             [](InputTimes& t) { t.firstPendTime = 0; }, InputDecision::PEND_BEFORE_QUEUE},
            {"moves slower than frames", queuePath(),
             [](InputTimes& t) { t.touchInterval = kFrame; }, InputDecision::CONSUME_FOR_QUEUE},

            // The vsync time is the application's own.
            {"vsync at the end of time", vsyncPath(), [](InputTimes& t) { t.vsyncTime = kMaxNs; },
             InputDecision::PEND_BEFORE_VSYNC},
            {"vsync before all time", vsyncPath(), [](InputTimes& t) { t.vsyncTime = kMinNs; },
             InputDecision::CONSUME_FOR_VSYNC},
    };
    for (const auto& c : cases) {
        InputTimes times = c.base;
        c.change(times);
        EXPECT_EQ(c.expected, decideInput(times)) << c.name;
    }
}

}  // namespace
}  // namespace android
