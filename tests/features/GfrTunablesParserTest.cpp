// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "features/GfrTunablesParser.h"

#include <gtest/gtest.h>

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
    struct Case {
        std::string text;
        void (*change)(GfrTunables&);
    };
    const Case cases[] = {
            {"golden=0.8_kFactor=2.5_baseFreq=600;900_jank=1.2;1.5;2.0_dynamic=0",
             [](GfrTunables& t) {
                 t.golden = 0.8f;
                 t.kFactor = 2.5f;
                 t.baseFreq = {600, 900};
                 t.jankThresholds = {1.2f, 1.5f, 2.0f};
                 t.dynamic = false;
             }},
            {"flag=0_lowerBoost=0_histJank=0",
             [](GfrTunables& t) {
                 t.flag = 0;
                 t.lowerBoost = false;
                 t.histJank = false;
             }},
            {"dynamic=-7", [](GfrTunables& t) { t.dynamic = true; }},
            {"jank=1.2;1.4;1.6;1.8",
             [](GfrTunables& t) {
                 t.jankThresholds = {1.2f, 1.4f, 1.6f};
             }},
            {"jank=1.2;1.4;1.6;abc",
             [](GfrTunables& t) {
                 t.jankThresholds = {1.2f, 1.4f, 1.6f};
             }},
            {"jank=;1.5;", [](GfrTunables& t) { t.jankThresholds = {1.5f}; }},
            {"baseFreq=1;2;3",
             [](GfrTunables& t) {
                 t.baseFreq = {1, 2, 3};
             }},
            {"golden=0.2", [](GfrTunables& t) { t.golden = 0.2f; }},
            {"golden=1.3", [](GfrTunables& t) { t.golden = 1.3f; }},
            {"kFactor=0.5", [](GfrTunables& t) { t.kFactor = 0.5f; }},
            {"kFactor=5", [](GfrTunables& t) { t.kFactor = 5.0f; }},
            {"foo=1_golden=0.7", [](GfrTunables& t) { t.golden = 0.7f; }},
            {"golden=0.7_golden=0.8", [](GfrTunables& t) { t.golden = 0.8f; }},
            {"__golden_x_golden=0.7_", [](GfrTunables& t) { t.golden = 0.7f; }},
    };
    for (const Case& c : cases) {
        GfrTunables expected = base();
        c.change(expected);
        GfrTunables parsed = base();
        EXPECT_EQ(parseGfrTunables(c.text, &parsed), std::nullopt) << c.text;
        EXPECT_TRUE(parsed == expected) << c.text;
    }
}

TEST(GfrTunablesParserTest, RefusesWithTheMessageAndChangesNothing) {
    const std::pair<std::string, std::string> cases[] = {
            {"flag=3", "parseGFRTunables: invalid flag=3"},
            {"flag=-1", "parseGFRTunables: invalid flag=-1"},
            {"jank=1.0", "parseGFRTunables: first jank threshold 1.00 must be > 1.0"},
            {"jank=nan", "parseGFRTunables: first jank threshold nan must be > 1.0"},
            {"jank=inf", "parseGFRTunables: first jank threshold inf must be > 1.0"},
            {"jank=1.2;1.2", "parseGFRTunables: jank thresholds not strictly increasing"},
            {"jank=1.2;1.1", "parseGFRTunables: jank thresholds not strictly increasing"},
            {"jank=1.2;nan", "parseGFRTunables: jank thresholds not strictly increasing"},
            {"jank=1.2;inf", "parseGFRTunables: jank thresholds not strictly increasing"},
            {"jank=;;", "parseGFRTunables: empty jank thresholds"},
            {"jank=", "parseGFRTunables: empty value for key 'jank'"},
            {"baseFreq=", "parseGFRTunables: empty value for key 'baseFreq'"},
            {"foo=", "parseGFRTunables: empty value for key 'foo'"},
            {"=", "parseGFRTunables: empty value for key ''"},
            {"baseFreq=0", "parseGFRTunables: baseFreq value must be > 0"},
            {"baseFreq=500;-1", "parseGFRTunables: baseFreq value must be > 0"},
            {"baseFreq=1;2;3;4", "parseGFRTunables: baseFreq must have 1 to 3 values"},
            {"baseFreq=;", "parseGFRTunables: baseFreq must have 1 to 3 values"},
            {"golden=1.31", "parseGFRTunables: golden=1.31vsync out of range [0.2, 1.3]"},
            {"golden=0.19", "parseGFRTunables: golden=0.19vsync out of range [0.2, 1.3]"},
            {"golden=nan", "parseGFRTunables: golden=nanvsync out of range [0.2, 1.3]"},
            {"kFactor=5.01", "parseGFRTunables: kFactor=5.01 out of range [0.5, 5.0]"},
            {"kFactor=0.4", "parseGFRTunables: kFactor=0.40 out of range [0.5, 5.0]"},
            {"kFactor=inf", "parseGFRTunables: kFactor=inf out of range [0.5, 5.0]"},
            {"kFactor=nan", "parseGFRTunables: kFactor=nan out of range [0.5, 5.0]"},
            {"foo=1", "parseGFRTunables: no valid tunable found in 'foo=1'"},
            {"Golden=0.7", "parseGFRTunables: no valid tunable found in 'Golden=0.7'"},
            {"golden", "parseGFRTunables: no valid tunable found in 'golden'"},
            {"", "parseGFRTunables: no valid tunable found in ''"},
            // A good entry before a bad one is not kept.
            {"golden=0.7_flag=1_kFactor=9",
             "parseGFRTunables: kFactor=9.00 out of range [0.5, 5.0]"},
    };
    for (const auto& [text, message] : cases) {
        GfrTunables tunables = base();
        EXPECT_EQ(parseGfrTunables(text, &tunables), message) << text;
        EXPECT_TRUE(tunables == base()) << text;
    }
}

