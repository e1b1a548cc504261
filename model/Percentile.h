// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace corvane::model {

// The value that `percent` (1 to 100) of the values do not exceed, by nearest rank; 0 without any.
inline int64_t percentile(std::vector<int64_t> values, int percent) {
    if (values.empty()) return 0;
    const size_t rank = (values.size() * static_cast<size_t>(percent) + 99) / 100;
    const auto nth = values.begin() + static_cast<std::ptrdiff_t>(std::max<size_t>(rank, 1) - 1);
    std::nth_element(values.begin(), nth, values.end());
    return *nth;
}

}  // namespace corvane::model
