// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// The property store through each of the platform's interfaces.

#include <android-base/properties.h>
#include <cutils/properties.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <limits>
#include <string>
#include <thread>

#include "corvane/host/Properties.h"
#include "corvane/host/Simulation.h"

namespace android::base {
namespace {

using corvane::host::Simulation;
using std::chrono::milliseconds;
using namespace std::chrono_literals;

TEST(Properties, ReadsThroughEveryInterface) {
    const struct {
        const char* value;
        int8_t asBool;    // with the default 9
        int32_t asInt32;  // with the default -5
        int64_t asInt64;
    } cases[] = {
            {"", 9, -5, -5},
            {"1", 1, 1, 1},
            {"0", 0, 0, 0},
            {"yes", 1, -5, -5},
            {"off", 0, -5, -5},
            {"0x10", 9, 16, 16},
            {"010", 9, 8, 8},
            {"12ms", 9, 12, 12},
            {"3000000000", 9, -5, 3'000'000'000},
            {"99999999999999999999", 9, -5, -5},
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
    constexpr int64_t kMs = 1'000'000;
    Simulation simulation(kMs);
    EXPECT_FALSE(WaitForProperty("w", "1", 5ms));
    EXPECT_EQ(6 * kMs, simulation.now());
    for (const milliseconds timeout :
         {milliseconds::max(), milliseconds::max() - 1ms,
          milliseconds(std::numeric_limits<int64_t>::max() / 1'000'000), milliseconds(60'000)}) {
        ASSERT_TRUE(SetProperty("w", "0"));
        std::thread writer([] {
            Simulation::sleepFor(kMs);
            SetProperty("w", "true");  // not the text that is waited for
            Simulation::sleepFor(kMs);
            SetProperty("w", "1");
        });
        const int64_t begin = simulation.now();
        EXPECT_TRUE(WaitForProperty("w", "1", timeout)) << timeout.count();
        EXPECT_EQ(2 * kMs, simulation.now() - begin);
        writer.join();
    }
}

TEST(Properties, CachedPropertyNoticesEveryWrite) {
    Simulation simulation(1);
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
    EXPECT_EQ(4, corvane::host::propertyReads("c")) << "waiting is no read, what it returns is";
}

}  // namespace
}  // namespace android::base
