// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <limits>
#include <stdexcept>
#include <utility>

#include "features/FeatureTestEnv.h"

namespace android {
namespace {

using corvane::host::PerfCall;
using corvane::host::PerfService;

constexpr int kTargetFps = 4171;
constexpr int kHeadroomRates = 4187;
constexpr int kFrameRescue = 4189;
constexpr int kActivity = 4192;
constexpr int kResumeEvent = 4099;

constexpr nsecs_t kStepNs = 1'000'000;

const Properties kAllOn = {{"vendor.perf.corvane.debug", "1"},
                           {"vendor.perf.phr.enable", "1"},
                           {"vendor.rdxe.enable.target_fps", "1"}};

class ConfigStoreTest : public FeatureTest {
  protected:
    void SetUp() override {
        FeatureTest::SetUp();
        manager = &start(kAllOn);
        log.clear();
    }

    // One callback; returns what the registry was told of it.
    Strings push(int hintId, const std::string& pkgName, int arg1, int arg2 = 0,
                 const std::vector<int>& values = {}) {
        notifications.take();
        manager->setCallbackHintValue(hintId, pkgName, arg1, arg2, values);
        return notifications.take();
    }

    // The stored rate; -1 when there is none.
    float targetFps(const std::string& pkgName, bool useGlobal = false) {
        const auto config = manager->getTfpsConfig(pkgName, useGlobal);
        return config ? config->targetFps : -1.0f;
    }

