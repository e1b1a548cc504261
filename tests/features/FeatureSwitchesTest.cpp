// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <atomic>
#include <ostream>
#include <set>
#include <system_error>
#include <thread>

#include "corvane/host/Properties.h"
#include "corvane/host/Threads.h"
#include "features/FeatureTestEnv.h"
#include "perf/PerfProxy.h"

namespace android {
namespace {

using corvane::host::propertyReads;

constexpr const char* kThreshold = "debug.perf.cpu_big_jank_threshold_ms";

std::set<int> enabledFeatures(const FeatureManager& manager) {
    std::set<int> enabled;
    for (int feature = -1; feature <= GPU_JANK_DETECT + 1; ++feature) {
        if (manager.isFeatureEnabled(static_cast<Feature>(feature))) enabled.insert(feature);
    }
    return enabled;
}

void expectInitialTuning(const FeatureManager& manager) {
    EXPECT_EQ(manager.getTargetFpsSwitchTime(), -1);
    EXPECT_FALSE(manager.isTargetFpsCompensate());
    EXPECT_FALSE(manager.isPHRDynamicEnabled());
    EXPECT_EQ(manager.getGpuMinExecTimeMult(), 1.0f);
    EXPECT_EQ(manager.getCpuBigJankThresholdMs(), 0);
}

class FeatureSwitchesTest : public FeatureTest {
  protected:
    // The registry is not started here; it answers every notification with this line.
    size_t notifications() const { return log.count("LayerManager not initialized"); }
};

TEST_F(FeatureSwitchesTest, DefaultsWithNothingSet) {
    FeatureManager& manager = start({});
    EXPECT_EQ(enabledFeatures(manager), (std::set<int>{CORVANE, FRAME_RESCUE}));
    EXPECT_FALSE(PerfProxy::isProfileable());
    expectInitialTuning(manager);
    EXPECT_EQ(manager.getFrameResendVariation(), 0.2f);
    EXPECT_EQ(manager.getDefaultMaxHeadroomRate(true), 1.8f);
    EXPECT_EQ(manager.getDefaultMaxHeadroomRate(false), 0.9f);
    EXPECT_TRUE(manager.isActvStable());
    // What depends on a switch that is off is not even read.
    for (const char* name : {"vendor.perf.phr.dynamic.enable", "vendor.rdxe.target_fps.switch_time",
                             "vendor.rdxe.target_fps.compensate",
                             "vendor.perf.gpu_jank_filter.min_exec_time_mult", kThreshold}) {
        EXPECT_EQ(propertyReads(name), 0) << name;
    }
    EXPECT_TRUE(log.lines().empty());
}

TEST(FeatureSwitchesWithoutServiceTest, DefaultsWhenNobodyAnswersPropertyReads) {
    ASSERT_TRUE(corvane::host::PerfService::install("missing-perf_get_prop"));
    ASSERT_TRUE(base::SetProperty("vendor.perf.corvane.enable", "0"));
    ASSERT_TRUE(base::SetProperty("vendor.perf.phr.enable", "1"));
    EXPECT_EQ(enabledFeatures(*FeatureManager::getInstance()),
              (std::set<int>{CORVANE, FRAME_RESCUE}));
}

TEST_F(FeatureSwitchesTest, EverythingOn) {
    FeatureManager& manager = start({{"vendor.perf.corvane.debug", "yes"},
                                     {"vendor.perf.corvane.profile", "y"},
                                     {"vendor.perf.phr.enable", "on"},
                                     {"vendor.rdxe.enable.target_fps", "true"},
                                     {"vendor.rdxe.target_fps.switch_time", "12"},
                                     {"vendor.perf.game_frame_rescue.headroom_resend_var", "0.5"},
                                     {"vendor.perf.gpu_jank_detect.enable", "1"},
                                     {"vendor.perf.gpu_jank_filter.min_exec_time_mult", "7"},
                                     {"debug.perf.enable_big_jank_detect", "1"},
                                     {kThreshold, "-5"}});
    EXPECT_EQ(enabledFeatures(manager), (std::set<int>{DEBUG, CORVANE, QUICK_TOUCH, FRAME_RESCUE,
                                                       TARGET_FPS, CPU_BIG_JANK, GPU_JANK_DETECT}));
    EXPECT_TRUE(PerfProxy::isProfileable());
    EXPECT_TRUE(manager.isPHRDynamicEnabled());
    EXPECT_EQ(manager.getTargetFpsSwitchTime(), 12);
    EXPECT_TRUE(manager.isTargetFpsCompensate());
    EXPECT_EQ(manager.getFrameResendVariation(), 0.5f);
    EXPECT_EQ(manager.getGpuMinExecTimeMult(), 7.0f);
    EXPECT_EQ(manager.getCpuBigJankThresholdMs(), -5);
    const std::vector<std::string> lines = takeDebugLines();
    ASSERT_GE(lines.size(), 3u);
    EXPECT_EQ(lines[0], "Target fps switch time is 12 seconds, compensation is 1.");
    EXPECT_EQ(lines[1], "FrameResendVariation: 0.5");
    EXPECT_EQ(lines[2], "[TFPS:1][QuickTouch:1, mPHRDynamicEnable:1][GpuJankDetect:1]");
}

class MasterSwitchTest : public FeatureTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(MasterSwitchTest, OffLeavesTheRestUnread) {
    FeatureManager& manager = start({{"vendor.perf.corvane.enable", GetParam()},
                                     {"vendor.perf.phr.enable", "1"},
                                     {"vendor.rdxe.enable.target_fps", "1"},
                                     {"vendor.perf.gpu_jank_detect.enable", "1"},
                                     {"debug.perf.enable_big_jank_detect", "1"},
                                     {kThreshold, "20"}});
    EXPECT_EQ(enabledFeatures(manager), (std::set<int>{FRAME_RESCUE}));
    expectInitialTuning(manager);
    EXPECT_EQ(manager.getFrameResendVariation(), 0.0f);
    for (const char* name :
         {"vendor.perf.phr.enable", "vendor.rdxe.enable.target_fps",
          "vendor.perf.game_frame_rescue.headroom_resend_var", "vendor.perf.gpu_jank_detect.enable",
          "debug.perf.enable_big_jank_detect", kThreshold}) {
        EXPECT_EQ(propertyReads(name), 0) << name;
    }
}
INSTANTIATE_TEST_SUITE_P(OffAndUnknown, MasterSwitchTest, ::testing::Values("0", "off", "maybe"));

struct NumberCase {
    const char* text;
    float value;
    bool valid;
    friend std::ostream& operator<<(std::ostream& out, const NumberCase& c) {
        return out << c.text;
    }
};

class FrameResendVariationTest : public FeatureTest,
                                 public ::testing::WithParamInterface<NumberCase> {};

TEST_P(FrameResendVariationTest, IsBetweenZeroAndOneOrFallsBack) {
    const auto& [text, value, valid] = GetParam();
    FeatureManager& manager = start({{"vendor.perf.game_frame_rescue.headroom_resend_var", text}});
    EXPECT_EQ(manager.getFrameResendVariation(), value);
    std::vector<std::string> errors;
    if (!valid) {
        errors.push_back(std::string("Invalid FrameResendVariation: ") + text +
                         ", fall back to 0.2");
    }
    EXPECT_EQ(takeErrors(), errors);
}
INSTANTIATE_TEST_SUITE_P(
        Texts, FrameResendVariationTest,
        ::testing::Values(NumberCase{"0.5", 0.5f, true}, NumberCase{"0.999", 0.999f, true},
                          NumberCase{"1", 0.2f, false}, NumberCase{"0", 0.2f, false},
                          NumberCase{"-0.5", 0.2f, false}, NumberCase{"nan", 0.2f, false},
                          NumberCase{"abc", 0.2f, false}));

class GpuMinExecTimeMultTest : public FeatureTest,
                               public ::testing::WithParamInterface<NumberCase> {};

TEST_P(GpuMinExecTimeMultTest, IsAboveZeroOrFallsBack) {
    const auto& [text, value, valid] = GetParam();
    FeatureManager& manager = start({{"vendor.perf.gpu_jank_detect.enable", "1"},
                                     {"vendor.perf.gpu_jank_filter.min_exec_time_mult", text}});
    EXPECT_EQ(manager.getGpuMinExecTimeMult(), value);
    std::vector<std::string> errors;
    if (!valid) {
        errors.push_back(std::string("Invalid GpuMinExecTimeMult: ") + text + ", fall back to 1.0");
    }
    EXPECT_EQ(takeErrors(), errors);
}
INSTANTIATE_TEST_SUITE_P(
        Texts, GpuMinExecTimeMultTest,
        ::testing::Values(NumberCase{"7", 7.0f, true}, NumberCase{"0.25", 0.25f, true},
                          NumberCase{"-2", 1.0f, false}, NumberCase{"0", 1.0f, false},
                          NumberCase{"x", 1.0f, false}, NumberCase{"inf", 1.0f, false},
                          NumberCase{"1e99", 1.0f, false}));

class SwitchTimeTest : public FeatureTest,
                       public ::testing::WithParamInterface<std::pair<std::string, int>> {};

TEST_P(SwitchTimeTest, IsTheNumberOrZero) {
    FeatureManager& manager = start({{"vendor.rdxe.enable.target_fps", "1"},
                                     {"vendor.rdxe.target_fps.switch_time", GetParam().first},
                                     {"vendor.rdxe.target_fps.compensate", "unknown"}});
    EXPECT_EQ(manager.getTargetFpsSwitchTime(), GetParam().second);
    EXPECT_FALSE(manager.isTargetFpsCompensate());
    EXPECT_TRUE(takeDebugLines().empty());
}
INSTANTIATE_TEST_SUITE_P(Texts, SwitchTimeTest,
                         ::testing::Values(std::pair("3", 3), std::pair("-2", -2),
                                           std::pair("2.9", 2), std::pair("s", 0),
                                           std::pair("99999999999", 0)));

TEST_F(FeatureSwitchesTest, ThresholdFollowsItsProperty) {
    FeatureManager& manager = start({{"vendor.perf.corvane.debug", "1"},
                                     {"debug.perf.enable_big_jank_detect", "1"},
                                     {kThreshold, "20"}});
    EXPECT_EQ(manager.getCpuBigJankThresholdMs(), 20);

    ASSERT_TRUE(base::SetProperty(kThreshold, "35"));
    ASSERT_TRUE(log.waitFor("The thresholdMs of cpu_big_jank is 35ms"));
    EXPECT_TRUE(log.waitFor("LayerManager not initialized"));
    EXPECT_EQ(manager.getCpuBigJankThresholdMs(), 35);
    EXPECT_TRUE(log.waitFor("[Prop Changed: debug.perf.cpu_big_jank_threshold_ms: 35]"));

    log.clear();
    ASSERT_TRUE(base::SetProperty(kThreshold, "0"));
    ASSERT_TRUE(log.waitFor("Invalid thresholdMs of cpu_big_jank, disabled"));
    EXPECT_TRUE(log.waitFor("LayerManager not initialized"));
    EXPECT_EQ(manager.getCpuBigJankThresholdMs(), 0);
}

TEST_F(FeatureSwitchesTest, OnlyAWatchedPropertyNotifies) {
    FeatureManager& manager = start({{"debug.perf.enable_big_jank_detect", "0"}});
    ASSERT_TRUE(base::SetProperty(kThreshold, "15"));
    manager.onPropChanged("debug.perf.something_else");
    EXPECT_EQ(notifications(), 0u);
    EXPECT_EQ(manager.getCpuBigJankThresholdMs(), 0);
    manager.onPropChanged(kThreshold);
    EXPECT_EQ(notifications(), 1u);
    EXPECT_EQ(manager.getCpuBigJankThresholdMs(), 15);
}

TEST_F(FeatureSwitchesTest, ComesUpWithoutAWatcherWhenNoThreadCanBeCreated) {
    // The first construction is the boost worker's.
    corvane::host::failThreadCreation(2);
    FeatureManager& manager =
            start({{"debug.perf.enable_big_jank_detect", "1"}, {kThreshold, "20"}});
    EXPECT_TRUE(manager.isFeatureEnabled(CPU_BIG_JANK));
    EXPECT_EQ(manager.getCpuBigJankThresholdMs(), 20);
    EXPECT_EQ(log.count("Unable to watch debug.perf.cpu_big_jank_threshold_ms: "), 1u);
    corvane::host::failThreadCreation(1);
    EXPECT_THROW(manager.propertyMonitor(kThreshold), std::system_error);
}

TEST_F(FeatureSwitchesTest, ManyFirstCallersGetOneInstance) {
    ASSERT_TRUE(base::SetProperty("vendor.perf.phr.enable", "1"));
    constexpr size_t kThreads = 16;
    std::vector<FeatureManager*> instances(kThreads);
    // Half of the threads come first; the others after it, ordered by the instance alone.
    std::atomic<bool> created{false};
    std::vector<std::thread> threads;
    for (size_t i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            while (i % 2 != 0 && !created.load(std::memory_order_relaxed)) {
                std::this_thread::yield();
            }
            instances[i] = FeatureManager::getInstance();
            created.store(true, std::memory_order_relaxed);
            EXPECT_TRUE(instances[i]->isFeatureEnabled(QUICK_TOUCH));
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(std::set<FeatureManager*>(instances.begin(), instances.end()).size(), 1u);
    EXPECT_EQ(propertyReads("vendor.perf.phr.enable"), 1);
}

}  // namespace
}  // namespace android
