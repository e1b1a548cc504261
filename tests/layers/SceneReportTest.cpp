// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>
#include <json/json.h>

#include <limits>
#include <memory>

#include "layers/SceneReport.h"

namespace android {
namespace {

sp<LayerInfo> makeApp(const std::string& package) {
    sp<LayerInfo> layer = sp<LayerInfo>::make();
    layer->mPackageName = package;
    layer->mFps = 59.996f;
    layer->mFpsMode = 60;
    layer->mBounds = Rect(0, 10, 1080, 2400);
    return layer;
}

TEST(SceneReportTest, DescribesEachApplication) {
    const sp<LayerInfo> game = makeApp("com.example.game");
    game->mSceneTag = "minigame";
    const sp<LayerInfo> video = makeApp("com.example.video");
    video->mFocused = false;
    EXPECT_EQ(buildSceneReport({game, video}),
              R"({"apps":[{"F":1,"M":60,"b":2400,"fps":6000,"l":0,"pkg":"com.example.game",)"
              R"("r":1080,"scene":"minigame","t":10},{"F":0,"M":60,"b":2400,"fps":6000,"l":0,)"
              R"("pkg":"com.example.video","r":1080,"t":10}]})"
              "\n");
    EXPECT_EQ(buildSceneReport({}), "{\"apps\":[]}\n");
}

TEST(SceneReportTest, DropsWholeApplicationsAboveTheLimit) {
    // Two applications whose report is 256 characters long, and then 257.
    const size_t twoShort = buildSceneReport({makeApp("a"), makeApp("b")}).size();
    const std::string fits(256 - twoShort + 1, 'b');
    const std::string full = buildSceneReport({makeApp("a"), makeApp(fits)});
    EXPECT_EQ(full.size(), 256u);
    const std::string one = buildSceneReport({makeApp("a")});
    EXPECT_EQ(buildSceneReport({makeApp("a"), makeApp(fits + 'b')}), one);
    EXPECT_EQ(buildSceneReport({makeApp("a"), makeApp(fits + 'b'), makeApp("c")}), one)
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
        EXPECT_EQ(document["apps"].size(), 1u);
        EXPECT_EQ(document["apps"][0]["fps"], INT32_MAX);
        // The service reads what the library's original writer writes.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
        Json::Value expected(Json::objectValue);
        Json::Value& object = expected["apps"].append(Json::Value(Json::objectValue));
        object["pkg"] = name;
        object["fps"] = INT32_MAX;
        object["M"] = 60;
        object["F"] = 1;
        object["l"] = object["t"] = INT32_MIN;
        object["r"] = object["b"] = INT32_MAX;
        EXPECT_EQ(report, Json::FastWriter().write(expected));
#pragma GCC diagnostic pop
    }
}

}  // namespace
}  // namespace android
