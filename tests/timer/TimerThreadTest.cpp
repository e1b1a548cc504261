// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/resource.h>

#include <thread>

#include "DescriptorLimit.h"
#include "corvane/host/LogCapture.h"
#include "timer/TimerThread.h"

namespace android {
namespace {

using corvane::host::LogCapture;

TEST(TimerThread, LoopRunsTasksUntilStoppedAndWoken) {
    const sp<TimerQueue> queue = sp<TimerQueue>::make();
    std::atomic<bool> running{true};
    int ran = 0;
    queue->postTask([&] { ++ran; });
    queue->postTaskDelayed(1'000, [&] {
        ++ran;
        running = false;
    });
    std::thread thread([&] { runTimerLoop(*queue, running, "Test"); });
    thread.join();
    EXPECT_EQ(2, ran);

    runTimerLoop(*queue, running, "Test");  // returns at once: stopped before it began
}

TEST(TimerThread, LoopGoesOnWhenPollingFails) {
    LogCapture log;
    sp<TimerQueue> queue = sp<TimerQueue>::make();
    {
        const ScopedDescriptorLimit limit(0);
        queue = sp<TimerQueue>::make();
    }
    std::atomic<bool> running{true};
    std::thread thread([&] { runTimerLoop(*queue, running, "Owner"); });
    EXPECT_TRUE(log.waitFor("TimerQueue error", 2));
    running = false;
    thread.join();
    EXPECT_EQ("Owner", log.matching("TimerQueue error")[0].tag);
}

// As far as the process may: an ordinary user's may raise nothing, and that is no error.
TEST(TimerThread, RaisesTheCallingThreadAlone) {
    const int niceBefore = getpriority(PRIO_PROCESS, 0);
    std::thread thread([&] {
        // What the system lets a thread do, asked of another thread.
        bool mayRenice = false;
        bool mayFifo = false;
        std::thread([&] {
            const sched_param one{1};
            mayRenice = setpriority(PRIO_PROCESS, 0, -8) == 0;
            mayFifo = sched_setscheduler(0, SCHED_FIFO, &one) == 0;
        }).join();

        raiseFrameThreadPriority();
        sched_param param{};
        sched_getparam(0, &param);
        EXPECT_EQ(mayRenice ? -8 : niceBefore, getpriority(PRIO_PROCESS, 0));
        EXPECT_EQ(mayFifo ? SCHED_FIFO : SCHED_OTHER, sched_getscheduler(0));
        EXPECT_EQ(mayFifo ? 1 : 0, param.sched_priority);
    });
    thread.join();
    EXPECT_EQ(niceBefore, getpriority(PRIO_PROCESS, 0));
    EXPECT_EQ(SCHED_OTHER, sched_getscheduler(0));
}

}  // namespace
}  // namespace android
