// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <cutils/trace.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "corvane/host/TraceCapture.h"
#include "phr/MonitorFixture.h"

namespace android {
namespace {

using Events = std::vector<std::string>;

class TraceTest : public PhrMonitorTest {
  protected:
    void TearDown() override {
        corvane::host::stopTrace();
        remove(path.c_str());
    }

    // The events that `action` emits: their type and all that follows the process id.
    Events traced(const std::function<void()>& action) {
        EXPECT_TRUE(corvane::host::startTrace(path, ATRACE_TAG_GRAPHICS));
        action();
        corvane::host::stopTrace();
        Events events;
        std::ifstream file(path);
        const std::string marker = "tracing_mark_write: ";
        const std::string pid = "|" + std::to_string(getpid());
        for (std::string line; std::getline(file, line);) {
            const size_t at = line.find(marker);
            if (at == std::string::npos) continue;
            std::string event = line.substr(at + marker.size());
            event.erase(event.find(pid), pid.size());
            events.push_back(std::move(event));
        }
        return events;
    }

    const std::string path = ::testing::TempDir() + "phr_trace." + std::to_string(getpid());
};

TEST_F(TraceTest, QueuedBufferIsTracedFromEndToEnd) {
    start();
    EXPECT_EQ(traced([&] { monitor.setQuickTouchStatus(kLayer, true); }),
              (Events{"B|enable PHR", "E"}));
    state->mLastLatchTime = kStart;
    EXPECT_EQ(traced([&] {
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
    EXPECT_EQ(traced([&] { monitor.trackQueueBuffer(state.get(), false, kStart + kMs); }),
              (Events{
                      "B|trackQueueBuffer",
                      "B|bufferCount:0, curHeadroom: 15000000, mHeadroom: 5000000",
                      "E",
                      "B|timer expired",
                      "E",
                      "E",
              }));
}

TEST_F(TraceTest, WaitsAndTheirReasonsAreTraced) {
    start();
    monitor.setQuickTouchStatus(kLayer, true);
    state->mLastLatchTime = kStart;
    state->mLastJankTime = kStart;
    const Events events = traced([&] {
        const auto call = queue();
        ASSERT_TRUE(clock.waitForSleepers(1));
        state->releaseWaiters();
        ASSERT_TRUE(returns(call));
    });
    const Events waited{"B|delay finish", "E", "B|No additional delay due to recent jank.", "E"};
    EXPECT_NE(std::search(events.begin(), events.end(), waited.begin(), waited.end()),
              events.end());
}

TEST_F(TraceTest, PacingIsTraced) {
    start();
    EXPECT_EQ(traced([&] { monitor.setTargetFpsStatus(kLayer, true, 60, 40); }),
              (Events{"B|enable target fps: 40.000000", "E"}));
    EXPECT_EQ(traced([&] { monitor.trackQueueBuffer(state.get(), false, kStart); }),
              (Events{"B|Switched to target fps now.", "E"}));
    const Events paced = traced([&] {
        const auto call = std::async(std::launch::async,
                                     [&] { monitor.trackQueueBuffer(state.get(), false, kStart); });
        ASSERT_TRUE(clock.waitForSleepers(1));
        clock.advance(25 * kMs);
        ASSERT_TRUE(returns(call));
    });
    EXPECT_EQ(paced, (Events{"B|Pending for target fps", "E"}));
    EXPECT_EQ(traced([&] { monitor.setTargetFpsStatus(kLayer, false, 60, 40); }),
              (Events{"B|disable target fps", "E"}));
}

}  // namespace
}  // namespace android
