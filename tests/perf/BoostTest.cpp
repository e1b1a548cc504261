// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <android/log.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/resource.h>

#include <atomic>
#include <future>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "DescriptorLimit.h"
#include "corvane/host/Devices.h"
#include "corvane/host/LogCapture.h"
#include "corvane/host/PerfService.h"
#include "corvane/host/Simulation.h"
#include "corvane/host/Threads.h"
#include "perf/PerfProxy.h"
#include "timer/TimerThread.h"

namespace android {
namespace {

using corvane::host::BoostDevice;
using corvane::host::BoostRequest;
using corvane::host::LogCapture;
using corvane::host::PerfCall;
using corvane::host::PerfService;
using corvane::host::Simulation;

constexpr int kFrameHintEvent = 4186;
constexpr int kLowLatencyResource = 0x40CD0000;

class BoostTest : public ::testing::Test {
  protected:
    explicit BoostTest(Simulation::Policy policy = Simulation::Policy::kFifo)
          : mSimulation([policy] {
                Simulation::Options options;
                options.policy = policy;
                return options;
            }()) {}
    void SetUp() override { ASSERT_TRUE(PerfService::install()); }

    static PerfProxy* proxy() { return PerfProxy::getInstance(); }

    static std::vector<PerfCall> hintEvents() {
        return PerfService::calls("perf_event", kFrameHintEvent);
    }

