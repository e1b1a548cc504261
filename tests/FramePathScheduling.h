// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <gtest/gtest.h>
#include <sched.h>

#include "corvane/host/Simulation.h"

namespace android {

// What a thread of the frame path asks for.
inline void expectFramePathScheduling(const char* threadName) {
    const auto asked = corvane::host::Simulation::schedulingOf(threadName);
    EXPECT_EQ(-8, asked.nice);
    EXPECT_EQ(SCHED_FIFO, asked.policy);
    EXPECT_EQ(1, asked.priority);
}

}  // namespace android