    FeatureManager* manager = nullptr;
};

TEST_F(ConfigStoreTest, FifthPackageEvictsTheOneSetLongestAgo) {
    const nsecs_t start = Simulation::now();
    for (const char* pkg : {"d", "c", "b", "a", "d"}) {  // "d" is refreshed and evicts nobody
        EXPECT_EQ(push(kTargetFps, pkg, 6000), Strings{std::string("4 ") + pkg});
        EXPECT_EQ(manager->getTfpsConfig(pkg, false)->updateTime, Simulation::now());
        Simulation::advance(kStepNs);
    }
    EXPECT_EQ(log.count("LRU remove"), 0u);
    push(kTargetFps, "e", 9000);
    EXPECT_EQ(log.count("Feature(4) LRU remove [c]"), 1u);
    EXPECT_EQ(targetFps("c"), -1.0f);
    EXPECT_EQ(targetFps("d"), 60.0f);
    EXPECT_EQ(targetFps("e"), 90.0f);

    // Of equal times, the first in the order of keys. Each kind has a store of its own.
    for (const char* pkg : {"d", "b", "c", "a", "e"}) {
        push(kHeadroomRates, pkg, 0, 0, {0, 80});
        push(kFrameRescue, pkg + std::string(":flag=1"), 0, 0, {1});
    }
    EXPECT_EQ(log.count("Feature(2) LRU remove [a]"), 1u);
    EXPECT_EQ(log.count("Feature(3) LRU remove [a]"), 1u);
    EXPECT_EQ(log.count("LRU remove"), 3u);
    EXPECT_FALSE(manager->getPhrConfig("a", true).has_value());
    EXPECT_GT(manager->getGFRTunables("b", false)->updateTime, start);
}

// Rates for all packages and for single ones replace each other.
TEST_F(ConfigStoreTest, TargetRates) {
    constexpr const char* kThermal = "hx-core-thermalCallbackHandler";
    const std::string thermalX = std::string(kThermal) + "X";
    EXPECT_FALSE(manager->isTfpsConfigured());
    const struct {
        std::string text;
        int rate;  // in hundredths
        Strings notified;
        float ofA, ofText, ofAll;  // what is stored then
    } steps[] = {
            {"a", 6000, {"4 a"}, 60.0f, 60.0f, -1.0f},
            {"b", 1, {"4 b"}, 60.0f, 0.01f, -1.0f},
            {"90", 6000, {"4 "}, -1.0f, -1.0f, 90.0f},  // the text is the rate
            {kThermal, 4550, {"4 "}, -1.0f, -1.0f, 45.5f},
            {thermalX, 3000, {"4 " + thermalX}, -1.0f, 30.0f, -1.0f},  // a package like any other
            {"a", 24000, {"4 a"}, 240.0f, 240.0f, -1.0f},
            {"a", 24050, {}, 240.0f, 240.0f, -1.0f},  // refused, what was stored stays
            {"-1", 0, {}, 240.0f, -1.0f, -1.0f},
            {"a", 0, {"4 a"}, -1.0f, -1.0f, -1.0f},
            {"", 2000, {"4 "}, -1.0f, 20.0f, 20.0f},
            {"", 0, {"4 "}, -1.0f, -1.0f, -1.0f},
    };
    for (const auto& s : steps) {
        SCOPED_TRACE(::testing::Message() << s.text << " " << s.rate);
        EXPECT_EQ(push(kTargetFps, s.text, s.rate), s.notified);
        EXPECT_EQ(targetFps("a"), s.ofA);
        EXPECT_EQ(targetFps(s.text), s.ofText);
        EXPECT_EQ(targetFps("any", true), s.ofAll);
    }
    EXPECT_FALSE(manager->isTfpsConfigured());
    EXPECT_EQ(takeErrors(),
              (Strings{"Invalid target fps found: 240.50", "Invalid target fps found: -1.00"}));
    EXPECT_EQ(push(kTargetFps, "pkg", 6000), Strings{"4 pkg"});
    EXPECT_EQ(takeDebugLines(), Strings{"pkg = pkg, targetFps = 60.000000"});

    EXPECT_FALSE(manager->setTargetFps("pkg", std::numeric_limits<float>::infinity()));
    // A number that no float holds stores nothing, and leaves no lock held.
    EXPECT_THROW(push(kTargetFps, std::string(1 << 20, '9'), 0), std::out_of_range);
    EXPECT_EQ(notifications.take(), Strings{});
    EXPECT_EQ(targetFps("pkg"), 60.0f);
    EXPECT_TRUE(manager->setTargetFps("pkg", std::numeric_limits<float>::quiet_NaN()));
    EXPECT_EQ(targetFps("pkg"), -1.0f);
}

TEST_F(ConfigStoreTest, HeadroomRates) {
    const struct {
        std::vector<int> values;
        float rate, highFpsRate;  // both 0: none are stored
    } cases[] = {
            {{9, 80, 9, 120, 9, 50}, 0.8f, 1.2f},
            {{0, 80, 120}, 0.8f, 0.0f},
            {{0, 0, 0, 120}, 0.0f, 1.2f},
            {{0, -5, 0, 120}, -0.05f, 1.2f},
            {{0, 0, 0, 0}, 0.0f, 0.0f},
            {{5}, 0.0f, 0.0f},
            {{}, 0.0f, 0.0f},
    };
    for (const auto& [values, rate, highFpsRate] : cases) {
        push(kHeadroomRates, "pkg", 0, 0, {0, 1, 0, 1});
        EXPECT_EQ(push(kHeadroomRates, "pkg", 0, 0, values), Strings{"2 pkg"});
        const auto config = manager->getPhrConfig("pkg", true);
        EXPECT_EQ(config.has_value(), rate != 0.0f || highFpsRate != 0.0f);
        EXPECT_FLOAT_EQ(config.value_or(PhrConfig{}).phrMinRate, rate);
        EXPECT_FLOAT_EQ(config.value_or(PhrConfig{}).highFpsPhrMinRate, highFpsRate);
    }
    EXPECT_EQ(log.count("pkg=pkg, phrMinRate=0.800000, highFpsPhrMinRate=1.200000"), 1u);
}

TEST_F(ConfigStoreTest, FrameRescueTunables) {
    EXPECT_EQ(push(kFrameRescue, "pkg:golden=0.8_dynamic=1_jank=1.2_baseFreq=600", 0, 0, {1, 9}),
              Strings{"3 pkg"});
    EXPECT_EQ(takeDebugLines(),
              Strings{"pkg=pkg GFRProp: flag=1 dynamic=true lowerBoost=false golden=0.80vsync "
                      "kFactor=1.00 baseFreq=600;0;0 jankThresholds=1.20;0.00;0.00 entries"});
    // A later text changes what it names.
    push(kFrameRescue, "pkg:kFactor=2.5", 0, 0, {2});
    GfrTunables tunables = *manager->getGFRTunables("pkg", false);
    EXPECT_EQ(tunables.flag, 2);
    EXPECT_EQ(tunables.golden, 0.8f);
    EXPECT_EQ(tunables.kFactor, 2.5f);

    log.clear();
    const std::pair<std::string, std::vector<int>> refused[] = {
            {"pkg:golden=0.9", {}},        {"pkg:golden=0.9", {3}}, {"pkg:golden=0.9", {-1}},
            {"pkg:golden=0.9_flag=", {1}}, {"1.0;2.0", {1}},        {"", {1}},
            {":golden=0.9", {1}},
    };
    for (const auto& [text, values] : refused) {
        EXPECT_EQ(push(kFrameRescue, text, 0, 0, values), Strings{}) << text;
        EXPECT_EQ(manager->getGFRTunables("pkg", true)->golden, 0.8f);
    }
    EXPECT_EQ(takeErrors(), (Strings{"Invalid gfrFlag: 3", "Invalid gfrFlag: -1",
                                     "parseGFRTunables: empty value for key 'flag'",
                                     "Invalid GFR tunables: golden=0.9_flag=",
                                     "Invalid GFR jank thresholds: 1.0;2.0. Must be > 1 vsync.",
                                     "Invalid parameters for GFR jank thresholds: ",
                                     "Invalid parameters for GFR jank thresholds: golden=0.9"}));

    EXPECT_FALSE(FeatureManager::parseGFRTunables("golden=0.9", nullptr));

    // Thresholds for all packages take the place of the package's own tunables.
    EXPECT_EQ(push(kFrameRescue, "1.2;1.5;2.0", 0, 0, {2}), Strings{"3 "});
    EXPECT_EQ(takeDebugLines(), Strings{"pkg= GFRProp: flag=2 jankThresholds=1.20;1.50;2.00"});
    EXPECT_FALSE(manager->getGFRTunables("pkg", false).has_value());
    tunables = *manager->getGFRTunables("pkg", true);
    EXPECT_EQ(tunables.jankThresholds, (std::vector<float>{1.2f, 1.5f, 2.0f}));
    EXPECT_EQ(tunables.golden, GfrTunables{}.golden);
    // A package's text starts from the defaults, not from what all packages share.
    push(kFrameRescue, "pkg:golden=0.8", 0, 0, {1});
    EXPECT_EQ(manager->getGFRTunables("pkg", true)->jankThresholds, GfrTunables{}.jankThresholds);
    EXPECT_EQ(push(kFrameRescue, "pkg:whatever", 0, 0, {0}), Strings{"3 pkg"});
    EXPECT_FALSE(manager->getGFRTunables("pkg", true).has_value());
    push(kFrameRescue, "1.2;1.5;2.0", 0, 0, {2});
    EXPECT_EQ(push(kFrameRescue, "", 0, 0, {0}), Strings{"3 "});
    EXPECT_FALSE(manager->getGFRTunables("pkg", true).has_value());
}

TEST_F(ConfigStoreTest, ActivitySettings) {
    EXPECT_EQ(push(kActivity, "pkg", 2, 1), Strings{"8 pkg"});
    EXPECT_FALSE(manager->isActvStable());
    EXPECT_EQ(push(kActivity, "pkg", 2, 0), Strings{"8 pkg"});
    EXPECT_EQ(push(kActivity, "pkg", 1), Strings{"7 pkg"});
    for (const int kind : {-1, 3}) EXPECT_EQ(push(kActivity, "pkg", kind, 1), Strings{});
    for (const int hint : {0, -1, 4170, 4172, 4188, 4190, 4191, 4193}) {
        EXPECT_EQ(push(hint, "pkg", 2, 1, {1}), Strings{}) << hint;
    }
    EXPECT_TRUE(manager->isActvStable());

    // An application that is awaited resumes once, when it is alive.
    log.clear();
    EXPECT_EQ(manager->getCheckingAliveApp(), "");
    EXPECT_EQ(push(kActivity, "com.a", 0), Strings{"6 com.a, awaited com.a"});
    manager->processAliveAppCheck("com.b");
    EXPECT_EQ(manager->getCheckingAliveApp(), "");
    push(kActivity, "com.a", 0);
    manager->processAliveAppCheck("x com.a y");
    manager->processAliveAppCheck("com.a");  // nothing is awaited; the empty name is in every text
    Simulation::settle();
    const std::string alive = "The checked app is still alive, trigger its resume logic";
    EXPECT_EQ(takeDebugLines(),
              (Strings{"The checked app is no longer alive. Cancel check", alive, alive}));
    const std::vector<PerfCall> calls = PerfService::calls("perf_event", kResumeEvent);
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].package + "," + calls[1].package, "com.a,");
    EXPECT_TRUE(calls[0].args.empty());
}

