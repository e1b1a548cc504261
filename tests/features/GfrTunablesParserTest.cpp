// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include "features/GfrTunablesParser.h"

namespace android {
namespace {

bool operator==(const GfrTunables& a, const GfrTunables& b) {
    return a.flag == b.flag && a.jankThresholds == b.jankThresholds && a.baseFreq == b.baseFreq &&
           a.dynamic == b.dynamic && a.lowerBoost == b.lowerBoost && a.golden == b.golden &&
           a.kFactor == b.kFactor && a.histJank == b.histJank && a.updateTime == b.updateTime;
}

// A record in which no field has its default, so that a lost or reset field shows.
GfrTunables base() {
    return {2, {1.1f, 1.7f}, {700}, true, true, 0.9f, 3.0f, true, 42};
}

TEST(GfrTunablesParserTest, AppliesTheKeysOfTheTextAndKeepsTheRest) {
    const std::pair<const char*, GfrTunables> cases[] = {
            {"golden=0.8_kFactor=2.5_baseFreq=600;900_jank=1.2;1.5;2.0_dynamic=0",
             {2, {1.2f, 1.5f, 2.0f}, {600, 900}, false, true, 0.8f, 2.5f, true, 42}},
            {"flag=0_lowerBoost=0_histJank=0",
             {0, {1.1f, 1.7f}, {700}, true, false, 0.9f, 3.0f, false, 42}},
            {"jank=1.2;1.4;1.6;abc_dynamic=-7",
             {2, {1.2f, 1.4f, 1.6f}, {700}, true, true, 0.9f, 3.0f, true, 42}},
            {"jank=;1.5;_golden=0.2_kFactor=0.5",
             {2, {1.5f}, {700}, true, true, 0.2f, 0.5f, true, 42}},
            {"baseFreq=1;2;3_golden=1.3_kFactor=5",
             {2, {1.1f, 1.7f}, {1, 2, 3}, true, true, 1.3f, 5.0f, true, 42}},
            {"foo=1__golden_x_golden=0.8_golden=0.7_",
             {2, {1.1f, 1.7f}, {700}, true, true, 0.7f, 3.0f, true, 42}},
    };
    for (const auto& [text, expected] : cases) {
        GfrTunables parsed = base();
        EXPECT_EQ(parseGfrTunables(text, &parsed), std::nullopt) << text;
        EXPECT_TRUE(parsed == expected) << text;
    }
}

TEST(GfrTunablesParserTest, RefusesWithTheMessageAndChangesNothing) {
    const std::pair<const char*, const char*> cases[] = {
            {"flag=3", "invalid flag=3"},
            {"flag=-1", "invalid flag=-1"},
            {"jank=1.0", "first jank threshold 1.00 must be > 1.0"},
            {"jank=nan", "first jank threshold nan must be > 1.0"},
            {"jank=inf", "jank thresholds must be finite"},
            {"jank=1.2;1.2", "jank thresholds not strictly increasing"},
            {"jank=1.2;nan", "jank thresholds not strictly increasing"},
            {"jank=1.2;inf", "jank thresholds must be finite"},
            {"jank=-inf", "first jank threshold -inf must be > 1.0"},
            {"jank=;;", "empty jank thresholds"},
            {"jank=", "empty value for key 'jank'"},
            {"foo=", "empty value for key 'foo'"},
            {"=", "empty value for key ''"},
            {"baseFreq=0", "baseFreq value must be > 0"},
            {"baseFreq=500;-1", "baseFreq value must be > 0"},
            {"baseFreq=1;2;3;4", "baseFreq must have 1 to 3 values"},
            {"baseFreq=;", "baseFreq must have 1 to 3 values"},
            {"golden=1.31", "golden=1.31vsync out of range [0.2, 1.3]"},
            {"golden=0.19", "golden=0.19vsync out of range [0.2, 1.3]"},
            {"golden=nan", "golden=nanvsync out of range [0.2, 1.3]"},
            {"kFactor=5.01", "kFactor=5.01 out of range [0.5, 5.0]"},
            {"kFactor=inf", "kFactor=inf out of range [0.5, 5.0]"},
            {"foo=1", "no valid tunable found in 'foo=1'"},
            {"Golden=0.7_golden", "no valid tunable found in 'Golden=0.7_golden'"},
            {"", "no valid tunable found in ''"},
            // A good entry before a bad one is not kept.
            {"golden=0.7_flag=1_kFactor=0.4", "kFactor=0.40 out of range [0.5, 5.0]"},
            // The end of these is the standard library's own.
            {"golden=abc", "failed to parse 'golden=abc': "},
            {"\xff=1", "no valid tunable found in '\xff=1'"},
            {"golden=a=b", "failed to parse 'golden=a=b': "},
            {"golden=1e99", "failed to parse 'golden=1e99': "},
            {"flag=99999999999", "failed to parse 'flag=99999999999': "},
            {"histJank=x", "failed to parse 'histJank=x': "},
            {"baseFreq=500;x", "failed to parse 'baseFreq=500;x': "},
            {"jank=1.2;%s%n", "failed to parse 'jank=1.2;%s%n': "},
    };
    for (const auto& [text, message] : cases) {
        GfrTunables tunables = base();
        std::string error = parseGfrTunables(text, &tunables).value_or("");
        const std::string expected = std::string("parseGFRTunables: ") + message;
        if (expected.back() == ' ') error.resize(expected.size());
        EXPECT_EQ(error, expected);
        EXPECT_TRUE(tunables == base()) << text;
    }
}

TEST(GfrTunablesParserTest, ReadsTheGlobalFormOrSaysWhyNot) {
    const struct {
        const char* text;
        std::vector<float> thresholds;
        const char* error;  // or nullptr
    } cases[] = {
            {"1.2;1.5;2.0;0.1", {1.2f, 1.5f, 2.0f}, nullptr},
            {"1.2", {1.2f}, nullptr},
            {"1.0;1.5", {9}, "Invalid GFR jank thresholds: 1.0;1.5. Must be > 1 vsync."},
            {"inf", {9}, "Invalid GFR jank thresholds: inf. Must be finite."},
            {"1.5;1.5", {9}, "Invalid GFR jank thresholds: 1.5;1.5. Must be strictly increasing."},
            {"1.5;nan", {9}, "Invalid GFR jank thresholds: 1.5;nan. Must be strictly increasing."},
            {"", {9}, "Invalid parameters for GFR jank thresholds: "},
            {";", {9}, "Invalid parameters for GFR jank thresholds: ;"},
            {"1.2;x", {9}, "Invalid parameters for GFR jank thresholds: 1.2;x"},
            {"1e99", {9}, "Invalid parameters for GFR jank thresholds: 1e99"},
    };
    for (const auto& c : cases) {
        std::vector<float> thresholds{9};
        const auto error = parseGlobalJankThresholds(c.text, &thresholds);
        EXPECT_EQ(error, c.error ? std::optional<std::string>(c.error) : std::nullopt);
        EXPECT_EQ(thresholds, c.thresholds) << c.text;
    }
}

}  // namespace
}  // namespace android
