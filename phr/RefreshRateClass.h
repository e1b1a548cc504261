// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>

namespace android {

// The display's refresh rate decides which of a layer's two headroom rates holds: one is for
// displays at up to 60 Hz, the other for faster ones.
constexpr int32_t kHighestLowFps = 60;

constexpr bool isHighRefreshRate(int32_t fps) {
    return fps > kHighestLowFps;
}

}  // namespace android
