// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <stdio.h>

#include <string>

#include "corvane/hooks.h"

// That each hook is exported is seen by whoever links: here, that nothing else is.
TEST(ExportsTest, OnlyTheHooks) {
    Dl_info library = {};
    ASSERT_NE(dladdr(reinterpret_cast<void*>(&corvaneInit), &library), 0);
    const std::string command = "nm -D --defined-only -P '" + std::string(library.dli_fname) + "'";
    FILE* nm = popen(command.c_str(), "r");
    ASSERT_NE(nm, nullptr);
    int hooks = 0;
    char text[1024];
    while (fgets(text, sizeof(text), nm) != nullptr) {
        const std::string line = text;
        if (line.find(" A ") != std::string::npos) continue;  // the name of the version
        EXPECT_TRUE(line.rfind("corvane", 0) == 0 || line.rfind("aCorvane", 0) == 0) << line;
        ++hooks;
    }
    EXPECT_EQ(pclose(nm), 0);
    EXPECT_EQ(hooks, 18);
}
