// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <android-base/properties.h>
#include <android/log.h>
#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <functional>
#include <limits>

#include "MonitorFixture.h"
#include "TracedEvents.h"
#include "corvane/host/LogCapture.h"
#include "corvane/host/PerfService.h"
#include "corvane/host/Threads.h"
#include "features/FeatureManager.h"
#include "gfr/GFRMonitor.h"
#include "perf/PerfProxy.h"

namespace android {
namespace {

using corvane::host::BoostDevice;
using corvane::host::LogCapture;
using corvane::host::PerfService;

constexpr nsecs_t kMaxNs = std::numeric_limits<nsecs_t>::max();
constexpr nsecs_t kMinNs = std::numeric_limits<nsecs_t>::min();

// How many frames of the layer are told as finished while `action` runs.
int finishedFrames(const std::string& layerName, const std::function<void()>& action) {
    PerfProxy::setDebuggable(true, false);
    const std::vector<std::string> events = tracedEvents(action);
    return static_cast<int>(
            std::count(events.begin(), events.end(), "B|frame finish, [" + layerName + "]"));
}

// Level by level

TEST_F(MonitorTest, ALateFrameIsBoostedInStagesAndReleasedByTheNext) {
    queueFrame();
    runCheckDueAt(kStart + 13 * kMs, kStart + 16 * kMs);
    runCheckDueAt(kStart + 16 * kMs, kStart + 19 * kMs);
    runLastCheckDueAt(kStart + 19 * kMs);

    const std::vector<Hint> boosts = {{1, kJankHeadroom, 500},
                                      {2, kJankHeadroom, 800},
                                      {3, kJankHeadroom, 3000}};
    EXPECT_EQ(boosts, hints());
    for (const auto& request : BoostDevice::requests()) {
        std::string name;
        std::ifstream("/proc/self/task/" + std::to_string(request.threadId) + "/comm") >> name;
        EXPECT_EQ("BLT", name);
    }

    BoostDevice::clear();
    clock.advance(kMs);
    queueFrame();
    EXPECT_EQ(std::vector<Hint>{kRelease}, hints());
    clock.advance(kMs);
    queueFrame();
    EXPECT_EQ(1u, hints().size());
}

TEST_F(MonitorTest, AFrameThatEndsInTimeIsLeftAlone) {
    queueFrame();
    clock.advance(13 * kMs - 1);
    monitor.onQueueBegin(kLayer, clock.now(), kFrameTime, kJankHeadroom);
    EXPECT_EQ(-1, clock.nextDeadline());
    monitor.onQueueEnd(kLayer, clock.now(), 0.0f);
    EXPECT_EQ(kStart + 26 * kMs - 1, clock.nextDeadline());
    // A queue end that is reported twice moves the check, it does not add one.
    clock.advance(kMs);
    monitor.onQueueEnd(kLayer, clock.now(), 0.0f);
    EXPECT_EQ(kStart + 27 * kMs - 1, clock.nextDeadline());
    runCheckDueAt(kStart + 27 * kMs - 1, kStart + 30 * kMs - 1);
    EXPECT_EQ(1u, hints().size());
}

TEST_F(MonitorTest, OwnRateSetsTheDeadlines) {
    queueFrame(40.0f);
    // 1.3 x 25 ms, in float.
    EXPECT_EQ(kStart + 32'499'998, clock.nextDeadline());
    // The next begin returns to the display's period; a rate that close to none stays there.
    queueFrame(0.01f);
    EXPECT_EQ(kStart + 13 * kMs, clock.nextDeadline());
    queueFrame(0.5f);
    EXPECT_EQ(kStart + static_cast<nsecs_t>(1.3f * 2e9f), clock.nextDeadline());
    queueFrame();
    // A new display period counts from the next frame on.
    monitor.setVsyncInfo(2 * kPeriod, 45);
    EXPECT_EQ(kStart + 13 * kMs, clock.nextDeadline());
    queueFrame();
    EXPECT_EQ(kStart + 26 * kMs, clock.nextDeadline());
    // Rates count as the same up to a hundredth of a frame per second apart.
    const auto dueAt = [this](float fps) {
        monitor.onQueueEnd(kLayer, kStart, fps);
        return clock.nextDeadline();
    };
    const nsecs_t due = kStart + 32'499'998;
    EXPECT_EQ(due, dueAt(40.0f));
    EXPECT_EQ(due, dueAt(40.008f));
    EXPECT_GT(due, dueAt(40.012f));
    // New tunables keep the layer's rate: the levels are 0.4 x 25 ms apart.
    dueAt(40.0f);
    GfrTunables tunables;
    tunables.jankThresholds = {1.3f, 1.7f, 1.9f};
    monitor.updateLayerTunables(kLayer, tunables);
    clock.advanceTo(due);
    waitForDeadline(due + 10'000'002);
}

TEST_F(MonitorTest, DynamicTunablesMoveTheFirstCheckAndComputeTheBoost) {
    GfrTunables tunables;
    tunables.dynamic = true;
    monitor.updateLayerTunables(kLayer, tunables);
    queueFrame();
    // 11 ms after queue end the golden budget of 6 ms is left: twice the base. Then 3 ms are left:
    // two and a half times. The last level asks for its base.
    runCheckDueAt(kStart + 11 * kMs, kStart + 14 * kMs);
    runCheckDueAt(kStart + 14 * kMs, kStart + 17 * kMs);
    runLastCheckDueAt(kStart + 17 * kMs);
    const std::vector<Hint> boosts = {{1, kJankHeadroom, 1000},
                                      {2, kJankHeadroom, 2000},
                                      {3, kJankHeadroom, 3000}};
    EXPECT_EQ(boosts, hints());

    monitor.updateLayerTunables(kLayer, GfrTunables{});
    queueFrame();
    EXPECT_EQ(clock.now() + 13 * kMs, clock.nextDeadline());
}

TEST_F(MonitorTest, PassedDeadlineKeepsTheLastBoost) {
    GfrTunables tunables;
    tunables.dynamic = true;
    tunables.baseFreq = {900, 100, 3000};
    monitor.updateLayerTunables(kLayer, tunables);
    queueFrame();
    runCheckDueAt(kStart + 11 * kMs, kStart + 14 * kMs);
    clock.advanceTo(kStart + 18 * kMs);
    waitForDeadline(kStart + 21 * kMs);
    const std::vector<Hint> boosts = {{1, kJankHeadroom, 1800}, {2, kJankHeadroom, 1800}};
    EXPECT_EQ(boosts, hints());
}

TEST_F(MonitorTest, DropHistoryEnlargesTheBoost) {
    GfrTunables tunables;
    tunables.dynamic = true;
    tunables.histJank = true;
    monitor.updateLayerTunables(kLayer, tunables);
    monitor.updateFrameDropWindow(kLayer, 3);
    monitor.updateFrameDropWindow(kLayer + 1, 10);  // another layer's
    queueFrame();
    runCheckDueAt(kStart + 11 * kMs, kStart + 14 * kMs);
    EXPECT_EQ((std::vector<Hint>{{1, kJankHeadroom, 1500}}), hints());
}

TEST_F(MonitorTest, ResendFlagReportsAChangedFrameTime) {
    const struct {
        int32_t flag;
        nsecs_t frameTime;
        size_t expected;  // releases so far; the variation of 0.2 periods makes the threshold 2 ms
    } steps[] = {{0, 9 * kMs, 0},      {2, 9 * kMs, 0}, {2, 11 * kMs, 0},
                 {2, 11 * kMs + 1, 0}, {2, 9 * kMs, 1}, {1, 20 * kMs, 1},
                 {2, kMinNs, 2},       {2, kMaxNs, 3},  {2, kMaxNs, 3}};
    for (const auto& step : steps) {
        GfrTunables tunables;
        tunables.flag = step.flag;
        monitor.updateLayerTunables(kLayer, tunables);
        monitor.onQueueBegin(kLayer, clock.now(), step.frameTime, kJankHeadroom);
        EXPECT_EQ(step.expected, hints().size()) << step.flag << ' ' << step.frameTime;
    }
}

TEST_F(MonitorTest, TunablesDecideTheLevelsAndTheirFrequencies) {
    FeatureManager::getInstance()->setGFRProp("1.4;1.7", {1});  // for all packages
    addLayer();
    queueFrame();
    EXPECT_EQ(kStart + 14 * kMs, clock.nextDeadline());

    GfrTunables tunables;
    tunables.jankThresholds = {1.5f, 2.0f};
    tunables.baseFreq = {};
    monitor.updateLayerTunables(kLayer, tunables);
    queueFrame();
    runCheckDueAt(kStart + 15 * kMs, kStart + 20 * kMs);
    runLastCheckDueAt(kStart + 20 * kMs);
    EXPECT_EQ((std::vector<Hint>{{1, kJankHeadroom, 0}, {2, kJankHeadroom, 0}}), hints());

    tunables.jankThresholds.clear();
    monitor.updateLayerTunables(kLayer, tunables);
    queueFrame();
    EXPECT_EQ(-1, clock.nextDeadline());

    // Taken away while a check is pending: its level is still sent, and no further one follows.
    tunables.jankThresholds = {1.5f, 2.0f};
    monitor.updateLayerTunables(kLayer, tunables);
    BoostDevice::clear();
    const nsecs_t begin = clock.now();
    monitor.onQueueBegin(kLayer, begin, kFrameTime, kJankHeadroom);
    monitor.onQueueEnd(kLayer, begin, 0.0f);
    tunables.jankThresholds.clear();
    tunables.dynamic = true;
    monitor.updateLayerTunables(kLayer, tunables);
    runLastCheckDueAt(begin + 15 * kMs);
    EXPECT_EQ((std::vector<Hint>{{1, kJankHeadroom, 0}}), hints());
}

// Layers come and go

TEST_F(MonitorTest, ACheckDiesWithItsRegistration) {
    const auto pend = [this] {
        queueFrame();
        ASSERT_EQ(kStart + 13 * kMs, clock.nextDeadline());
    };
    pend();
    monitor.setGFRActive(kLayer, false);
    EXPECT_EQ(-1, clock.nextDeadline());
    queueFrame();
    EXPECT_EQ(-1, clock.nextDeadline());
    monitor.setGFRActive(kLayer, true);
    EXPECT_EQ(-1, clock.nextDeadline());

    pend();
    monitor.unregisterLayer(kLayer);
    EXPECT_EQ(-1, clock.nextDeadline());
    queueFrame();
    monitor.setGFRActive(kLayer, true);
    monitor.updateLayerTunables(kLayer, GfrTunables{});
    monitor.updateFrameDropWindow(kLayer, 1);
    EXPECT_EQ(-1, clock.nextDeadline());
    EXPECT_TRUE(hints().empty());
}

// Nobody cancels the check of a record that is replaced.
TEST_F(MonitorTest, AReplacedRecordsCheckSendsNothing) {
    queueFrame();
    monitor.registerLayer(kLayer, "again", kPackage);
    clock.advance(kMs);
    queueFrame();  // registered anew, so not active yet
    EXPECT_EQ(kStart + 13 * kMs, clock.nextDeadline());
    monitor.setGFRActive(kLayer, true);
    queueFrame();
    EXPECT_EQ(1, finishedFrames("again",
                                [this] { runCheckDueAt(kStart + 13 * kMs, kStart + 14 * kMs); }));
    EXPECT_TRUE(hints().empty());

    // Not even when the new record's frame began in the same nanosecond.
    addLayer();
    queueFrame();
    addLayer();
    queueFrame();
    runCheckDueAt(kStart + 14 * kMs, kStart + 26 * kMs);
    runCheckDueAt(kStart + 26 * kMs, kStart + 29 * kMs);
    runCheckDueAt(kStart + 29 * kMs, kStart + 32 * kMs);
    EXPECT_EQ((std::vector<Hint>{{1, kJankHeadroom, 500}, {2, kJankHeadroom, 800}}), hints());
}

TEST_F(MonitorTest, StopsAndStartsAgain) {
    queueFrame();
    monitor.forceStop();
    EXPECT_EQ(-1, clock.nextDeadline());
    monitor.forceStop();
    addLayer();
    queueFrame();
    EXPECT_EQ(-1, clock.nextDeadline());

    // The layer that was registered meanwhile is rescued from its next frame on.
    ASSERT_TRUE(monitor.init());
    EXPECT_TRUE(monitor.init());
    queueFrame();
    runCheckDueAt(kStart + 13 * kMs, kStart + 16 * kMs);
    monitor.forceStop();
    EXPECT_EQ(1u, hints().size());

    ASSERT_TRUE(monitor.init());
    monitor.setGFRActive(kLayer, true);  // forgotten
    queueFrame();
    EXPECT_EQ(-1, clock.nextDeadline());
}

TEST_F(MonitorTest, StartFailures) {
    monitor.forceStop();
    LogCapture log;
    corvane::host::failThreadCreation(1);
    EXPECT_FALSE(monitor.init());
    EXPECT_EQ(1u, log.count("Failed to create GFRMonitor thread"));
    addLayer();
    queueFrame();
    EXPECT_EQ(-1, clock.nextDeadline());

    rlimit saved;
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &saved));
    const rlimit none{0, saved.rlim_max};
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &none));
    const bool initialized = monitor.init();
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &saved));
    EXPECT_FALSE(initialized);

    ASSERT_TRUE(monitor.init());
    queueFrame();
    runCheckDueAt(kStart + 13 * kMs, kStart + 16 * kMs);
}

