// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <ui/Rect.h>
#include <utils/LightRefBase.h>
#include <utils/Timers.h>

#include <cstdint>
#include <string>
#include <vector>

#include "base/Relaxed.h"

namespace android {

// The registry's record of one tracked layer. Only promotion creates one.
//
// Every field is guarded by LayerManager::mLock, a rule that the thread-safety analysis cannot
// express for a lock of another class. Two exceptions: the identity never changes, so any holder of
// a strong reference may read it; and mLastQueueEndTime is written after the lock was released.
//
// A strong reference keeps the record alive past the layer's removal from the registry. Whoever
// comes back to the lock with one must therefore look again whether the registry still holds it.
struct LayerInfo : public LightRefBase<LayerInfo> {
    // Which layer it is, and whose.
    struct Identity {
        int32_t id = -1;
        std::string name;  // as the compositor gives it: chosen by the application
        std::string packageName;
        int32_t pid = -1;  // binder caller of the buffer that promoted the layer
        int32_t uid = -1;
        std::string sceneTag;
    };

    explicit LayerInfo(Identity identity);

    // A ring of the latest frame intervals, and the verdict whether they are even enough to believe
    // the frame rate that they show.
    struct StableFpsTracker {
        std::vector<nsecs_t> samples;  // frame intervals
        uint32_t index = 0;            // next slot to write
        int64_t sum = 0;               // of the samples in the ring, ns
        bool full = false;             // the ring has wrapped at least once

        void resize(int n);
        void reset();
        void push(nsecs_t interval);
        // `tolerance` is the accepted standard deviation as a fraction of the mean interval.
        bool isStable(int layerId, float tolerance) const;
        // Mode of the mean interval; -1 until the ring is full.
        int getFpsMode() const;
    };

    // Takes the buffer at mLastQueueTime into the frame rate. True when a measuring window closed,
    // so that mFps is new.
    bool updateFps();

    // Target-FPS pacing is on.
    bool isPaced() const { return mGfrQueueEndValid; }
    // The package's target rate; 0 = none.
    float targetFps() const { return mGfrQueueEndValue; }
    // The package has headroom rates. Whether control is on now, PHRMonitor alone knows.
    bool mayControlHeadroom() const { return mQuickTouchActive; }
    // From the latest queue call to the predicted presentation.
    nsecs_t timeToPresent() const { return mExpectedPresentTime; }
    // Buffers queued and not yet latched.
    int32_t queueDepth() const { return mVsyncFrameCount; }

    const int32_t mId;
    const std::string mName;
    const std::string mPackageName;
    const int32_t mPid;
    const int32_t mUid;
    const std::string mSceneTag;
    Rect mBounds = Rect::INVALID_RECT;
    bool mFocused = true;
    bool mVisible = true;
    bool mIsGame = false;         // as the performance service classifies the package; asked late
    int32_t mGameWeight = -1;     // ditto
    bool mGfrActive = false;      // frame rescue is on
    bool mGfrRegistered = false;  // GFRMonitor knows the layer
    bool mQuickTouchActive = false;  // mayControlHeadroom()
    bool mPhrRegistered = false;     // PHRMonitor knows the layer
    // isPaced() and targetFps(). While pacing is on, frame rescue judges lateness by the paced
    // rate: it is what GFRMonitor::onQueueEnd is told.
    bool mGfrQueueEndValid = false;
    float mGfrQueueEndValue = 0.0f;
    nsecs_t mLastQueueTime = 0;  // start of the latest queue call
    nsecs_t mPrevQueueTime = 0;  // of the one before
    // End of the latest queue call, hold-back included. Written without the lock, by whichever
    // binder thread left last; a reader needs only some recent value.
    Relaxed<nsecs_t> mLastQueueEndTime{0};
    nsecs_t mFrameGap = 0;             // the application's own time between two queue calls
    int32_t mVsyncFrameCount = 0;      // queueDepth()
    nsecs_t mVsyncAnchorTime = 0;      // latest latch: the phase from which vsyncs are predicted
    nsecs_t mExpectedPresentTime = 0;  // timeToPresent()
    nsecs_t mFirstFrameTime = 0;       // queue time of the oldest buffer not yet latched: the start
                                       // of its GPU work
    int32_t mFenceFd = -1;             // of the buffer being latched, which nobody hands us as yet
    bool mActive = false;              // drawing recently
    nsecs_t mRemoveDeadline = 0;       // an inactive layer is dropped from this time on
    float mFps = 0.0f;                 // of the last closed window
    bool mFpsWindowStarted = false;
    int32_t mFpsFrameCount = 0;   // frames in the open window
    nsecs_t mFpsWindowStart = 0;  // start of the open window
    int32_t mFpsMode = -1;        // accepted mode; -1 = none yet
    nsecs_t mLastFpsTime = 0;     // queue time at which the last window closed; for a debugger
    StableFpsTracker mStableFps;

    bool mGfrAllowed = false;  // the package has frame-rescue tunables
    float phrMinRate = 0.0f;   // headroom rates, as fractions of the vsync period: up to 60 Hz
    float highFpsPhrMinRate = 0.0f;  // above 60 Hz
    int32_t mAliveCheckMatches = 0;  // FPS windows that matched the checked application

    int32_t mPendingGpuFenceFd = -1;  // fence latched unsignalled, kept until the next flush
    enum FenceOrigin : uint8_t {
        FENCE_ORIGIN_UNKNOWN = 0,
        FENCE_ORIGIN_GPU = 1,
        FENCE_ORIGIN_OTHER = 255,
    };
    FenceOrigin mFenceOrigin = FENCE_ORIGIN_UNKNOWN;  // whose fences the layer's frames carry
};

}  // namespace android
