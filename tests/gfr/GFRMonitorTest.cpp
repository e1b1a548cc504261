// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <android-base/properties.h>
#include <android/log.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <fstream>
#include <functional>
#include <limits>
#include <thread>

#include "TracedEvents.h"
#include "corvane/host/Clock.h"
#include "corvane/host/Devices.h"
#include "corvane/host/LogCapture.h"
#include "corvane/host/PerfService.h"
#include "corvane/host/Threads.h"
#include "features/FeatureManager.h"
#include "gfr/GFRMonitor.h"

namespace android {
namespace {

using corvane::host::BoostDevice;
using corvane::host::LogCapture;
using corvane::host::PerfService;

constexpr nsecs_t kMs = 1'000'000;
constexpr nsecs_t kStart = 1000 * kMs;
constexpr nsecs_t kPeriod = 10 * kMs;
constexpr nsecs_t kFrameTime = 4 * kMs;
constexpr nsecs_t kJankHeadroom = 7 * kMs;  // the frame's deadline is 17 ms after its begin
constexpr int kLayer = 7;
constexpr char kLayerName[] = "Game %n%s";
constexpr char kPackage[] = "com.example.game";
constexpr nsecs_t kNone = -1;  // no check is pending
constexpr nsecs_t kMaxNs = std::numeric_limits<nsecs_t>::max();
constexpr nsecs_t kMinNs = std::numeric_limits<nsecs_t>::min();

// A running monitor on the driven clock, its one layer active, with all messages on.
class MonitorTest : public testing::Test {
  protected:
    void SetUp() override {
        BoostDevice::enable();
        ASSERT_TRUE(PerfService::install());
        base::SetProperty("vendor.perf.corvane.debug", "1");
        base::SetProperty("vendor.perf.corvane.profile", "1");
        FeatureManager::getInstance();  // reads the properties
        ASSERT_TRUE(monitor.init());
        monitor.setVsyncInfo(kPeriod, 90);
        addLayer();
    }

    void addLayer() {
        monitor.registerLayer(kLayer, kLayerName, kPackage);
        monitor.setGFRActive(kLayer, true);
    }

    // A frame whose buffer was queued at once; returns when its first check is due.
    nsecs_t queueFrame(float fps = 0.0f) {
        monitor.onQueueBegin(kLayer, clock.now(), kFrameTime, kJankHeadroom);
        monitor.onQueueEnd(kLayer, clock.now(), fps);
        return clock.nextDeadline();
    }

    // Moves the clock from check to check, each of which must be due then. The last time is that of
    // the check that stays pending.
    void runChecks(const std::vector<nsecs_t>& times) {
        ASSERT_EQ(times[0], clock.nextDeadline());
        for (size_t i = 0; i + 1 < times.size(); ++i) {
            const size_t hintsBefore = BoostDevice::requests().size();
            clock.advanceTo(times[i]);
            if (times[i + 1] == kNone) {
                ASSERT_TRUE(BoostDevice::waitForRequests(hintsBefore + 1));
            }
            waitForCheck(times[i + 1]);
        }
    }

    // Waits until a check is pending for `time`, and the one before it is done.
    void waitForCheck(nsecs_t time) {
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (clock.nextDeadline() != time && std::chrono::steady_clock::now() < limit) {
            std::this_thread::yield();
        }
        monitor.unregisterLayer(-1);  // a running check lets go of the monitor's lock last
        ASSERT_EQ(time, clock.nextDeadline());
    }

    // How many frames of the layer are told as finished while `action` runs.
    static int finishedFrames(const std::string& layerName, const std::function<void()>& action) {
        const auto events = tracedEvents(action);
        return static_cast<int>(
                std::count(events.begin(), events.end(), "B|frame finish, [" + layerName + "]"));
    }

