// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "perf/LayerName.h"
#include "perf/LayerNameReference.h"
#include "perf/PerfProxy.h"

namespace android {
namespace {

using Strings = std::vector<std::string>;

TEST(Classify, FpsAndVsyncModes) {
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    for (const float none : {-kInfinity, -1.0f, 0.0f, 260.01f, kInfinity, std::nanf("")}) {
        EXPECT_EQ(-1, PerfProxy::getFpsMode(none)) << none;
    }
    for (const float fps : {0.4f, 0.5f, 12.49f, 17.5f, 18.0f}) {
        EXPECT_EQ(std::floor(fps + 0.5f), PerfProxy::getFpsMode(fps));
    }
    constexpr struct {
        int mode;
        float maxFps;                 // it begins right above the limit of the one before
        long long shortest, longest;  // periods
    } kModes[] = {
            {30, 33, 0, 0},
            {45, 48, 0, 0},
            {60, 63, 15'000'001, 17'999'999},
            {75, 78, 12'500'001, 14'899'999},
            {90, 95, 10'500'001, 11'699'999},
            {120, 123, 8'000'001, 8'999'999},
            {144, 147, 6'800'001, 7'699'999},
            {165, 168, 5'800'001, 6'499'999},
            {185, 210, 4'800'001, 5'599'999},
            {240, 260, 3'800'001, 4'599'999},
    };
    float below = 18;
    for (const auto& m : kModes) {
        SCOPED_TRACE(m.mode);
        EXPECT_EQ(m.mode, PerfProxy::getFpsMode(std::nextafter(below, kInfinity)));
        EXPECT_EQ(m.mode, PerfProxy::getFpsMode(m.maxFps));
        below = m.maxFps;
        EXPECT_EQ(0, PerfProxy::setVsyncMode(m.shortest - 1));
        EXPECT_EQ(m.longest == 0 ? 0 : m.mode, PerfProxy::setVsyncMode(m.shortest));
        EXPECT_EQ(m.longest == 0 ? 0 : m.mode, PerfProxy::setVsyncMode(m.longest));
        EXPECT_EQ(0, PerfProxy::setVsyncMode(m.longest + 1));
    }
}

// Names put together from the pieces that the expressions treat differently, and from every byte.
TEST(LayerName, ScansAgreeWithTheExpressions) {
    // A kind and an end that match more often than not, so that the rest decides.
    const Strings kinds = {"SurfaceView[", "VRI-SurfaceView[", "InputMethod#", ""};
    const Strings ends = {"", "#1", "#123", "/x]#7", "#", "7", "1234"};
    const Strings edges = {"a", "z", "A",  "Z",  "0",  "9",  "_",  "/",  ":",   "@", "[", "`",
                           "{", " ", "\b", "\t", "\n", "\v", "\f", "\r", "\xe", "#", "]", "VRI-"};
    std::mt19937 random{20'261'121};  // a fixed seed: the same names in every run
    const auto pick = [&](const Strings& pieces) { return pieces[random() % pieces.size()]; };
    const auto some = [&](size_t limit) {
        std::string text;
        for (size_t pieces = random() % limit; pieces > 0; --pieces) {
            text += random() % 4 == 0 ? std::string(1, static_cast<char>(random())) : pick(edges);
        }
        return text;
    };
    int surfaceViews = 0;
    int inputMethods = 0;
    for (int i = 0; i < 60'000; ++i) {
        std::string name = some(3);
        name += pick(kinds);
        name += some(6);
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
        ASSERT_EQ(LayerNameReference::package(name), PerfProxy::getPackageName(name));
        surfaceViews += surfaceView.has_value();
        inputMethods += isInputMethod;
    }
    // Both outcomes must be common, or the comparison says little.
    EXPECT_GT(surfaceViews, 2'000);
    EXPECT_GT(inputMethods, 200);
}

// A backtracking matcher would need hours for some of these, or the whole stack.
TEST(LayerName, HostileNamesAreHarmless) {
    const auto filler = [](char c) { return std::string(200'000, c); };
    const std::pair<std::string, std::string> kCases[] = {
            {filler('\xff') + "/", filler('\xff')},
            {"SurfaceView[" + filler('#') + "1", filler('#').substr(1)},
            {"SurfaceView[" + filler('a') + "\n/\n#1", "SurfaceView[" + filler('a') + "\n"},
            {filler('w') + filler(' ') + "SurfaceView[a/b]#1", "a"},
            {filler(' ') + filler('w') + "SurfaceView[a]#1", ""},
            {"InputMethod#" + filler('1') + "x", ""},
    };
    for (const auto& [name, package] : kCases) {
        EXPECT_TRUE(package == PerfProxy::getPackageName(name)) << name.substr(0, 20);
    }
}

TEST(LayerName, SceneTag) {
    const std::tuple<const char*, const char*, const char*> kCases[] =
            {{"com.ss.android.ugc.aweme", "x minigame y", "minigame"},
             {"com.ss.android.ugc.aweme", "MiniGame AppBrandUI SurfaceView", ""},
             {"com.ss.android.ugc.aweme2", "minigame", ""},
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