// Devices and numbers

class BrokenDevice : public MonitorTest, public testing::WithParamInterface<int> {
  protected:
    void SetUp() override {
        ASSERT_TRUE(PerfService::install());
        MonitorTest::SetUp();
    }
};

TEST_P(BrokenDevice, HintsGoToTheServiceWhenItCannotBeOpened) {
    BoostDevice::failOpen(GetParam());
    queueFrame();
    runCheckDueAt(kStart + 13 * kMs, kStart + 16 * kMs);
    runCheckDueAt(kStart + 16 * kMs, kStart + 19 * kMs);
    clock.advanceTo(kStart + 19 * kMs);
    ASSERT_TRUE(PerfService::waitForCalls("perf_event", 4186, 3));
    settle();
    queueFrame();
    ASSERT_TRUE(PerfService::waitForCalls("perf_event", 4186, 4));
    const auto calls = PerfService::calls("perf_event", 4186);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ((std::vector<int>{i + 1, static_cast<int>(kJankHeadroom)}), calls[i].args);
    }
    EXPECT_EQ((std::vector<int>{0, static_cast<int>(kFrameTime)}), calls[3].args);
    EXPECT_EQ(kPackage, calls[3].package);
    EXPECT_EQ(1, BoostDevice::openCount());
}

TEST_P(BrokenDevice, ChecksGoOnWhenItRefuses) {
    BoostDevice::failIoctl(GetParam());
    queueFrame();
    runCheckDueAt(kStart + 13 * kMs, kStart + 16 * kMs);
    BoostDevice::failIoctl(0);
    runCheckDueAt(kStart + 16 * kMs, kStart + 19 * kMs);
    queueFrame();
    EXPECT_EQ((std::vector<Hint>{{1, kJankHeadroom, 500}, {2, kJankHeadroom, 800}, kRelease}),
              hints());
}

