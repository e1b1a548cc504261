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
constexpr char kGame[] = "com.example.game";

class PerfClient : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(PerfService::install());
        mLibrary = dlopen(kName, RTLD_NOW);
        ASSERT_NE(nullptr, mLibrary);
    }

    template <typename Function>
    Function* find(const char* symbol) {
        return reinterpret_cast<Function*>(dlsym(mLibrary, symbol));
    }

    void* mLibrary = nullptr;
};

TEST_F(PerfClient, AnswersAndRecordsWhatItIsAsked) {
    struct Value {
        char text[92];
    };
    auto* get = find<Value(const char*, const char*)>("perf_get_prop");
    ASSERT_TRUE(android::base::SetProperty("a.name", std::string(91, 'x')));
    EXPECT_EQ(std::string(91, 'x'), get("a.name", "fallback").text);
    EXPECT_EQ(std::string(91, 'd'), get("b.name", std::string(300, 'd').c_str()).text);

    auto* feedback = find<int(int, const char*)>("perf_get_feedback");
    auto* hint = find<int(int, const char*, int, int)>("perf_hint");
    PerfService::addGame(kGame, 7);
    EXPECT_EQ(2, feedback(5633, kGame));
    EXPECT_EQ(7, hint(5633, kGame, 0, 1));
    EXPECT_NE(7, hint(5634, kGame, 0, 1));
    EXPECT_NE(2, feedback(1, kGame));
    EXPECT_NE(2, feedback(5633, nullptr));
    const auto hints = PerfService::calls("perf_hint", 5633);
    ASSERT_EQ(1u, hints.size());
    EXPECT_EQ(7, hints[0].result);
    EXPECT_EQ(static_cast<uint64_t>(gettid()), hints[0].threadId);

    auto* event = find<void(int, const char*, int, int*)>("perf_event");
    auto* acquire = find<int(int, int, int*, int)>("perf_lock_acq");
    auto* release = find<int(int)>("perf_lock_rel");
    int list[] = {0x40CD0000, 1234};
    event(4186, nullptr, 2, list);
    EXPECT_EQ(1, acquire(0, 0, list, 2));
    EXPECT_EQ(2, acquire(0, 50, list, 1));
    EXPECT_EQ(2, acquire(2, 50, list, 1)) << "renewed";
    EXPECT_EQ(0, release(1));
    EXPECT_EQ(-1, release(1));
    EXPECT_FALSE(PerfService::calls("perf_event", 4186).at(0).hasPackage);
    EXPECT_EQ((std::vector<int>{50, 0x40CD0000}),
              PerfService::calls("perf_lock_acq", 0).at(1).args);
    EXPECT_EQ(2u, PerfService::calls("perf_lock_rel", 1).size());
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
    auto* enlist = find<int(std::shared_ptr<IPerfCallback>, int)>("perf_callback_register");
    EXPECT_FALSE(PerfService::push(1, "", 0, 0, {}));
    const auto callback = ndk::SharedRefBase::make<Callback>();
    EXPECT_EQ(0, enlist(callback, 4));
    EXPECT_TRUE(PerfService::push(4171, kGame, 1, 2, {3, 4}));
    EXPECT_EQ((std::vector<int32_t>{4171, 1, 2, 3, 4}), callback->received);
    EXPECT_EQ(kGame, callback->package);
    EXPECT_NE(gettid(), callback->thread);
}

}  // namespace
}  // namespace corvane::host