    // The device's requests as level, headroom and frequency; those asked for before are forgotten.
    using Hints = std::vector<std::vector<nsecs_t>>;
    static Hints takeHints() {
        Hints hints;
        for (const auto& r : BoostDevice::requests()) {
            hints.push_back({r.level, r.headroomNs, r.freqMHz});
        }
        BoostDevice::clear();
        return hints;
    }

    const Hints release = {{0, kFrameTime, 0}};
    corvane::host::DrivenClock clock{kStart};
    LogCapture log;
    GFRMonitor monitor;
    GfrTunables tunables;
};

// Level by level

TEST_F(MonitorTest, ALateFrameIsBoostedInStagesAndReleasedByTheNext) {
    queueFrame();
    runChecks({kStart + 13 * kMs, kStart + 16 * kMs, kStart + 19 * kMs, kNone});
    for (const auto& request : BoostDevice::requests()) {
        std::string name;
        std::ifstream("/proc/self/task/" + std::to_string(request.threadId) + "/comm") >> name;
        EXPECT_EQ("BLT", name);
    }
    EXPECT_EQ((Hints{{1, kJankHeadroom, 500}, {2, kJankHeadroom, 800}, {3, kJankHeadroom, 3000}}),
              takeHints());
    queueFrame();
    EXPECT_EQ(release, takeHints());

    // In time: the next begin cancels the check.
    clock.advance(13 * kMs - 1);
    monitor.onQueueBegin(kLayer, clock.now(), kFrameTime, kJankHeadroom);
    EXPECT_EQ(kNone, clock.nextDeadline());
    // A queue end that is reported twice moves the check, it does not add one.
    const nsecs_t begin = clock.now();
    monitor.onQueueEnd(kLayer, begin, 0.0f);
    monitor.onQueueEnd(kLayer, begin + kMs, 0.0f);
    runChecks({begin + 14 * kMs, begin + 17 * kMs});
    EXPECT_EQ(1u, takeHints().size());
}

TEST_F(MonitorTest, OwnRateSetsTheDeadlines) {
    const nsecs_t due = kStart + 32'499'998;  // 1.3 x 25 ms, in float
    EXPECT_EQ(due, queueFrame(40.0f));
    // The next begin returns to the display's period; a rate that close to none stays there.
    EXPECT_EQ(kStart + 13 * kMs, queueFrame(0.01f));
    // A new display period counts from the next frame on.
    monitor.setVsyncInfo(2 * kPeriod, 45);
    EXPECT_EQ(kStart + 13 * kMs, clock.nextDeadline());
    EXPECT_EQ(kStart + 26 * kMs, queueFrame());
    // Rates count as the same up to a hundredth of a frame per second apart.
    const auto dueAt = [this](float fps) {
        monitor.onQueueEnd(kLayer, kStart, fps);
        return clock.nextDeadline();
    };
    EXPECT_EQ(due, dueAt(40.0f));
    EXPECT_EQ(due, dueAt(40.008f));
    EXPECT_GT(due, dueAt(40.012f));
    // New tunables keep the layer's rate: the levels are 0.4 x 25 ms apart.
    dueAt(40.0f);
    tunables.jankThresholds = {1.3f, 1.7f, 1.9f};
    monitor.updateLayerTunables(kLayer, tunables);
    runChecks({due, due + 10'000'002});
}

TEST_F(MonitorTest, DynamicTunablesMoveTheFirstCheckAndComputeTheBoost) {
    tunables.dynamic = true;
    monitor.updateLayerTunables(kLayer, tunables);
    queueFrame();
    // 11 ms after queue end the golden budget of 6 ms is left: twice the base. Then 3 ms are left:
    // two and a half times. The last level asks for its base.
    runChecks({kStart + 11 * kMs, kStart + 14 * kMs, kStart + 17 * kMs, kNone});
    EXPECT_EQ((Hints{{1, kJankHeadroom, 1000}, {2, kJankHeadroom, 2000}, {3, kJankHeadroom, 3000}}),
              takeHints());

    // Drops enlarge the boost, and a passed deadline keeps it.
    tunables.histJank = true;
    tunables.baseFreq = {600, 100, 3000};
    monitor.updateLayerTunables(kLayer, tunables);
    monitor.updateFrameDropWindow(kLayer, 3);
    monitor.updateFrameDropWindow(kLayer + 1, 10);  // another layer's
    const nsecs_t begin = clock.now();
    queueFrame();
    runChecks({begin + 11 * kMs, begin + 14 * kMs});
    clock.advanceTo(begin + 18 * kMs);  // 1 ms too late
    waitForCheck(begin + 21 * kMs);
    EXPECT_EQ((Hints{{0, kFrameTime, 0}, {1, kJankHeadroom, 1800}, {2, kJankHeadroom, 1800}}),
              takeHints());
    monitor.updateLayerTunables(kLayer, GfrTunables{});
    EXPECT_EQ(clock.now() + 13 * kMs, queueFrame());
}

TEST_F(MonitorTest, ResendFlagReportsAChangedFrameTime) {
    const struct {
        int32_t flag;
        nsecs_t frameTime;
        size_t hints;  // the variation of 0.2 periods makes the threshold 2 ms
    } steps[] = {{0, 9 * kMs, 0}, {2, 11 * kMs, 0}, {2, 9 * kMs - 1, 1}, {1, 20 * kMs, 0},
                 {2, kMinNs, 1},  {2, kMaxNs, 1},   {2, kMaxNs, 0}};
    for (const auto& step : steps) {
        tunables.flag = step.flag;
        monitor.updateLayerTunables(kLayer, tunables);
        monitor.onQueueBegin(kLayer, clock.now(), step.frameTime, kJankHeadroom);
        EXPECT_EQ(step.hints, takeHints().size()) << step.flag << ' ' << step.frameTime;
    }
}

TEST_F(MonitorTest, TunablesDecideTheLevelsAndTheirFrequencies) {
    FeatureManager::getInstance()->setGFRProp("1.4;1.7", {1});  // for all packages
    addLayer();
    EXPECT_EQ(kStart + 14 * kMs, queueFrame());

    GfrTunables none;
    none.jankThresholds = {};
    none.dynamic = true;
    monitor.updateLayerTunables(kLayer, none);
    EXPECT_EQ(kNone, queueFrame());

    tunables.jankThresholds = {1.5f, 2.0f};
    tunables.baseFreq = {};
    monitor.updateLayerTunables(kLayer, tunables);
    queueFrame();
    runChecks({kStart + 15 * kMs, kStart + 20 * kMs, kNone});
    // Taken away while a check is pending: its level is still sent, and no further one follows.
    queueFrame();
    monitor.updateLayerTunables(kLayer, none);
    runChecks({kStart + 35 * kMs, kNone});
    EXPECT_EQ((Hints{{1, kJankHeadroom, 0},
                     {2, kJankHeadroom, 0},
                     {0, kFrameTime, 0},
                     {1, kJankHeadroom, 500}}),
              takeHints());
}

TEST_F(MonitorTest, NothingIsCheckedWithoutAPeriod) {
    for (nsecs_t period : {nsecs_t{-1}, nsecs_t{0}, kMinNs}) {
        monitor.setVsyncInfo(period, 0);
        addLayer();
        EXPECT_EQ(kNone, queueFrame()) << period;
        monitor.updateLayerTunables(kLayer, tunables);
        EXPECT_EQ(kNone, queueFrame()) << period;
    }
    // The layer's own rate is a period too.
    queueFrame(100.0f);
    runChecks({kStart + 13 * kMs, kStart + 16 * kMs});
    EXPECT_EQ(1u, takeHints().size());
}

TEST_F(MonitorTest, TimesAtTheEndsOfTheirRangeDoNotOverflow) {
    tunables.dynamic = true;
    tunables.flag = 2;
    for (nsecs_t a : {kMinNs, nsecs_t{-1}, nsecs_t{1}, kMaxNs}) {
        for (nsecs_t b : {kMinNs, nsecs_t{-1}, nsecs_t{1}, kMaxNs}) {
            monitor.setVsyncInfo(a, 0);
            monitor.updateLayerTunables(kLayer, tunables);
            monitor.onQueueBegin(kLayer, a, b, a);
            monitor.onQueueEnd(kLayer, b, 0.0f);
            monitor.onQueueEnd(kLayer, a, std::numeric_limits<float>::infinity());
            monitor.onQueueEnd(kLayer, a, std::numeric_limits<float>::denorm_min());
        }
    }
    clock.advance(kMs);
    monitor.forceStop();
}

// Layers come and go

TEST_F(MonitorTest, ACheckDiesWithItsRegistration) {
    queueFrame();
    monitor.setGFRActive(kLayer, false);
    EXPECT_EQ(kNone, clock.nextDeadline());
    EXPECT_EQ(kNone, queueFrame());
    monitor.setGFRActive(kLayer, true);
    EXPECT_EQ(kNone, clock.nextDeadline());

    EXPECT_EQ(kStart + 13 * kMs, queueFrame());
    monitor.unregisterLayer(kLayer);
    EXPECT_EQ(kNone, clock.nextDeadline());
    monitor.setGFRActive(kLayer, true);
    monitor.updateLayerTunables(kLayer, tunables);
    monitor.updateFrameDropWindow(kLayer, 1);
    EXPECT_EQ(kNone, queueFrame());
}

// Nobody cancels the check of a record that is replaced.
TEST_F(MonitorTest, AReplacedRecordsCheckSendsNothing) {
    queueFrame();
    monitor.registerLayer(kLayer, "again", kPackage);
    clock.advance(kMs);
    EXPECT_EQ(kStart + 13 * kMs, queueFrame());  // registered anew, so not active yet
    monitor.setGFRActive(kLayer, true);
    queueFrame();
    EXPECT_EQ(1, finishedFrames("again", [this] {
                  runChecks({kStart + 13 * kMs, kStart + 14 * kMs});
              }));
    EXPECT_EQ(Hints{}, takeHints());

    // Not even when the new record's frame began in the same nanosecond.
    addLayer();
    queueFrame();
    addLayer();
    queueFrame();
    runChecks({kStart + 14 * kMs, kStart + 26 * kMs, kStart + 29 * kMs, kStart + 32 * kMs});
    EXPECT_EQ((Hints{{1, kJankHeadroom, 500}, {2, kJankHeadroom, 800}}), takeHints());
}

TEST_F(MonitorTest, StopsAndStartsAgainOrFailsTo) {
    queueFrame();
    monitor.forceStop();
    EXPECT_EQ(kNone, clock.nextDeadline());
    monitor.forceStop();

    corvane::host::failThreadCreation(1);
    EXPECT_FALSE(monitor.init());
    EXPECT_EQ(1u, log.count("Failed to create GFRMonitor thread"));
    rlimit saved;
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &saved));
    const rlimit none{0, saved.rlim_max};
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &none));
    const bool initialized = monitor.init();
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &saved));
    EXPECT_FALSE(initialized);
    addLayer();
    EXPECT_EQ(kNone, queueFrame());

    // The layer that was registered meanwhile is rescued from its next frame on.
    ASSERT_TRUE(monitor.init());
    EXPECT_TRUE(monitor.init());
    queueFrame();
    runChecks({kStart + 13 * kMs, kStart + 16 * kMs});
    monitor.forceStop();
    ASSERT_TRUE(monitor.init());
    monitor.setGFRActive(kLayer, true);  // forgotten
    EXPECT_EQ(kNone, queueFrame());
}

