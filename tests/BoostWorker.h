// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <future>

#include "perf/PerfProxy.h"

namespace android {

// Returns when the boost worker has done what it was given so far; at once when there is none.
inline void awaitBoostWorker() {
    // Tasks of one time, as a driven clock makes them, run in any order, but one posted while such
    // a batch runs comes after it: hence two.
    for (int round = 0; round < 2; ++round) {
        std::promise<void> done;
        if (PerfProxy::getInstance()->postTask([&done] { done.set_value(); }) == 0) return;
        done.get_future().wait();
    }
}

}  // namespace android
