// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/NameMask.h"

#include <algorithm>
#include <iterator>

#include "replay/TextCursor.h"

namespace corvane::replay {
namespace {

// Words of layers' names that stand on every phone.
constexpr std::string_view kCommonWords[] = {"Activity",    "BLAST",          "Background",
                                             "Bounds",      "ColorFade",      "Display",
                                             "InputMethod", "Leaf",           "NavigationBar0",
                                             "Overlays",    "Root",           "ScreenDecorOverlay",
                                             "Splash",      "Screen",         "StatusBar",
                                             "SurfaceView", "Task",           "Toast",
                                             "Wallpaper",   "Window",         "for",
                                             "of",          "animation-leash"};

// Slices and counters that the replay reads and that name nothing but parts of the system.
constexpr std::string_view kKnownMarkers[] = {"queueBuffer",       "dequeueBuffer",
                                              "VSYNC-sf",          "VSYNC-app",
                                              "VSYNC-appSf",       "VsyncPeriod",
                                              "VSP-period",        "DispSync:Period",
                                              "ActiveModeFPS_HWC", "ActiveModeFPS"};
// The same with nothing but numbers and these words behind.
constexpr std::string_view kKnownStarts[] = {"HW_VSYNC_ON_", "HW_VSYNC_", "commit ",
                                             "onMessageInvalidate "};
constexpr std::string_view kExpectedIn = "vsyncIn ";
constexpr std::string_view kNumbers = "0123456789. *ms";
// What compositors put before a layer's name in a counter's.
constexpr std::string_view kLayerPrefixes[] = {"BufferTX - ", "QueuedBuffer - ", "TX - "};
constexpr const char* kOther = "other";

bool isWordCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '.' || c == '$' || c == '-' || static_cast<unsigned char>(c) >= 0x80;
}

template <typename List>
bool contains(const List& list, std::string_view text) {
    return std::find(std::begin(list), std::end(list), text) != std::end(list);
}

// "NAME#N", as the compositor calls its layers.
bool isLayer(std::string_view name) {
    const size_t hash = name.rfind('#');
    return hash != std::string_view::npos && hash + 1 < name.size() &&
           name.find_first_not_of("0123456789", hash + 1) == std::string_view::npos;
}

bool isKnownMarker(std::string_view name) {
    if (contains(kKnownMarkers, name)) return true;
    for (const auto start : kKnownStarts) {
        if (!startsWith(name, start)) continue;
        std::string rest(name.substr(start.size()));
        const size_t words = rest.find(kExpectedIn);
        if (words != std::string::npos) rest.erase(words, kExpectedIn.size());
        return rest.find_first_not_of(kNumbers) == std::string::npos;
    }
    return false;
}

bool isNumber(std::string_view word) {
    return word.find_first_not_of("0123456789.-") == std::string_view::npos;
}

}  // namespace

std::string NameMask::layer(std::string_view name) {
    const std::string text = renamed(name);
    return mMasksAll ? masked(text) : text;
}

std::string NameMask::marker(std::string_view name) {
    for (const auto prefix : kLayerPrefixes) {
        if (!startsWith(name, prefix)) continue;
        return std::string(prefix) + layer(name.substr(prefix.size()));
    }
    if (isLayer(name)) return layer(name);
    if (!mMasksAll) return renamed(name);
    return isKnownMarker(name) ? std::string(name) : kOther;
}

std::string NameMask::renamed(std::string_view name) const {
    std::string text(name);
    for (const auto& [from, to] : mRenamed) {
        for (size_t at = text.find(from); at != std::string::npos;
             at = text.find(from, at + to.size())) {
            text.replace(at, from.size(), to);
        }
    }
    return text;
}

std::string NameMask::masked(std::string_view name) {
    std::string text;
    while (!name.empty()) {
        size_t length = 0;
        while (length < name.size() && isWordCharacter(name[length])) ++length;
        if (length == 0) {
            text += name.front();
            name.remove_prefix(1);
            continue;
        }
        text += wordFor(name.substr(0, length));
        name.remove_prefix(length);
    }
    return text;
}

const std::string& NameMask::wordFor(std::string_view word) {
    const auto entry = mWords.find(word);
    if (entry != mWords.end()) return entry->second;
    static const std::string kOneForAll = "name";
    if (mWords.size() >= kMaxWords) return kOneForAll;
    return mWords.emplace(word, newWordFor(word)).first->second;
}

// A dotted name is a package's, or, behind a package's, one of its classes'.
std::string NameMask::newWordFor(std::string_view word) {
    if (isNumber(word) || contains(kCommonWords, word)) return std::string(word);
    for (size_t dot = word.rfind('.'); dot != std::string_view::npos && dot > 0;
         dot = word.rfind('.', dot - 1)) {
        const auto package = mWords.find(word.substr(0, dot));
        if (package != mWords.end()) return package->second + ".Name" + std::to_string(++mNames);
    }
    if (word.find('.') != std::string_view::npos) {
        return "com.example.app" + std::to_string(++mPackages);
    }
    return "name" + std::to_string(++mNames);
}

}  // namespace corvane::replay
