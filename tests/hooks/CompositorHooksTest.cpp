// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// The compositor's hooks where their model does not reach: faults and races of the start, and how
// long frames are held.

#include <atomic>
#include <system_error>
#include <thread>

#include "HookTest.h"
#include "corvane/host/Properties.h"
#include "corvane/host/Threads.h"

namespace corvane::host {
namespace {

class CompositorHooksTest : public SimulatedHookTest {
  protected:
    void init() {
        set("vendor.perf.phr.enable", "1");
        set("vendor.rdxe.enable.target_fps", "1");
        set("debug.vendor.perf.smart_touch", "1");
        ASSERT_TRUE(corvaneInit(0, 0));
        corvaneSetVsyncPeriod(k60Hz);
    }
    static void push(int hint, const std::string& text, int argument, std::vector<int> values) {
        ASSERT_TRUE(PerfService::push(hint, text, argument, 0, values));
    }

    const TestLayer mApp = TestLayer::ofApp(1);
};

// Any thread may run at any time.
class CompositorHooksRaceTest : public SimulatedHookTest {
  protected:
    CompositorHooksRaceTest() : SimulatedHookTest(anyOrder()) {}

  private:
    static Simulation::Options anyOrder() {
        Simulation::Options options;
        options.policy = Simulation::Policy::kRandom;
        return options;
    }
};

TEST_F(CompositorHooksRaceTest, RacingInitsInitialiseOnce) {
    const TestLayer layer = TestLayer::ofApp(1);
    std::atomic<int> enabled{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 16; ++i) {
        threads.emplace_back([&] {
            enabled += corvaneInit(0, 0);
            corvaneSetVsyncPeriod(k60Hz);
            layer.queue();
            layer.latch();
            corvaneTrackVsyncSignal();
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(enabled, 16);
    EXPECT_EQ(mLog.count("LayerManager initialized"), 1u);
    EXPECT_EQ(PerfService::calls("perf_callback_register", 4).size(), 1u);
    EXPECT_EQ(propertyReads("debug.vendor.perf.smart_touch"), 1)
            << "a flip between two would stay unnoticed";
}

TEST_F(CompositorHooksTest, AFailedInitMayBeRepeated) {
    failThreadCreation(2);  // the boost worker's, then the property watcher's
    EXPECT_THROW(corvaneInit(0, 0), std::system_error);
    failThreadCreation(0);
    EXPECT_EQ(mLog.count("BoostThread Creation Failed"), 1u);
    EXPECT_TRUE(corvaneInit(0, 0));
    mApp.queue();
    EXPECT_EQ(mLog.count("Add new candidate layer: 1"), 1u);
}

TEST_F(CompositorHooksTest, HoldsDeepQueuesOfGamesUntilATouch) {
    init();
    PerfService::addGame(mApp.package, 1);
    push(4187, mApp.package, 0, {0, 80, 0, 120});
    draw(mApp, 170);
    // A queue that stays two deep makes headroom control worthwhile, for as long as the layer is
    // seen and has rates.
    draw(mApp, 40, /*visible=*/true, /*pending=*/2);
    draw(mApp, 70, /*visible=*/false);
    EXPECT_EQ(mLog.count("Layer 1: disable PHR"), 1u);
    draw(mApp, 130, /*visible=*/true, /*pending=*/2);
    EXPECT_EQ(mLog.count("Layer 1: enable PHR"), 2u);

    mSimulation.advance(kMs);
    mApp.queue(/*instant=*/true);
    mApp.queue(/*instant=*/true);
    mApp.queue();
    mApp.latch(true, 2);
    const int64_t queued = mSimulation.now();
    std::atomic<bool> released{false};
    std::thread producer([&] {
        mApp.queue();
        released = true;
    });
    mSimulation.settle();
    push(4192, "", 2, {});
    EXPECT_TRUE(PerfService::push(4192, "", 2, 1, {}));
    corvaneUnblockPendingBuffer();
    mSimulation.settle();
    EXPECT_FALSE(released) << "activities switch";
    push(4192, "", 2, {});
    corvaneUnblockPendingBuffer();
    producer.join();
    EXPECT_EQ(mSimulation.now(), queued) << "no time-out was needed";

    std::thread next([&] { mApp.queue(); });
    mSimulation.settle();
    corvaneTrackVsyncSignal();
    mSimulation.settle();
    next.join();
    EXPECT_LT(mSimulation.now() - queued, k60Hz) << "released for its vsync";
    push(4187, mApp.package, 0, {});
    EXPECT_EQ(mLog.count("Layer 1: disable PHR"), 2u);
    mApp.latch(true, 0, /*focused=*/true);
    mSimulation.settle();
    const auto locks = PerfService::calls("perf_lock_acq", 0);
    ASSERT_EQ(locks.size(), 1u);
    EXPECT_EQ(locks[0].args.back(), mApp.pid);
}

TEST_F(CompositorHooksTest, PacesAndRescuesAtTheTargetsRate) {
    init();
    push(4189, mApp.package + ":golden=0.8", 0, {1});
    push(4171, mApp.package, 5'000, {});
    draw(mApp, 170);
    const int64_t begin = mSimulation.now();
    draw(mApp, 100);
    EXPECT_NEAR(static_cast<double>(mSimulation.now() - begin), 2.0 * kSecond, 0.1 * kSecond);
    // The next frame stays away until every level's check has found it late.
    PerfService::clearCalls();
    const int64_t queued = mSimulation.now();
    mSimulation.advance(200 * kMs);
    mApp.queue();
    mSimulation.settle();
    std::vector<int> levels;
    const auto hints = PerfService::calls("perf_event", 4186);
    for (const PerfCall& call : hints) levels.push_back(call.args[0]);
    EXPECT_EQ(levels, (std::vector<int>{1, 2, 3, 0})) << "the next frame releases the boost";
    EXPECT_GT(hints[0].timeNs - queued, k60Hz * 13 / 10) << "late by its own rate";
}

}  // namespace
}  // namespace corvane::host
