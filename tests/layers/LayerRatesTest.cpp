// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Whether a layer is steady enough to be tracked, which frame rate it has, and what a game measures
// of itself.

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <vector>

#include "layers/InGameTracker.h"
#include "layers/LayerCandidate.h"
#include "layers/LayerInfo.h"

namespace android {
namespace {

constexpr nsecs_t kMs = 1'000'000;
constexpr nsecs_t kSecond = 1'000'000'000;
constexpr nsecs_t k60Hz = 16'666'667;

// Fills a window of `buffers` from `start` and closes it.
void fillWindow(InGameTracker& tracker, int buffers, nsecs_t start = 0) {
    for (int i = 0; i < buffers; ++i) {
        tracker.queueBuffer(start + i * (kSecond - 1) / std::max(buffers - 1, 1));
    }
    tracker.queueBuffer(start + kSecond);
}

TEST(InGameTrackerTest, CountsTheBuffersOfOneSecond) {
    const struct {
        int buffers;
        int mode;
        nsecs_t interval;
    } cases[] = {{1, 1, kSecond},
                 {60, 60, kSecond / 60},
                 // With the closing buffer of the window before they would be 19, mode 30.
                 {18, 18, kSecond / 18},
                 {261, -1, kSecond / 18},  // a rate beyond all modes leaves the interval
                 {120, 120, kSecond / 120}};
    InGameTracker tracker;
    nsecs_t start = 0;
    for (const auto& c : cases) {
        fillWindow(tracker, c.buffers, start);
        EXPECT_EQ(c.mode, tracker.getFpsMode()) << c.buffers;
        EXPECT_EQ(c.interval, tracker.getFrameInterval()) << c.buffers;
        start += 2 * kSecond;
    }
}

TEST(InGameTrackerTest, AveragesMovesFasterThanFrames) {
    InGameTracker tracker;
    tracker.trackMoveEvent(90 * kMs);
    tracker.trackMoveEvent(91 * kMs);
    EXPECT_EQ(10 * kMs, tracker.getTouchInterval()) << "no frame interval: no move is fast";
    fillWindow(tracker, 60);  // 16.6 ms
    const struct {
        nsecs_t time;
        nsecs_t expected;
    } steps[] = {
            {108 * kMs, 10 * kMs},
            {112 * kMs, 7 * kMs},               // (10 + 4) / 2
            {116 * kMs, 6 * kMs},               // (2 x 7 + 4) / 3
            {118 * kMs, 5 * kMs},               // (3 x 6 + 2) / 4
            {118 * kMs + 16'666'666, 5 * kMs},  // exactly a frame: not fast, and the run ends
            {137 * kMs, 3'666'667},             // (5 + 2.333334) / 2
    };
    for (const auto& step : steps) {
        tracker.trackMoveEvent(step.time);
        EXPECT_EQ(step.expected, tracker.getTouchInterval()) << step.time;
    }
    // Times at the ends of their range do not overflow.
    constexpr nsecs_t kMaxNs = std::numeric_limits<nsecs_t>::max();
    constexpr nsecs_t kMinNs = std::numeric_limits<nsecs_t>::min();
    for (nsecs_t time : {kMaxNs, nsecs_t{0}, kMinNs, kMaxNs, kMaxNs, kMinNs, nsecs_t{-1}}) {
        tracker.queueBuffer(time);
        tracker.trackMoveEvent(time);
    }
}

}  // namespace
}  // namespace android
