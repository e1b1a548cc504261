// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "features/GfrTunables.h"

namespace android {

// The texts in which the performance service sends frame-rescue tunables. Pure: each function
// returns why it refuses the text, as it is to be logged, or nothing; a refused text changes
// nothing. The texts are hostile: any length, any bytes.

// "key=value" entries separated by '_', lists by ';', as in "golden=0.8_baseFreq=600;900_jank=1.2".
// Keys that are absent keep what `*tunables` has.
std::optional<std::string> parseGfrTunables(const std::string& text, GfrTunables* tunables);

// The form that only carries jank thresholds, as in "1.2;1.5;2.0".
std::optional<std::string> parseGlobalJankThresholds(const std::string& text,
                                                     std::vector<float>* thresholds);

}  // namespace android
