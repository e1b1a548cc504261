// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// The client library as a client sees it: opened by its bare name, entry points by dlsym.

#include <aidl/vendor/hxw/hardware/perf2/BnPerfCallback.h>
#include <android-base/properties.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "corvane/host/PerfService.h"

namespace corvane::host {
namespace {

using aidl::vendor::hxw::hardware::perf2::BnPerfCallback;
using aidl::vendor::hxw::hardware::perf2::IPerfCallback;

constexpr char kName[] = "libhxw-perfd-client_system.so";
const std::vector<std::string> kSymbols =
        {"perf_get_prop",    "perf_get_feedback",      "perf_hint",
         "perf_event",       "perf_lock_acq",          "perf_lock_rel",
         "get_perf_hal_ver", "perf_get_feedback_extn", "perf_callback_register"};

template <typename Function>
Function* find(void* library, const char* symbol) {
    return reinterpret_cast<Function*>(dlsym(library, symbol));
}

double versionOf(void* library) {
    auto* version = find<double()>(library, "get_perf_hal_ver");
    return version == nullptr ? -1 : version();
}

TEST(PerfService, IsNotFoundUnlessInstalled) {
    EXPECT_EQ(nullptr, dlopen(kName, RTLD_NOW));
    EXPECT_FALSE(PerfService::install("no-such-variant"));
    EXPECT_EQ(nullptr, dlopen(kName, RTLD_NOW));
    ASSERT_TRUE(PerfService::install());
    void* library = dlopen(kName, RTLD_NOW);
    ASSERT_NE(nullptr, library);
    dlclose(library);
}

// Each variant is found by the bare name, and lacks its own symbol and no other.
TEST(PerfService, VariantsLackOneSymbolEach) {
    std::vector<std::pair<std::string, std::string>> variants = {{"full", ""},
                                                                 {"version-2.2", ""},
                                                                 {"version-2.3", ""},
                                                                 {"version-none",
                                                                  "get_perf_hal_ver"}};
    for (const std::string& symbol : kSymbols) variants.emplace_back("missing-" + symbol, symbol);
    for (const auto& [variant, missing] : variants) {
        SCOPED_TRACE(variant);
        ASSERT_TRUE(PerfService::install(variant));
        void* library = dlopen(kName, RTLD_NOW);
        ASSERT_NE(nullptr, library) << dlerror();
        for (const std::string& symbol : kSymbols) {
            EXPECT_EQ(symbol == missing, dlsym(library, symbol.c_str()) == nullptr) << symbol;
        }
        const double version = missing == "get_perf_hal_ver" ? -1
                               : variant == "version-2.2"    ? 2.2
                               : variant == "version-2.3"    ? 2.3
                                                             : 3.0;
        EXPECT_EQ(version, versionOf(library));
        dlclose(library);
    }
}

class PerfClient : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(PerfService::install());
        mLibrary = dlopen(kName, RTLD_NOW);
        ASSERT_NE(nullptr, mLibrary);
    }

    void* mLibrary = nullptr;
};

TEST_F(PerfClient, AnswersPropertiesFromTheStore) {
    struct Value {
        char text[92];
    };
    auto* get = find<Value(const char*, const char*)>(mLibrary, "perf_get_prop");
    EXPECT_STREQ("fallback", get("a.name", "fallback").text);
    ASSERT_TRUE(android::base::SetProperty("a.name", std::string(91, 'x')));
    EXPECT_EQ(std::string(91, 'x'), get("a.name", "fallback").text);
    EXPECT_EQ(std::string(91, 'd'), get("b.name", std::string(300, 'd').c_str()).text);
}

