// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <android-base/properties.h>
#include <android/log.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <tuple>
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

// Which entry points a freshly created proxy reaches, by what the service records.
std::vector<std::string> reachedEntries(PerfProxy* proxy) {
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
    std::vector<std::string> entries;
    for (const PerfCall& call : PerfService::calls()) entries.push_back(call.entry);
    return entries;
}

bool hasWorker(PerfProxy* proxy) {
    return proxy->postTask([] {}) != 0;
}

void expectFixedResults(PerfProxy* proxy) {
    int list[] = {1, 2};
    EXPECT_STREQ("abc", proxy->perfGetProp("x", "abc").value);
    EXPECT_EQ(-1, proxy->perfGetFeedback(1, "pkg"));
    EXPECT_EQ(-1, proxy->perfHint(1, "pkg", 2, 3));
    proxy->perfEvent(1, "pkg", 2, list);
    EXPECT_EQ(-1, proxy->perfLockAcq(0, 0, list, 2));
    EXPECT_EQ(-1, proxy->perfLockRel(1));
    EXPECT_EQ(-1.0, proxy->getPerfHalVer());
    EXPECT_EQ(-1, proxy->perfGetFeedbackExtn(1, "pkg", 2, list));
    EXPECT_EQ(-1, proxy->perfCallbackRegister(nullptr, 4));
    EXPECT_FALSE(proxy->isGameApp("com.example.game"));
    EXPECT_FALSE(proxy->isGameLayer("com.example.game/x#1"));
    EXPECT_EQ(-1, proxy->getGameWeight("com.example.game"));
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

    expectFixedResults(proxy);
    EXPECT_FALSE(hasWorker(proxy));
    EXPECT_EQ(0u, proxy->postTaskDelayed(0, [] {}));
    proxy->setLowLatency(1, true);

    ASSERT_TRUE(PerfService::install());
    EXPECT_EQ(proxy, PerfProxy::getInstance());
    expectFixedResults(proxy);  // a service that comes later is not looked for
}

TEST(ServiceBinding, DefaultPropertyTextsAreCutAndPadded) {
    PerfProxy* proxy = PerfProxy::getInstance();
    const PerfPropValue cut = proxy->perfGetProp("x", std::string(200, 'v').c_str());
    EXPECT_EQ(std::string(91, 'v'), cut.value);
    const PerfPropValue padded = proxy->perfGetProp("x", "ab");
    EXPECT_EQ(std::string("ab") + std::string(90, '\0'),
              std::string(padded.value, sizeof(padded.value)));
}

struct Variant {
    const char* name;
    size_t required;  // how many of the required entry points are reached, in order of resolving
    bool version;
    bool extension;
    bool callback;
    const char* message;  // the one line logged, or nullptr

    bool hasWorker() const { return callback; }  // the last to be resolved

    std::vector<std::string> reached() const {
        std::vector<std::string> entries = {"perf_get_prop", "perf_get_feedback", "perf_hint",
                                            "perf_event",    "perf_lock_acq",     "perf_lock_rel"};
        entries.resize(required);
        if (version) entries.push_back("get_perf_hal_ver");
        if (extension) entries.push_back("perf_get_feedback_extn");
        if (callback) entries.push_back("perf_callback_register");
        return entries;
    }
};

void PrintTo(const Variant& variant, std::ostream* out) {
    *out << variant.name;
}

class BindingVariants : public ::testing::TestWithParam<Variant> {};

TEST_P(BindingVariants, ResolvesUpToTheFirstMissingSymbol) {
    PerfProxy::setDebuggable(true, false);
    ASSERT_TRUE(PerfService::install(GetParam().name));
    LogCapture log;
    PerfProxy* proxy = PerfProxy::getInstance();
    if (GetParam().message == nullptr) {
        EXPECT_TRUE(log.lines().empty());
    } else {
        ASSERT_EQ(1u, log.lines().size());
        EXPECT_EQ(0u, log.lines()[0].text.find(GetParam().message)) << log.lines()[0].text;
        EXPECT_EQ(GetParam().hasWorker() ? ANDROID_LOG_DEBUG : ANDROID_LOG_ERROR,
                  log.lines()[0].priority);
    }
    EXPECT_EQ(GetParam().hasWorker(), hasWorker(proxy));
    EXPECT_EQ(GetParam().reached(), reachedEntries(proxy));
}

