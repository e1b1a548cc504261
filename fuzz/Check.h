// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstdlib>

#include "features/GfrTunables.h"

#define FUZZ_CHECK(condition)                                                         \
    do {                                                                              \
        if (!(condition)) {                                                           \
            fprintf(stderr, "%s:%d: not true: %s\n", __FILE__, __LINE__, #condition); \
            abort();                                                                  \
        }                                                                             \
    } while (false)

namespace corvane::fuzz {

// What every stored record promises to the frame-rescue monitor.
inline void checkTunables(const android::GfrTunables& tunables) {
    FUZZ_CHECK(tunables.flag >= 0 && tunables.flag <= 2);
    FUZZ_CHECK(!tunables.jankThresholds.empty() && tunables.jankThresholds.size() <= 3);
    float previous = 1.0f;
    for (const float threshold : tunables.jankThresholds) {
        FUZZ_CHECK(threshold > previous && std::isfinite(threshold));
        previous = threshold;
    }
    FUZZ_CHECK(!tunables.baseFreq.empty() && tunables.baseFreq.size() <= 3);
    for (const int freq : tunables.baseFreq) FUZZ_CHECK(freq >= 1);
    FUZZ_CHECK(tunables.golden >= 0.2f && tunables.golden <= 1.3f);
    FUZZ_CHECK(tunables.kFactor >= 0.5f && tunables.kFactor <= 5.0f);
}

}  // namespace corvane::fuzz
