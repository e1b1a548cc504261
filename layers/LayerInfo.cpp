// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "layers/LayerInfo.h"

#include <utility>

#include "layers/LogTag.h"
#include "perf/PerfProxy.h"

namespace android {
namespace {

// Long enough to average out single late frames, short enough to follow a game into its menu.
constexpr nsecs_t kFpsWindow = 1'000'000'000;

// Half a second at 60 fps: one slow second cannot fill the ring with evenly slow frames unless the
// layer's rate really changed.
constexpr int kStableSamples = 30;

// Standard deviation up to a fifth of the mean interval counts as steady.
constexpr float kStableTolerance = 0.2f;

// Extents of hostile bounds may not fit; the log then shows them wrapped.
int32_t extent(int32_t low, int32_t high) {
    return static_cast<int32_t>(static_cast<uint32_t>(high) - static_cast<uint32_t>(low));
}

}  // namespace

LayerInfo::LayerInfo(Identity identity)
      : mId(identity.id),
        mName(std::move(identity.name)),
        mPackageName(std::move(identity.packageName)),
        mPid(identity.pid),
        mUid(identity.uid),
        mSceneTag(std::move(identity.sceneTag)) {}

bool LayerInfo::updateFps() {
    const nsecs_t now = mLastQueueTime;
    const nsecs_t prev = mPrevQueueTime;
    mPrevQueueTime = now;
    if (prev == 0) return false;

    const nsecs_t interval = now - prev;
    if (!mFpsWindowStarted) {
        // Two binder threads may deliver their times in reverse order.
        if (interval < 1 || mFpsFrameCount != 0) return false;
        mFpsWindowStarted = true;
        mFpsWindowStart = prev;
    }
    ++mFpsFrameCount;
    if (mStableFps.samples.empty()) mStableFps.resize(kStableSamples);
    mStableFps.push(interval);

    const nsecs_t elapsed = now - mFpsWindowStart;
    if (elapsed <= kFpsWindow) return false;

    mFps = 1.0f / ((static_cast<float>(elapsed) / static_cast<float>(mFpsFrameCount)) / 1e9f);
    const int mode = PerfProxy::getFpsMode(mFps);
    if (mode != mFpsMode && mStableFps.isStable(mId, kStableTolerance) &&
        mStableFps.getFpsMode() == mode) {
        mFpsMode = mode;
        PerfProxy::VLOGD(kLayerLogTag, "Stable FPS shift detected for layer %d: %.2f (mode -> %d)",
                         mId, mFps, mode);
    }
    PerfProxy::VLOGD(kLayerLogTag, "FPS:%.2F[%s] layer %d, (%d, %d) mode:%d focused:%d visible: %d",
                     mFps, mName.c_str(), mId, extent(mBounds.left, mBounds.right),
                     extent(mBounds.top, mBounds.bottom), mFpsMode, mFocused, mVisible);
    mLastFpsTime = now;
    mFpsFrameCount = 0;
    mFpsWindowStarted = false;
    return true;
}

}  // namespace android