    Simulation mSimulation;
};

// Any thread may run at any time.
class BoostRacesTest : public BoostTest {
  protected:
    BoostRacesTest() : BoostTest(Simulation::Policy::kRandom) {}
};

TEST_F(BoostTest, LevelsGoToTheDeviceOrTheService) {
    BoostDevice::enable();
    size_t requests = 0;
    size_t events = 0;
    for (int level = -2; level <= 6; ++level) {
        SCOPED_TRACE(level);
        const std::string package = level == 5 ? "" : "com.example.game";
        proxy()->frameHint(level, 1'000 + level, 9, package, 500 + level);
        mSimulation.settle();
        if (level >= 0 && level <= 3) {
            ASSERT_EQ(++requests, BoostDevice::requests().size());
            const BoostRequest request = BoostDevice::requests().back();
            EXPECT_EQ(std::tuple(level, 1'000 + level, 500 + level),
                      std::tuple(request.level, request.headroomNs, request.freqMHz));
            EXPECT_EQ(static_cast<uint64_t>(gettid()), request.threadId) << "the caller's own";
        } else {
            ASSERT_EQ(++events, hintEvents().size());
            const PerfCall event = hintEvents().back();
            EXPECT_EQ((std::vector<int>{level, 1'000 + level}), event.args);
            EXPECT_EQ(package, event.package);
            EXPECT_EQ(level != 5, event.hasPackage) << "an empty package is a null one";
            EXPECT_EQ("BP", event.thread);
        }
    }
    EXPECT_EQ(4u, BoostDevice::requests().size());

    LogCapture log;
    BoostDevice::failIoctl(EIO);
    proxy()->frameHint(2, 1, 9, "", 0);
    mSimulation.settle();
    EXPECT_EQ(events, hintEvents().size()) << "a failing device does not fall back to the service";
    ASSERT_EQ(1u, log.lines().size());
    EXPECT_EQ(0u, log.lines()[0].text.find("[GFR_BOOST] GFR ioctl failed, ret=-1, ioctl_fd="));
    EXPECT_EQ(1u, log.count(" errno=" + std::to_string(EIO)));
    EXPECT_EQ(ANDROID_LOG_ERROR, log.lines()[0].priority);
}

TEST_F(BoostTest, WithoutADeviceTheServiceTakesEveryLevel) {
    PerfProxy::setDebuggable(true, true);
    proxy();
    LogCapture log;
    BoostDevice::enable();
    BoostDevice::failOpen(EACCES);
    proxy()->frameHint(0, 1, 9, "pkg", 0);
    BoostDevice::failOpen(0);
    proxy()->frameHint(1, 1, 9, "pkg", 700);
    mSimulation.settle();
    EXPECT_EQ(1, BoostDevice::openCount()) << "a failed open is never tried again";
    EXPECT_EQ(2u, hintEvents().size());
    EXPECT_TRUE(BoostDevice::requests().empty());
    ASSERT_EQ(2u, log.lines().size()) << "a release is not profiled";
    EXPECT_EQ(
            "[GFR_BOOST] Failed to open /dev/zufta, zufta not available, errno=13 "
            "(Permission denied)\n",
            log.lines()[0].text);
    EXPECT_EQ("Boost hint: 1, [id: 9]", log.lines()[1].text);
}

TEST_F(BoostRacesTest, OneInstanceAndOneProbeForAllThreads) {
    BoostDevice::enable();
    std::vector<PerfProxy*> seen(8);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < seen.size(); ++i) {
        threads.emplace_back([&, i] {
            seen[i] = PerfProxy::getInstance();
            seen[i]->perfLockRel(0);  // reads what the constructor wrote
            seen[i]->frameHint(3, static_cast<int>(i), 9, "pkg", static_cast<int>(i));
        });
    }
    for (std::thread& thread : threads) thread.join();
    for (const PerfProxy* instance : seen) EXPECT_EQ(seen[0], instance);
    EXPECT_EQ(1u, PerfService::calls("get_perf_hal_ver", 0).size());
    EXPECT_EQ(1, BoostDevice::openCount());
    ASSERT_EQ(seen.size(), BoostDevice::requests().size());
    for (const BoostRequest& request : BoostDevice::requests()) {
        EXPECT_EQ(request.headroomNs, request.freqMHz) << "two threads wrote one record";
    }
}

TEST_F(BoostTest, AtMostOneLowLatencyLock) {
    for (const auto& [pid, enable] : {std::pair(123, false),
                                      {123, true},
                                      {456, true},
                                      {456, false},
                                      {456, false},
                                      {789, true},
                                      {789, false}}) {
        PerfService::refuseLocks(pid == 789);
        proxy()->setLowLatency(pid, enable);
        mSimulation.settle();
    }
    std::vector<std::string> locks;
    for (const PerfCall& call : PerfService::calls()) {
        if (call.entry.find("_lock_") == std::string::npos) continue;
        locks.push_back(call.entry + " " + std::to_string(call.number));
        if (call.args.empty()) continue;
        EXPECT_EQ((std::vector<int>{0, kLowLatencyResource, call.args.back()}), call.args);
        locks.back() += " for " + std::to_string(call.args.back());
    }
    // The service numbers the locks from 1; the refused one is not released.
    EXPECT_EQ((std::vector<std::string>{"perf_lock_acq 0 for 123", "perf_lock_rel 1",
                                        "perf_lock_acq 0 for 456", "perf_lock_rel 2",
                                        "perf_lock_acq 0 for 789"}),
              locks);
}

TEST_F(BoostTest, TheWorkerKeepsTheClockAndIsRaisedAsFrameThreadsAre) {
    const auto state = [&] {
        return std::tuple(mSimulation.now(), getpriority(PRIO_PROCESS, 0), sched_getscheduler(0));
    };
    std::promise<decltype(state())> promise;
    const nsecs_t due = mSimulation.now() + 5'000;
    EXPECT_NE(0u, proxy()->postTaskDelayed(5'000, [&] { promise.set_value(state()); }));
    mSimulation.advanceTo(due);
    const auto worker = promise.get_future().get();
    std::thread([&] {
        raiseFrameThreadPriority();
        EXPECT_EQ(state(), worker);
    }).join();
    EXPECT_EQ(due, std::get<0>(worker));
}

TEST_F(BoostTest, HintsReachTheDeviceWithoutAWorker) {
    BoostDevice::enable();
    delete proxy();
    const size_t open = openDescriptors();
    const char* const kMessages[] = {"BoostThread Creation Failed",
                                     "eventfd failed: Too many open files"};
    for (int i = 0; i < 2; ++i) {
        LogCapture log;
        {
            const ScopedDescriptorLimit limit(i == 0 ? 100 : 2);
            corvane::host::failThreadCreation(i == 0 ? 1 : 0);
            proxy();
        }
        proxy()->frameHint(5, 1, 9, "pkg", 0);
        proxy()->frameHint(2, 1, 9, "pkg", 0);
        EXPECT_EQ(0u, proxy()->postTask([] {}));
        ASSERT_EQ(1u, log.lines().size());
        EXPECT_EQ(kMessages[i], log.lines()[0].text);
        EXPECT_EQ(ANDROID_LOG_ERROR, log.lines()[0].priority);

        proxy()->startBoostThread();  // a failed start leaves it stopped, not broken
        EXPECT_NE(0u, proxy()->postTask([] {}));
        mSimulation.settle();
        EXPECT_EQ(0u, hintEvents().size()) << "what was posted without a worker is lost";
        EXPECT_EQ(i + 1, BoostDevice::openCount());
        EXPECT_EQ(static_cast<size_t>(i + 1), BoostDevice::requests().size());
        delete proxy();
        EXPECT_EQ(open, openDescriptors()) << "destruction undoes everything";
    }
}

TEST_F(BoostRacesTest, PostingGoesOnWhileTheWorkerStopsAndStarts) {
    PerfProxy* const shared = proxy();
    std::atomic<bool> done{false};
    std::atomic<int> accepted{0};
    std::atomic<int> ran{0};
    std::vector<std::thread> posters;
    for (int i = 0; i < 4; ++i) {
        posters.emplace_back([&] {
            while (!done) {
                if (shared->postTask([&] { ++ran; }) != 0) ++accepted;
                Simulation::yield();
            }
        });
    }
    for (int i = 0; i < 50; ++i) {
        shared->stopBoostThread();
        shared->stopBoostThread();
        shared->startBoostThread();
        shared->startBoostThread();
    }
    const int before = ran;
    done = true;
    for (std::thread& poster : posters) poster.join();
    shared->postTask([&] { ++ran; });
    Simulation::settle();
    EXPECT_GT(ran, before);
    EXPECT_LE(ran, accepted + 1);

    std::atomic<bool> started{false};
    bool finished = false;
    shared->postTask([&] {
        started = true;
        while (shared->postTask(nullptr) != 0) Simulation::yield();
        Simulation::sleepFor(1'000'000);  // a stop would be through
        finished = true;
    });
    while (!started) Simulation::yield();
    shared->stopBoostThread();
    EXPECT_TRUE(finished) << "stopping waits for the task that runs";
    EXPECT_EQ(0u, shared->postTask([&] { ++ran; }));
}

}  // namespace
}  // namespace android
