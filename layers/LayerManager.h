// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <utils/Mutex.h>
#include <utils/StrongPointer.h>
#include <utils/Timers.h>

#include <atomic>
#include <cstdint>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "base/Relaxed.h"
#include "features/ConfigObserver.h"
#include "features/Feature.h"
#include "features/PackageConfigs.h"
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
// is under mLock; monitors are called with it held or after it, and never call back. All locks and
// their order: docs/architecture.md.
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
class LayerManager : public ConfigObserver {
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

    // --- Compositor events (LayerManagerEvents.cpp) ---

    // A buffer was queued, by the process and user of the binder call being served. May hold the
    // caller back for headroom control or pacing. An instant buffer is one to be shown at once.
    // `extraTime` and `extra` are ignored.
    void onBufferIncrement(const std::string& name, int layerId, int pid, int uid,
                           nsecs_t extraTime, bool instant, uint32_t extra) EXCLUDES(mLock);
    // A buffer was latched; `pendingCount` buffers are queued behind it.
    void onBufferDecrement(const std::string& name, int layerId, int pendingCount,
                           const Rect& bounds, bool focused, bool visible) EXCLUDES(mLock);
    void onVsync(nsecs_t now) EXCLUDES(mLock);
    void setVsyncPeriod(nsecs_t periodNs) EXCLUDES(mLock);
    // Smart touch wants held buffers to go.
    void unblockPendingBuffer() EXCLUDES(mLock);

    // --- GPU jank (LayerManagerGpuJank.cpp). Descriptors stay the caller's. ---

    // The fence is unsignalled although its frame is due: tells the GPU driver at once.
    void notifyGpuFenceUnsignaled(int fenceFd, int layerId) EXCLUDES(mLock);
    // The frame was latched with this fence unsignalled; kept for the next flush, until which the
    // descriptor must stay valid.
    void trackLatchUnsignaledGpuFence(int fenceFd, int layerId) EXCLUDES(mLock);
    void flushLatchUnsignaledGpuFences() EXCLUDES(mLock);

    // --- Registry (LayerManagerRegistry.cpp) ---

    // The tracked layer, or null while it is a candidate or refused. Counts one buffer.
    sp<LayerInfo> getOrCreateLayer(const std::string& name, int layerId, int pid, int uid,
                                   nsecs_t now) EXCLUDES(mLock);
    sp<LayerInfo> getLayer(int layerId) EXCLUDES(mLock);
    // Retires layers that stopped drawing and enforces the limit of tracked layers.
    void cleanupInactiveLayers(nsecs_t now) EXCLUDES(mLock);
    // Forgets silent candidates and enforces their limit.
    void cleanupCandidates(nsecs_t now) EXCLUDES(mLock);

    // --- Scene reports (LayerManagerScenes.cpp) ---

    // Ranks the visible applications, picks the low-latency one and reports the top ones to the
    // performance service when they changed or a report was asked for. The time is ignored: what is
    // drawing has been settled by the clean-ups.
    void checkMultiLayer(nsecs_t now) EXCLUDES(mLock);
    // Sends one report after `delay` nanoseconds, on the boost worker, whatever is sent before.
    void scheduleNotifyUserScene(nsecs_t delay);

    // --- Configuration changes (LayerManagerConfigChanges.cpp) ---

    // A configuration or notification arrived from the service. Of the layers that are there, an
    // empty package means those of the low-latency application.
    void onFeatureConfigChanged(Feature feature, const std::string& pkgName) override
            EXCLUDES(mLock);

  private:
    // Package of a user's latest promoted layer, for layers whose names do not tell.
    struct AppInfo {
        std::string packageName;
        nsecs_t lastUsed;
    };

    // What the queue path needs of its layer once mLock is released.
    struct QueuedFrame;

    LayerManager();

    // LayerManagerRegistry.cpp
    void unregisterLayerLocked(LayerInfo& layer) REQUIRES(mLock);
    sp<LayerInfo> promoteLocked(const std::string& name, int layerId, int pid, int uid,
                                std::string packageName) REQUIRES(mLock);
    void markInactiveLocked(LayerInfo& layer, nsecs_t now) REQUIRES(mLock);
    // Where order matters, layers are walked by ascending id, so that results repeat.
    std::vector<sp<LayerInfo>> layersByIdLocked() const REQUIRES(mLock);

    // LayerManagerAppInfo.cpp
    // Remembers the package under the user and has the boost worker classify it.
    void checkAppInfo(int layerId, const std::string& packageName, int uid, nsecs_t now)
            EXCLUDES(mLock);
    std::string cachedPackageLocked(const std::string& name, int uid, nsecs_t now) REQUIRES(mLock);
    void classifyLayer(int layerId, const std::string& packageName) EXCLUDES(mLock);

    // LayerManagerEvents.cpp
    QueuedFrame trackQueueLocked(LayerInfo& layer, nsecs_t now) REQUIRES(mLock);

    // LayerManagerFrameRates.cpp
    void onFpsModeChangedLocked() REQUIRES(mLock);

