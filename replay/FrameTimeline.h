// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "replay/FrameMark.h"

namespace corvane::replay {

// A frame of the compositor. All times are the trace's; one that was not recorded is missing.
struct DisplayFrame {
    std::optional<int64_t> vsyncNs;     // when the compositor was to be woken for it
    std::optional<int64_t> expectedNs;  // when it was to be shown
    std::optional<int64_t> startNs;     // when the compositor began it, and took its buffers
    std::optional<int64_t> shownNs;     // when the screen was updated
};

// A buffer of a layer.
struct LayerFrame {
    std::optional<int64_t> dueNs;       // when the application's callback was due
    std::optional<int64_t> deadlineNs;  // when the buffer was to be ready
    int64_t startNs = 0;                // when its drawing began
    int64_t queueNs = 0;                // when it was posted and its drawing had ended
    std::optional<int64_t> latchNs;     // when the compositor took it; none: it never did
    std::optional<int64_t> shownNs;
};

struct LayerTimeline {
    std::string name;                // without the timeline's own prefix
    int pid;                         // the application's
    std::vector<LayerFrame> frames;  // by queueNs
};

// Puts together what a trace's frame timeline says, mark by mark: expected and actual slices of one
// token, and each layer's frame with the display's that showed it. Used from one thread.
class FrameTimeline {
  public:
    // An hour of a busy phone's; further frames are left out and counted.
    static constexpr size_t kMaxFrames = 1'000'000;
    // Phones show some hundred in an hour; names may be long on purpose.
    static constexpr size_t kMaxLayers = 10'000;

    void add(const FrameMark& mark);
    // To be called once, when all has been added.
    void finish();

    // After finish():
    const std::vector<LayerTimeline>& layers() const { return mLayers; }
    const std::vector<DisplayFrame>& displays() const { return mDisplays; }  // by token
    int compositorPid() const { return mCompositorPid; }
    // Slices without their begin or their end, of damaged tokens or beyond kMaxFrames.
    size_t unusable() const { return mUnusable; }
    bool isEmpty() const { return mLayers.empty() && mDisplays.empty(); }

  private:
    struct Begun {
        FrameMark mark;  // without its layer's name
        size_t layer;
    };
    struct Span {
        int64_t beginNs;
        int64_t endNs;
    };
    struct Surface {
        int64_t token;
        int64_t displayToken;
        bool dropped;
        Span span;
    };

    std::optional<size_t> layerOf(const FrameMark& mark);
    void end(const Begun& begun, int64_t endNs);

    std::map<int64_t, Begun> mBegun;  // by cookie
    std::map<std::pair<std::string, int>, size_t> mLayerIndex;
    std::vector<LayerTimeline> mLayers;
    std::vector<DisplayFrame> mDisplays;
    int mCompositorPid = 0;
    size_t mKept = 0;
    size_t mUnusable = 0;
    // What finish() puts together: by token; of layers by layer and token.
    std::map<int64_t, DisplayFrame> mDisplayFrames;
    std::map<std::pair<size_t, int64_t>, Span> mExpected;
    std::vector<std::vector<Surface>> mSurfaces;
};

}  // namespace corvane::replay
