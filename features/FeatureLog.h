// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

namespace android {

inline constexpr const char* kFeatureLogTag = "Corvane.FeatureManager";

}  // namespace android
