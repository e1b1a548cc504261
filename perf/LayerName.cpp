// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "perf/LayerName.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <regex>
#include <string>

#include "perf/PerfProxy.h"

namespace android {

namespace {

constexpr std::string_view kSurfaceView = "SurfaceView";
constexpr std::string_view kInputMethod = "InputMethod#";

// Names of activities rarely exceed a hundred characters. Up to this length a match by the
// expressions takes some microseconds and little stack; beyond it, the scan's result stands alone.
constexpr size_t kMaxMatchedLength = 128;

// Both expressions, and the character classes they use, in the locale they were compiled for.
class NameGrammar {
  public:
    // Compiled on first use; never destroyed, since threads may still be here at exit.
    static const NameGrammar& get() {
        static const NameGrammar* grammar = new NameGrammar();
        return *grammar;
    }

    bool isWord(char c) const { return has(c, kWord); }
    bool isSpace(char c) const { return has(c, kSpace); }
    bool isDigit(char c) const { return has(c, kDigit); }

    const std::regex surfaceView{kSurfaceViewExpression};
    const std::regex inputMethod{kInputMethodExpression};

  private:
    enum Class : uint8_t { kWord = 1, kSpace = 2, kDigit = 4 };

    NameGrammar() {
        std::regex_traits<char> traits;
        traits.imbue(surfaceView.getloc());
        const auto word = classNamed(traits, "w");
        const auto space = classNamed(traits, "s");
        const auto digit = classNamed(traits, "d");
        for (size_t i = 0; i < mClasses.size(); ++i) {
            const char c = static_cast<char>(i);
            if (traits.isctype(c, word)) mClasses[i] |= kWord;
            if (traits.isctype(c, space)) mClasses[i] |= kSpace;
            if (traits.isctype(c, digit)) mClasses[i] |= kDigit;
        }
    }

    static std::regex_traits<char>::char_class_type classNamed(
            const std::regex_traits<char>& traits, std::string_view name) {
        return traits.lookup_classname(name.begin(), name.end());
    }

    bool has(char c, Class wanted) const {
        return (mClasses[static_cast<unsigned char>(c)] & wanted) != 0;
    }

    std::array<uint8_t, 256> mClasses{};  // by byte value
};

bool isDigits(std::string_view text, const NameGrammar& grammar) {
    return !text.empty() &&
           std::all_of(text.begin(), text.end(), [&](char c) { return grammar.isDigit(c); });
}

// Group 1 of the surface-view expression, where it matches.
std::optional<std::string_view> matchSurfaceViewName(std::string_view name) {
    const auto scanned = scanSurfaceViewName(name);
    if (!scanned || name.size() > kMaxMatchedLength) return scanned;
    // One digit of the counter is enough: with all of them, the matcher would try every stretch of
    // them as the group's and as the rest's first.
    const char* const counter = name.data() + name.rfind('#') + 1;
    std::cmatch match;
    if (!std::regex_match(name.data(), counter + 1, match, NameGrammar::get().surfaceView)) {
        return std::nullopt;
    }
    return name.substr(static_cast<size_t>(match.position(1)),
                       static_cast<size_t>(match.length(1)));
}

bool matchInputMethodName(std::string_view name) {
    return scanInputMethodName(name) &&
           (name.size() > kMaxMatchedLength ||
            std::regex_match(name.begin(), name.end(), NameGrammar::get().inputMethod));
}

bool contains(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

}  // namespace

std::optional<std::string_view> scanSurfaceViewName(std::string_view name) {
    const NameGrammar& grammar = NameGrammar::get();

    // "#\d+" ends the name, so its "#" is the last one.
    const size_t hash = name.rfind('#');
    if (hash == std::string_view::npos || !isDigits(name.substr(hash + 1), grammar)) {
        return std::nullopt;
    }

    // Neither words nor spaces hold a "[", so the first one ends "SurfaceView[". It stands before
    // the "#", behind which there are only digits.
    const size_t bracket = name.find('[');
    if (bracket == std::string_view::npos || bracket < kSurfaceView.size()) return std::nullopt;
    const size_t literal = bracket - kSurfaceView.size();
    if (name.compare(literal, kSurfaceView.size(), kSurfaceView) != 0) return std::nullopt;
    size_t prefix = 0;
    while (prefix < literal && grammar.isWord(name[prefix])) ++prefix;
    while (prefix < literal && grammar.isSpace(name[prefix])) ++prefix;
    if (prefix != literal) return std::nullopt;

    // The group takes what it can: up to the first "/", or up to the "#" when that comes first.
    // Were it shorter, ".*" would have to cover more, so if this attempt fails, all do.
    const size_t begin = bracket + 1;
    const size_t end = std::min(name.find('/', begin), hash);
    if (end == begin) return std::nullopt;
    // "." matches every byte but these two.
    if (name.substr(end, hash - end).find_first_of("\n\r") != std::string_view::npos) {
        return std::nullopt;
    }
    return name.substr(begin, end - begin);
}

bool scanInputMethodName(std::string_view name) {
    return name.substr(0, kInputMethod.size()) == kInputMethod &&
           isDigits(name.substr(kInputMethod.size()), NameGrammar::get());
}

std::string PerfProxy::getPackageName(const std::string& layerName) {
    constexpr std::string_view kViewRootPrefix = "VRI-";
    std::string_view name = layerName;
    if (name.substr(0, kViewRootPrefix.size()) == kViewRootPrefix) {
        name.remove_prefix(kViewRootPrefix.size());
    }
    if (const auto package = matchSurfaceViewName(name)) return std::string(*package);
    if (const size_t slash = name.find('/'); slash != std::string_view::npos) {
        return std::string(name.substr(0, slash));
    }
    return matchInputMethodName(name) ? "UnknownKeyboard" : "";
}

// Applications that run mini-games in surface views of their own.
std::string PerfProxy::getLayerSceneTag(const std::string& pkgName, const std::string& layerName) {
    const bool isMiniGame =
            (pkgName == "com.ss.android.ugc.aweme" && contains(layerName, "minigame")) ||
            (pkgName == "com.tencent.mm" && contains(layerName, "AppBrandUI") &&
             contains(layerName, "SurfaceView"));
    return isMiniGame ? "minigame" : "";
}

}  // namespace android