// The end of the message is the standard library's own.
TEST(GfrTunablesParserTest, RefusesWhatDoesNotConvert) {
    const std::pair<std::string, std::string> cases[] = {
            {"golden=abc", "golden=abc"},       {"golden=a=b", "golden=a=b"},
            {"golden=1e99", "golden=1e99"},     {"flag=99999999999", "flag=99999999999"},
            {"histJank=x", "histJank=x"},       {"baseFreq=500;x", "baseFreq=500;x"},
            {"jank=1.2;%s%n", "jank=1.2;%s%n"},
    };
    for (const auto& [text, entry] : cases) {
        GfrTunables tunables = base();
        const auto error = parseGfrTunables(text, &tunables);
        ASSERT_TRUE(error.has_value()) << text;
        EXPECT_EQ(error->rfind("parseGFRTunables: failed to parse '" + entry + "': ", 0), 0u)
                << *error;
        EXPECT_TRUE(tunables == base()) << text;
    }
}

TEST(GfrTunablesParserTest, ReadsTheGlobalFormOrSaysWhyNot) {
    const std::pair<std::string, std::vector<float>> accepted[] = {
            {"1.2;1.5;2.0", {1.2f, 1.5f, 2.0f}},
            {"1.2;1.5;2.0;0.1", {1.2f, 1.5f, 2.0f}},
            {"1.2", {1.2f}},
    };
    for (const auto& [text, expected] : accepted) {
        std::vector<float> thresholds{9.0f};
        EXPECT_EQ(parseGlobalJankThresholds(text, &thresholds), std::nullopt) << text;
        EXPECT_EQ(thresholds, expected) << text;
    }
    const std::pair<std::string, std::string> refused[] = {
            {"1.0;1.5", "Invalid GFR jank thresholds: 1.0;1.5. Must be > 1 vsync."},
            {"inf", "Invalid GFR jank thresholds: inf. Must be > 1 vsync."},
            {"1.5;1.5", "Invalid GFR jank thresholds: 1.5;1.5. Must be strictly increasing."},
            {"1.5;nan", "Invalid GFR jank thresholds: 1.5;nan. Must be strictly increasing."},
            {"", "Invalid parameters for GFR jank thresholds: "},
            {";", "Invalid parameters for GFR jank thresholds: ;"},
            {"com.example", "Invalid parameters for GFR jank thresholds: com.example"},
            {"1.2;x", "Invalid parameters for GFR jank thresholds: 1.2;x"},
            {"1e99", "Invalid parameters for GFR jank thresholds: 1e99"},
    };
    for (const auto& [text, message] : refused) {
        std::vector<float> thresholds{9.0f};
        EXPECT_EQ(parseGlobalJankThresholds(text, &thresholds), message) << text;
        EXPECT_EQ(thresholds, std::vector<float>{9.0f}) << text;
    }
}

TEST(GfrTunablesParserTest, SurvivesLongAndBinaryTexts) {
    constexpr size_t kLength = 1 << 20;
    const std::string texts[] = {
            std::string(kLength, '_'),
            std::string(kLength, '='),
            "jank=" + std::string(kLength, ';'),
            "baseFreq=" + std::string(kLength, '1'),
            "golden=0.7" + std::string(1, '\0') + "_flag=9",
            std::string(kLength, '\xff') + "=1",
    };
    for (const std::string& text : texts) {
        GfrTunables tunables = base();
        EXPECT_TRUE(parseGfrTunables(text, &tunables).has_value());
        EXPECT_TRUE(tunables == base());
        EXPECT_TRUE(parseGlobalJankThresholds(text, &tunables.jankThresholds).has_value());
    }
}

}  // namespace
}  // namespace android
