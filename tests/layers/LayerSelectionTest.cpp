// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Who is dropped, who is reported first, and the report itself.

#include <gtest/gtest.h>
#include <json/json.h>

#include <limits>
#include <memory>

#include "layers/LayerSelection.h"
#include "layers/SceneReport.h"

namespace android {
namespace {

constexpr nsecs_t kNow = 9'000'000'000;

sp<LayerInfo> makeLayer(int id, int mode, bool focused = true, bool game = false) {
    sp<LayerInfo> layer = sp<LayerInfo>::make();
    layer->mId = id;
    layer->mUid = 10'000 + id;
    layer->mActive = true;
    layer->mFpsMode = mode;
    layer->mFocused = focused;
    layer->mIsGame = game;
    return layer;
}

sp<LayerInfo> makeInactive(int id, nsecs_t removeDeadline) {
    sp<LayerInfo> layer = makeLayer(id, 60);
    layer->mActive = false;
    layer->mRemoveDeadline = removeDeadline;
    return layer;
}

sp<LayerInfo> makeHidden(int id, int mode) {
    sp<LayerInfo> layer = makeLayer(id, mode);
    layer->mVisible = false;
    return layer;
}

using Ids = std::vector<int>;

Ids ids(const LayerList& layers) {
    Ids result;
    for (const sp<LayerInfo>& layer : layers) result.push_back(layer->mId);
    return result;
}

TEST(LayerSelectionTest, RemovesTheLeastImportant) {
    const auto grace = [](int id) { return makeInactive(id, kNow + 1); };
    const struct {
        const char* what;
        LayerList layers;
        Ids removed;
        bool crowded;
        bool rankedOut;
    } cases[] = {
            {"the expired, always",
             {makeInactive(1, kNow), grace(2), makeLayer(3, -1)},
             {1},
             false,
             false},
            {"four may stay",
             {makeLayer(1, -1), makeLayer(2, -1), makeLayer(3, -1), makeLayer(4, -1)},
             {},
             false,
             false},
            {"the fifth costs the slow and hidden",
             {makeLayer(1, 29), makeHidden(2, 60), makeLayer(3, 30), makeLayer(4, 60), grace(5)},
             {1, 2},
             true,
             false},
            {"focus outweighs game, and game the rate",
             {makeLayer(1, 60, true, true), makeLayer(2, 30, true, true), makeLayer(3, 120),
              makeLayer(4, 120), makeLayer(5, 120, false, true), makeLayer(6, 120, false),
              makeLayer(7, 60, false)},
             {7, 6, 5},
             true,
             true},
            {"equal layers go by id",
             {makeLayer(1, 60), makeLayer(2, 60), makeLayer(3, 60), makeLayer(4, 60),
              makeLayer(5, 60)},
             {1},
             true,
             true},
            {"layers in grace cannot make room",
             {grace(1), grace(2), grace(3), grace(4), grace(5), makeLayer(6, 60)},
             {6},
             true,
             true},
    };
    for (const auto& c : cases) {
        const LayerRemovals removals = selectLayersToRemove(c.layers, kNow);
        EXPECT_EQ(ids(removals.layers), c.removed) << c.what;
        EXPECT_EQ(removals.crowded, c.crowded) << c.what;
        EXPECT_EQ(removals.rankedOut, c.rankedOut) << c.what;
    }
}

TEST(LayerSelectionTest, RanksOneLayerPerApplication) {
    LayerList sameApp = {makeLayer(1, 30), makeLayer(2, 60), makeLayer(3, 60)};
    for (const sp<LayerInfo>& layer : sameApp) layer->mUid = 7;
    sameApp.push_back(makeHidden(4, 120));
    sameApp.push_back(makeInactive(5, 0));
    EXPECT_EQ(ids(rankVisibleApps(sameApp)), Ids{2});
    EXPECT_EQ(ids(rankVisibleApps({makeLayer(1, 120, false, true), makeLayer(2, 30),
                                   makeLayer(3, 60), makeLayer(4, 30, true, true),
                                   makeLayer(5, 60)})),
              (Ids{4, 3, 5, 2, 1}));
}

sp<LayerInfo> makeApp(const std::string& package, bool focused = true) {
    sp<LayerInfo> layer = makeLayer(1, 60, focused);
    layer->mPackageName = package;
    layer->mFps = 59.996f;
    layer->mBounds = Rect(0, 10, 1080, 2400);
    return layer;
}

TEST(SceneReportTest, DescribesWholeApplicationsUpToTheLimit) {
    const sp<LayerInfo> game = makeApp("com.example.game");
    game->mSceneTag = "minigame";
    EXPECT_EQ(buildSceneReport({game, makeApp("com.example.video", /*focused=*/false)}),
              R"({"apps":[{"F":1,"M":60,"b":2400,"fps":6000,"l":0,"pkg":"com.example.game",)"
              R"("r":1080,"scene":"minigame","t":10},{"F":0,"M":60,"b":2400,"fps":6000,"l":0,)"
              R"("pkg":"com.example.video","r":1080,"t":10}]})"
              "\n");

    // Two applications whose report is 256 characters long, and then 257.
    const size_t twoShort = buildSceneReport({makeApp("a"), makeApp("b")}).size();
    const std::string fits(256 - twoShort + 1, 'b');
    EXPECT_EQ(buildSceneReport({makeApp("a"), makeApp(fits)}).size(), 256u);
    EXPECT_EQ(buildSceneReport({makeApp("a"), makeApp(fits + 'b'), makeApp("c")}),
              buildSceneReport({makeApp("a")}))
            << "nothing is added after a drop";
    EXPECT_EQ(buildSceneReport({makeApp(std::string(4096, 'x'))}), "{\"apps\":[]}\n");
}

TEST(SceneReportTest, HostileNamesStayValidJson) {
    const std::string names[] = {"quote\"back\\slash",    "control\x01\x1f\n\t\x7f",
                                 "bad\xff\xfe utf8",      "cut\xe2\x82",
                                 "sur\xed\xa0\x80rogate", "\xc3\xa9\xf0\x9f\x8e\xae",
                                 "over\xc0\x80long",      "%s%n</script>"};
    for (const std::string& name : names) {
        const sp<LayerInfo> app = makeApp(name);
        app->mFps = std::numeric_limits<float>::max();
        app->mBounds = Rect(INT32_MIN, INT32_MIN, INT32_MAX, INT32_MAX);
        const std::string report = buildSceneReport({app});

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
}

}  // namespace
}  // namespace android
