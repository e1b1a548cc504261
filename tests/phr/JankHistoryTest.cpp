// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include "phr/JankHistory.h"

namespace android {
namespace {

constexpr nsecs_t kSpan = 15'000'000'000;

JankHistory fiveJanksFrom(nsecs_t first) {
    JankHistory history;
    for (nsecs_t i = 0; i < 5; ++i) EXPECT_FALSE(history.record(first + i)) << i;
    return history;
}

TEST(JankHistoryTest, SixthJankWithinTheSpanIsOneTooMany) {
    JankHistory history = fiveJanksFrom(100);
    EXPECT_TRUE(history.record(100 + kSpan - 1));
    EXPECT_EQ(history.size(), 0u);
    EXPECT_FALSE(history.record(100 + kSpan));  // counts from the beginning again
}

TEST(JankHistoryTest, SixthJankLaterOnlyRotates) {
    JankHistory history = fiveJanksFrom(100);
    EXPECT_FALSE(history.record(100 + kSpan));
    EXPECT_EQ(history.size(), 5u);
    EXPECT_TRUE(history.record(101 + kSpan - 1));  // the second jank is the oldest now
}

TEST(JankHistoryTest, TimesMayBeAnything) {
    JankHistory history = fiveJanksFrom(INT64_MIN);
    EXPECT_FALSE(history.record(INT64_MAX));
}

}  // namespace
}  // namespace android
