// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <string>
#include <vector>

#include "TracedEvents.h"
#include "phr/MonitorFixture.h"

namespace android {
namespace {

using Events = std::vector<std::string>;
using TraceTest = PhrMonitorTest;

TEST_F(TraceTest, QueuedBufferIsTracedFromEndToEnd) {
    start();
    EXPECT_EQ(tracedEvents([&] { monitor.setQuickTouchStatus(kLayer, true); }),
              (Events{"B|enable PHR", "E"}));
    state->mLastLatchTime = kStart;
    EXPECT_EQ(tracedEvents([&] {
                  monitor.onBufferIncrement(kLayer, kPeriod + 3 * kMs, kStart + kMs,
                                            /*instant=*/true);
              }),
              (Events{
                      "B|updatePresetHeadroom = 5000000",
                      "E",
                      "F|CPU frame time - com.example.game/%s%n|7",
                      "S|CPU headroom - com.example.game/%s%n|7",
                      "B|trackQueueBuffer",
                      "B|bufferCount:0, curHeadroom: 15000000, mHeadroom: 5000000",
                      "E",
                      "B|not pending for instant buffer or not reach target headroom",
                      "E",
                      "E",
                      "F|CPU headroom - com.example.game/%s%n|7",
                      "S|CPU frame time - com.example.game/%s%n|7",
              }));

    state->mInstant = false;
    state->mReleased = true;
    state->mPendingCount = 0;
    EXPECT_EQ(tracedEvents([&] { monitor.trackQueueBuffer(state.get(), false, kStart + kMs); }),
              (Events{
                      "B|trackQueueBuffer",
                      "B|bufferCount:0, curHeadroom: 15000000, mHeadroom: 5000000",
                      "E",
                      "B|timer expired",
                      "E",
                      "E",
              }));
}

// The held buffer passes, and `reason` says why it waits on or does not.
TEST_F(TraceTest, WaitsAndTheirReasonsAreTraced) {
    start();
    monitor.setQuickTouchStatus(kLayer, true);
    state->mLastLatchTime = kStart;
    const struct {
        nsecs_t lastJankTime;
        int32_t dropWait;
        const char* reason;
    } cases[] = {{kStart, 1, "B|No additional delay due to recent jank."},
                 {-1, 1, "B|No additional delay due to wait for buffer drop"},
                 {-1, -1, "B|additional delay"}};
    for (const auto& c : cases) {
        state->mPendingCount = 1;
        state->mLastJankTime = c.lastJankTime;
        state->mDropWaitCount = c.dropWait;
        state->mHasPending = true;
        const Events events = tracedEvents([&] {
            const auto call = queue();
            ASSERT_TRUE(clock.waitForSleepers(1));
            state->releaseWaiters();
            if (c.lastJankTime < 0 && c.dropWait < 0) {
                ASSERT_TRUE(clock.waitForSleepers(1));
                monitor.unblockBuffer(kLayer);
            }
            ASSERT_TRUE(returns(call));
        });
        const Events waited{"B|delay finish", "E", c.reason, "E"};
        EXPECT_NE(std::search(events.begin(), events.end(), waited.begin(), waited.end()),
                  events.end())
                << c.reason;
        EXPECT_EQ(std::count(events.begin(), events.end(), "B|unblockBuffer"), c.dropWait < 0);
    }
}

TEST_F(TraceTest, VsyncIsTraced) {
    start();
    monitor.setQuickTouchStatus(kLayer, true);
    EXPECT_EQ(tracedEvents([&] {
                  monitor.onVsync(clock.now());
                  ASSERT_TRUE(clock.waitForSleepers(1));
                  monitor.forceStop();
              }),
              (Events{"B|onVsync", "E", "B|wait for preset headroom", "E"}));
}

TEST_F(TraceTest, AdaptationIsTraced) {
    base::SetProperty("vendor.perf.phr.enable", "1");
    start();
    for (int frame = 0; frame < 14; ++frame) {
        monitor.checkAndUpdateHeadroom(state.get(), 2 * kPeriod);
    }
    EXPECT_EQ(tracedEvents([&] { monitor.checkAndUpdateHeadroom(state.get(), 2 * kPeriod); }),
              (Events{"B|updatePresetHeadroom = 6000000", "E",
                      "B|checkAndUpdatePHR: weightRatio: 2.000, mFrameWeightWindowSum:45, "
                      "heavyHeadroomFrameCount: 2, mHeadroom: 6000000",
                      "E"}));
    EXPECT_EQ(tracedEvents([&] { monitor.resetAdaptivePhrState(state.get()); }),
              (Events{"B|reset adaptive PHR state for layer 7, headroom=4000000", "E"}));
}

TEST_F(TraceTest, PacingIsTraced) {
    start();
    EXPECT_EQ(tracedEvents([&] { monitor.setTargetFpsStatus(kLayer, true, 60, 40); }),
              (Events{"B|enable target fps: 40.000000", "E"}));
    EXPECT_EQ(tracedEvents([&] { monitor.trackQueueBuffer(state.get(), false, kStart); }),
              (Events{"B|Switched to target fps now.", "E"}));
    const Events paced = tracedEvents([&] {
        const auto call = std::async(std::launch::async,
                                     [&] { monitor.trackQueueBuffer(state.get(), false, kStart); });
        ASSERT_TRUE(clock.waitForSleepers(1));
        clock.advance(25 * kMs);
        ASSERT_TRUE(returns(call));
    });
    EXPECT_EQ(paced, (Events{"B|Pending for target fps", "E"}));
    EXPECT_EQ(tracedEvents([&] { monitor.setTargetFpsStatus(kLayer, false, 60, 40); }),
              (Events{"B|disable target fps", "E"}));
}

}  // namespace
}  // namespace android
