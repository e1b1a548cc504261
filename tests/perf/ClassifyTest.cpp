// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "perf/LayerName.h"
#include "perf/LayerNameReference.h"
#include "perf/PerfProxy.h"

namespace android {
namespace {

TEST(Classify, FpsMode) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    constexpr std::pair<float, int> kCases[] = {{-kInfinity, -1},
                                                {-1.0f, -1},
                                                {0.0f, -1},
                                                {0.4f, 0},
                                                {0.5f, 1},
                                                {12.49f, 12},
                                                {17.5f, 18},
                                                {18.0f, 18},
                                                {18.01f, 30},
                                                {260.01f, -1},
                                                {1e30f, -1},
                                                {kInfinity, -1},
                                                {std::numeric_limits<float>::quiet_NaN(), -1}};
    for (const auto& [fps, mode] : kCases) {
        EXPECT_EQ(mode, PerfProxy::getFpsMode(fps)) << fps;
    }
    // Each mode begins right above the limit of the one below.
    float below = 18.0f;
    constexpr std::pair<float, int> kLimits[] = {{33.0f, 30},   {48.0f, 45},   {63.0f, 60},
                                                 {78.0f, 75},   {95.0f, 90},   {123.0f, 120},
                                                 {147.0f, 144}, {168.0f, 165}, {210.0f, 185},
                                                 {260.0f, 240}};
    for (const auto& [limit, mode] : kLimits) {
        EXPECT_EQ(mode, PerfProxy::getFpsMode(std::nextafter(below, kInfinity))) << below;
        EXPECT_EQ(mode, PerfProxy::getFpsMode(limit)) << limit;
        below = limit;
    }
}

TEST(Classify, VsyncMode) {
    constexpr struct {
        long long first;  // the lowest and highest periods of a mode
        long long last;
        int mode;
    } kCases[] = {{15'000'001, 17'999'999, 60}, {12'500'001, 14'899'999, 75},
                  {10'500'001, 11'699'999, 90}, {8'000'001, 8'999'999, 120},
                  {6'800'001, 7'699'999, 144},  {5'800'001, 6'499'999, 165},
                  {4'800'001, 5'599'999, 185},  {3'800'001, 4'599'999, 240}};
    for (const auto& c : kCases) {
        EXPECT_EQ(0, PerfProxy::setVsyncMode(c.first - 1)) << c.mode;
        EXPECT_EQ(c.mode, PerfProxy::setVsyncMode(c.first));
        EXPECT_EQ(c.mode, PerfProxy::setVsyncMode(c.last));
        EXPECT_EQ(0, PerfProxy::setVsyncMode(c.last + 1)) << c.mode;
    }
    EXPECT_EQ(0, PerfProxy::setVsyncMode(-16'666'666));
}

TEST(Classify, NumericString) {
    for (const char* text : {"0", "120", "-3", "5.", ".5", "-.5", "-5.", "59.94"}) {
        EXPECT_TRUE(PerfProxy::isNumericString(text)) << text;
    }
    for (const char* text : {"", "-", ".", "-.", "..", "--1", "1-", "+1", "1e5", " 1", "1 ",
                             "1.2.3", "0x1", "nan", "\xd9\xa1"}) {
        EXPECT_FALSE(PerfProxy::isNumericString(text)) << text;
    }
    EXPECT_FALSE(PerfProxy::isNumericString(std::string("1\0", 2)));
}

TEST(LayerName, PackageOfKnownForms) {
    const std::pair<const char*, const char*> kCases[] = {
            {"VRI-com.example.app/com.example.app.MainActivity#12", "com.example.app"},
            {"VRI-SurfaceView[com.example.game/com.example.game.Main](BLAST)#3",
             "com.example.game"},
            {"abc_1 \tSurfaceView[com.a.b/x]#7", "com.a.b"},
            {"SurfaceView[com.a.b]#7", "com.a.b]"},
            {"SurfaceView[com.a.b/x]", "SurfaceView[com.a.b"},
            {"VRI-InputMethod#12", "UnknownKeyboard"},
            {"StatusBar#5", ""},
    };
    for (const auto& [name, package] : kCases) {
        EXPECT_EQ(package, PerfProxy::getPackageName(name)) << name;
    }
}

std::vector<std::string> splitAtBars(const std::string& joined) {
    std::vector<std::string> pieces;
    std::istringstream stream(joined);
    for (std::string piece; std::getline(stream, piece, '|');) pieces.push_back(piece);
    return pieces;
}

// Names put together from the pieces that the expressions treat differently, and from every byte.
TEST(LayerName, ScansAgreeWithTheExpressions) {
    // A start and an end that match more often than not, so that the middle decides.
    const auto starts = splitAtBars(
            "||SurfaceView[|SurfaceView[|w SurfaceView[|_9\n SurfaceView[|InputMethod#");
    const auto middles = splitAtBars(
            "SurfaceView[|SurfaceView|InputMethod#|InputMethod|VRI-|[|]|/|#|_|a|Z|0|9|"
            "42| |\t|\n|\r|\v|\f|\xe2\x80\xa8|\xc2\x85|\x85|\xa0|\xb2|\xff|\x80|.|-|"
            "com.a|#1|#0");
    const auto ends = splitAtBars("|#1|#123|/x]#7|#|7|1234");
    std::mt19937 random{20'261'121};  // a fixed seed: the same names in every run
    const auto pick = [&](const auto& pieces) { return pieces[random() % pieces.size()]; };
    int surfaceViews = 0;
    int inputMethods = 0;
    for (int i = 0; i < 100'000; ++i) {
        std::string name = pick(starts);
        for (size_t pieces = random() % 6; pieces > 0; --pieces) {
            name += random() % 4 == 0 ? std::string(1, static_cast<char>(random())) : pick(middles);
        }
        name += pick(ends);
        // Long runs, as long as the matcher can take them: it is slowest where it may stop
        // anywhere.
        if (i % 20 == 0) {
            name.insert(random() % (name.size() + 1), random() % 120, "a7 \n#[/w_"[random() % 9]);
        }
        const auto surfaceView = LayerNameReference::surfaceView(name);
        const bool isInputMethod = LayerNameReference::isInputMethod(name);
        ASSERT_EQ(surfaceView, scanSurfaceViewName(name));
        ASSERT_EQ(isInputMethod, scanInputMethodName(name)) << name;
        ASSERT_EQ(LayerNameReference::package("VRI-" + name),
                  PerfProxy::getPackageName("VRI-" + name));
        surfaceViews += surfaceView.has_value();
        inputMethods += isInputMethod;
    }
    // Both outcomes must be common, or the comparison says little.
    EXPECT_GT(surfaceViews, 10'000);
    EXPECT_GT(inputMethods, 500);
}

// A backtracking matcher would need hours for some of these, or the whole stack.
TEST(LayerName, HostileNamesAreHarmless) {
    const auto filler = [](char c) { return std::string(200'000, c); };
    const std::pair<std::string, std::string> kCases[] = {
            {filler('a'), ""},
            {filler('#'), ""},
            {filler('\0'), ""},
            {filler('\xff') + "/", filler('\xff')},
            {"SurfaceView[" + filler('a'), ""},
            {"SurfaceView[" + filler('#') + "1", filler('#').substr(1)},
            {"SurfaceView[" + filler('a') + "\n/\n#1", "SurfaceView[" + filler('a') + "\n"},
            {"SurfaceView[a#" + filler('1'), "a"},
            {"SurfaceView[a/" + filler('#') + "1", "a"},
            {filler('w') + filler(' ') + "SurfaceView[a/b]#1", "a"},
            {filler(' ') + filler('w') + "SurfaceView[a]#1", ""},
            {"InputMethod#" + filler('1'), "UnknownKeyboard"},
            {"InputMethod#" + filler('1') + "x", ""},
    };
    for (const auto& [name, package] : kCases) {
        EXPECT_TRUE(package == PerfProxy::getPackageName(name)) << name.substr(0, 20);
    }
}

TEST(LayerName, SceneTag) {
    constexpr const char* kVideoApp = "com.ss.android.ugc.aweme";
    const std::tuple<std::string, const char*, const char*> kCases[] =
            {{kVideoApp, "x minigame y", "minigame"},
             {kVideoApp, "MiniGame AppBrandUI SurfaceView", ""},
             {kVideoApp + std::string("2"), "minigame", ""},
             {"com.tencent.mm", "SurfaceView[com.tencent.mm/AppBrandUI]", "minigame"},
             {"com.tencent.mm", "AppBrandUI minigame", ""},
             {"com.tencent.mm", "SurfaceView minigame", ""},
             {"", "minigame AppBrandUI SurfaceView", ""}};
    for (const auto& [package, layer, tag] : kCases) {
        EXPECT_EQ(tag, PerfProxy::getLayerSceneTag(package, layer)) << package << " " << layer;
    }
}

}  // namespace
}  // namespace android
