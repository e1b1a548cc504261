// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <sstream>

#include "replay/HtmlReport.h"

namespace corvane::replay {
namespace {

size_t countOf(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

// A browser reads the data until the next "</script", whatever stands before it.
Json::Value carried(const std::string& page) {
    const std::string begin = "id=\"report-data\">";
    const size_t from = page.find(begin) + begin.size();
    std::istringstream data(page.substr(from, page.find("</script", from) - from));
    Json::Value document;
    data >> document;
    return document;
}

TEST(Page, CarriesNamesThatAreNoMarkupAsTheyAre) {
    const std::string clean = htmlReport(Json::Value(Json::objectValue));
    const struct {
        std::string name, carried;
    } cases[] = {
            {"</script><script>alert(1)</script>", ""},    {"<!--<script>", ""},
            {"]]>\"'\\&amp;%STYLE%%FIGURES%%SCRIPT%", ""}, {"\u2028\u2029\u202eevil\U0001f600", ""},
            {std::string("a\0b\x1b\x7f", 5), ""},          {"\xff\xc3(\xed\xa0\x80", "not UTF-8"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Json::Value document;
        document["layers"][0]["name"] = c.name;
        document[c.name] = 1;
        const std::string page = htmlReport(document);
        for (const char* markup : {"<script", "</script", "<!--", "<"}) {
            EXPECT_EQ(countOf(page, markup), countOf(clean, markup)) << markup;
        }
        EXPECT_EQ(countOf(page, "Content-Security-Policy"), 1U);
        for (const char byte : page) ASSERT_GE(byte, 0) << "a byte beyond ASCII";
        if (c.carried.empty()) {
            EXPECT_EQ(carried(page), document);
        } else {
            EXPECT_TRUE(carried(page)["layers"][0]["name"].isString());
        }
    }
}

}  // namespace
}  // namespace corvane::replay
