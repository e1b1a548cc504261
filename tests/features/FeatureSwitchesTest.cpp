// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <ostream>
#include <set>

#include "corvane/host/Properties.h"
#include "corvane/host/Threads.h"
#include "features/FeatureTestEnv.h"
#include "perf/PerfProxy.h"

namespace android {
namespace {

using corvane::host::propertyReads;

constexpr const char* kEnable = "vendor.perf.corvane.enable";
constexpr const char* kDebug = "vendor.perf.corvane.debug";
constexpr const char* kHeadroom = "vendor.perf.phr.enable";
constexpr const char* kHeadroomDynamic = "vendor.perf.phr.dynamic.enable";
constexpr const char* kTargetFps = "vendor.rdxe.enable.target_fps";
constexpr const char* kSwitchTime = "vendor.rdxe.target_fps.switch_time";
constexpr const char* kCompensate = "vendor.rdxe.target_fps.compensate";
constexpr const char* kVariation = "vendor.perf.game_frame_rescue.headroom_resend_var";
constexpr const char* kGpuJank = "vendor.perf.gpu_jank_detect.enable";
constexpr const char* kMultiplier = "vendor.perf.gpu_jank_filter.min_exec_time_mult";
constexpr const char* kBigJank = "debug.perf.enable_big_jank_detect";
constexpr const char* kThreshold = "debug.perf.cpu_big_jank_threshold_ms";

// A manager built from some properties; without any, from its defaults.
struct Case {
    Properties properties;
    std::set<int> enabled{CORVANE, FRAME_RESCUE};
    float variation = 0.2f;
    float multiplier = 1.0f;
    int switchTime = -1;
    Strings errors{};

