// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

#include "layers/InGameTracker.h"

namespace android {
namespace {

constexpr nsecs_t kMs = 1'000'000;
constexpr nsecs_t kSecond = 1'000'000'000;

// Fills a window of `buffers` from `start` and closes it.
void fillWindow(InGameTracker& tracker, int buffers, nsecs_t start = 0) {
    for (int i = 0; i < buffers; ++i) {
        tracker.queueBuffer(start + i * (kSecond - 1) / std::max(buffers - 1, 1));
    }
    tracker.queueBuffer(start + kSecond);
}

TEST(InGameTracker, MeasuresNothingAtFirst) {
    InGameTracker tracker;
    EXPECT_EQ(-1, tracker.getFpsMode());
    EXPECT_EQ(-1, tracker.getFrameInterval());
    EXPECT_EQ(10 * kMs, tracker.getTouchInterval());
    // While no frame interval is known no move is fast.
    for (int i = 0; i < 10; ++i) tracker.trackMoveEvent(i * kMs);
    EXPECT_EQ(10 * kMs, tracker.getTouchInterval());
}

TEST(InGameTracker, CountsTheBuffersOfOneSecond) {
    const struct {
        int buffers;
        int mode;
        nsecs_t interval;
    } cases[] = {{1, 1, kSecond},        {18, 18, kSecond / 18},    {30, 30, kSecond / 30},
                 {60, 60, kSecond / 60}, {120, 120, kSecond / 120}, {261, -1, -1}};
    for (const auto& c : cases) {
        InGameTracker tracker;
        fillWindow(tracker, c.buffers);
        EXPECT_EQ(c.mode, tracker.getFpsMode()) << c.buffers;
        EXPECT_EQ(c.interval, tracker.getFrameInterval()) << c.buffers;
    }
}

TEST(InGameTracker, TheClosingBufferBelongsToNoWindow) {
    InGameTracker tracker;
    fillWindow(tracker, 60);
    // 18 buffers: with the closing one of the window before they would be 19, mode 30.
    fillWindow(tracker, 18, kSecond + 1);
    EXPECT_EQ(18, tracker.getFpsMode());
    // A rate beyond all modes leaves the interval.
    fillWindow(tracker, 300, 3 * kSecond);
    EXPECT_EQ(-1, tracker.getFpsMode());
    EXPECT_EQ(kSecond / 18, tracker.getFrameInterval());

    tracker.reset();
    EXPECT_EQ(-1, tracker.getFrameInterval());
    fillWindow(tracker, 60, 5 * kSecond);
    EXPECT_EQ(60, tracker.getFpsMode());
}

TEST(InGameTracker, AveragesMovesFasterThanFrames) {
    InGameTracker tracker;
    fillWindow(tracker, 60);  // 16.6 ms
    const struct {
        nsecs_t time;
        nsecs_t expected;
    } steps[] = {
            {100 * kMs, 10 * kMs},
            {104 * kMs, 7 * kMs},               // (10 + 4) / 2
            {108 * kMs, 6 * kMs},               // (2 x 7 + 4) / 3
            {110 * kMs, 5 * kMs},               // (3 x 6 + 2) / 4
            {110 * kMs + 16'666'666, 5 * kMs},  // exactly a frame: not fast, and the run ends
            {129 * kMs, 3'666'667},             // (5 + 2.333334) / 2
    };
    for (const auto& step : steps) {
        tracker.trackMoveEvent(step.time);
        EXPECT_EQ(step.expected, tracker.getTouchInterval()) << step.time;
    }
}

TEST(InGameTracker, TimesAtTheEndsOfTheirRangeDoNotOverflow) {
    constexpr nsecs_t kMaxNs = std::numeric_limits<nsecs_t>::max();
    constexpr nsecs_t kMinNs = std::numeric_limits<nsecs_t>::min();
    InGameTracker tracker;
    fillWindow(tracker, 60);
    for (nsecs_t time : {kMaxNs, nsecs_t{0}, kMinNs, kMaxNs, kMaxNs, kMinNs, nsecs_t{-1}}) {
        tracker.queueBuffer(time);
        tracker.trackMoveEvent(time);
    }
}

}  // namespace
}  // namespace android
