// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/HtmlReport.h"

#include <string_view>

#include "replay/PageSources.h"

namespace corvane::replay {
namespace {

// JSON that may stand within a script element. The writer escapes whatever is not ASCII, and
// replaces what is not UTF-8; markup can begin only in a string, where an escape stands as well.
std::string embedded(const Json::Value& value) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    const std::string text = Json::writeString(builder, value);
    std::string safe;
    safe.reserve(text.size() + text.size() / 64);
    for (const char c : text) {
        if (c == '<') {
            safe += "\\u003c";
        } else {
            safe += c;
        }
    }
    return safe;
}

}  // namespace

std::string htmlReport(const Json::Value& document) {
    std::string page;
    std::string_view rest = kPageMarkup;
    // Replaced in the order in which they stand there, so that nothing is looked for in the data.
    const auto put = [&](std::string_view mark, std::string_view text) {
        const size_t at = rest.find(mark);
        page.append(rest.substr(0, at)).append(text);
        rest.remove_prefix(at + mark.size());
    };
    put("%STYLE%", kPageStyle);
    put("%DATA%", embedded(document));
    put("%SCRIPT%", kPageScript);
    return page.append(rest);
}

}  // namespace corvane::replay
