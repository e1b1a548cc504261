// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/HtmlReport.h"

#include <string>
#include <string_view>

#include "replay/PageSources.h"

namespace corvane::replay {
namespace {

// JSON that may stand within a script element. The writer escapes whatever is not ASCII, and
// replaces what is not UTF-8; markup can begin only in a string, where an escape stands as well.
std::string embedded(std::string_view json) {
    std::string safe;
    safe.reserve(json.size() + json.size() / 64);
    for (const char c : json) {
        if (c == '<') {
            safe += "\\u003c";
        } else {
            safe += c;
        }
    }
    return safe;
}

}  // namespace

void writeHtmlReport(const ReportSource& source, const JsonStream::Sink& sink) {
    std::string_view rest = kPageMarkup;
    // Replaced in the order in which they stand there, so that nothing is looked for in the data.
    const auto writeUntil = [&](std::string_view mark) {
        const size_t at = rest.find(mark);
        sink(rest.substr(0, at));
        rest.remove_prefix(at + mark.size());
    };
    writeUntil("%STYLE%");
    sink(kPageStyle);
    writeUntil("%DATA%");
    writeJsonReport(source, [&](std::string_view piece) { sink(embedded(piece)); });
    writeUntil("%SCRIPT%");
    sink(kPageScript);
    sink(rest);
}

}  // namespace corvane::replay
