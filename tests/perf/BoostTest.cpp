// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <android/log.h>
#include <cutils/trace.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <future>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "DescriptorLimit.h"
#include "corvane/host/Clock.h"
#include "corvane/host/Devices.h"
#include "corvane/host/LogCapture.h"
#include "corvane/host/PerfService.h"
#include "corvane/host/Threads.h"
#include "corvane/host/TraceCapture.h"
#include "perf/PerfProxy.h"
#include "timer/TimerThread.h"

namespace android {
namespace {

using corvane::host::BoostDevice;
using corvane::host::BoostRequest;
using corvane::host::DrivenClock;
using corvane::host::LogCapture;
using corvane::host::PerfCall;
using corvane::host::PerfService;

constexpr int kFrameHintEvent = 4186;
constexpr int kLowLatencyResource = 0x40CD0000;

class BoostTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(PerfService::install()); }

    static PerfProxy* proxy() { return PerfProxy::getInstance(); }

    // Waits until the worker has run all that was posted before.
    static void drainWorker() {
        std::promise<void> done;
        ASSERT_NE(0u, proxy()->postTask([&] { done.set_value(); }));
        done.get_future().wait();
    }

    static std::vector<PerfCall> hintEvents() {
        return PerfService::calls("perf_event", kFrameHintEvent);
    }
};