INSTANTIATE_TEST_SUITE_P(Errno, BrokenDevice,
                         testing::Values(ENOENT, EACCES, EBUSY, EINTR, EIO, EMFILE, ENOTTY));

TEST_F(MonitorTest, ChecksGoOnWithNeitherDeviceNorService) {
    BoostDevice::disable();
    queueFrame();
    runCheckDueAt(kStart + 13 * kMs, kStart + 16 * kMs);
    runCheckDueAt(kStart + 16 * kMs, kStart + 19 * kMs);
}

TEST_F(MonitorTest, NothingIsCheckedWithoutAPeriod) {
    for (nsecs_t period : {nsecs_t{-1}, nsecs_t{0}, kMinNs}) {
        monitor.setVsyncInfo(period, 0);
        addLayer();
        queueFrame();
        EXPECT_EQ(-1, clock.nextDeadline()) << period;
        monitor.updateLayerTunables(kLayer, GfrTunables{});
        queueFrame();
        EXPECT_EQ(-1, clock.nextDeadline()) << period;
    }
    // The layer's own rate is a period too.
    queueFrame(100.0f);
    runCheckDueAt(kStart + 13 * kMs, kStart + 16 * kMs);
    EXPECT_EQ(1u, hints().size());
}

TEST_F(MonitorTest, TimesAtTheEndsOfTheirRangeDoNotOverflow) {
    GfrTunables tunables;
    tunables.dynamic = true;
    tunables.flag = 2;
    for (nsecs_t a : {kMinNs, nsecs_t{-1}, nsecs_t{1}, kMaxNs}) {
        for (nsecs_t b : {kMinNs, nsecs_t{-1}, nsecs_t{1}, kMaxNs}) {
            monitor.setVsyncInfo(a, 0);
            monitor.updateLayerTunables(kLayer, tunables);
            monitor.onQueueBegin(kLayer, a, b, a);
            monitor.onQueueEnd(kLayer, b, 0.0f);
            monitor.onQueueEnd(kLayer, a, std::numeric_limits<float>::infinity());
            monitor.onQueueBegin(kLayer, b, a, b);
            monitor.onQueueEnd(kLayer, a, std::numeric_limits<float>::denorm_min());
        }
    }
    clock.advance(kMs);
    monitor.forceStop();
}

