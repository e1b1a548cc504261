// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <string>

#include "TracedEvents.h"
#include "phr/MonitorFixture.h"

namespace android {
namespace {

class TraceTest : public PhrMonitorTest {
  protected:
    // The events one after the other; the layer's name is shortened.
    static std::string traced(const std::function<void()>& action) {
        std::string text;
        for (std::string event : tracedEvents(action)) {
            const size_t name = event.find("com.example.game/%s%n|7");
            if (name != std::string::npos) event.replace(name, std::string::npos, "<layer>");
            text += event + "; ";
        }
        return text;
    }
};

TEST_F(TraceTest, BuffersAndVsyncsAreTracedFromEndToEnd) {
    start();
    const std::string events = traced([&] {
        monitor.setQuickTouchStatus(kLayer, true);
        state->mLastLatchTime = kStart;
        monitor.onBufferIncrement(kLayer, kPeriod + 3 * kMs, kStart + kMs, /*instant=*/true);
        state->mInstant = false;
        state->mReleased = true;
        state->mPendingCount = 0;
        monitor.trackQueueBuffer(state.get(), false, kStart + kMs);
        monitor.onVsync(clock.now());
        ASSERT_TRUE(clock.waitForSleepers(1));
        monitor.forceStop();
    });
    EXPECT_EQ(events,
              "B|enable PHR; E; B|updatePresetHeadroom = 5000000; E; "
              "F|CPU frame time - <layer>; S|CPU headroom - <layer>; B|trackQueueBuffer; "
              "B|bufferCount:0, curHeadroom: 15000000, mHeadroom: 5000000; E; "
              "B|not pending for instant buffer or not reach target headroom; E; E; "
              "F|CPU headroom - <layer>; S|CPU frame time - <layer>; "
              "B|trackQueueBuffer; B|bufferCount:0, curHeadroom: 15000000, mHeadroom: 5000000; E; "
              "B|timer expired; E; E; "
              "B|onVsync; E; B|wait for preset headroom; E; ");
}

// The held buffer passes, and `reason` says why it waits on or does not.
TEST_F(TraceTest, WaitsAndTheirReasonsAreTraced) {
    start();
    monitor.setQuickTouchStatus(kLayer, true);
    state->mLastLatchTime = kStart;
    state->mHasPending = true;
    const struct {
        nsecs_t lastJankTime;
        int32_t dropWait;
        std::string reason;
    } cases[] = {{kStart, 1, "B|No additional delay due to recent jank.; E; "},
                 {-1, 1, "B|No additional delay due to wait for buffer drop; E; "},
                 {-1, -1, "B|additional delay; E; "}};
    for (const auto& c : cases) {
        state->mPendingCount = 1;
        state->mLastJankTime = c.lastJankTime;
        state->mDropWaitCount = c.dropWait;
        const std::string events = traced([&] {
            const auto call = queue();
            ASSERT_TRUE(clock.waitForSleepers(1));
            state->releaseWaiters();
            if (c.dropWait < 0) {
                ASSERT_TRUE(clock.waitForSleepers(1));
                monitor.unblockBuffer(kLayer);
            }
            ASSERT_TRUE(returns(call));
        });
        EXPECT_NE(events.find("B|delay finish; E; " + c.reason), std::string::npos) << events;
        EXPECT_EQ(events.find("B|unblockBuffer; ") != std::string::npos, c.dropWait < 0) << events;
    }
}

TEST_F(TraceTest, AdaptationAndPacingAreTraced) {
    base::SetProperty("vendor.perf.phr.enable", "1");
    start();
    for (int frame = 0; frame < 14; ++frame) {
        monitor.checkAndUpdateHeadroom(state.get(), 2 * kPeriod);
    }
    const std::string events = traced([&] {
        monitor.checkAndUpdateHeadroom(state.get(), 2 * kPeriod);
        monitor.resetAdaptivePhrState(state.get());
        monitor.setTargetFpsStatus(kLayer, true, 60, 40);
        monitor.trackQueueBuffer(state.get(), false, kStart);
        const auto call = std::async(std::launch::async,
                                     [&] { monitor.trackQueueBuffer(state.get(), false, kStart); });
        ASSERT_TRUE(clock.waitForSleepers(1));
        clock.advance(25 * kMs);
        ASSERT_TRUE(returns(call));
        monitor.setTargetFpsStatus(kLayer, false, 60, 40);
    });
    EXPECT_EQ(events,
              "B|updatePresetHeadroom = 6000000; E; "
              "B|checkAndUpdatePHR: weightRatio: 2.000, mFrameWeightWindowSum:45, "
              "heavyHeadroomFrameCount: 2, mHeadroom: 6000000; E; "
              "B|reset adaptive PHR state for layer 7, headroom=4000000; E; "
              "B|enable target fps: 40.000000; E; B|Switched to target fps now.; E; "
              "B|Pending for target fps; E; B|disable target fps; E; ");
}

}  // namespace
}  // namespace android
