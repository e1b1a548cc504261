// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/TextTable.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

namespace corvane::replay {
namespace {

constexpr double kNsPerUs = 1e3;
constexpr double kNsPerMs = 1e6;
constexpr double kNsPerSecond = 1e9;
constexpr int64_t kCostInMillisNs = 10'000'000;

}  // namespace

std::string format(const char* pattern, ...) {
    char text[512];
    va_list args;
    va_start(args, pattern);
    std::vsnprintf(text, sizeof(text), pattern, args);
    va_end(args);
    return text;
}

std::string seconds(int64_t ns) {
    return format("%.2f s", static_cast<double>(ns) / kNsPerSecond);
}

std::string millis(int64_t ns) {
    return format("%.2f ms", static_cast<double>(ns) / kNsPerMs);
}

std::string cost(int64_t ns) {
    if (ns < kCostInMillisNs) return format("%.1f us", static_cast<double>(ns) / kNsPerUs);
    return format("%.1f ms", static_cast<double>(ns) / kNsPerMs);
}

std::string plural(size_t count, const char* noun) {
    return format("%zu %s%s", count, noun, count == 1 ? "" : "s");
}

std::string shown(std::string text, size_t width) {
    for (auto& c : text) {
        if (c < ' ' || c > '~') c = '?';
    }
    constexpr size_t kDots = 3;
    if (text.size() <= width || width <= kDots) return text.substr(0, width);
    const size_t tail = width / 3;
    return text.substr(0, width - tail - kDots) + "..." + text.substr(text.size() - tail);
}

std::string wrapped(const std::string& sentence, const std::string& indent, size_t width) {
    const size_t room = width - std::min(width - 1, indent.size());
    std::string rest = shown(sentence, sentence.size());
    std::string text;
    do {
        size_t end = rest.size();
        if (end > room) {
            end = rest.rfind(' ', room);
            if (end == std::string::npos || end == 0) end = room;  // a word without an end
        }
        text += (text.empty() ? indent : std::string(indent.size(), ' ')) + rest.substr(0, end);
        text += "\n";
        rest.erase(0, end);
        rest.erase(0, rest.find_first_not_of(' '));
    } while (!rest.empty());
    return text;
}

std::string TextTable::text(size_t width) const {
    constexpr const char* kIndent = "  ";
    constexpr const char* kGap = "  ";
    std::vector<size_t> widths(mAlignment.size());
    for (const auto& row : mRows) {
        for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
    }
    std::string text;
    for (const auto& row : mRows) {
        std::string line = kIndent;
        for (size_t i = 0; i < row.size(); ++i) {
            if (i > 0) line += kGap;
            if (i + 1 == mAlignment.size() && mAlignment[i] == 'l') {
                line += shown(row[i], width - std::min(width, line.size()));
                continue;
            }
            const std::string pad(widths[i] - row[i].size(), ' ');
            line += mAlignment[i] == 'r' ? pad + row[i] : row[i] + pad;
        }
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + "\n";
    }
    return text;
}

}  // namespace corvane::replay
