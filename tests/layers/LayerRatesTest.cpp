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

// Buffers at a steady interval until promotion; 0 when there is none among the first thousand.
int buffersToPromotion(nsecs_t interval) {
    LayerCandidate candidate;
    for (int i = 0; i < 1'000; ++i) {
        if (candidate.updateAndCheckPromotion(5 * kSecond + i * interval)) return i + 1;
    }
    return 0;
}

TEST(LayerCandidateTest, PromotesSteadyLayersOnly) {
    EXPECT_EQ(buffersToPromotion(20'000'000), 26) << "50 fps: exactly half a second";
    EXPECT_EQ(buffersToPromotion(8'333'333), 62) << "120 fps: 60 intervals fall 20 ns short";
    EXPECT_EQ(buffersToPromotion(500'000'000 / 12), 14) << "24 fps: the 12th interval falls short";
    EXPECT_EQ(buffersToPromotion(43'478'260), 13) << "just above 23 fps";
    EXPECT_EQ(buffersToPromotion(43'478'800), 0) << "just below";
    EXPECT_EQ(buffersToPromotion(0), 0) << "no time passes";

    LayerCandidate slow;
    EXPECT_FALSE(slow.updateAndCheckPromotion(kSecond));
    EXPECT_FALSE(slow.updateAndCheckPromotion(kSecond + 900 * kMs));
    EXPECT_EQ(slow.firstSeen, kSecond + 900 * kMs) << "a slow window starts over";
    EXPECT_EQ(slow.frameCount, 1);
}

using Tracker = LayerInfo::StableFpsTracker;

// A ring of thirty after `samples` intervals that alternate between mean - spread and mean +
// spread.
Tracker alternating(nsecs_t mean, nsecs_t spread, int samples = 30) {
    Tracker tracker;
    tracker.resize(30);
    for (int i = 0; i < samples; ++i) tracker.push(i % 2 == 0 ? mean - spread : mean + spread);
    return tracker;
}

TEST(StableFpsTrackerTest, JudgesTheDeviation) {
    Tracker reset = alternating(k60Hz, 0);
    reset.reset();
    const struct {
        const char* what;
        Tracker tracker;
        bool stable;
        int mode;
    } cases[] = {
            {"below a fifth of the mean", alternating(k60Hz, 3'300'000), true, 60},
            {"above", alternating(k60Hz, 3'400'000), false, 60},
            {"below the floor", alternating(5'000'000, 1'900'000), true, 185},
            {"above", alternating(5'000'000, 2'100'000), false, 185},
            {"one interval short", alternating(k60Hz, 0, 29), false, -1},
            {"the oldest have left", alternating(k60Hz, 0, 59), true, 60},
            {"no mean to divide by", alternating(0, 0), true, -1},
            {"no slots", Tracker(), false, -1},
            {"cleared", reset, false, -1},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.tracker.isStable(1, 0.2f), c.stable) << c.what;
        EXPECT_EQ(c.tracker.getFpsMode(), c.mode) << c.what;
    }
    Tracker none;
    none.push(5);
    none.resize(-1);
    EXPECT_EQ(none.sum, 0);
}

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
