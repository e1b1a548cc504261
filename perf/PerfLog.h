// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>

namespace android {

inline constexpr char kPerfLogTag[] = "Corvane";

inline constexpr size_t kTraceTextSize = 256;  // the longest trace text, with its NUL

// Replaces every "%%" of a text by "%", in place and left to right, as a printf format would print
// it; every other percent sign stays as it stands. A profile line is printed so instead of by using
// the text as a format, since it may hold a layer name that an application chose.
void collapseDoubledPercents(char* text);

}  // namespace android
