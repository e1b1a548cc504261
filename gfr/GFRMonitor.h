// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <utils/Mutex.h>
#include <utils/StrongPointer.h>
#include <utils/Timers.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <string>
#include <thread>

#include "features/GfrTunables.h"
#include "gfr/LayerGFRState.h"

namespace android {

class TimerQueue;

// Frame rescue: watches the queued frames of selected layers and asks for a GPU boost, larger from
// level to level, while a frame is late.
//
// Compositor threads report each frame's begin and end; the thread "BLT" drives a TimerQueue and
// runs the checks, one per level, in GFRHandler. Per frame of an active layer:
//
//    onQueueBegin ---> onQueueEnd ---> check 0 ---> check 1 ---> ... last check
//    new identity,     posts check 0   hint 1       hint 2
//    release hint 0
//         ^                                |
//         +----- the next frame cancels the check that is pending
//
// mLock is held while hints are sent and checks are posted, so that hints leave in the order of the
// decisions. The queue's lock nests inside it; nothing is called that could come back here. All
// locks and their order: docs/architecture.md.
class GFRMonitor {
  public:
    static GFRMonitor* getInstance();

    GFRMonitor();
    GFRMonitor(const GFRMonitor&) = delete;
    GFRMonitor& operator=(const GFRMonitor&) = delete;
    ~GFRMonitor();

    // Starts the thread; true when it runs. Works again after forceStop().
    bool init() EXCLUDES(mLifecycleLock, mLock);
    // Ends the thread and forgets every layer. Not to be called on the "BLT" thread.
    void forceStop() EXCLUDES(mLifecycleLock, mLock);

    // Takes the package's stored tunables. The layer starts inactive; an earlier record of the same
    // id is replaced.
    void registerLayer(int layerId, const std::string& layerName, const std::string& packageName)
            EXCLUDES(mLock);
    void unregisterLayer(int layerId) EXCLUDES(mLock);
    void setGFRActive(int layerId, bool active) EXCLUDES(mLock);
    void updateLayerTunables(int layerId, const GfrTunables& tunables) EXCLUDES(mLock);

    // Layers use the new period from their next frame on. The mode is ignored: deadlines
    // follow from the period alone.
    void setVsyncInfo(nsecs_t periodNs, int fpsMode);

    // Begin and end of a queued buffer. Unknown and inactive layers are ignored. `frameTime` is
    // what the application spent on the frame, `jankHeadroom` the time until it should be
    // presented, and `fps` the layer's own rate, 0 when it has none and the display's counts.
    void onQueueBegin(int layerId, nsecs_t queueBeginTime, nsecs_t frameTime, nsecs_t jankHeadroom)
            EXCLUDES(mLock);
    void onQueueEnd(int layerId, nsecs_t queueEndTime, float fps) EXCLUDES(mLock);
    // The frames that a latch found dropped, 0 included.
    void updateFrameDropWindow(int layerId, int drops) EXCLUDES(mLock);

  private:
    class GFRHandler;

    void monitorThreadMain(TimerQueue& queue);

    // The registered layer, null when there is none.
    LayerGFRState* findLayerLocked(int layerId) REQUIRES(mLock);
    LayerGFRState* findActiveLayerLocked(int layerId) REQUIRES(mLock);

    void checkAndUpdateCacheLocked(LayerGFRState& state, nsecs_t vsyncPeriod, float fps, bool force)
            REQUIRES(mLock);
    void scheduleNextCheckLocked(LayerGFRState& state, nsecs_t frameIdentity, int level)
            REQUIRES(mLock);
    void cancelPendingChecksLocked(LayerGFRState& state) REQUIRES(mLock);
    int32_t calculateBoostFrequencyOnWakeupLocked(LayerGFRState& state, int level, int32_t base)
            REQUIRES(mLock);
    void sendFrameHintLocked(LayerGFRState& state) REQUIRES(mLock);

    // Serialises init() and forceStop(), which joins the thread and so cannot hold mLock. Before
    // mLock.
    Mutex mLifecycleLock;
    Mutex mLock;
    std::map<int, sp<LayerGFRState>> mLayers GUARDED_BY(mLock);
    sp<TimerQueue> mTimerQueue GUARDED_BY(mLock);  // null while no thread runs
    std::thread mThread GUARDED_BY(mLifecycleLock);
    std::atomic<bool> mRunning{false};
    std::atomic<nsecs_t> mVsyncPeriod{-1};  // of the display; -1 until known
};

}  // namespace android