TEST_F(ConfigStoreTest, TextsOfAnyLengthAndBytes) {
    for (const std::string& text :
         {std::string(), std::string(1 << 20, 'a'), std::string(1 << 20, ':'), std::string(3, '\0'),
          std::string("\xff\xfe%s%n"), std::string("::"), std::string("_="), std::string("="),
          "p:jank=" + std::string(1 << 20, ';'), "p:baseFreq=" + std::string(1 << 20, '1'),
          "p:" + std::string(1 << 20, '='), "p:" + std::string(1 << 20, '_')}) {
        for (const int hint : {kTargetFps, kHeadroomRates, kFrameRescue, kActivity}) {
            push(hint, text, std::numeric_limits<int>::min(), 0, {});
            push(hint, text, 0, std::numeric_limits<int>::max(),
                 {1, std::numeric_limits<int>::max()});
        }
        push(kTargetFps, text, 6000);
        EXPECT_EQ(targetFps(text), 60.0f);
        EXPECT_EQ(manager->getCheckingAliveApp(), text);
    }
    // std::string::find takes seconds over this, which would be under the registry's lock.
    push(kActivity, std::string(1 << 19, 'a') + 'b', 0);
    manager->processAliveAppCheck(std::string(1 << 20, 'a'));
    EXPECT_EQ(manager->getCheckingAliveApp(), "");
}

using FeaturesOffTest = FeatureTest;

TEST_F(FeaturesOffTest, NothingIsReadBackAndRatesAreNotStored) {
    FeatureManager& manager = start({{"vendor.perf.corvane.debug", "1"}});
    manager.setCallbackHintValue(kHeadroomRates, "pkg", 0, 0, {0, 80, 0, 120});
    EXPECT_EQ(log.count("set PhrMinRate fail, Quick Touch disable!"), 1u);
    EXPECT_EQ(notifications.take(), Strings{"2 pkg"});
    EXPECT_FALSE(manager.getPhrConfig("pkg", true).has_value());
    manager.setCallbackHintValue(kTargetFps, "pkg", 6000, 0, {});
    EXPECT_FALSE(manager.getTfpsConfig("pkg", true).has_value());
    EXPECT_TRUE(manager.isTfpsConfigured());
    manager.setCallbackHintValue(kFrameRescue, "pkg:flag=1", 0, 0, {1});
    EXPECT_TRUE(manager.getGFRTunables("pkg", false).has_value());
}

}  // namespace
}  // namespace android
