// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <utils/Mutex.h>
#include <utils/StrongPointer.h>
#include <utils/Timers.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "features/Feature.h"
#include "layers/LayerCandidate.h"

namespace android {

class GFRMonitor;
class PHRMonitor;
class Rect;
struct LayerInfo;

// The process-wide registry of the compositor's layers, and what turns their events into the work
// of the frame-rescue and headroom monitors.
//
// The compositor's hooks enter here from its binder threads (queued buffers) and its main thread
// (latches, vsyncs, fences); configuration changes come from the service's binder threads, scene
// checks and game classifications run on the boost worker. Registry state, layer records included,
// is under mLock; monitors are called with it held or after it, and never call back.
//
// A layer's life:
//
//   unknown --buffer--> candidate --steady for 0.5 s--> tracked, active <--buffer---+
//                           |                              |                        |
//                     silent for 2 s                 silent for 1 s                 |
//                           v                              v                        |
//                        unknown <--after another 1 s-- tracked, inactive ----------+
//
// One instance, created on first use and never destroyed by the library itself.
class LayerManager {
  public:
    static LayerManager* getInstance();

    ~LayerManager();
    LayerManager(const LayerManager&) = delete;
    LayerManager& operator=(const LayerManager&) = delete;

    // --- Lifecycle (LayerManager.cpp) ---

    // Copies the switches; returns at once when already initialised. The monitors start later, when
    // a layer first needs them. The integers are the compositor's own and only kept.
    void init(bool smartTouchEnable, int arg0, int arg1) EXCLUDES(mLock);
    // Stops the monitors and forgets all layers. init() may follow.
    void stop() EXCLUDES(mLock);
    void setSmartTouchEnable(bool enable);

    // --- Compositor events (LayerEvents.cpp) ---

    // A buffer was queued, by the process and user of the binder call being served. May hold the
    // caller back for headroom control or pacing. `flag` is true for an instant buffer.
    void onBufferIncrement(const std::string& name, int layerId, int pid, int uid,
                           nsecs_t extraTime, bool flag, uint32_t extra) EXCLUDES(mLock);
    // A buffer was latched; `pendingCount` buffers are queued behind it.
    void onBufferDecrement(const std::string& name, int layerId, int pendingCount,
                           const Rect& bounds, bool focused, bool visible) EXCLUDES(mLock);
    void onVsync(nsecs_t now) EXCLUDES(mLock);
    void setVsyncPeriod(nsecs_t periodNs) EXCLUDES(mLock);
    // Smart touch wants held buffers to go.
    void unblockPendingBuffer() EXCLUDES(mLock);

    // --- Registry (LayerRegistry.cpp) ---

    // The tracked layer, or null while it is a candidate or refused. Counts one buffer.
    sp<LayerInfo> getOrCreateLayer(const std::string& name, int layerId, int pid, int uid,
                                   nsecs_t now) EXCLUDES(mLock);
    sp<LayerInfo> getLayer(int layerId) EXCLUDES(mLock);
    void cleanupInactiveLayers(nsecs_t now) EXCLUDES(mLock);
    void cleanupCandidates(nsecs_t now) EXCLUDES(mLock);

    // --- Configuration changes (LayerConfigChanges.cpp) ---

    // A configuration or notification arrived from the service. An empty package means all.
    void onFeatureConfigChanged(Feature feature, const std::string& pkgName) EXCLUDES(mLock);

  private:
    LayerManager();

    mutable Mutex mLock;

    std::atomic<bool> mInitialized{false};
    std::atomic<bool> mSmartTouchEnable{false};  // smart touch or headroom control is wanted
};

}  // namespace android
