// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <stdio.h>

#include <set>
#include <sstream>
#include <string>

#include "corvane/hooks.h"

namespace {

// What a linker sees of the library: its dynamic symbol table, version suffixes removed.
std::set<std::string> definedSymbols() {
    Dl_info library = {};
    if (dladdr(reinterpret_cast<void*>(&corvaneInit), &library) == 0) return {};
    FILE* nm =
            popen(("nm -D --defined-only '" + std::string(library.dli_fname) + "'").c_str(), "r");
    std::set<std::string> symbols;
    char text[1024];
    while (nm != nullptr && fgets(text, sizeof(text), nm) != nullptr) {
        std::istringstream line(text);
        std::string address, type, name;
        line >> address >> type >> name;
        if (type == "A") continue;  // the name of the version itself
        symbols.insert(name.substr(0, name.find('@')));
    }
    if (nm == nullptr || pclose(nm) != 0) return {};
    return symbols;
}

TEST(ExportsTest, ExactlyTheHooks) {
    EXPECT_EQ(definedSymbols(),
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

}  // namespace