TEST_F(BoostTest, LevelsGoToTheDeviceOrTheService) {
    BoostDevice::enable();
    for (int level = -2; level <= 6; ++level) {
        proxy()->frameHint(level, 1'000 + level, 9, "com.example.game", 500 + level);
    }
    drainWorker();

    const std::vector<BoostRequest> requests = BoostDevice::requests();
    ASSERT_EQ(4u, requests.size());
    for (int level = 0; level <= 3; ++level) {
        const BoostRequest& request = requests[static_cast<size_t>(level)];
        EXPECT_EQ(level, request.level);
        EXPECT_EQ(1'000 + level, request.headroomNs);
        EXPECT_EQ(500 + level, request.freqMHz);
        EXPECT_EQ(static_cast<uint64_t>(gettid()), request.threadId) << "the caller's own thread";
    }
    const std::vector<PerfCall> events = hintEvents();
    const std::vector<int> kServiceLevels = {-2, -1, 4, 5, 6};
    ASSERT_EQ(kServiceLevels.size(), events.size());
    std::multiset<int> levels;  // tasks posted in the same instant run in any order
    for (const PerfCall& event : events) {
        ASSERT_EQ(2u, event.args.size());
        levels.insert(event.args[0]);
        EXPECT_EQ(1'000 + event.args[0], event.args[1]);
        EXPECT_EQ("com.example.game", event.package);
        EXPECT_EQ("BP", event.thread);
    }
    EXPECT_EQ((std::multiset<int>{kServiceLevels.begin(), kServiceLevels.end()}), levels);
}

TEST_F(BoostTest, AnEmptyPackageIsANullOne) {
    proxy()->frameHint(5, 7, 9, "", 0);
    drainWorker();
    ASSERT_EQ(1u, hintEvents().size());
    EXPECT_FALSE(hintEvents()[0].hasPackage);
}

TEST_F(BoostTest, HintsAreTraced) {
    const std::string path = ::testing::TempDir() + "corvane_hint_" + std::to_string(getpid());
    PerfProxy::setDebuggable(true, false);
    ASSERT_TRUE(corvane::host::startTrace(path, ATRACE_TAG_GRAPHICS));
    BoostDevice::enable();
    proxy()->frameHint(5, 7, 9, "pkg", 0);
    drainWorker();
    proxy()->frameHint(2, 7, 9, "pkg", 690);
    corvane::host::stopTrace();

    std::vector<std::string> marks;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        const size_t mark = line.rfind("tracing_mark_write: ");
        if (mark != std::string::npos) marks.push_back(line.substr(line.rfind('|') + 1));
    }
    unlink(path.c_str());
    const std::string end = std::to_string(getpid());
    EXPECT_EQ((std::vector<std::string>{"frame hint", "Boost hint: 5, [id: 9]", end, end,
                                        "[GFR_BOOST] GFR_IOCTL bl=2 hr=7 bf=690, [id: 9]", end}),
              marks);
}

TEST_F(BoostTest, DeviceMessages) {
    PerfProxy::setDebuggable(true, true);
    proxy();
    LogCapture log;
    BoostDevice::enable();
    proxy()->frameHint(0, 1, 9, "", 0);
    proxy()->frameHint(5, 1, 9, "", 0);
    drainWorker();
    BoostDevice::failIoctl(EIO);
    proxy()->frameHint(2, 1, 9, "", 0);

    ASSERT_EQ(3u, log.lines().size());
    EXPECT_EQ("[GFR_BOOST] Successfully opened /dev/zufta, zufta is available\n",
              log.lines()[0].text);
    EXPECT_EQ(ANDROID_LOG_DEBUG, log.lines()[0].priority);
    EXPECT_EQ("Boost hint: 5, [id: 9]", log.lines()[1].text);
    EXPECT_EQ(0u, log.lines()[2].text.find("[GFR_BOOST] GFR ioctl failed, ret=-1, ioctl_fd="));
    EXPECT_EQ(1u, log.count(" errno=" + std::to_string(EIO)));
    EXPECT_EQ(ANDROID_LOG_ERROR, log.lines()[2].priority);
    EXPECT_EQ(1u, hintEvents().size()) << "a failing device does not fall back to the service";
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
    drainWorker();
    EXPECT_EQ(1, BoostDevice::openCount()) << "a failed open is never tried again";
    EXPECT_EQ(2u, hintEvents().size());
    EXPECT_TRUE(BoostDevice::requests().empty());
    EXPECT_EQ(0u, log.count("Boost hint: 0")) << "a release is not profiled";
    EXPECT_EQ(1u, log.count("Boost hint: 1, [id: 9]"));
    ASSERT_EQ(1u, log.count("[GFR_BOOST]"));
    EXPECT_EQ(
            "[GFR_BOOST] Failed to open /dev/zufta, zufta not available, errno=13 "
            "(Permission denied)\n",
            log.matching("[GFR_BOOST]")[0].text);
}

TEST_F(BoostTest, TheFirstProbeHappensOnceForAllThreads) {
    BoostDevice::enable();
    constexpr int kThreads = 8;
    PerfProxy* const shared = proxy();
    // Half of the threads come first; the others after it, ordered by the probe alone.
    std::atomic<bool> probed{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            while (i % 2 != 0 && !probed.load(std::memory_order_relaxed)) {
                std::this_thread::yield();
            }
            shared->frameHint(3, i, i, "pkg", i);
            probed.store(true, std::memory_order_relaxed);
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(1, BoostDevice::openCount());
    ASSERT_EQ(static_cast<size_t>(kThreads), BoostDevice::requests().size());
    for (const BoostRequest& request : BoostDevice::requests()) {
        EXPECT_EQ(request.headroomNs, request.freqMHz) << "two threads wrote one record";
    }
}

TEST_F(BoostTest, AtMostOneLowLatencyLock) {
    const auto locks = [] {
        std::vector<std::string> calls;
        for (const PerfCall& call : PerfService::calls()) {
            if (call.entry == "perf_lock_acq") {
                EXPECT_EQ((std::vector<int>{0, kLowLatencyResource}),
                          (std::vector<int>{call.args.at(0), call.args.at(1)}));
                calls.push_back("acquire " + std::to_string(call.number) + " for " +
                                std::to_string(call.args.at(2)) + " gives " +
                                std::to_string(call.result));
            } else if (call.entry == "perf_lock_rel") {
                calls.push_back("release " + std::to_string(call.number));
            }
        }
        return calls;
    };
    // One at a time: tasks posted in the same instant run in any order.
    for (const auto& [pid, enable] :
         {std::pair(123, false), {123, true}, {456, true}, {456, false}, {456, false}}) {
        proxy()->setLowLatency(pid, enable);
        drainWorker();
    }
    const std::vector<PerfCall> acquired = PerfService::calls("perf_lock_acq", 0);
    ASSERT_EQ(2u, acquired.size());
    const std::string first = std::to_string(acquired[0].result);
    const std::string second = std::to_string(acquired[1].result);
    EXPECT_EQ((std::vector<std::string>{"acquire 0 for 123 gives " + first, "release " + first,
                                        "acquire 0 for 456 gives " + second, "release " + second}),
              locks());

    PerfService::refuseLocks(true);
    for (const bool enable : {true, false}) {
        proxy()->setLowLatency(789, enable);
        drainWorker();
    }
    EXPECT_EQ("acquire 0 for 789 gives 0", locks().back()) << "there was none to release";
}

TEST_F(BoostTest, DelaysFollowTheClock) {
    DrivenClock clock(1'000);
    std::promise<int64_t> ranAt;
    EXPECT_NE(0u, proxy()->postTaskDelayed(5'000, [&] { ranAt.set_value(clock.now()); }));
    clock.advance(4'999);
    drainWorker();
    clock.advance(1);
    EXPECT_EQ(6'000, ranAt.get_future().get());
}

TEST_F(BoostTest, TheWorkerIsRaisedAsFrameThreadsAre) {
    const auto scheduling = [] {
        return std::pair(getpriority(PRIO_PROCESS, 0), sched_getscheduler(0));
    };
    std::promise<std::pair<int, int>> worker;
    proxy()->postTask([&] { worker.set_value(scheduling()); });
    std::thread([&] {
        raiseFrameThreadPriority();
        EXPECT_EQ(scheduling(), worker.get_future().get());
    }).join();
}

TEST_F(BoostTest, HintsReachTheDeviceWithoutAWorker) {
    LogCapture log;
    corvane::host::failThreadCreation(1);
    BoostDevice::enable();
    proxy()->frameHint(5, 1, 9, "pkg", 0);
    proxy()->frameHint(2, 1, 9, "pkg", 0);
    EXPECT_EQ(0u, proxy()->postTask([] {}));
    ASSERT_EQ(1u, log.lines().size());
    EXPECT_EQ("BoostThread Creation Failed", log.lines()[0].text);
    EXPECT_EQ("Corvane", log.lines()[0].tag);
    EXPECT_EQ(ANDROID_LOG_ERROR, log.lines()[0].priority);
    EXPECT_EQ(1u, BoostDevice::requests().size());

    proxy()->startBoostThread();  // a failed start leaves it stopped, not broken
    drainWorker();
    EXPECT_TRUE(hintEvents().empty()) << "what was posted without a worker is lost";
}

TEST_F(BoostTest, NoWorkerWithoutDescriptors) {
    delete proxy();
    LogCapture log;
    {
        const ScopedDescriptorLimit limit(2);
        proxy();
    }
    EXPECT_EQ(0u, proxy()->postTask([] {}));
    ASSERT_EQ(1u, log.lines().size());
    EXPECT_EQ("eventfd failed: Too many open files", log.lines()[0].text);
    proxy()->startBoostThread();
    drainWorker();
}

TEST_F(BoostTest, PostingGoesOnWhileTheWorkerStopsAndStarts) {
    PerfProxy* const shared = proxy();
    std::atomic<bool> done{false};
    std::atomic<int> accepted{0};
    std::atomic<int> ran{0};
    std::vector<std::thread> posters;
    for (int i = 0; i < 4; ++i) {
        posters.emplace_back([&] {
            while (!done) {
                if (shared->postTask([&] { ++ran; }) != 0) ++accepted;
                std::this_thread::yield();
            }
        });
    }
    for (int i = 0; i < 50; ++i) {
        shared->stopBoostThread();
        shared->stopBoostThread();
        shared->startBoostThread();
        shared->startBoostThread();
    }
    for (const int before = ran; ran == before;) std::this_thread::yield();
    done = true;
    for (std::thread& poster : posters) poster.join();
    drainWorker();
    EXPECT_LE(ran, accepted);

    std::promise<void> started;
    bool finished = false;
    shared->postTask([&] {
        started.set_value();
        while (shared->postTask(nullptr) != 0) std::this_thread::yield();
        finished = true;
    });
    started.get_future().wait();
    shared->stopBoostThread();
    EXPECT_TRUE(finished) << "stopping waits for the task that runs";
    EXPECT_EQ(0u, shared->postTask([&] { ++ran; }));
}

TEST_F(BoostTest, DestructionUndoesEverything) {
    const size_t open = openDescriptors();
    BoostDevice::enable();
    for (int round = 1; round <= 2; ++round) {
        proxy()->frameHint(1, 1, 9, "pkg", 0);
        drainWorker();
        EXPECT_EQ(round, BoostDevice::openCount());
        delete proxy();
        EXPECT_EQ(open, openDescriptors());
    }
}

}  // namespace
}  // namespace android
