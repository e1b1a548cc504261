// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <charconv>
#include <cstddef>
#include <optional>
#include <string_view>
#include <system_error>

namespace corvane::replay {

// What a line is taken apart with, from its front.

constexpr bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

constexpr bool isBlank(char c) {
    return c == ' ' || c == '\t';
}

constexpr bool startsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

inline void skipBlanks(std::string_view& text) {
    while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
}

inline void trimRight(std::string_view& text) {
    while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
}

// The whole of `text` as a decimal number.
template <typename T>
std::optional<T> number(std::string_view text) {
    T value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

// Takes the number at the front of `text`.
template <typename T>
std::optional<T> takeNumber(std::string_view& text) {
    T value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc()) return std::nullopt;
    text.remove_prefix(static_cast<size_t>(end - text.data()));
    return value;
}

// Takes this character at the front of `text`.
inline bool take(std::string_view& text, char c) {
    if (text.empty() || text.front() != c) return false;
    text.remove_prefix(1);
    return true;
}

}  // namespace corvane::replay