TEST_F(MonitorTest, ChecksGoOnWithoutADevice) {
    BoostDevice::disable();
    queueFrame();
    runChecks({kStart + 13 * kMs, kStart + 16 * kMs, kStart + 19 * kMs});
}

// What the service and the developer get to see

TEST_F(MonitorTest, MessagesAreThoseOfEachOperation) {
    BoostDevice::disable();
    tunables.dynamic = true;
    tunables.lowerBoost = true;
    tunables.baseFreq = {500, 800};
    monitor.updateLayerTunables(kLayer, tunables);
    queueFrame();
    monitor.updateFrameDropWindow(kLayer, 2);
    monitor.updateFrameDropWindow(kLayer, 12);
    runChecks({kStart + 11 * kMs, kStart + 14 * kMs, kStart + 17 * kMs});
    clock.advanceTo(kStart + 17 * kMs);
    // The worker runs tasks of the same time in any order.
    ASSERT_TRUE(PerfService::waitForCalls("perf_event", 4186, 3));
    clock.advance(1);
    // Two of the frames in time are seen to end by the next.
    EXPECT_EQ(2, finishedFrames(kLayerName, [this] {
                  for (int i = 0; i < 3; ++i) {
                      monitor.onQueueBegin(kLayer, clock.now(), kFrameTime, 0);
                      monitor.onQueueEnd(kLayer, clock.now(), 0.0f);
                  }
              }));
    monitor.setGFRActive(kLayer, false);
    monitor.setGFRActive(kLayer + 1, false);  // unknown: nothing
    monitor.unregisterLayer(kLayer + 1);      // unknown: told
    monitor.forceStop();

    ASSERT_TRUE(PerfService::waitForCalls("perf_event", 4186, 4));
    const auto calls = PerfService::calls("perf_event", 4186);
    EXPECT_EQ((std::vector<int>{1, static_cast<int>(kJankHeadroom)}), calls[0].args);
    EXPECT_EQ((std::vector<int>{0, static_cast<int>(kFrameTime)}), calls[3].args);
    EXPECT_EQ(kPackage, calls[3].package);

    std::vector<std::string> texts;
    for (const auto& line : log.lines()) texts.push_back(line.tag + ": " + line.text);
    for (const char* expected :
         {"Corvane.GFRMonitor: GFR Layer 7 (Game %n%s): dynamic=false "
          "allowSkipOrLower=false golden=0.60vsync K=1.00 baseFreq=500;800;3000",
          "Corvane.GFRMonitor: GFRMonitor thread started",
          "Corvane.GFRMonitor: updateLayerTunables layer 7: dynamic=1 lowerBoost=1 "
          "golden=0.60vsync K=1.00 baseFreq=500;800;0",
          "Corvane.GFRMonitor: Layer 7 enable GFR",
          "Corvane: frameTime = 4000000, frameHeadroom = 6000000, jankHeadroom = 7000000, "
          "[Game %n%s]",
          "Corvane: [GFR2.0] L0 timer adjusted: delayTime=11000000ns",
          "Corvane: [FrameDrop] drops64=2/64, drops32=2/32, drops16=2/16, current=2 frames",
          "Corvane: [FrameDrop] Extreme drop detected (12 frames), reset window",
          "Corvane: [GFR2.0] L0: ttd=6000000ns base=500 MHz final_freq=800 MHz flags=0x118",
          "Corvane: [GFR2.0] L1: ttd=3000000ns base=800 MHz final_freq=800 MHz flags=0x108",
          "Corvane: [GFR2.0] L2: ttd=0ns base=0 MHz final_freq=0 MHz flags=0x200",
          "Corvane.GFRMonitor: Layer 7 disable GFR",
          "Corvane.GFRMonitor: GFR: Unregistered layer 8",
          "Corvane.GFRMonitor: GFRMonitor thread exited",
          "Corvane.GFRMonitor: GFRMonitor stopped"}) {
        EXPECT_EQ(1, std::count(texts.begin(), texts.end(), expected)) << expected;
    }
    EXPECT_EQ(0u, log.count("Layer 8 "));
}

}  // namespace
}  // namespace android
