// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>

#include "replay/HtmlReport.h"

namespace corvane::replay {
namespace {

// A browser reads the data until the next "</script", whatever stands before it.
TEST(Page, CarriesNamesThatAreNoMarkupAsTheyAre) {
    const std::string clean = htmlReport(Json::Value(Json::objectValue));
    for (const std::string& name :
         {std::string("</script><script>alert(1)</script><!--<script>"), std::string("a\0b\x1b", 4),
          std::string("]]>\"'\\&amp;%STYLE%%FIGURES%%SCRIPT%"),
          std::string("\u2028\u2029\u202eevil\U0001f600"), std::string("\xff\xc3(\xed\xa0\x80")}) {
        Json::Value document, carried;
        document["layers"][0]["name"] = name;
        document[name] = 1;
        const std::string page = htmlReport(document);
        EXPECT_EQ(std::count(page.begin(), page.end(), '<'),
                  std::count(clean.begin(), clean.end(), '<'));
        for (const char byte : page) ASSERT_GE(byte, 0) << "a byte beyond ASCII";
        const std::string begin = "id=\"report-data\">";
        const size_t from = page.find(begin) + begin.size();
        std::istringstream(page.substr(from, page.find("</script", from) - from)) >> carried;
        EXPECT_TRUE(name[0] == '\xff' || carried == document) << name;
        EXPECT_TRUE(carried["layers"][0]["name"].isString());
    }
}

}  // namespace
}  // namespace corvane::replay
