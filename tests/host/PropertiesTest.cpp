// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// The property store through each of the platform's interfaces.

#include <android-base/properties.h>
#include <cutils/properties.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <limits>
#include <string>
#include <thread>

#include "corvane/host/Properties.h"

namespace android::base {
namespace {

using std::chrono::milliseconds;
using namespace std::chrono_literals;

TEST(Properties, ReadsThroughEveryInterface) {
    const struct {
        const char* value;
        int8_t asBool;    // with the default 9
        int32_t asInt32;  // with the default -5
        int64_t asInt64;
        int baseInt;
    } cases[] = {
            {"", 9, -5, -5, -5},
            {"1", 1, 1, 1, 1},
            {"0", 0, 0, 0, 0},
            {"yes", 1, -5, -5, -5},
            {"off", 0, -5, -5, -5},
            {"0x10", 9, 16, 16, 16},
            {"010", 9, 8, 8, 10},
            {"12ms", 9, 12, 12, -5},
            {"3000000000", 9, -5, 3'000'000'000, -5},
            {"99999999999999999999", 9, -5, -5, -5},
    };
    char value[PROPERTY_VALUE_MAX];
    for (const auto& c : cases) {
        SCOPED_TRACE(c.value);
        ASSERT_TRUE(SetProperty("a.b", c.value));
        EXPECT_EQ(*c.value == '\0' ? "none" : c.value, GetProperty("a.b", "none"));
        EXPECT_EQ(c.asBool, property_get_bool("a.b", 9));
        for (const bool byDefault : {false, true}) {
            EXPECT_EQ(c.asBool == 9 ? byDefault : c.asBool == 1, GetBoolProperty("a.b", byDefault));
        }
        EXPECT_EQ(c.asInt32, property_get_int32("a.b", -5));
        EXPECT_EQ(c.asInt64, property_get_int64("a.b", -5));
        EXPECT_EQ(c.baseInt, GetIntProperty("a.b", -5));
        EXPECT_EQ(static_cast<int>(strlen(c.value)), property_get("a.b", value, nullptr));
        EXPECT_STREQ(c.value, value);
    }
    EXPECT_EQ(91, property_get("not.there", value, std::string(200, 'd').c_str()));
    EXPECT_EQ(std::string(91, 'd'), value);
    EXPECT_EQ(3, property_get_int32(nullptr, 3));
}

TEST(Properties, LimitsAreEnforced) {
    EXPECT_TRUE(SetProperty("a", std::string(91, 'x')));
    EXPECT_EQ(-1, property_set("a", std::string(92, 'y').c_str()));
    EXPECT_EQ(std::string(91, 'x'), GetProperty("a", ""));
    for (const char* bad : {"", ".a", "a.", "a..b", "a b", "a/b"}) {
        EXPECT_FALSE(SetProperty(bad, "1")) << bad;
    }
    EXPECT_TRUE(SetProperty("ro.once", "1"));
    EXPECT_FALSE(SetProperty("ro.once", "2"));
    EXPECT_EQ("1", GetProperty("ro.once", ""));
}

TEST(Properties, WaitsEndAtTheValueOrTheTimeOut) {
    EXPECT_FALSE(WaitForProperty("w", "1", 1ms));
    EXPECT_FALSE(WaitForPropertyCreation("w", 0ms));
    for (const milliseconds timeout :
         {milliseconds::max(), milliseconds::max() - 1ms,
          milliseconds(std::numeric_limits<int64_t>::max() / 1'000'000), milliseconds(60'000)}) {
        ASSERT_TRUE(SetProperty("w", "0"));
        bool reached = false;
        std::atomic<bool> waits{false};
        std::thread waiter([&] {
            waits = true;
            reached = WaitForProperty("w", "1", timeout);
        });
        while (!waits) std::this_thread::yield();
        for (int i = 0; i < 100; ++i) {
            ASSERT_TRUE(SetProperty("w", "true"));  // not the text that is waited for
        }
        ASSERT_TRUE(SetProperty("w", "1"));
        waiter.join();
        EXPECT_TRUE(reached) << timeout.count();
    }
    EXPECT_TRUE(WaitForPropertyCreation("w"));
}

TEST(Properties, CachedPropertyNoticesEveryWrite) {
    CachedProperty cached("c");
    bool changed = true;
    EXPECT_STREQ("", cached.Get(&changed));
    EXPECT_FALSE(changed);

    ASSERT_TRUE(SetProperty("c", "1"));
    EXPECT_STREQ("1", cached.WaitForChange());
    EXPECT_EQ(nullptr, cached.WaitForChange(1ms));
    ASSERT_TRUE(SetProperty("c", "1"));  // the same value is a write too
    EXPECT_STREQ("1", cached.Get(&changed));
    EXPECT_TRUE(changed);

    std::thread writer([] { SetProperty("c", "2"); });
    EXPECT_STREQ("2", cached.WaitForChange(milliseconds::max()));
    writer.join();
    corvane::host::clearProperties();
    EXPECT_STREQ("", cached.WaitForChange(10s));
    EXPECT_EQ(5, corvane::host::propertyReads("c")) << "waiting is no read, what it returns is";
}

TEST(Properties, ListNamesWhatIsSet) {
    property_set("f.one", "1");
    property_set("f.two", "2");
    property_set("f.two", nullptr);
    std::string found;
    property_list(
            [](const char* key, const char* value, void* cookie) {
                *static_cast<std::string*>(cookie) += std::string(key) + value;
            },
            &found);
    EXPECT_EQ("f.one1", found);
}

}  // namespace
}  // namespace android::base
