// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "perf/PerfProxy.h"

namespace android {
namespace {

TEST(Classify, FpsMode) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    const std::vector<std::pair<float, int>> kCases =
            {{-kInfinity, -1}, {-1.0f, -1},   {0.0f, -1},      {0.4f, 0},          {0.5f, 1},
             {12.49f, 12},     {17.5f, 18},   {18.0f, 18},     {18.01f, 30},       {18.5f, 30},
             {33.0f, 30},      {33.01f, 45},  {48.0f, 45},     {48.01f, 60},       {63.0f, 60},
             {63.01f, 75},     {78.0f, 75},   {78.01f, 90},    {95.0f, 90},        {95.01f, 120},
             {123.0f, 120},    {123.1f, 144}, {147.0f, 144},   {147.1f, 165},      {168.0f, 165},
             {168.1f, 185},    {210.0f, 185}, {210.1f, 240},   {260.0f, 240},      {260.1f, -1},
             {261.0f, -1},     {1e30f, -1},   {kInfinity, -1}, {std::nanf(""), -1}};
    for (const auto& [fps, mode] : kCases) EXPECT_EQ(mode, PerfProxy::getFpsMode(fps)) << fps;
}

TEST(Classify, VsyncMode) {
    struct Case {
        long long first;  // the lowest and highest periods of a mode
        long long last;
        int mode;
    };
    constexpr Case kCases[] = {{15'000'001, 17'999'999, 60}, {12'500'001, 14'899'999, 75},
                               {10'500'001, 11'699'999, 90}, {8'000'001, 8'999'999, 120},
                               {6'800'001, 7'699'999, 144},  {5'800'001, 6'499'999, 165},
                               {4'800'001, 5'599'999, 185},  {3'800'001, 4'599'999, 240}};
    for (const Case& c : kCases) {
        EXPECT_EQ(0, PerfProxy::setVsyncMode(c.first - 1)) << c.mode;
        EXPECT_EQ(c.mode, PerfProxy::setVsyncMode(c.first));
        EXPECT_EQ(c.mode, PerfProxy::setVsyncMode(1'000'000'000 / c.mode));
        EXPECT_EQ(c.mode, PerfProxy::setVsyncMode(c.last));
        EXPECT_EQ(0, PerfProxy::setVsyncMode(c.last + 1)) << c.mode;
    }
    for (const long long period : {0LL, -16'666'666LL, std::numeric_limits<long long>::max()}) {
        EXPECT_EQ(0, PerfProxy::setVsyncMode(period)) << period;
    }
}

TEST(Classify, NumericString) {
    for (const char* text : {"0", "120", "-3", "5.", ".5", "-.5", "-5.", "59.94"}) {
        EXPECT_TRUE(PerfProxy::isNumericString(text)) << text;
    }
    for (const char* text : {"", "-", ".", "-.", "..", "--1", "1-", "+1", "1e5", " 1", "1 ",
                             "1.2.3", "0x1", "nan", "\xd9\xa1"}) {
        EXPECT_FALSE(PerfProxy::isNumericString(text)) << text;
    }
    EXPECT_FALSE(PerfProxy::isNumericString(std::string("1\0", 2)));
}

}  // namespace
}  // namespace android
