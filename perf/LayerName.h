// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <optional>
#include <string_view>

namespace android {

// The expressions that define which layer names belong to what, matched against the whole name.
inline constexpr char kSurfaceViewExpression[] = R"((?:\w*\s*SurfaceView\[)([^/]+).*#\d+)";
inline constexpr char kInputMethodExpression[] = R"(InputMethod#\d+)";

// One linear pass each, with the results of the expressions: group 1 of the first, or nothing, and
// whether the second matches. A backtracking matcher may not be given such a name unseen: it takes
// seconds on 20,000 characters that an application chose, and its stack on 200,000.
std::optional<std::string_view> scanSurfaceViewName(std::string_view name);
bool scanInputMethodName(std::string_view name);

}  // namespace android
