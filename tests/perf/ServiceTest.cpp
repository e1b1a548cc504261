// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// The way to the performance service, the boost worker and device, the trace and the log.

#include <android/log.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <string>
#include <utility>
#include <vector>

#include "DescriptorLimit.h"
#include "FramePathScheduling.h"
#include "RandomSteps.h"
#include "TracedEvents.h"
#include "corvane/host/Devices.h"
#include "corvane/host/LogCapture.h"
#include "corvane/host/PerfService.h"
#include "corvane/host/Threads.h"
#include "perf/PerfProxy.h"
#include "perf/TraceSection.h"

namespace android {
namespace {

using corvane::host::BoostDevice;
using corvane::host::failThreadCreation;
using corvane::host::LogCapture;
using corvane::host::PerfService;
using corvane::host::Simulation;
using Strings = std::vector<std::string>;
using namespace std::string_literals;

constexpr nsecs_t kMs = 1'000'000;
constexpr nsecs_t kStart = 1'000 * kMs;
constexpr const char* kGame = "com.game";
constexpr int kWeight = 3;

// The calls that reached the service: entry point, numbers, package, and "BP" for the worker's.
Strings callsMade() {
    Strings calls;
    for (const auto& call : PerfService::calls()) {
        std::string text = call.entry + " " + std::to_string(call.number);
        for (const int number : call.args) text += " " + std::to_string(number);
        if (call.hasPackage) text += " " + call.package;
        calls.push_back(text + (call.thread == "BP" ? " BP" : ""));
    }
    PerfService::clearCalls();
    return calls;
}

// The lines logged since the last call, as "priority text".
Strings takeLog(LogCapture& log) {
    Strings lines;
    for (const auto& line : log.lines()) {
        if (line.tag != "Corvane") continue;
        lines.push_back(std::to_string(line.priority) + " " + line.text);
    }
    log.clear();
    return lines;
}

// The entry points in the order of resolving; the first that is missing ends it, but for the two
// that a service may lack.
TEST(ServiceTest, CallsWhatTheClientLibraryHas) {
    const Strings calls = {"perf_get_prop 0 name",     "perf_get_feedback 5633 com.game",
                           "perf_hint 7 2 3 com.game", "perf_event 8 1 2 pkg",
                           "perf_lock_acq 0 5 1 2",    "perf_lock_rel 9",
                           "get_perf_hal_ver 0",       "perf_get_feedback_extn 5633 1 0 com.game",
                           "perf_callback_register 4"};
    constexpr const char* kByFeedback = "perf_get_feedback_extn 5633 1 0 com.game";
    constexpr const char* kByHint = "perf_hint 5633 0 1 com.game";
    constexpr struct {
        const char* variant;
        const char* reached;     // of the calls
        const char* weightFrom;  // what is asked for a game's weight
        const char* missing;     // how the one line logged begins
    } kVariants[] = {
            {"none", "000000000", "", "open libhxw-perfd-client_system.so: "},
            {"full", "111111111", kByFeedback, ""},
            {"version-2.3", "111111111", kByFeedback, ""},
            {"version-2.2", "111111101", kByHint, ""},
            {"version-none", "111111001", kByHint, "find get_perf_hal_ver function."},
            {"missing-perf_get_feedback_extn", "111111101", "", ""},
            {"missing-perf_get_prop", "000000000", "", "find perf_get_prop function."},
            {"missing-perf_get_feedback", "100000000", "", "find perf_get_feedback function."},
            {"missing-perf_hint", "110000000", "", "find perf_hint function."},
            {"missing-perf_event", "111000000", kByHint, "find perf_event function."},
            {"missing-perf_lock_acq", "111100000", kByHint, "find perf_lock_acq function."},
            {"missing-perf_lock_rel", "111110000", kByHint, "find perf_lock_rel function."},
            {"missing-perf_callback_register", "111111110", kByFeedback,
             "find perf_callback_register function. Err = "},
    };
    PerfService::addGame(kGame, kWeight);
    for (const auto& v : kVariants) {
        SCOPED_TRACE(v.variant);
        PerfProxy::setDebuggable(true, false);
        PerfService::install(v.variant);
        LogCapture log;
        PerfProxy* proxy = PerfProxy::getInstance();
        const bool hasWorker = proxy->postTask([] {}) != 0;
        EXPECT_EQ(v.reached[8] == '1', hasWorker) << "it starts last";
        const Strings lines = takeLog(log);
        EXPECT_EQ(*v.missing == '\0' ? 0u : 1u, lines.size());
        for (const std::string& line : lines) {
            EXPECT_EQ(0u, line.find((hasWorker ? "3 Unable to "s : "6 Unable to "s) + v.missing))
                    << line;
        }
        callsMade();

        const auto has = [&](int entry) { return v.reached[entry] == '1'; };
        int list[] = {1, 2};
        int weight[] = {1, 0};
        EXPECT_EQ(std::string(91, 'v'),
                  proxy->perfGetProp("name", std::string(200, 'v').c_str()).value);
        EXPECT_EQ(has(1) ? 2 : -1, proxy->perfGetFeedback(5633, kGame));
        EXPECT_EQ(has(2) ? 0 : -1, proxy->perfHint(7, kGame, 2, 3));
        proxy->perfEvent(8, "pkg", 2, list);
        EXPECT_EQ(has(4), proxy->perfLockAcq(0, 5, list, 2) > 0);
        EXPECT_EQ(-1, proxy->perfLockRel(9)) << "there is no such lock";
        EXPECT_EQ(has(6), proxy->getPerfHalVer() != -1.0);
        EXPECT_EQ(has(7) ? kWeight : -1, proxy->perfGetFeedbackExtn(5633, kGame, 2, weight));
        EXPECT_EQ(has(8) ? 0 : -1, proxy->perfCallbackRegister(nullptr, 4));
        Strings reached;
        for (int i = 0; i < 9; ++i) {
            if (has(i)) reached.push_back(calls[static_cast<size_t>(i)]);
        }
        EXPECT_EQ(reached, callsMade());

        const bool hasWeight = *v.weightFrom != '\0';
        EXPECT_EQ(hasWeight ? kWeight : -1, proxy->getGameWeight(kGame));
        EXPECT_EQ(hasWeight ? Strings{v.weightFrom} : Strings{}, callsMade());
        EXPECT_EQ(-1, proxy->getGameWeight(""));
        EXPECT_EQ(has(1), proxy->isGameApp(kGame));
        EXPECT_FALSE(proxy->isGameApp("com.reader"));
        EXPECT_FALSE(proxy->isGameApp(""));
        EXPECT_EQ(has(1), proxy->isGameLayer("SurfaceView[com.game/Main]#3"));
        EXPECT_FALSE(proxy->isGameLayer("StatusBar#5"));
        EXPECT_EQ((Strings{formatted("3 GameWeight:%d [com.game]", hasWeight ? kWeight : -1),
                           "3 GameWeight:-1 []", formatted("3 isGameApp:%d [com.game]", has(1)),
                           "3 isGameApp:0 [com.reader]",
                           formatted("3 isGameApp:%d [com.game]", has(1)),
                           formatted("3 isGameLayer:%d [SurfaceView[com.game/Main]#3]", has(1)),
                           "3 isGameApp:0 []", "3 isGameLayer:0 [StatusBar#5]"}),
                  takeLog(log));
        EXPECT_EQ(has(1) ? 3u : 0u, callsMade().size()) << "none is for an empty package";
        delete proxy;  // the next variant is found only if this one is let go
    }
}

// Levels 0 to 3 go to the device, whether it can or not; all others, or all without a device, to
// the service.
TEST(BoostTest, HintsGoToTheDeviceOrTheService) {
    const Simulation simulation(kStart);
    ASSERT_TRUE(PerfService::install());
    BoostDevice::enable();
    PerfProxy::setDebuggable(true, true);
    for (const auto& [openError, ioctlError] : {std::pair(0, 0), {EACCES, 0}, {0, EIO}}) {
        PerfProxy& proxy = *PerfProxy::getInstance();
        LogCapture log;
        BoostDevice::failOpen(openError);
        BoostDevice::failIoctl(ioctlError);
        BoostDevice::clear();
        callsMade();
        Strings traces, calls, requests, made;
        Strings lines = {
                openError == 0
                        ? "3 [GFR_BOOST] Successfully opened /dev/zufta, zufta is available\n"
                        : "6 [GFR_BOOST] Failed to open /dev/zufta, zufta not available, "
                          "errno=13 (Permission denied)\n"};
        const bool hasDevice = openError == 0;
        const std::string fault =
                ioctlError == 0 ? ""
                                : "6 [GFR_BOOST] GFR ioctl failed, ret=-1, ioctl_fd=%d errno=5";
        const auto events = tracedEvents([&] {
            const int fd = nextDescriptor();  // the device's
            for (int level = -1; level <= 5; ++level) {
                const std::string package = level == 5 ? "" : "pkg";
                proxy.frameHint(level, 100 + level, 9, package, 500 + level);
                BoostDevice::failOpen(0);  // a failed open is never tried again
                Simulation::settle();
                if (hasDevice && level >= 0 && level <= 3) {
                    traces.push_back(formatted("B|[GFR_BOOST] GFR_IOCTL bl=%d hr=%d bf=%d, [id: 9]",
                                               level, 100 + level, 500 + level));
                    requests.push_back(
                            formatted("%d %d %d %d", level, 100 + level, 500 + level, gettid()));
                    if (!fault.empty()) lines.push_back(formatted(fault.c_str(), fd));
                } else {
                    traces.push_back("B|frame hint");
                    const std::string boost = formatted("Boost hint: %d, [id: 9]", level);
                    if (level != 0) traces.insert(traces.end(), {"B|" + boost, "E"});
                    if (level != 0) lines.push_back("3 " + boost);
                    calls.push_back(formatted("perf_event 4186 %d %d%s BP", level, 100 + level,
                                              level == 5 ? "" : " pkg"));
                }
                traces.push_back("E");
            }
        });
        for (const auto& r : BoostDevice::requests()) {
            made.push_back(formatted("%d %d %d %lu", r.level, r.headroomNs, r.freqMHz, r.threadId));
        }
        EXPECT_EQ(requests, made);
        EXPECT_EQ(traces, events);
        EXPECT_EQ(calls, callsMade());
        EXPECT_EQ(lines, takeLog(log));
        EXPECT_EQ(1, BoostDevice::openCount());
        delete &proxy;
    }
}

TEST(BoostTest, OneLowLatencyLockAndAWorkerThatKeepsTheClock) {
    const Simulation simulation(kStart);
    ASSERT_TRUE(PerfService::install());
    PerfProxy& proxy = *PerfProxy::getInstance();
    callsMade();
    // One that the service refuses is not released; who holds which is the registry's to say.
    for (const bool isRefused : {true, false}) {
        PerfService::refuseLocks(isRefused);
        proxy.setLowLatency(7, true);
        proxy.setLowLatency(7, false);
        Simulation::settle();
    }
    EXPECT_EQ((Strings{"perf_lock_acq 0 0 1087176704 7 BP", "perf_lock_acq 0 0 1087176704 7 BP",
                       "perf_lock_rel 1 BP"}),
              callsMade());
    std::atomic<nsecs_t> ran = 0;
    EXPECT_NE(0u, proxy.postTaskDelayed(5'000, [&] { ran = Simulation::now(); }));
    Simulation::advance(6'000);
    EXPECT_EQ(kStart + 5'000, ran);
    expectFramePathScheduling("BP");
}

TEST(BoostTest, TheWorkerStartsStopsOrFails) {
    const Simulation simulation(kStart);
    ASSERT_TRUE(PerfService::install());
    BoostDevice::enable();
    delete PerfProxy::getInstance();
    const size_t open = openDescriptors();
    for (const bool failsThread : {true, false}) {
        LogCapture log;
        {
            const ScopedDescriptorLimit limit(failsThread ? 100 : 2);
            failThreadCreation(failsThread ? 1 : 0);
            PerfProxy::getInstance();
        }
        PerfProxy& proxy = *PerfProxy::getInstance();
        EXPECT_EQ(open, openDescriptors()) << "a queue without a worker is let go";
        EXPECT_EQ(failsThread ? Strings{"6 BoostThread Creation Failed"} : Strings{}, takeLog(log));
        callsMade();
        BoostDevice::clear();
        proxy.frameHint(5, 1, 9, "pkg", 0);
        proxy.frameHint(2, 1, 9, "pkg", 0);
        EXPECT_EQ(1u, BoostDevice::requests().size());
        EXPECT_EQ(0u, proxy.postTask([] {}));

        std::atomic<int> begun{0}, ended{0};
        const auto task = [&] {
            ++begun;
            Simulation::sleepFor(kMs);  // a stop would be through
            ++ended;
        };
        for (int i = 0; i < 2; ++i) {
            proxy.startBoostThread();
            proxy.startBoostThread();
            EXPECT_NE(0u, proxy.postTask(task));
            EXPECT_NE(0u, proxy.postTaskDelayed(9 * kMs, task));
            Simulation::settle();
            proxy.stopBoostThread();
            proxy.stopBoostThread();
            EXPECT_EQ(1 + i, begun) << "what is not due is lost";
            EXPECT_EQ(1 + i, ended) << "stopping waits for the one that runs";
            EXPECT_EQ(0u, proxy.postTask(task));
        }
        Simulation::advance(20 * kMs);
        EXPECT_EQ(2, begun);
        EXPECT_EQ(Strings{}, callsMade()) << "what was posted without a worker is lost";
        delete &proxy;
        EXPECT_EQ(open, openDescriptors()) << "destruction undoes everything";
    }
}

TEST(TraceTest, TracesAndLogsAsFarAsItIsAllowedTo) {
    const Simulation simulation(kStart);
    LogCapture log;
    const std::string text(300, 'x');
    const std::string cut = text.substr(0, 255);
    const std::string hostile = "com.a%n %s%%%n 50%% % 100%%%";
    const Strings all = {"B|begin",  "E", "S|async|7", "F|async|7", "B|name",       "E",
                         "B|" + cut, "E", "B|" + cut,  "E",         "B|" + hostile, "E",
                         "B|" + cut, "E"};
    for (const auto& [isDebug, isProfile] :
         {std::pair(false, false), {false, true}, {true, false}, {true, true}}) {
        PerfProxy::setDebuggable(isDebug, isProfile);
        EXPECT_EQ(isDebug && isProfile, PerfProxy::isProfileable());
        const auto events = tracedEvents([&] {
            PerfProxy::VLOGD("Corvane", "line %d", 1);
            PerfProxy::VTRACE_BEGIN("begin");
            PerfProxy::VTRACE_END();
            PerfProxy::VTRACE_ASYNC_BEGIN("async", 7);
            PerfProxy::VTRACE_ASYNC_END("async", 7);
            PerfProxy::VTRACE_NAME("name");
            PerfProxy::VTRACE_FORMAT("%s", text.c_str());
            PerfProxy::VTRACE_PROFILE("%s", text.c_str());
            PerfProxy::VTRACE_PROFILE("%s", hostile.c_str());
            TraceSection::formatted("%s", text.c_str());
        });
        EXPECT_EQ(isDebug ? all : Strings{}, events);
        // Only "%%" is taken for a format, as whoever reads the log knows it.
        Strings lines = {"3 line 1", "3 " + cut, "3 com.a%n %s%%n 50% % 100%%"};
        lines.resize(isDebug ? (isProfile ? 3 : 1) : 0);
        EXPECT_EQ(lines, takeLog(log));
    }
}

}  // namespace
}  // namespace android
