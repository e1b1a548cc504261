// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/LogDigest.h"

#include <android/log.h>

#include <cstdio>
#include <string_view>

#include "replay/TextCursor.h"

namespace corvane::replay {
namespace {

constexpr double kNsPerSecond = 1e9;
// Only a debug line to the library, but what a scenario's author has to know.
constexpr std::string_view kHeadroomSwitchedOff = "set PhrMinRate fail, Quick Touch disable!";

// The text behind the last `mark`. Layer names, which may hold anything, stand before it.
const char* behindLast(const std::string& text, std::string_view mark) {
    const size_t at = text.rfind(mark);
    return at == std::string::npos ? nullptr : text.c_str() + at + mark.size();
}

}  // namespace

LogDigest::LogDigest(const Recording& recording, int64_t startNs) : mStartNs(startNs) {
    mFindings.layers.resize(recording.layers.size());
    for (size_t i = 0; i < recording.layers.size(); ++i) mById[recording.layers[i].id] = i;
}

LayerFindings* LogDigest::layer(int id) {
    const auto entry = mById.find(id);
    return entry == mById.end() ? nullptr : &mFindings.layers[entry->second];
}

void LogDigest::add(const host::LogLine& line) {
    const int64_t atNs = line.timeNs - mStartNs;
    if (line.priority >= ANDROID_LOG_WARN || line.text == kHeadroomSwitchedOff) {
        const auto [entry, isNew] = mComplaints.emplace(line.text, mFindings.complaints.size());
        if (isNew) mFindings.complaints.emplace_back(line.text, 0);
        ++mFindings.complaints[entry->second].second;
    }
    if (startsWith(line.text, "[GPU JANK DETECTION] fence origin: ")) {
        mFindings.fences.origins.push_back(line.text);
    }
    mFindings.debugLog |= line.priority == ANDROID_LOG_DEBUG;
    readStartLine(line.text);
    readRegistryLine(line.text, atNs);
    readFeatureLine(line.text, atNs);
}

void LogDigest::readStartLine(const std::string& text) {
    long long periodNs = 0;
    if (startsWith(text, "[TFPS:")) {
        mFindings.switchLine = text;
    } else if (std::sscanf(text.c_str(), "vsync: %lld", &periodNs) == 1 && periodNs > 0) {
        mFindings.displayHz.push_back(kNsPerSecond / static_cast<double>(periodNs));
    }
}

void LogDigest::readRegistryLine(const std::string& text, int64_t atNs) {
    int id = 0;
    int mode = 0;
    double fps = 0.0;
    if (std::sscanf(text.c_str(), "Add new candidate layer: %d [", &id) == 1) {
        auto* found = layer(id);
        if (found != nullptr && !found->candidateNs) found->candidateNs = atNs;
    } else if (startsWith(text, "Add new layer to full tracking: [")) {
        const char* rest = behindLast(text, "] layer ");
        auto* found = rest != nullptr && std::sscanf(rest, "%d", &id) == 1 ? layer(id) : nullptr;
        if (found != nullptr && !found->promotedNs) found->promotedNs = atNs;
    } else if (std::sscanf(text.c_str(), "Stable FPS shift detected for layer %d: %lf (mode -> %d)",
                           &id, &fps, &mode) == 3) {
        if (auto* found = layer(id)) found->modes.push_back({atNs, mode});
    } else if (std::sscanf(text.c_str(), "FPS:%lf[", &fps) == 1) {
        const char* rest = behindLast(text, "] layer ");
        if (rest == nullptr || std::sscanf(rest, "%d, (%*d, %*d) mode:%d", &id, &mode) != 2) return;
        if (auto* found = layer(id)) found->windows.push_back({atNs, fps, mode});
    }
}

void LogDigest::readFeatureLine(const std::string& text, int64_t atNs) {
    int id = 0;
    double fps = 0.0;
    char word[32] = {};
    char rest = 0;
    long long headroomNs = 0;
    if (std::sscanf(text.c_str(), "Layer %d set headroom: %lld", &id, &headroomNs) == 2) {
        if (auto* found = layer(id)) found->headroomNs = headroomNs;
    } else if (std::sscanf(text.c_str(), "Layer %d: enable target fps: %lf", &id, &fps) == 2) {
        addSwitch(id, FeatureKind::kTargetFps, {atNs, true, fps});
    } else if (std::sscanf(text.c_str(), "Layer %d: %31[a-z] target fp%c", &id, word, &rest) == 3) {
        addSwitch(id, FeatureKind::kTargetFps, {atNs, false});
    } else if (std::sscanf(text.c_str(), "Layer %d: %31[a-z] PH%c", &id, word, &rest) == 3) {
        addSwitch(id, FeatureKind::kHeadroom, {atNs, std::string_view(word) == "enable"});
    } else if (text == "Disable QuickTouch due to jank") {
        // Says no layer, but follows the switch that it explains.
        auto* found = layer(mHeadroomOffId);
        if (found == nullptr) return;
        auto& switches = found->switches[static_cast<size_t>(FeatureKind::kHeadroom)];
        FeatureSwitch last = switches.back();
        last.becauseOfJank = true;
        switches.set(switches.size() - 1, last);
    } else if (std::sscanf(text.c_str(), "Layer %d %31[a-z] GF%c", &id, word, &rest) == 3) {
        addSwitch(id, FeatureKind::kFrameRescue, {atNs, std::string_view(word) == "enable"});
    }
}

// The library confirms switches that change nothing as well; only changes are told.
void LogDigest::addSwitch(int id, FeatureKind kind, FeatureSwitch change) {
    auto* found = layer(id);
    if (found == nullptr) return;
    auto& switches = found->switches[static_cast<size_t>(kind)];
    const bool wasOn = !switches.empty() && switches.back().on;
    const double wasTarget = switches.empty() ? 0.0 : switches.back().targetFps;
    if (change.on == wasOn && change.targetFps == wasTarget) return;
    switches.push_back(change);
    if (kind == FeatureKind::kHeadroom && !change.on) mHeadroomOffId = id;
}

}  // namespace corvane::replay
