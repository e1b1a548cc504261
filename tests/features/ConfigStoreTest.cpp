// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <limits>
#include <stdexcept>
#include <thread>
#include <utility>

#include "corvane/host/Clock.h"
#include "BoostWorker.h"
#include "features/FeatureTestEnv.h"

namespace android {
namespace {

// What the registry was told, as "feature package".
Mutex sNotificationsLock;
std::vector<std::string> sNotifications GUARDED_BY(sNotificationsLock);

std::vector<std::string> takeNotifications() {
    Mutex::Autolock lock(sNotificationsLock);
    return std::exchange(sNotifications, {});
}

}  // namespace

// Stands in for the library's own, which the linker then leaves in the archive.
void FeatureManager::notifyConfigChanged(Feature feature, const std::string& pkgName) const {
    std::string text = std::to_string(feature) + " " + pkgName;
    if (feature == ACTV_NON_GAME_RESUME) text += ", awaited " + getCheckingAliveApp();
    Mutex::Autolock lock(sNotificationsLock);
    sNotifications.push_back(std::move(text));
}

namespace {

using corvane::host::DrivenClock;
using corvane::host::PerfCall;
using corvane::host::PerfService;
using Strings = std::vector<std::string>;

constexpr int kTargetFps = 4171;
constexpr int kHeadroomRates = 4187;
constexpr int kFrameRescue = 4189;
constexpr int kActivity = 4192;
constexpr int kResumeEvent = 4099;

constexpr nsecs_t kStartNs = 1'000'000'000;
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
        takeNotifications();
        manager->setCallbackHintValue(hintId, pkgName, arg1, arg2, values);
        return takeNotifications();
    }

    // The stored rate; -1 when there is none.
    float targetFps(const std::string& pkgName, bool useGlobal = false) {
        const auto config = manager->getTfpsConfig(pkgName, useGlobal);
        return config ? config->targetFps : -1.0f;
    }

    FeatureManager* manager = nullptr;
};

TEST_F(ConfigStoreTest, FifthPackageEvictsTheOneSetLongestAgo) {
    DrivenClock clock(kStartNs);
    for (const char* pkg : {"d", "c", "b", "a"}) {
        EXPECT_EQ(push(kTargetFps, pkg, 6000), Strings{std::string("4 ") + pkg});
        clock.advance(kStepNs);
    }
    push(kTargetFps, "d", 9000);  // refreshed, evicts nobody
    EXPECT_EQ(log.count("LRU remove"), 0u);
    EXPECT_EQ(manager->getTfpsConfig("d", false)->updateTime, clock.now());
    clock.advance(kStepNs);
    push(kTargetFps, "e", 6000);
    EXPECT_EQ(log.count("Feature(4) LRU remove [c]"), 1u);
    EXPECT_EQ(log.count("LRU remove"), 1u);
    EXPECT_EQ(targetFps("c"), -1.0f);
    EXPECT_EQ(targetFps("d"), 90.0f);
    EXPECT_EQ(targetFps("e"), 60.0f);
}

TEST_F(ConfigStoreTest, EqualTimesEvictTheFirstInKeyOrder) {
    DrivenClock clock(kStartNs);
    for (const char* pkg : {"d", "b", "c", "a", "e"}) push(kHeadroomRates, pkg, 0, 0, {0, 80});
    EXPECT_EQ(log.count("Feature(2) LRU remove [a]"), 1u);
    for (const char* pkg : {"d", "b", "c", "a", "e"})
        push(kFrameRescue, pkg + std::string(":flag=1"), 0, 0, {1});
    EXPECT_EQ(log.count("Feature(3) LRU remove [a]"), 1u);
    EXPECT_FALSE(manager->getPhrConfig("a", true).has_value());
    EXPECT_TRUE(manager->getPhrConfig("b", false).has_value());
}

