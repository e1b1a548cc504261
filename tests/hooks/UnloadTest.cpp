// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// The library is opened at run time and closed again while its threads are about.

#include <dlfcn.h>

#include "HookTest.h"

namespace corvane::host {
namespace {

using UnloadTest = SimulatedHookTest;

TEST_F(UnloadTest, ItsThreadsOutliveClosing) {
    void* library = dlopen(CORVANE_LIBRARY, RTLD_NOW);
    ASSERT_NE(library, nullptr) << dlerror();
    const auto init = reinterpret_cast<decltype(&corvaneInit)>(dlsym(library, "corvaneInit"));
    ASSERT_NE(init, nullptr);
    set("debug.vendor.perf.smart_touch.trace", "1");
    EXPECT_TRUE(init(0, 0));
    EXPECT_EQ(dlclose(library), 0);
    set("debug.vendor.perf.smart_touch", "1");
    EXPECT_EQ(mLog.count("[Prop Changed: ST: 1]"), 1u);

    library = dlopen(CORVANE_LIBRARY, RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(library, nullptr) << "it must have stayed";
    const auto enabled = reinterpret_cast<decltype(&corvaneSmartTouchEnabled)>(
            dlsym(library, "corvaneSmartTouchEnabled"));
    EXPECT_TRUE(enabled());
}

}  // namespace
}  // namespace corvane::host