// clang-format off
const Variant kVariants[] = {
        {"full", 6, true, true, true, nullptr},
        {"version-2.3", 6, true, true, true, nullptr},
        {"version-2.2", 6, true, false, true, nullptr},
        {"version-none", 6, false, false, true, "Unable to find get_perf_hal_ver function.\n"},
        {"missing-perf_get_feedback_extn", 6, true, false, true, nullptr},
        {"missing-perf_get_prop", 0, false, false, false,
         "Unable to find perf_get_prop function.\n"},
        {"missing-perf_get_feedback", 1, false, false, false,
         "Unable to find perf_get_feedback function.\n"},
        {"missing-perf_hint", 2, false, false, false, "Unable to find perf_hint function.\n"},
        {"missing-perf_event", 3, false, false, false, "Unable to find perf_event function.\n"},
        {"missing-perf_lock_acq", 4, false, false, false,
         "Unable to find perf_lock_acq function.\n"},
        {"missing-perf_lock_rel", 5, false, false, false,
         "Unable to find perf_lock_rel function.\n"},
        {"missing-perf_callback_register", 6, true, true, false,
         "Unable to find perf_callback_register function. Err = "},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(ServiceBinding, BindingVariants, ::testing::ValuesIn(kVariants),
                         [](const auto& info) {
                             std::string name;
                             for (const char c : std::string(info.param.name)) {
                                 if (isalnum(c)) name += c;
                             }
                             return name;
                         });

TEST(ServiceBinding, HandsArgumentsOnUnchanged) {
    ASSERT_TRUE(PerfService::install());
    PerfProxy* proxy = PerfProxy::getInstance();
    PerfService::clearCalls();
    base::SetProperty("vendor.perf.some", "value");
    EXPECT_STREQ("value", proxy->perfGetProp("vendor.perf.some", "default").value);
    EXPECT_STREQ("default", proxy->perfGetProp("vendor.perf.none", "default").value);
    int list[] = {11, 12};
    proxy->perfHint(21, "hinted", 22, 23);
    proxy->perfEvent(31, nullptr, 2, list);
    const int handle = proxy->perfLockAcq(0, 42, list, 2);
    EXPECT_EQ(0, proxy->perfLockRel(handle));
    EXPECT_EQ(3.0, proxy->getPerfHalVer());

    const PerfCall hint = PerfService::calls("perf_hint", 21).at(0);
    EXPECT_EQ("hinted", hint.package);
    EXPECT_EQ((std::vector<int>{22, 23}), hint.args);
    const PerfCall event = PerfService::calls("perf_event", 31).at(0);
    EXPECT_FALSE(event.hasPackage);
    EXPECT_EQ((std::vector<int>{11, 12}), event.args);
    EXPECT_EQ((std::vector<int>{42, 11, 12}), PerfService::calls("perf_lock_acq", 0).at(0).args);
    EXPECT_EQ(1u, PerfService::calls("perf_lock_rel", handle).size());
}

TEST(ServiceBinding, AsksForGamesAndTheirWeight) {
    ASSERT_TRUE(PerfService::install());
    PerfService::addGame("com.example.game", 3);
    PerfProxy::setDebuggable(true, false);
    PerfProxy* proxy = PerfProxy::getInstance();
    PerfService::clearCalls();
    LogCapture log;
    EXPECT_TRUE(proxy->isGameApp("com.example.game"));
    EXPECT_FALSE(proxy->isGameApp("com.example.reader"));
    EXPECT_FALSE(proxy->isGameApp(""));
    EXPECT_TRUE(proxy->isGameLayer("SurfaceView[com.example.game/Main]#3"));
    EXPECT_FALSE(proxy->isGameLayer("StatusBar#5"));
    EXPECT_EQ(3u, PerfService::calls("perf_get_feedback", 5633).size())
            << "the service is not asked for an empty package";
    EXPECT_EQ(3, proxy->getGameWeight("com.example.game"));
    EXPECT_EQ(-1, proxy->getGameWeight(""));
    EXPECT_EQ(1u, PerfService::calls("perf_get_feedback_extn", 5633).size());

    const std::vector<std::string> kLines = {"isGameApp:1 [com.example.game]",
                                             "isGameApp:0 [com.example.reader]",
                                             "isGameApp:1 [com.example.game]",
                                             "isGameLayer:1 [SurfaceView[com.example.game/Main]#3]",
                                             "isGameApp:0 []",
                                             "isGameLayer:0 [StatusBar#5]",
                                             "GameWeight:3 [com.example.game]",
                                             "GameWeight:-1 []"};
    std::vector<std::string> lines;
    for (const LogLine& line : log.lines()) lines.push_back(line.text);
    EXPECT_EQ(kLines, lines);
}

TEST(ServiceBinding, OlderServicesAnswerTheWeightAsAHint) {
    // The newer one between them is found only if the older was let go.
    for (const auto& [variant, entry, args] :
         {std::tuple("version-2.2", "perf_hint", std::vector<int>{0, 1}),
          std::tuple("version-2.3", "perf_get_feedback_extn", std::vector<int>{1, 0}),
          std::tuple("version-none", "perf_hint", std::vector<int>{0, 1})}) {
        SCOPED_TRACE(variant);
        ASSERT_TRUE(PerfService::install(variant));
        PerfService::addGame("com.example.game", 2);
        PerfProxy* proxy = PerfProxy::getInstance();
        PerfService::clearCalls();
        EXPECT_EQ(2, proxy->getGameWeight("com.example.game"));
        ASSERT_EQ(1u, PerfService::calls().size());
        EXPECT_EQ(args, PerfService::calls(entry, 5633).at(0).args);
        delete proxy;
    }
}

TEST(ServiceBinding, OneInstanceForAllThreads) {
    ASSERT_TRUE(PerfService::install());
    std::vector<PerfProxy*> seen(8);
    // Half of the threads come first; the others after it, ordered by the instance alone.
    std::atomic<bool> created{false};
    std::vector<std::thread> threads;
    for (size_t i = 0; i < seen.size(); ++i) {
        threads.emplace_back([&, i] {
            while (i % 2 != 0 && !created.load(std::memory_order_relaxed)) {
                std::this_thread::yield();
            }
            seen[i] = PerfProxy::getInstance();
            created.store(true, std::memory_order_relaxed);
            seen[i]->perfLockRel(0);
        });
    }
    for (std::thread& thread : threads) thread.join();
    for (const PerfProxy* proxy : seen) EXPECT_EQ(seen[0], proxy);
    EXPECT_EQ(1u, PerfService::calls("get_perf_hal_ver", 0).size());
}

constexpr int kTargetFpsHint = 4171;

TEST(ConfigurationCallback, StoresWhatTheServicePushes) {
    ASSERT_TRUE(PerfService::install());
    base::SetProperty("vendor.rdxe.enable.target_fps", "true");
    PerfProxy::getInstance()->perfCallbackRegister(ndk::SharedRefBase::make<TFPSCallback>(), 4);
    EXPECT_EQ(1u, PerfService::calls("perf_callback_register", 4).size());
    ASSERT_TRUE(PerfService::push(kTargetFpsHint, "com.example.game", 6'000, 0, {}));
    const auto config = FeatureManager::getInstance()->getTfpsConfig("com.example.game", false);
    ASSERT_TRUE(config.has_value());
    EXPECT_EQ(60.0f, config->targetFps);
}

TEST(ConfigurationCallback, TheServiceNeverSeesAFailure) {
    const auto callback = ndk::SharedRefBase::make<TFPSCallback>();
    LogCapture log;
    EXPECT_TRUE(callback->notifyCallback(/*an unknown hint*/ 1, "pkg", 0, 0, {}).isOk());
    EXPECT_EQ(0u, log.count("TFPS_CALLBACK"));

    // A number that no float holds makes the feature manager throw.
    const std::string tooLarge(60, '9');
    EXPECT_TRUE(callback->notifyCallback(kTargetFpsHint, tooLarge, 0, 0, {}).isOk());
    const std::vector<LogLine> lines = log.matching("TFPS_CALLBACK");
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ(ANDROID_LOG_ERROR, lines[0].priority);
    EXPECT_EQ("TFPS_CALLBACK", lines[0].tag);
    EXPECT_EQ("TFPS_CALLBACK", lines[0].text);
}

}  // namespace
}  // namespace android