TEST_F(ConfigStoreTest, GlobalAndPackageSettingsReplaceEachOther) {
    EXPECT_FALSE(manager->isTfpsConfigured());
    push(kTargetFps, "a", 6000);
    push(kTargetFps, "b", 6000);
    EXPECT_EQ(push(kTargetFps, "90", 6000), Strings{"4 "});  // the text is the rate
    EXPECT_EQ(targetFps("a"), -1.0f);
    EXPECT_EQ(targetFps("a", true), 90.0f);
    EXPECT_EQ(targetFps("any", true), 90.0f);
    EXPECT_EQ(targetFps("any"), -1.0f);
    EXPECT_TRUE(manager->isTfpsConfigured());

    EXPECT_EQ(push(kTargetFps, "hx-core-thermalCallbackHandler", 4550), Strings{"4 "});
    EXPECT_EQ(targetFps("any", true), 45.5f);
    push(kTargetFps, "hx-core-thermalCallbackHandlerX", 3000);  // a package like any other
    EXPECT_EQ(targetFps("any", true), -1.0f);
    EXPECT_EQ(targetFps("hx-core-thermalCallbackHandlerX"), 30.0f);
    push(kTargetFps, "", 2000);
    EXPECT_EQ(targetFps("", false), 20.0f);
    push(kTargetFps, "", 0);
    EXPECT_FALSE(manager->isTfpsConfigured());
}

TEST_F(ConfigStoreTest, TargetRateRange) {
    struct Case {
        float rate;
        bool accepted;
        bool stored;
    };
    const Case cases[] = {
            {240.0f, true, true},  {0.01f, true, true},
            {0.0f, true, false},   {std::numeric_limits<float>::quiet_NaN(), true, false},
            {240.5f, false, true},  // what was stored stays
            {-1.0f, false, true},  {std::numeric_limits<float>::infinity(), false, true},
    };
    for (const Case& c : cases) {
        ASSERT_TRUE(manager->setTargetFps("pkg", 60.0f));
        EXPECT_EQ(manager->setTargetFps("pkg", c.rate), c.accepted) << c.rate;
        EXPECT_EQ(targetFps("pkg"), !c.stored ? -1.0f : c.accepted ? c.rate : 60.0f) << c.rate;
    }
    log.clear();
    EXPECT_EQ(push(kTargetFps, "pkg", 24050), Strings{});
    EXPECT_EQ(push(kTargetFps, "-1", 0), Strings{});
    EXPECT_EQ(takeErrors(),
              (Strings{"Invalid target fps found: 240.50", "Invalid target fps found: -1.00"}));
    EXPECT_EQ(push(kTargetFps, "pkg", 0), Strings{"4 pkg"});
    EXPECT_EQ(takeDebugLines(), Strings{"pkg = pkg, targetFps = 0.000000"});
}

TEST_F(ConfigStoreTest, NumericTextThatDoesNotConvertThrowsAndStoresNothing) {
    push(kTargetFps, "pkg", 6000);
    EXPECT_THROW(push(kTargetFps, std::string(1 << 20, '9'), 0), std::out_of_range);
    EXPECT_EQ(takeNotifications(), Strings{});
    EXPECT_EQ(targetFps("pkg"), 60.0f);
    EXPECT_EQ(push(kTargetFps, "30", 0), Strings{"4 "});  // no lock was left held
}