    // The last property tells the cases apart.
    friend std::ostream& operator<<(std::ostream& out, const Case& c) {
        if (c.properties.empty()) return out << "defaults";
        return out << c.properties.back().first << "=" << c.properties.back().second;
    }
};

std::vector<Case> cases() {
    std::vector<Case> cases = {{}};
    for (const char* text : {"0", "off", "maybe"}) {
        Properties allOn = {{kHeadroom, "1"}, {kTargetFps, "1"}, {kGpuJank, "1"}, {kBigJank, "1"}};
        allOn.emplace_back(kEnable, text);
        cases.push_back({allOn, {FRAME_RESCUE}, 0.0f});
    }
    cases.push_back({{{kVariation, "0.999"}}, {CORVANE, FRAME_RESCUE}, 0.999f});
    for (const std::string text : {"1", "0", "-0.5", "nan", "abc"}) {
        cases.push_back({{{kVariation, text}}});
        cases.back().errors = {"Invalid FrameResendVariation: " + text + ", fall back to 0.2"};
    }
    const std::set<int> withGpuJank = {CORVANE, FRAME_RESCUE, GPU_JANK_DETECT};
    cases.push_back({{{kGpuJank, "1"}, {kMultiplier, "0.25"}}, withGpuJank, 0.2f, 0.25f});
    for (const std::string text : {"-2", "0", "x", "inf", "1e99"}) {
        cases.push_back({{{kGpuJank, "1"}, {kMultiplier, text}}, withGpuJank});
        cases.back().errors = {"Invalid GpuMinExecTimeMult: " + text + ", fall back to 1.0"};
    }
    const std::set<int> withTarget = {CORVANE, FRAME_RESCUE, TARGET_FPS};
    for (const auto& [text, time] :
         {std::pair("-2", -2), {"2.9", 2}, {"s", 0}, {"9999999999", 0}}) {
        const Properties on = {{kTargetFps, "1"}, {kCompensate, "unknown"}, {kSwitchTime, text}};
        cases.push_back({on, withTarget, 0.2f, 1.0f, time});
    }
    return cases;
}

std::set<int> enabledFeatures(const FeatureManager& manager) {
    std::set<int> enabled;
    for (int feature = -1; feature <= GPU_JANK_DETECT + 1; ++feature) {
        if (manager.isFeatureEnabled(static_cast<Feature>(feature))) enabled.insert(feature);
    }
    return enabled;
}

class FeatureSwitchesTest : public FeatureTest, public ::testing::WithParamInterface<Case> {};

TEST_P(FeatureSwitchesTest, FollowTheProperties) {
    const Case& c = GetParam();
    FeatureManager& manager = start(c.properties);
    EXPECT_EQ(enabledFeatures(manager), c.enabled);
    EXPECT_EQ(manager.getFrameResendVariation(), c.variation);
    EXPECT_EQ(manager.getGpuMinExecTimeMult(), c.multiplier);
    EXPECT_EQ(manager.getTargetFpsSwitchTime(), c.switchTime);
    EXPECT_FALSE(manager.isTargetFpsCompensate());
    EXPECT_FALSE(manager.isPHRDynamicEnabled());
    EXPECT_EQ(manager.getCpuBigJankThresholdMs(), 0);
    EXPECT_FALSE(PerfProxy::isProfileable());
    EXPECT_EQ(takeErrors(), c.errors);
    EXPECT_EQ(takeDebugLines(), Strings{});
    // What depends on a switch that is off is not even read.
    const std::pair<Feature, std::vector<const char*>> dependent[] =
            {{CORVANE, {kHeadroom, kTargetFps, kVariation, kGpuJank, kBigJank}},
             {QUICK_TOUCH, {kHeadroomDynamic}},
             {TARGET_FPS, {kCompensate, kSwitchTime}},
             {GPU_JANK_DETECT, {kMultiplier}},
             {CPU_BIG_JANK, {kThreshold}}};
    for (const auto& [feature, names] : dependent) {
        for (const char* name : names) {
            EXPECT_EQ(propertyReads(name), c.enabled.count(feature)) << name;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Properties, FeatureSwitchesTest, ::testing::ValuesIn(cases()));

using FeatureManagerTest = FeatureTest;

TEST_F(FeatureManagerTest, EverythingOnAndTheThresholdFollowsItsProperty) {
    FeatureManager& manager = start({{kDebug, "yes"},
                                     {"vendor.perf.corvane.profile", "y"},
                                     {kHeadroom, "on"},
                                     {kTargetFps, "true"},
                                     {kSwitchTime, "12"},
                                     {kVariation, "0.5"},
                                     {kGpuJank, "1"},
                                     {kMultiplier, "7"},
                                     {kBigJank, "1"},
                                     {kThreshold, "-5"}});
    EXPECT_EQ(enabledFeatures(manager), (std::set<int>{DEBUG, CORVANE, QUICK_TOUCH, FRAME_RESCUE,
                                                       TARGET_FPS, CPU_BIG_JANK, GPU_JANK_DETECT}));
    EXPECT_TRUE(PerfProxy::isProfileable());
    EXPECT_TRUE(manager.isPHRDynamicEnabled());
    EXPECT_TRUE(manager.isTargetFpsCompensate());
    EXPECT_EQ(manager.getGpuMinExecTimeMult(), 7.0f);
    EXPECT_EQ(manager.getCpuBigJankThresholdMs(), -5);
    // A property that exists counts as changed when its watcher starts.
    simulation.settle();
    EXPECT_EQ(log.count("Invalid thresholdMs of cpu_big_jank, disabled"), 1u);
    Strings lines = takeDebugLines();
    lines.resize(3);
    EXPECT_EQ(lines, (Strings{"Target fps switch time is 12 seconds, compensation is 1.",
                              "FrameResendVariation: 0.5",
                              "[TFPS:1][QuickTouch:1, mPHRDynamicEnable:1][GpuJankDetect:1]"}));

    for (const auto& [text, message] :
         {std::pair("35", "The thresholdMs of cpu_big_jank is 35ms"),
          std::pair("0", "Invalid thresholdMs of cpu_big_jank, disabled")}) {
        log.clear();
        ASSERT_TRUE(base::SetProperty(kThreshold, text));
        simulation.settle();
        EXPECT_EQ(log.count(message), 1u);
        EXPECT_EQ(log.count("told: 5 "), 1u);
        EXPECT_EQ(manager.getCpuBigJankThresholdMs(), std::stoi(text));
        EXPECT_EQ(log.count(std::string("[Prop Changed: ") + kThreshold + ": " + text + "]"), 1u);
    }
}

TEST(FeatureManagerFaultsTest, ComesUpWithNeitherAServiceNorThreads) {
    ASSERT_TRUE(corvane::host::PerfService::install("missing-perf_get_prop"));
    for (const auto& [name, text] :
         Properties{{kEnable, "0"}, {kBigJank, "1"}, {kThreshold, "20"}}) {
        ASSERT_TRUE(base::SetProperty(name, text));
    }
    corvane::host::failThreadCreation(1);
    corvane::host::LogCapture log;
    FeatureManager& manager = *FeatureManager::getInstance();
    EXPECT_EQ(enabledFeatures(manager), (std::set<int>{CORVANE, FRAME_RESCUE, CPU_BIG_JANK}))
            << "the service's properties have their defaults, the developer's are read";
    EXPECT_EQ(manager.getCpuBigJankThresholdMs(), 20);
    EXPECT_EQ(log.count("Unable to watch debug.perf.cpu_big_jank_threshold_ms: "), 1u);
    manager.onPropChanged(kThreshold);  // nobody is there to be told
    Notifications notifications;
    manager.setConfigObserver(&notifications);
    manager.onPropChanged("debug.perf.something_else");
    manager.onPropChanged(kThreshold);
    EXPECT_EQ(notifications.take(), Strings{"5 "});
    manager.setConfigObserver(nullptr);
}

}  // namespace
}  // namespace android
