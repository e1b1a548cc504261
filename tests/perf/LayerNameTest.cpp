// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <random>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "perf/LayerName.h"
#include "perf/PerfProxy.h"

namespace android {
namespace {

// The package that a name yields by the bare expressions.
std::string packageByExpressions(std::string name) {
    static const std::regex surfaceView(kSurfaceViewExpression);
    static const std::regex inputMethod(kInputMethodExpression);
    if (name.rfind("VRI-", 0) == 0) name.erase(0, 4);
    std::smatch match;
    if (std::regex_match(name, match, surfaceView)) return match[1].str();
    if (const size_t slash = name.find('/'); slash != std::string::npos) {
        return name.substr(0, slash);
    }
    return std::regex_match(name, inputMethod) ? "UnknownKeyboard" : "";
}

TEST(LayerName, PackageOfKnownForms) {
    const std::vector<std::pair<std::string, std::string>> kCases =
            {{"VRI-com.example.app/com.example.app.MainActivity#12", "com.example.app"},
             {"com.example.app/com.example.app.MainActivity#12", "com.example.app"},
             {"SurfaceView[com.example.game/com.example.game.Main]#3", "com.example.game"},
             {"VRI-SurfaceView[com.example.game/com.example.game.Main](BLAST)#3",
              "com.example.game"},
             {"abc_1 \tSurfaceView[com.a.b/x]#7", "com.a.b"},
             {"SurfaceViewSurfaceView[com.a.b/x]#7", "com.a.b"},
             {"SurfaceView[com.a.b]#7", "com.a.b]"},
             {"SurfaceView[com.a.b#1#2", "com.a.b#1"},
             {"SurfaceView[com.a.b/x]", "SurfaceView[com.a.b"},
             {"SurfaceView[/x]#7", "SurfaceView["},
             {"SurfaceView[#7", ""},
             {"a-SurfaceView[com.a.b/x]#7", "a-SurfaceView[com.a.b"},
             {"InputMethod#0", "UnknownKeyboard"},
             {"InputMethod#12", "UnknownKeyboard"},
             {"VRI-InputMethod#12", "UnknownKeyboard"},
             {"InputMethod#", ""},
             {"InputMethod#1x", ""},
             {"StatusBar#5", ""},
             {"VRI-", ""},
             {"VRI-VRI-a/b", "VRI-a"},
             {"", ""},
             {"/", ""}};
    for (const auto& [name, package] : kCases) {
        EXPECT_EQ(package, PerfProxy::getPackageName(name)) << name;
        EXPECT_EQ(package, packageByExpressions(name)) << name;
    }
}

// Names put together from the pieces that the expressions treat differently, and from every byte.
class NameGenerator {
  public:
    std::string next() {
        static const std::vector<std::string> kPieces = {"SurfaceView[",
                                                         "SurfaceView",
                                                         "InputMethod#",
                                                         "InputMethod",
                                                         "VRI-",
                                                         "[",
                                                         "]",
                                                         "/",
                                                         "#",
                                                         "_",
                                                         "a",
                                                         "Z",
                                                         "0",
                                                         "9",
                                                         "42",
                                                         " ",
                                                         "\t",
                                                         "\n",
                                                         "\r",
                                                         "\v",
                                                         "\f",
                                                         "\xe2\x80\xa8",
                                                         "\xc2\x85",
                                                         "\x85",
                                                         "\xa0",
                                                         "\xb2",
                                                         "\xff",
                                                         "\x80",
                                                         std::string(1, '\0'),
                                                         ".",
                                                         "-",
                                                         "com.a",
                                                         "#1",
                                                         "#0"};
        // A start and an end that match more often than not, so that the middle decides.
        static const std::vector<std::string> kStarts = {"",
                                                         "",
                                                         "VRI-",
                                                         "SurfaceView[",
                                                         "w SurfaceView[",
                                                         "_9\n SurfaceView[",
                                                         "InputMethod#"};
        static const std::vector<std::string> kEnds = {"", "#1", "#123", "/x]#7", "#", "7", "1234"};
        std::string name = pick(kStarts);
        for (size_t pieces = mRandom() % 6; pieces > 0; --pieces) {
            if (mRandom() % 4 == 0) {
                name += static_cast<char>(mRandom() % 256);
            } else {
                name += pick(kPieces);
            }
        }
        return name + pick(kEnds);
    }