// What the developer sees

TEST(GFRMonitorMessages, AreThoseOfEachOperation) {
    ASSERT_TRUE(PerfService::install());
    base::SetProperty("vendor.perf.corvane.debug", "1");
    base::SetProperty("vendor.perf.corvane.profile", "1");
    corvane::host::DrivenClock clock(kStart);
    LogCapture log;
    GFRMonitor monitor;
    GfrTunables tunables;
    tunables.dynamic = true;
    tunables.lowerBoost = true;
    tunables.baseFreq = {500, 800};

    monitor.registerLayer(kLayer, "Game %n%s", kPackage);
    ASSERT_TRUE(monitor.init());
    monitor.setVsyncInfo(kPeriod, 90);
    monitor.updateLayerTunables(kLayer, tunables);
    monitor.setGFRActive(kLayer, true);
    monitor.onQueueBegin(kLayer, kStart, kFrameTime, kJankHeadroom);
    monitor.onQueueEnd(kLayer, kStart, 0.0f);
    monitor.updateFrameDropWindow(kLayer, 2);
    monitor.updateFrameDropWindow(kLayer, 12);
    for (nsecs_t check : {11, 14, 17}) {
        clock.advanceTo(kStart + check * kMs);
        ASSERT_TRUE(log.waitFor("final_freq", static_cast<size_t>(check - 8) / 3));
        monitor.updateFrameDropWindow(-1, 0);  // waits for the check's end
    }
    // Three frames in time, of which two are seen to end by the next.
    EXPECT_EQ(2, finishedFrames("Game %n%s", [&] {
                  for (int i = 0; i < 3; ++i) {
                      monitor.onQueueBegin(kLayer, clock.now(), 0, 0);
                      monitor.onQueueEnd(kLayer, clock.now(), 0.0f);
                  }
              }));
    monitor.setGFRActive(kLayer, false);
    monitor.setGFRActive(kLayer + 1, false);  // unknown: nothing
    monitor.unregisterLayer(kLayer + 1);      // unknown: told
    monitor.forceStop();

    std::vector<std::string> texts;
    for (const auto& line : log.lines()) {
        if (line.tag == "Corvane.GFRMonitor") {
            EXPECT_EQ(ANDROID_LOG_DEBUG, line.priority) << line.text;
        }
        texts.push_back(line.tag + ": " + line.text);
    }
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