    // LayerManagerFeatures.cpp
    // Both create their monitor on first need. They run under mLock like all feature switching.
    void initGFREnv() REQUIRES(mLock);
    void initPHREnv() REQUIRES(mLock);
    void loadFeatureConfigsLocked(LayerInfo* layer) REQUIRES(mLock);
    void toggleFeaturesOnFpsLocked(LayerInfo& layer, bool on) REQUIRES(mLock);
    void switchFeaturesOnLocked(LayerInfo& layer) REQUIRES(mLock);
    void switchFeaturesOffLocked(LayerInfo& layer) REQUIRES(mLock);
    void stopPacingBelowTargetLocked(LayerInfo& layer) REQUIRES(mLock);
    void updateAliveCheckLocked(LayerInfo& layer) REQUIRES(mLock);
    bool isAliveCheckPendingLocked() const REQUIRES(mLock) {
        return mAliveCheckMisses != kNoAliveCheck;
    }
    void setLowLatencyAppLocked(LayerInfo* layer) REQUIRES(mLock);

    // LayerManagerConfigChanges.cpp
    void onHeadroomRatesChanged(const std::string& pkgName) EXCLUDES(mLock);
    void onGfrTunablesChanged(const std::string& pkgName) EXCLUDES(mLock);
    void onTargetFpsChanged(const std::string& pkgName) EXCLUDES(mLock);
    void setHeadroomRatesLocked(LayerInfo& layer, const PhrConfig& config) REQUIRES(mLock);
    void applyGfrTunablesLocked(LayerInfo& layer) REQUIRES(mLock);
    void applyTargetFpsLocked(LayerInfo& layer) REQUIRES(mLock);
    // The layer has turned out to be a game's, to which more configurations apply. The monitors may
    // know it already, with what it had until now.
    void applyGameConfigsLocked(LayerInfo& layer) REQUIRES(mLock);
    // The layers that a change for this package concerns.
    std::vector<sp<LayerInfo>> layersOfAppLocked(const std::string& pkgName) const REQUIRES(mLock);

    // LayerManagerScenes.cpp
    void postSceneCheck();

    // LayerManagerGpuJank.cpp
    // False when the layer's fences are known not to be the GPU driver's.
    bool checkAndCacheFenceOrigin(LayerInfo& layer, int fenceFd) EXCLUDES(mLock);

    // Null until a layer needs the monitor. Monitors live as long as the process, so that a pointer
    // once read stays good. onVsync() takes the second one without the lock.
    GFRMonitor* mGfrMonitor GUARDED_BY(mLock) = nullptr;
    std::atomic<PHRMonitor*> mPhrMonitor{nullptr};
    Relaxed<bool> mInitialized{false};
    // The compositor's own integers, for a debugger.
    int32_t mInitArg0 GUARDED_BY(mLock) = -1;
    int32_t mInitArg1 GUARDED_BY(mLock) = -1;

    mutable Mutex mLock;  // also guards every field of every LayerInfo

    Relaxed<int32_t> mLayerCount{0};                                            // tracked layers
    std::unordered_map<int32_t, LayerCandidate> mCandidates GUARDED_BY(mLock);  // by layer id
    std::unordered_map<int32_t, sp<LayerInfo>> mLayers GUARDED_BY(mLock);       // by layer id
    std::unordered_map<int32_t, AppInfo> mAppInfoMap GUARDED_BY(mLock);         // by uid
    std::set<int32_t> mReportedUids GUARDED_BY(mLock);  // applications of the last scene report
    int32_t mFocusedUid GUARDED_BY(mLock) = -1;

    Relaxed<nsecs_t> mVsyncPeriod{0};              // as the compositor gave it: any value
    Relaxed<int32_t> mDisplayFpsMode{-1};          // mode of that period; 0 = none known
    std::atomic<nsecs_t> mLastPeriodicCleanup{0};  // time of the last one done from onVsync

    bool mLayerLimitReached GUARDED_BY(mLock) = false;      // no promotions
    bool mCandidateLimitReached GUARDED_BY(mLock) = false;  // no new candidates

    // The next scene check sends its report, changed or not: the focus, a mode or time wants it.
    Relaxed<bool> mMultiLayerCheckPending{false};
    std::atomic<int32_t> mScheduledReports{0};  // that wait for their time on the boost worker
    // The master gate of buffer events.
    Relaxed<bool> mTrackingEnabled{true};
    // No activity switch is going on.
    Relaxed<bool> mActvStable{true};

    int32_t mCpuBigJankThreshold GUARDED_BY(mLock) = 0;  // ms; below 1 = off
    float mGpuMinExecTimeMult GUARDED_BY(mLock) = 1.0f;  // in vsync periods
    Relaxed<bool> mGpuJankDetect{false};
    bool mGfrInited GUARDED_BY(mLock) = false;
    bool mPhrInited GUARDED_BY(mLock) = false;
    Relaxed<bool> mSmartTouchEnable{false};  // smart touch or headroom control is wanted
    bool mTargetFpsEnabled GUARDED_BY(mLock) = false;
    bool mTargetFpsCompensate GUARDED_BY(mLock) = true;

    int32_t mMaxFpsMode GUARDED_BY(mLock) = -1;      // highest accepted mode of all layers
    int32_t mFpsModeLayerId GUARDED_BY(mLock) = -1;  // the layer that holds it

    int32_t mLowLatencyPid GUARDED_BY(mLock) = -1;
    std::string mCheckedAliveApp GUARDED_BY(mLock);  // whose liveness is being checked
    // FPS windows of other applications since the check began:
    //   none --notification--> 0 --another's window--> 1 --> 2 --> given up: none
    //   any --a window of its own--> none; its layer then counts its own matches
    static constexpr int32_t kNoAliveCheck = -1;
    int32_t mAliveCheckMisses GUARDED_BY(mLock) = kNoAliveCheck;
};

}  // namespace android
