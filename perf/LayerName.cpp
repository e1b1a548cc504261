// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "perf/LayerName.h"

#include <algorithm>
#include <string>

#include "perf/PerfProxy.h"

namespace android {

namespace {

constexpr std::string_view kSurfaceView = "SurfaceView";
constexpr std::string_view kInputMethod = "InputMethod#";

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isWord(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || isDigit(c) || c == '_';
}

bool isSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');  // tab, line feed, vertical tab, form feed, return
}

bool isNumber(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), isDigit);
}

bool contains(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

}  // namespace

std::optional<std::string_view> scanSurfaceViewName(std::string_view name) {
    // "#\d+" ends the name, so its "#" is the last one.
    const size_t hash = name.rfind('#');
    if (hash == std::string_view::npos || !isNumber(name.substr(hash + 1))) {
        return std::nullopt;
    }

    // Neither words nor spaces hold a "[", so the first one ends "SurfaceView[". It stands before
    // the "#", behind which there are only digits.
    const size_t bracket = name.find('[');
    if (bracket == std::string_view::npos || bracket < kSurfaceView.size()) return std::nullopt;
    const size_t literal = bracket - kSurfaceView.size();
    if (name.compare(literal, kSurfaceView.size(), kSurfaceView) != 0) return std::nullopt;
    size_t prefix = 0;
    while (prefix < literal && isWord(name[prefix])) ++prefix;
    while (prefix < literal && isSpace(name[prefix])) ++prefix;
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
           isNumber(name.substr(kInputMethod.size()));
}

std::string PerfProxy::getPackageName(const std::string& layerName) {
    constexpr std::string_view kViewRootPrefix = "VRI-";
    std::string_view name = layerName;
    if (name.substr(0, kViewRootPrefix.size()) == kViewRootPrefix) {
        name.remove_prefix(kViewRootPrefix.size());
    }
    if (const auto package = scanSurfaceViewName(name)) return std::string(*package);
    if (const size_t slash = name.find('/'); slash != std::string_view::npos) {
        return std::string(name.substr(0, slash));
    }
    return scanInputMethodName(name) ? "UnknownKeyboard" : "";
}

std::string PerfProxy::getLayerSceneTag(const std::string& pkgName, const std::string& layerName) {
    const bool isMiniGame = (pkgName == kVideoPackage && contains(layerName, "minigame")) ||
                            (pkgName == kMessengerPackage && contains(layerName, "AppBrandUI") &&
                             contains(layerName, kSurfaceView));
    return isMiniGame ? kMiniGameSceneTag : "";
}

}  // namespace android