TEST_F(ConfigStoreTest, HeadroomRates) {
    struct Case {
        std::vector<int> values;
        std::optional<std::pair<float, float>> rates;
    };
    const Case cases[] = {
            {{0, 80, 0, 120}, {{0.8f, 1.2f}}},
            {{9, 80, 9, 120, 9, 50}, {{0.8f, 1.2f}}},
            {{0, 80}, {{0.8f, 0.0f}}},
            {{0, 80, 120}, {{0.8f, 0.0f}}},
            {{0, 0, 0, 120}, {{0.0f, 1.2f}}},
            {{0, -5, 0, 120}, {{-0.05f, 1.2f}}},
            {{0, 0, 0, 0}, {}},
            {{5}, {}},
            {{}, {}},
    };
    for (const Case& c : cases) {
        push(kHeadroomRates, "pkg", 0, 0, {0, 1, 0, 1});
        EXPECT_EQ(push(kHeadroomRates, "pkg", 0, 0, c.values), Strings{"2 pkg"});
        const auto config = manager->getPhrConfig("pkg", true);
        ASSERT_EQ(config.has_value(), c.rates.has_value());
        if (config) {
            EXPECT_FLOAT_EQ(config->phrMinRate, c.rates->first);
            EXPECT_FLOAT_EQ(config->highFpsPhrMinRate, c.rates->second);
        }
    }
    EXPECT_EQ(log.count("pkg=pkg, phrMinRate=0.800000, highFpsPhrMinRate=1.200000"), 2u);
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
    EXPECT_GT(tunables.updateTime, 0);

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

    EXPECT_EQ(push(kFrameRescue, "pkg:whatever", 0, 0, {0}), Strings{"3 pkg"});
    EXPECT_FALSE(manager->getGFRTunables("pkg", true).has_value());
    GfrTunables untouched;
    EXPECT_FALSE(FeatureManager::parseGFRTunables("golden=0.9", nullptr));
    EXPECT_TRUE(FeatureManager::parseGFRTunables("golden=0.9", &untouched));
}

TEST_F(ConfigStoreTest, JankThresholdsForAllPackages) {
    push(kFrameRescue, "pkg:golden=0.8", 0, 0, {1});
    log.clear();
    EXPECT_EQ(push(kFrameRescue, "1.2;1.5;2.0", 0, 0, {2}), Strings{"3 "});
    EXPECT_EQ(takeDebugLines(), Strings{"pkg= GFRProp: flag=2 jankThresholds=1.20;1.50;2.00"});
    EXPECT_FALSE(manager->getGFRTunables("pkg", false).has_value());
    const GfrTunables tunables = *manager->getGFRTunables("pkg", true);
    EXPECT_EQ(tunables.jankThresholds, (std::vector<float>{1.2f, 1.5f, 2.0f}));
    EXPECT_EQ(tunables.golden, GfrTunables{}.golden);
    EXPECT_EQ(push(kFrameRescue, "", 0, 0, {0}), Strings{"3 "});
    EXPECT_FALSE(manager->getGFRTunables("pkg", true).has_value());

    // A package's text starts from the defaults, not from what all packages share.
    push(kFrameRescue, "1.2;1.5;2.0", 0, 0, {2});
    push(kFrameRescue, "pkg:golden=0.8", 0, 0, {1});
    EXPECT_EQ(manager->getGFRTunables("pkg", true)->jankThresholds, GfrTunables{}.jankThresholds);
}

TEST_F(ConfigStoreTest, ActivitySettings) {
    EXPECT_EQ(push(kActivity, "pkg", 2, 1), Strings{"8 pkg"});
    EXPECT_FALSE(manager->isActvStable());
    EXPECT_EQ(push(kActivity, "pkg", 2, 0), Strings{"8 pkg"});
    EXPECT_TRUE(manager->isActvStable());
    EXPECT_EQ(push(kActivity, "pkg", 1), Strings{"7 pkg"});
    for (const int kind : {-1, 3}) EXPECT_EQ(push(kActivity, "pkg", kind), Strings{});
    for (const int hint : {0, -1, 4170, 4172, 4188, 4190, 4191, 4193}) {
        EXPECT_EQ(push(hint, "pkg", 2, 1, {1}), Strings{}) << hint;
    }
    EXPECT_TRUE(manager->isActvStable());
    EXPECT_EQ(manager->getCheckingAliveApp(), "");
}

