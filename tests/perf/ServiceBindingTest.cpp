// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <android-base/properties.h>
#include <android/log.h>
#include <gtest/gtest.h>

#include <iterator>
#include <string>
#include <vector>

#include "corvane/host/LogCapture.h"
#include "corvane/host/PerfService.h"
#include "features/FeatureManager.h"
#include "perf/PerfProxy.h"
#include "perf/TFPSCallback.h"

namespace android {
namespace {

using ::aidl::vendor::hxw::hardware::perf2::TFPSCallback;
using corvane::host::LogCapture;
using corvane::host::LogLine;
using corvane::host::PerfCall;
using corvane::host::PerfService;
using Strings = std::vector<std::string>;

constexpr int kGameRequest = 5633;
constexpr int kTargetFpsHint = 4171;

Strings textsOf(const LogCapture& log) {
    Strings texts;
    for (const LogLine& line : log.lines()) texts.push_back(line.text);
    return texts;
}

TEST(ServiceBinding, WithoutTheClientLibrary) {
    LogCapture log;
    PerfProxy* proxy = PerfProxy::getInstance();
    ASSERT_EQ(1u, log.lines().size());
    const LogLine line = log.lines()[0];
    EXPECT_EQ(ANDROID_LOG_ERROR, line.priority);
    EXPECT_EQ("Corvane", line.tag);
    EXPECT_EQ(0u, line.text.find("Unable to open libhxw-perfd-client_system.so: ")) << line.text;
    EXPECT_EQ("\n.", line.text.substr(line.text.size() - 2));

    ASSERT_TRUE(PerfService::install());
    EXPECT_EQ(proxy, PerfProxy::getInstance()) << "a service that comes later is not looked for";
    int list[] = {1, 2};
    EXPECT_EQ(std::string(91, 'v'), proxy->perfGetProp("x", std::string(200, 'v').c_str()).value);
    const PerfPropValue padded = proxy->perfGetProp("x", "ab");
    EXPECT_EQ("ab" + std::string(90, '\0'), std::string(padded.value, sizeof(padded.value)));
    EXPECT_EQ(-1, proxy->perfGetFeedback(1, "pkg"));
    EXPECT_EQ(-1, proxy->perfHint(1, "pkg", 2, 3));
    proxy->perfEvent(1, "pkg", 2, list);
    EXPECT_EQ(-1, proxy->perfLockAcq(0, 0, list, 2));
    EXPECT_EQ(-1, proxy->perfLockRel(1));
    EXPECT_EQ(-1.0, proxy->getPerfHalVer());
    EXPECT_EQ(-1, proxy->perfGetFeedbackExtn(1, "pkg", 2, list));
    EXPECT_EQ(-1, proxy->perfCallbackRegister(nullptr, 4));
    EXPECT_FALSE(proxy->isGameApp("com.example.game"));
    EXPECT_EQ(-1, proxy->getGameWeight("com.example.game"));
    EXPECT_EQ(0u, proxy->postTask([] {}));
    proxy->setLowLatency(1, true);
}

// The entry points in the order of resolving; the first that is missing ends it, but for the two
// that a service may lack.
TEST(ServiceBinding, ResolvesUpToTheFirstMissingSymbol) {
    const char* const kEntries[] =
            {"perf_get_prop",    "perf_get_feedback",      "perf_hint",
             "perf_event",       "perf_lock_acq",          "perf_lock_rel",
             "get_perf_hal_ver", "perf_get_feedback_extn", "perf_callback_register"};
    constexpr struct {
        const char* variant;
        const char* reached;     // of kEntries
        const char* weightFrom;  // the entry point asked for a game's weight
        const char* missing;     // what the one line logged says cannot be found
    } kVariants[] = {
            {"full", "111111111", "perf_get_feedback_extn", ""},
            {"version-2.3", "111111111", "perf_get_feedback_extn", ""},
            {"version-2.2", "111111101", "perf_hint", ""},
            {"version-none", "111111001", "perf_hint", "get_perf_hal_ver function.\n"},
            {"missing-perf_get_feedback_extn", "111111101", "", ""},
            {"missing-perf_get_prop", "000000000", "", "perf_get_prop function.\n"},
            {"missing-perf_get_feedback", "100000000", "", "perf_get_feedback function.\n"},
            {"missing-perf_hint", "110000000", "", "perf_hint function.\n"},
            {"missing-perf_event", "111000000", "perf_hint", "perf_event function.\n"},
            {"missing-perf_lock_acq", "111100000", "perf_hint", "perf_lock_acq function.\n"},
            {"missing-perf_lock_rel", "111110000", "perf_hint", "perf_lock_rel function.\n"},
            {"missing-perf_callback_register", "111111110", "perf_get_feedback_extn",
             "perf_callback_register function. Err = "},
    };
    PerfProxy::setDebuggable(true, false);
    PerfService::addGame("com.example.game", 2);
    for (const auto& v : kVariants) {
        SCOPED_TRACE(v.variant);
        ASSERT_TRUE(PerfService::install(v.variant));
        LogCapture log;
        PerfProxy* proxy = PerfProxy::getInstance();
        const bool hasWorker = proxy->postTask([] {}) != 0;
        EXPECT_EQ(v.reached[8] == '1', hasWorker) << "it starts when all has been resolved";
        EXPECT_EQ(v.missing[0] == '\0' ? 0u : 1u, log.lines().size());
        for (const LogLine& line : log.lines()) {
            EXPECT_EQ(0u, line.text.rfind(std::string("Unable to find ") + v.missing, 0));
            EXPECT_EQ(hasWorker ? ANDROID_LOG_DEBUG : ANDROID_LOG_ERROR, line.priority);
        }

        PerfService::clearCalls();
        int list[] = {1, 2};
        proxy->perfGetProp("name", "default");
        proxy->perfGetFeedback(1, "pkg");
        proxy->perfHint(1, "pkg", 2, 3);
        proxy->perfEvent(1, "pkg", 2, list);
        proxy->perfLockRel(proxy->perfLockAcq(0, 5, list, 2));
        proxy->getPerfHalVer();
        proxy->perfGetFeedbackExtn(1, "pkg", 2, list);
        proxy->perfCallbackRegister(nullptr, 4);
        Strings reached;
        for (size_t i = 0; i < std::size(kEntries); ++i) {
            if (v.reached[i] == '1') reached.push_back(kEntries[i]);
        }
        Strings entries;
        for (const PerfCall& call : PerfService::calls()) entries.push_back(call.entry);
        EXPECT_EQ(reached, entries);

        PerfService::clearCalls();
        const bool asks = v.weightFrom[0] != '\0';
        EXPECT_EQ(asks ? 2 : -1, proxy->getGameWeight("com.example.game"));
        EXPECT_EQ(asks ? 1u : 0u, PerfService::calls(v.weightFrom, kGameRequest).size());
        EXPECT_EQ(asks ? 1u : 0u, PerfService::calls().size());
        delete proxy;  // the next variant is found only if this one is let go
    }
}

TEST(ServiceBinding, APropertyOfTheServiceHasAnEnd) {
    ASSERT_TRUE(PerfService::install("unterminated"));
    EXPECT_EQ(std::string(91, 'v'), PerfProxy::getInstance()->perfGetProp("x", "y").value);
}

TEST(ServiceBinding, AsksForGamesAndTheirWeight) {
    ASSERT_TRUE(PerfService::install());
    PerfService::addGame("com.example.game", 3);
    PerfProxy::setDebuggable(true, false);
    PerfProxy* proxy = PerfProxy::getInstance();
    LogCapture log;
    EXPECT_TRUE(proxy->isGameApp("com.example.game"));
    EXPECT_FALSE(proxy->isGameApp("com.example.reader"));
    EXPECT_FALSE(proxy->isGameApp(""));
    EXPECT_TRUE(proxy->isGameLayer("SurfaceView[com.example.game/Main]#3"));
    EXPECT_FALSE(proxy->isGameLayer("StatusBar#5"));
    EXPECT_EQ(3u, PerfService::calls("perf_get_feedback", kGameRequest).size())
            << "the service is not asked for an empty package";
    EXPECT_EQ(3, proxy->getGameWeight("com.example.game"));
    EXPECT_EQ(-1, proxy->getGameWeight(""));
    EXPECT_EQ(1u, PerfService::calls("perf_get_feedback_extn", kGameRequest).size());
    EXPECT_EQ((Strings{"isGameApp:1 [com.example.game]", "isGameApp:0 [com.example.reader]",
                       "isGameApp:1 [com.example.game]",
                       "isGameLayer:1 [SurfaceView[com.example.game/Main]#3]", "isGameApp:0 []",
                       "isGameLayer:0 [StatusBar#5]", "GameWeight:3 [com.example.game]",
                       "GameWeight:-1 []"}),
              textsOf(log));
}

TEST(ConfigurationCallback, StoresWhatTheServicePushesAndNeverFails) {
    ASSERT_TRUE(PerfService::install());
    base::SetProperty("vendor.rdxe.enable.target_fps", "true");
    PerfProxy::getInstance()->perfCallbackRegister(ndk::SharedRefBase::make<TFPSCallback>(), 4);
    EXPECT_EQ(1u, PerfService::calls("perf_callback_register", 4).size());
    ASSERT_TRUE(PerfService::push(kTargetFpsHint, "com.example.game", 6'000, 0, {}));
    const auto config = FeatureManager::getInstance()->getTfpsConfig("com.example.game", false);
    ASSERT_TRUE(config.has_value());
    EXPECT_EQ(60.0f, config->targetFps);

    LogCapture log;
    EXPECT_TRUE(PerfService::push(/*an unknown hint*/ 1, "pkg", 0, 0, {}));
    EXPECT_TRUE(log.lines().empty());
    // A number that no float holds makes the feature manager throw.
    EXPECT_TRUE(PerfService::push(kTargetFpsHint, std::string(60, '9'), 0, 0, {}));
    ASSERT_EQ(Strings{"TFPS_CALLBACK"}, textsOf(log));
    EXPECT_EQ(ANDROID_LOG_ERROR, log.lines()[0].priority);
    EXPECT_EQ("TFPS_CALLBACK", log.lines()[0].tag);
}

}  // namespace
}  // namespace android