TEST_F(PerfClient, ClassifiesAndWeighsGames) {
    auto* feedback = find<int(int, const char*)>(mLibrary, "perf_get_feedback");
    auto* extended = find<int(int, const char*, int, int*)>(mLibrary, "perf_get_feedback_extn");
    auto* hint = find<int(int, const char*, int, int)>(mLibrary, "perf_hint");
    PerfService::addGame("com.example.game", 7);
    int query[] = {1, 0};
    EXPECT_EQ(2, feedback(5633, "com.example.game"));
    EXPECT_EQ(7, extended(5633, "com.example.game", 2, query));
    EXPECT_EQ(7, hint(5633, "com.example.game", 0, 1));
    EXPECT_NE(2, feedback(5633, "com.example.reader"));
    EXPECT_NE(2, feedback(1, "com.example.game"));
    EXPECT_NE(2, feedback(5633, nullptr));
    PerfService::removeGame("com.example.game");
    EXPECT_NE(2, feedback(5633, "com.example.game"));

    const auto calls = PerfService::calls("perf_hint", 5633);
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ("com.example.game", calls[0].package);
    EXPECT_EQ((std::vector<int>{0, 1}), calls[0].args);
    EXPECT_EQ(7, calls[0].result);
    EXPECT_EQ(static_cast<uint64_t>(gettid()), calls[0].threadId);
}

TEST_F(PerfClient, RecordsEventsAndLocks) {
    auto* event = find<void(int, const char*, int, int*)>(mLibrary, "perf_event");
    auto* acquire = find<int(int, int, int*, int)>(mLibrary, "perf_lock_acq");
    auto* release = find<int(int)>(mLibrary, "perf_lock_rel");
    int list[] = {0x40CD0000, 1234};
    event(4186, nullptr, 2, list);
    EXPECT_EQ(1, acquire(0, 0, list, 2));
    EXPECT_EQ(2, acquire(0, 50, list, 1));
    EXPECT_EQ(2, acquire(2, 50, list, 1));
    EXPECT_EQ(0, release(1));
    EXPECT_EQ(-1, release(1));

    const auto events = PerfService::calls("perf_event", 4186);
    ASSERT_EQ(1u, events.size());
    EXPECT_FALSE(events[0].hasPackage);
    EXPECT_EQ((std::vector<int>{0x40CD0000, 1234}), events[0].args);
    const auto locks = PerfService::calls("perf_lock_acq", 0);
    ASSERT_EQ(2u, locks.size());
    EXPECT_EQ((std::vector<int>{50, 0x40CD0000}), locks[1].args);
    EXPECT_TRUE(PerfService::waitForCalls("perf_lock_rel", 1, 2));
    PerfService::clearCalls();
    EXPECT_TRUE(PerfService::calls().empty());
}

class Callback : public BnPerfCallback {
  public:
    ::ndk::ScopedAStatus notifyCallback(int32_t hintId, const std::string& pkgName, int32_t arg1,
                                        int32_t arg2, const std::vector<int32_t>& values) override {
        received = {hintId, arg1, arg2};
        received.insert(received.end(), values.begin(), values.end());
        package = pkgName;
        thread = gettid();
        return ::ndk::ScopedAStatus::ok();
    }

    std::vector<int32_t> received;
    std::string package;
    pid_t thread = 0;
};

TEST_F(PerfClient, PushesToTheCallbackOnItsOwnThread) {
    auto* enlist =
            find<int(std::shared_ptr<IPerfCallback>, int)>(mLibrary, "perf_callback_register");
    EXPECT_FALSE(PerfService::push(1, "", 0, 0, {}));
    const auto callback = ndk::SharedRefBase::make<Callback>();
    EXPECT_EQ(callback, callback->ref());
    EXPECT_NE(nullptr, callback->asBinder().get());
    EXPECT_EQ(callback->asBinder(), callback->asBinder());
    EXPECT_EQ(0, enlist(callback, 4));
    ASSERT_TRUE(PerfService::hasCallback());
    EXPECT_TRUE(PerfService::push(4171, "com.example.game", 1, 2, {3, 4}));
    EXPECT_EQ((std::vector<int32_t>{4171, 1, 2, 3, 4}), callback->received);
    EXPECT_EQ("com.example.game", callback->package);
    EXPECT_NE(gettid(), callback->thread);
    EXPECT_EQ(1u, PerfService::calls("perf_callback_register", 4).size());
}

}  // namespace
}  // namespace corvane::host