TEST_F(ConfigStoreTest, AliveCheckResumesOnce) {
    EXPECT_EQ(push(kActivity, "com.a", 0), Strings{"6 com.a, awaited com.a"});
    EXPECT_EQ(manager->getCheckingAliveApp(), "com.a");
    manager->processAliveAppCheck("com.b");
    EXPECT_EQ(log.count("The checked app is no longer alive. Cancel check"), 1u);
    EXPECT_EQ(manager->getCheckingAliveApp(), "");
    awaitBoostWorker();
    EXPECT_TRUE(PerfService::calls("perf_event", kResumeEvent).empty());

    push(kActivity, "com.a", 0);
    manager->processAliveAppCheck("x com.a y");
    EXPECT_EQ(log.count("The checked app is still alive, trigger its resume logic"), 1u);
    EXPECT_EQ(manager->getCheckingAliveApp(), "");
    manager->processAliveAppCheck("com.a");  // nothing is awaited; the empty name is in every text
    awaitBoostWorker();
    const std::vector<PerfCall> calls = PerfService::calls("perf_event", kResumeEvent);
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].package, "com.a");
    EXPECT_TRUE(calls[0].args.empty());
    EXPECT_EQ(calls[1].package, "");
}

TEST_F(ConfigStoreTest, TextsOfAnyLengthAndBytes) {
    const std::string texts[] =
            {"",  std::string(1 << 20, 'a'), "\xff\xfe%s%n", std::string(3, '\0'), ":", "::", "_",
             "=", std::string(1 << 20, ':')};
    for (const std::string& text : texts) {
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

TEST_F(ConfigStoreTest, SixteenThreadsSetAndRead) {
    constexpr int kThreads = 16;
    constexpr int kRounds = 300;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([this, t] {
            for (int i = 0; i < kRounds; ++i) {
                const std::string pkg = "pkg" + std::to_string((t + i) % 6);
                manager->setCallbackHintValue(kTargetFps, i % 50 == 0 ? "90" : pkg, 6000, 0, {});
                manager->setCallbackHintValue(kHeadroomRates, pkg, 0, 0, {0, 80, 0, 120});
                manager->setCallbackHintValue(kFrameRescue, pkg + ":jank=1.2;1.5", 0, 0, {i % 3});
                manager->setCallbackHintValue(kActivity, pkg, i % 3, i % 2, {});
                if (const auto config = manager->getTfpsConfig(pkg, true)) {
                    EXPECT_TRUE(config->targetFps == 60.0f || config->targetFps == 90.0f);
                }
                if (const auto config = manager->getPhrConfig(pkg, true)) {
                    EXPECT_EQ(config->highFpsPhrMinRate, 1.2f);
                }
                if (const auto tunables = manager->getGFRTunables(pkg, true)) {
                    EXPECT_EQ(tunables->jankThresholds.size(), 2u);
                }
                manager->processAliveAppCheck(manager->getCheckingAliveApp());
                manager->isActvStable();
                manager->isTfpsConfigured();
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    int stored = 0;
    for (int i = 0; i < 6; ++i) {
        stored += manager->getPhrConfig("pkg" + std::to_string(i), false).has_value() ? 1 : 0;
    }
    EXPECT_EQ(stored, 4);
}

class FeaturesOffTest : public FeatureTest {};

TEST_F(FeaturesOffTest, NothingIsReadBackAndRatesAreNotStored) {
    FeatureManager& manager = start({{"vendor.perf.corvane.debug", "1"}});
    manager.setCallbackHintValue(kHeadroomRates, "pkg", 0, 0, {0, 80, 0, 120});
    EXPECT_EQ(log.count("set PhrMinRate fail, Quick Touch disable!"), 1u);
    EXPECT_EQ(takeNotifications(), Strings{"2 pkg"});
    EXPECT_FALSE(manager.getPhrConfig("pkg", true).has_value());
    manager.setCallbackHintValue(kTargetFps, "pkg", 6000, 0, {});
    EXPECT_FALSE(manager.getTfpsConfig("pkg", true).has_value());
    EXPECT_TRUE(manager.isTfpsConfigured());
    manager.setCallbackHintValue(kFrameRescue, "pkg:flag=1", 0, 0, {1});
    EXPECT_TRUE(manager.getGFRTunables("pkg", false).has_value());
}

}  // namespace
}  // namespace android
