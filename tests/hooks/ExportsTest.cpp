// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <stdio.h>

#include <set>
#include <string>

#include "corvane/hooks.h"

TEST(ExportsTest, ExactlyTheHooks) {
    Dl_info library = {};
    ASSERT_NE(dladdr(reinterpret_cast<void*>(&corvaneInit), &library), 0);
    const std::string command = "nm -D --defined-only -j '" + std::string(library.dli_fname) + "'";
    FILE* nm = popen(command.c_str(), "r");
    ASSERT_NE(nm, nullptr);
    std::set<std::string> symbols;
    char line[1024];
    while (fgets(line, sizeof(line), nm) != nullptr) {
        symbols.insert(std::string(line, std::string(line).find('\n')));
    }
    EXPECT_EQ(pclose(nm), 0);
    EXPECT_EQ(symbols,
              (std::set<std::string>{"aCorvaneAppInit", "aCorvaneConsumeInputNow",
                                     "aCorvaneFilterBuffer", "aCorvaneQueueBuffer",
                                     "aCorvaneSetTouchEvent", "aCorvaneSetVsyncTime",
                                     "aCorvaneSmartTouchActive",
                                     "corvaneFlushLatchUnsignaledGpuFences", "corvaneInit",
                                     "corvaneIsTargetFpsActive", "corvaneNotifyGpuFenceUnsignaled",
                                     "corvaneSetVsyncPeriod", "corvaneSmartTouchEnabled",
                                     "corvaneTrackBufferDecrement", "corvaneTrackBufferIncrement",
                                     "corvaneTrackLatchUnsignaledGpuFence",
                                     "corvaneTrackVsyncSignal", "corvaneUnblockPendingBuffer"}));
}
