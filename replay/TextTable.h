// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace corvane::replay {

// printf into a text; what exceeds 511 characters is cut.
std::string format(const char* pattern, ...) __attribute__((format(printf, 1, 2)));

// Times with their unit: "4.17 s", "16.70 ms"; and a cost in "us", from 10 ms on in "ms".
std::string seconds(int64_t ns);
std::string millis(int64_t ns);
std::string cost(int64_t ns);

std::string plural(size_t count, const char* noun);  // "1 frame", "2 frames"
std::string plural(size_t count, const char* one, const char* many);

// A text that applications chose, as a terminal may see it, in at most `width` columns: valid UTF-8
// stays as it is, as long as it only prints; any other byte is escaped ("\x1b"). A long text loses
// its middle.
std::string shown(std::string_view text, size_t width);
// The same, whole.
std::string shown(std::string_view text);

// How many columns a text takes that was made to be shown.
size_t columnsOf(std::string_view text);

// A sentence, broken between words into lines of at most `width` columns; the first begins with
// `indent`, the others with as many blanks.
std::string wrapped(const std::string& sentence, const std::string& indent, size_t width);

// Lines of cells in aligned columns.
class TextTable {
  public:
    // One character per column: 'l' or 'r' for its alignment.
    explicit TextTable(std::string alignment) : mAlignment(std::move(alignment)) {}

    void add(std::vector<std::string> cells) { mRows.push_back(std::move(cells)); }
    // The cell of the last column gives way where a line would be longer than `width`, and the
    // whole column where nothing to be recognised would be left of it.
    std::string text(size_t width) const;

  private:
    const std::string mAlignment;
    std::vector<std::vector<std::string>> mRows;
};

}  // namespace corvane::replay