  private:
    const std::string& pick(const std::vector<std::string>& from) {
        return from[mRandom() % from.size()];
    }

    std::mt19937 mRandom{20'261'121};  // a fixed seed: the same names in every run
};

TEST(LayerName, ScansAgreeWithTheExpressions) {
    const std::regex surfaceView(kSurfaceViewExpression);
    const std::regex inputMethod(kInputMethodExpression);
    NameGenerator generator;
    int surfaceViews = 0;
    int inputMethods = 0;
    for (int i = 0; i < 100'000; ++i) {
        const std::string name = generator.next();
        std::smatch match;
        const bool isSurfaceView = std::regex_match(name, match, surfaceView);
        const auto scanned = scanSurfaceViewName(name);
        ASSERT_EQ(isSurfaceView, scanned.has_value()) << ::testing::PrintToString(name);
        if (isSurfaceView) {
            ASSERT_EQ(match[1].str(), *scanned) << ::testing::PrintToString(name);
        }
        const bool isInputMethod = std::regex_match(name, inputMethod);
        ASSERT_EQ(isInputMethod, scanInputMethodName(name)) << ::testing::PrintToString(name);
        ASSERT_EQ(packageByExpressions(name), PerfProxy::getPackageName(name))
                << ::testing::PrintToString(name);
        surfaceViews += isSurfaceView;
        inputMethods += isInputMethod;
    }
    // Both outcomes must be common, or the comparison says little.
    EXPECT_GT(surfaceViews, 10'000);
    EXPECT_GT(inputMethods, 500);
}

// Around the length from which only the scan decides, names that the expressions can still take.
TEST(LayerName, LongNamesYieldTheSame) {
    for (size_t length = 100; length < 300; ++length) {
        const std::string filler(length, 'a');
        for (const std::string& name :
             {"SurfaceView[" + filler + "/x]#1", "SurfaceView[x/" + filler + "]#1",
              "SurfaceView[x/" + filler + "\n]#1", "SurfaceView[" + filler + "\n]#1",
              filler + "SurfaceView[x/y]#1", "SurfaceView[x#" + std::string(length, '7'),
              "InputMethod#" + std::string(length, '7'), filler + "/x", filler}) {
            ASSERT_EQ(packageByExpressions(name), PerfProxy::getPackageName(name)) << name;
        }
    }
}

// A backtracking matcher would need hours for some of these, or the whole stack.
TEST(LayerName, HostileNamesAreHarmless) {
    constexpr size_t kLength = 200'000;
    const auto filler = [](char c) { return std::string(kLength, c); };
    const std::vector<std::pair<std::string, std::string>> kCases =
            {{filler('a'), ""},
             {filler('/'), ""},
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
             {"InputMethod#" + filler('1') + "x", ""}};
    for (const auto& [name, package] : kCases) {
        EXPECT_TRUE(package == PerfProxy::getPackageName(name)) << name.substr(0, 20);
    }
    std::string repeated;
    while (repeated.size() < kLength) repeated += "SurfaceView ";
    EXPECT_EQ("", PerfProxy::getPackageName(repeated + "SurfaceView[a]#1"));
}

TEST(LayerName, SceneTag) {
    struct Case {
        const char* package;
        const char* layer;
        bool isMiniGame;
    };
    constexpr Case kCases[] = {{"com.ss.android.ugc.aweme", "x minigame y", true},
                               {"com.ss.android.ugc.aweme", "MiniGame", false},
                               {"com.ss.android.ugc.aweme2", "minigame", false},
                               {"com.ss.android.ugc.aweme", "AppBrandUI SurfaceView", false},
                               {"com.tencent.mm", "SurfaceView[com.tencent.mm/AppBrandUI]", true},
                               {"com.tencent.mm", "AppBrandUI", false},
                               {"com.tencent.mm", "SurfaceView", false},
                               {"com.tencent.mm", "minigame", false},
                               {"com.example", "minigame AppBrandUI SurfaceView", false},
                               {"", "minigame", false}};
    for (const Case& c : kCases) {
        EXPECT_EQ(c.isMiniGame ? "minigame" : "", PerfProxy::getLayerSceneTag(c.package, c.layer))
                << c.package << " " << c.layer;
    }
}

}  // namespace
}  // namespace android
