// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <utils/Timers.h>

namespace android {

// Frame rates and headroom rates come from the service in hundredths.
constexpr float fromHundredths(int value) {
    return static_cast<float>(value) / 100.0f;
}

// Target frame rate of one package.
struct TfpsConfig {
    float targetFps = 0.0f;  // frames per second, above 0 and at most 240
    nsecs_t updateTime = 0;  // monotonic time of storing; the oldest entry is evicted first
};

// Minimum headroom rates of one package, as fractions of the vsync period.
struct PhrConfig {
    float phrMinRate = 0.0f;         // at display rates up to 60 Hz
    float highFpsPhrMinRate = 0.0f;  // above 60 Hz
    nsecs_t updateTime = 0;          // monotonic time of storing; the oldest is evicted first
};

}  // namespace android
