// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Who is dropped, and the report of who is seen.

#include <gtest/gtest.h>
#include <json/json.h>

#include <limits>
#include <memory>
#include <sstream>
#include <string>

#include "layers/LayerSelection.h"
#include "layers/SceneReport.h"

namespace android {
namespace {

constexpr nsecs_t kNow = 9'000'000'000;

// Layers as "ID:MODE" with any of b(ackground), g(ame), h(idden), x = expired, + = silent and in
// grace.
LayerList layers(const std::string& text, LayerInfo::Identity identity = {}) {
    LayerList result;
    std::istringstream words(text);
    char colon = 0;
    std::string flags;
    for (int id = 0, mode = 0; words >> id >> colon >> mode; result.back()->mFpsMode = mode) {
        flags.clear();
        std::getline(words, flags, ' ');
        const auto has = [&](char flag) { return flags.find(flag) != std::string::npos; };
        identity.id = id;
        sp<LayerInfo> layer = sp<LayerInfo>::make(identity);
        layer->mFocused = !has('b');
        layer->mIsGame = has('g');
        layer->mVisible = !has('h');
        layer->mActive = !has('x') && !has('+');
        layer->mRemoveDeadline = has('+') ? kNow + 1 : kNow;
        result.push_back(std::move(layer));
    }
    return result;
}

TEST(LayerSelectionTest, RemovesTheLeastImportant) {
    const struct {
        const char* what;
        const char* layers;
        const char* removed;
        bool crowded;
        bool rankedOut;
    } cases[] = {
            {"the expired, always", "1:60x 2:60+ 3:-1", "1 ", false, false},
            {"four may stay", "1:-1 2:-1 3:-1 4:-1", "", false, false},
            {"the fifth costs slow and hidden", "1:29 2:60h 3:30 4:60 5:60+", "1 2 ", true, false},
            {"focus outweighs game, and game the rate",
             "1:60g 2:30g 3:120 4:120 5:120bg 6:120b 7:60b", "7 6 5 ", true, true},
            {"equal layers go by id", "1:60 2:60 3:60 4:60 5:60", "1 ", true, true},
            {"in grace none makes room", "1:60+ 2:60+ 3:60+ 4:60+ 5:60+ 6:60", "6 ", true, true},
    };
    for (const auto& c : cases) {
        const LayerRemovals removals = selectLayersToRemove(layers(c.layers), kNow);
        std::string ids;
        for (const auto& layer : removals.layers) ids += std::to_string(layer->mId) + ' ';
        EXPECT_EQ(ids, c.removed) << c.what;
        EXPECT_EQ(removals.crowded, c.crowded) << c.what;
        EXPECT_EQ(removals.rankedOut, c.rankedOut) << c.what;
    }
}

// The registry's model has the reports of ordinary names and sizes.
TEST(SceneReportTest, HostileNamesStayValidJson) {
    const std::string names[] = {"quote\"back\\slash",    "control\x01\x1f\n\t\x7f",
                                 "bad\xff\xfe utf8",      "cut\xe2\x82",
                                 "sur\xed\xa0\x80rogate", "\xc3\xa9\xf0\x9f\x8e\xae",
                                 "over\xc0\x80long",      "%s%n</script>"};
    const auto makeApp = [](const std::string& package) {
        LayerInfo::Identity identity;
        identity.packageName = package;
        const sp<LayerInfo> app = layers("1:60", identity).front();
        app->mFps = std::numeric_limits<float>::max();
        app->mBounds = Rect(INT32_MIN, INT32_MIN, INT32_MAX, INT32_MAX);
        return app;
    };
    for (const std::string& name : names) {
        const std::string report = buildSceneReport({makeApp(name)});
        Json::Value document;
        std::string errors;
        const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
        ASSERT_TRUE(reader->parse(report.data(), report.data() + report.size(), &document, &errors))
                << report << errors;
        EXPECT_EQ(document["apps"][0]["fps"], INT32_MAX);
        // The service reads what the library's original writer writes.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
        document["apps"][0]["pkg"] = name;
        EXPECT_EQ(report, Json::FastWriter().write(document));
#pragma GCC diagnostic pop
    }
    // 256 characters are what a report may have.
    const std::string fits(256 - buildSceneReport({makeApp("")}).size(), 'b');
    EXPECT_EQ(buildSceneReport({makeApp(fits)}).size(), 256u);
    EXPECT_EQ(buildSceneReport({makeApp(fits + 'b'), makeApp("c")}), "{\"apps\":[]}\n")
            << "nothing is added after a drop";
}

}  // namespace
}  // namespace android
