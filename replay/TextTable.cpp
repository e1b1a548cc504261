// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/TextTable.h"

#include <locale.h>
#include <wctype.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cwchar>
#include <iterator>

namespace corvane::replay {
namespace {

constexpr double kNsPerUs = 1e3;
constexpr double kNsPerMs = 1e6;
constexpr double kNsPerSecond = 1e9;
constexpr int64_t kCostInMillisNs = 10'000'000;
constexpr std::string_view kDots = "...";

// One character with the marks that it carries, or one byte's escape.
struct Glyph {
    std::string text;
    size_t columns;
};

// The locale that knows UTF-8's characters; part of every C library. Without it all but ASCII is
// escaped.
locale_t utf8() {
    static const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    return locale;
}

// Not what moves the cursor, turns the direction of writing or shows nothing at all.
bool isPrintable(wchar_t c) {
    const int columns = wcwidth(c);
    return columns > 0 || (columns == 0 && iswctype(static_cast<wint_t>(c), wctype("combining")));
}

std::vector<Glyph> glyphsOf(std::string_view text) {
    const locale_t before = utf8() != nullptr ? uselocale(utf8()) : nullptr;
    std::vector<Glyph> glyphs;
    for (size_t at = 0; at < text.size();) {
        wchar_t c = 0;
        std::mbstate_t state{};
        const size_t size = std::mbrtowc(&c, text.data() + at, text.size() - at, &state);
        if (size > 0 && size <= text.size() - at && isPrintable(c)) {
            glyphs.push_back({std::string(text.substr(at, size)), static_cast<size_t>(wcwidth(c))});
            at += size;
        } else {
            const auto byte = static_cast<unsigned char>(text[at++]);
            const std::string escape = format("\\x%02x", byte);
            glyphs.push_back({escape, escape.size()});
        }
    }
    if (before != nullptr) uselocale(before);
    return glyphs;
}

std::string joined(std::vector<Glyph>::const_iterator begin,
                   std::vector<Glyph>::const_iterator end) {
    std::string text;
    for (; begin != end; ++begin) text += begin->text;
    return text;
}

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
    return plural(count, noun, (std::string(noun) + "s").c_str());
}

std::string plural(size_t count, const char* one, const char* many) {
    return format("%zu %s", count, count == 1 ? one : many);
}

std::string shown(std::string_view text, size_t width) {
    const std::vector<Glyph> glyphs = glyphsOf(text);
    size_t columns = 0;
    for (const auto& glyph : glyphs) columns += glyph.columns;
    if (columns <= width) return joined(glyphs.begin(), glyphs.end());
    const size_t tail = width > kDots.size() ? width / 3 : 0;
    const size_t head = width - tail - std::min(width, kDots.size());
    size_t taken = 0;
    auto headEnd = glyphs.begin();
    while (taken + headEnd->columns <= head) taken += (headEnd++)->columns;
    taken = 0;
    auto tailBegin = glyphs.end();
    while (taken + std::prev(tailBegin)->columns <= tail) taken += (--tailBegin)->columns;
    return joined(glyphs.begin(), headEnd) + std::string(kDots.substr(0, width)) +
           joined(tailBegin, glyphs.end());
}

std::string shown(std::string_view text) {
    const std::vector<Glyph> glyphs = glyphsOf(text);
    return joined(glyphs.begin(), glyphs.end());
}

size_t columnsOf(std::string_view text) {
    size_t columns = 0;
    for (const auto& glyph : glyphsOf(text)) columns += glyph.columns;
    return columns;
}

std::string wrapped(const std::string& sentence, const std::string& indent, size_t width) {
    const size_t room = width - std::min(width - 1, indent.size());
    const std::vector<Glyph> glyphs = glyphsOf(sentence);
    std::string text;
    auto begin = glyphs.begin();
    do {
        // The line's end: the last blank that fits, or in a word that alone is longer.
        auto end = begin;
        auto blank = glyphs.end();
        size_t columns = 0;
        while (end != glyphs.end() && columns + end->columns <= room) {
            columns += end->columns;
            if (end->text == " ") blank = end;
            ++end;
        }
        if (end == begin && end != glyphs.end()) ++end;  // wider than a whole line
        if (end != glyphs.end() && end->text != " " && blank != glyphs.end()) end = blank;
        text += (text.empty() ? indent : std::string(indent.size(), ' ')) + joined(begin, end) +
                "\n";
        begin = std::find_if(end, glyphs.end(),
                             [](const Glyph& glyph) { return glyph.text != " "; });
    } while (begin != glyphs.end());
    return text;
}

std::string TextTable::text(size_t width) const {
    constexpr const char* kIndent = "  ";
    constexpr const char* kGap = "  ";
    constexpr size_t kMinShown = 8;  // columns of the last one
    std::vector<size_t> widths(mAlignment.size());
    for (const auto& row : mRows) {
        for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], columnsOf(row[i]));
    }
    size_t lastBegins = columnsOf(kIndent);
    for (size_t i = 0; i + 1 < widths.size(); ++i) lastBegins += widths[i] + columnsOf(kGap);
    const bool lastShown =
            mAlignment.back() != 'l' || lastBegins + std::min(kMinShown, widths.back()) <= width;
    const size_t columns = mAlignment.size() - (lastShown ? 0 : 1);
    std::string text;
    for (const auto& row : mRows) {
        std::string line = kIndent;
        for (size_t i = 0; i < std::min(columns, row.size()); ++i) {
            if (i > 0) line += kGap;
            if (i + 1 == mAlignment.size() && mAlignment[i] == 'l') {
                line += shown(row[i], width - std::min(width, columnsOf(line)));
                continue;
            }
            const std::string pad(widths[i] - columnsOf(row[i]), ' ');
            line += mAlignment[i] == 'r' ? pad + row[i] : row[i] + pad;
        }
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + "\n";
    }
    return text;
}

}  // namespace corvane::replay
