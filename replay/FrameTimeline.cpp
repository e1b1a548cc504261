// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/FrameTimeline.h"

#include <algorithm>
#include <string_view>

namespace corvane::replay {
namespace {

// What the compositor puts before a layer's name here.
constexpr std::string_view kPrefix = "TX - ";
// A slice that lasts longer has lost its end; its cookie may have been used again.
constexpr int64_t kMaxSliceNs = 10'000'000'000;
// Marks that begin and never end are forgotten when there are this many.
constexpr size_t kMaxBegun = 100'000;

bool isOfLayer(const FrameMark& mark) {
    return mark.kind == FrameMark::Kind::kExpectedSurface ||
           mark.kind == FrameMark::Kind::kActualSurface;
}

}  // namespace

void FrameTimeline::add(const FrameMark& mark) {
    if (mark.kind == FrameMark::Kind::kEnd) {
        const auto begun = mBegun.extract(mark.cookie);
        const bool usable = !begun.empty() && mark.timeNs >= begun.mapped().mark.timeNs &&
                            mark.timeNs - begun.mapped().mark.timeNs <= kMaxSliceNs;
        if (usable) {
            end(begun.mapped(), mark.timeNs);
        } else {
            ++mUnusable;
        }
        return;
    }
    if (mKept >= kMaxFrames) {
        ++mUnusable;
        return;
    }
    if (mBegun.size() >= kMaxBegun) {
        mUnusable += mBegun.size();
        mBegun.clear();
    }
    std::optional<size_t> layer = 0;
    if (isOfLayer(mark)) layer = layerOf(mark);
    if (!layer) {
        ++mUnusable;
        return;
    }
    Begun begun{mark, *layer};
    begun.mark.layer = {};
    if (!mBegun.insert_or_assign(mark.cookie, begun).second) ++mUnusable;
}

// Nothing for one beyond kMaxLayers.
std::optional<size_t> FrameTimeline::layerOf(const FrameMark& mark) {
    std::string_view name = mark.layer;
    if (name.substr(0, kPrefix.size()) == kPrefix) name.remove_prefix(kPrefix.size());
    const std::pair key{std::string(name), int{mark.pid}};
    const auto entry = mLayerIndex.find(key);
    if (entry != mLayerIndex.end()) return entry->second;
    if (mLayers.size() >= kMaxLayers) return std::nullopt;
    mLayers.push_back({key.first, mark.pid, {}});
    mSurfaces.emplace_back();
    return mLayerIndex.emplace(key, mLayers.size() - 1).first->second;
}

void FrameTimeline::end(const Begun& begun, int64_t endNs) {
    const FrameMark& mark = begun.mark;
    ++mKept;
    switch (mark.kind) {
        case FrameMark::Kind::kExpectedDisplay:
            mDisplayFrames[mark.token].vsyncNs = mark.timeNs;
            mDisplayFrames[mark.token].expectedNs = endNs;
            mCompositorPid = mark.pid;
            break;
        case FrameMark::Kind::kActualDisplay:
            mDisplayFrames[mark.token].startNs = mark.timeNs;
            // A dropped frame of the compositor updates nothing.
            if (mark.present != FrameMark::kDropped) mDisplayFrames[mark.token].shownNs = endNs;
            mCompositorPid = mark.pid;
            break;
        case FrameMark::Kind::kExpectedSurface:
            mExpected[{begun.layer, mark.token}] = {mark.timeNs, endNs};
            break;
        case FrameMark::Kind::kActualSurface:
            if (!mark.isBuffer) break;
            mSurfaces[begun.layer].push_back({mark.token,
                                              mark.displayToken,
                                              mark.present == FrameMark::kDropped,
                                              {mark.timeNs, endNs}});
            break;
        case FrameMark::Kind::kEnd:
            break;
    }
}

void FrameTimeline::finish() {
    mUnusable += mBegun.size();
    mBegun.clear();
    for (size_t i = 0; i < mLayers.size(); ++i) {
        auto& frames = mLayers[i].frames;
        for (const auto& surface : mSurfaces[i]) {
            LayerFrame frame;
            frame.startNs = surface.span.beginNs;
            frame.queueNs = surface.span.endNs;
            if (const auto expected = mExpected.find({i, surface.token});
                expected != mExpected.end()) {
                frame.dueNs = expected->second.beginNs;
                frame.deadlineNs = expected->second.endNs;
            }
            const auto display = mDisplayFrames.find(surface.displayToken);
            if (!surface.dropped && display != mDisplayFrames.end()) {
                frame.latchNs = display->second.startNs;
                frame.shownNs = display->second.shownNs;
            }
            // The compositor may begin before a frame that it then waits for is drawn.
            if (frame.latchNs) frame.queueNs = std::min(frame.queueNs, *frame.latchNs);
            frames.push_back(frame);
        }
        std::stable_sort(frames.begin(), frames.end(),
                         [](const auto& a, const auto& b) { return a.queueNs < b.queueNs; });
    }
    for (const auto& [token, frame] : mDisplayFrames) mDisplays.push_back(frame);
    mDisplayFrames.clear();
    mExpected.clear();
    mSurfaces.clear();
}

}  // namespace corvane::replay
