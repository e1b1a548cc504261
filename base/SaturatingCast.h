// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <limits>
#include <type_traits>

namespace android {

// Arithmetic that ends at the limit of its integer type where plain C++ would be undefined. Times
// and rates reach this library from applications and from the service, so no value of theirs may
// be trusted to fit.

// The integer part of `value`; a NaN becomes 0, as converting it does on arm64.
template <typename Int, typename Float>
constexpr Int saturatingCast(Float value) {
    static_assert(std::is_integral_v<Int> && std::is_floating_point_v<Float>);
    // The largest integer rounds up to a power of two in a narrower mantissa: that value itself is
    // out of range already, hence ">=".
    if (value >= static_cast<Float>(std::numeric_limits<Int>::max())) {
        return std::numeric_limits<Int>::max();
    }
    if (value <= static_cast<Float>(std::numeric_limits<Int>::min())) {
        return std::numeric_limits<Int>::min();
    }
    return value == value ? static_cast<Int>(value) : Int{0};
}

template <typename Int>
constexpr Int saturatingAdd(Int a, Int b) {
    static_assert(std::is_integral_v<Int> && std::is_signed_v<Int>);
    Int sum = 0;
    if (!__builtin_add_overflow(a, b, &sum)) return sum;
    return b < 0 ? std::numeric_limits<Int>::min() : std::numeric_limits<Int>::max();
}

template <typename Int>
constexpr Int saturatingSub(Int a, Int b) {
    static_assert(std::is_integral_v<Int> && std::is_signed_v<Int>);
    Int difference = 0;
    if (!__builtin_sub_overflow(a, b, &difference)) return difference;
    return b > 0 ? std::numeric_limits<Int>::min() : std::numeric_limits<Int>::max();
}

template <typename Int>
constexpr Int saturatingMul(Int a, Int b) {
    static_assert(std::is_integral_v<Int> && std::is_signed_v<Int>);
    Int product = 0;
    if (!__builtin_mul_overflow(a, b, &product)) return product;
    return (a < 0) != (b < 0) ? std::numeric_limits<Int>::min() : std::numeric_limits<Int>::max();
}

}  // namespace android
