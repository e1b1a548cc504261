// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <utils/Condition.h>
#include <utils/Mutex.h>
#include <utils/StrongPointer.h>
#include <utils/Timers.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <thread>

#include "phr/LayerPHRState.h"
#include "phr/RefreshRateClass.h"

namespace android {

// Headroom control. A game that runs faster than the display queues its buffers early, and each
// then waits for its vsync while the input it was drawn from grows old. For one layer at a time,
// the focus layer, this monitor holds the queueing thread back until the headroom point: a chosen
// time, the headroom, before the vsync at which the buffer will be shown. The game's next frame
// begins that much later and sees that much newer input.
//
//       vsync T                    headroom point               vsync T + P
//          |-----------------------------|--------------------------|
//          | buffer queued, held back    | released    headroom mod P
//
// The headroom thread ("PHR") wakes on every vsync of the focus layer and releases the held buffer;
// the queueing thread bounds its own waits, so that no buffer is held for more than two periods
// even if nobody wakes it. How large the headroom is follows the layer's frame times. For any layer
// the monitor can instead pace the queueing thread to a target rate.
//
// Threads: the compositor's buffer and vsync hooks, the configuration callback and the headroom
// thread. Only onBufferIncrement() blocks. Every operation on a layer that is not registered does
// nothing; so does every headroom operation while no vsync period is known.
//
// Lock order: mLifecycleLock, then mCondLock, then mLock, then a layer state's mLock. A state's
// mFieldsLock is innermost. All locks and their order: docs/architecture.md.
class PHRMonitor {
  public:
    static PHRMonitor* getInstance();

    PHRMonitor() = default;
    ~PHRMonitor();
    PHRMonitor(const PHRMonitor&) = delete;
    PHRMonitor& operator=(const PHRMonitor&) = delete;

    // Starts the headroom thread and reads the switches from FeatureManager. False when the
    // thread cannot be started; the monitor then stays idle. A stopped monitor may start again.
    bool init() EXCLUDES(mLifecycleLock);

    // Ends the headroom thread, releases every held buffer and drops all layers. Does nothing when
    // the monitor is not running.
    void forceStop() EXCLUDES(mLifecycleLock);

    // Rates are headrooms as fractions of the vsync period, at up to 60 Hz and above; 0 = off.
    // Registering an id again replaces its state.
    void registerLayer(int id, const std::string& name, float minRate, float highFpsMinRate);
    void unregisterLayer(int id);
    sp<LayerPHRState> getLayerState(int id);

    // A new period re-derives every layer's headroom. With the period unchanged nothing happens,
    // whatever the rate.
    void setVsyncInfo(int64_t period, int fps);

    // A vsync of the display, now. The time given is ignored: it may be that of a vsync to come,
    // while the headroom counts from the moment of the signal.
    void onVsync(int64_t vsyncTime);

    // Derives the layer's headrooms from its rates; a negative rate keeps the stored one.
    void updateHeadRoom(int id, float minRate, float highFpsMinRate);

    // A buffer is queued, by the calling thread, `frameTime` after the end of its previous queue
    // call. Holds the thread back for as long as headroom control or pacing wants.
    void onBufferIncrement(int id, int64_t frameTime, int64_t queueTime, bool instant);

    // A buffer is latched and `pendingCount` more are pending.
    void onBufferDecrement(int id, int pendingCount, int64_t latchTime);

    // Switches headroom control for the layer, which becomes the focus layer or stops being it.
    // Ignored while another layer has the focus.
    void setQuickTouchStatus(int id, bool enable);

    // Whether the layer's buffers have been piling up long enough for headroom control to help.
    bool isQuickTouchApplicable(LayerPHRState* state);

    // Lets the layer's held buffer go at once: a touch is waiting for the next frame.
    void unblockBuffer(int id);

    // Switches pacing to targetFps for the layer, whose measured rate is currentFps.
    void setTargetFpsStatus(int id, bool enable, float currentFps, float targetFps);
    bool isTargetFpsSwitching(int id);

    // The steps of onBufferIncrement().
    void checkAndUpdateHeadroom(LayerPHRState* state, int64_t frameTime);
    void updateDynamicHeadroom(LayerPHRState* state, int64_t frameTime);
    void resetAdaptivePhrState(LayerPHRState* state);
    void trackQueueBuffer(LayerPHRState* state, bool instant, int64_t queueTime);
    void adjustForTargetFps(LayerPHRState* state);

  private:
    static constexpr int32_t kNoLayer = -1;
    static constexpr nsecs_t kNoVsync = -1;

    void threadMain() EXCLUDES(mCondLock);
    void releaseAtHeadroomPointLocked(nsecs_t vsyncTime) REQUIRES(mCondLock);
    void holdBack(LayerPHRState* state, nsecs_t maxWait, nsecs_t headroom, nsecs_t lastLatch);

    // The display's period for a change of the layer's record; below 1 = not known. Read with the
    // record locked: a new period is stored before setVsyncInfo() re-derives the record under that
    // lock, so whatever the old one brought about is overwritten, never the other way round.
    nsecs_t periodLocked(const LayerPHRState& state) const REQUIRES(state.mFieldsLock);

    // The headroom after the step; none when it is at that end already.
    std::optional<nsecs_t> updatePresetHeadroomLocked(LayerPHRState& state, nsecs_t period,
                                                      bool decrease, nsecs_t step)
            REQUIRES(state.mFieldsLock);
    void updateMaxHeadroomLocked(LayerPHRState& state, nsecs_t period) REQUIRES(state.mFieldsLock);
    void countDropWait(LayerPHRState* state, int pendingCount);
    void trackJank(LayerPHRState* state, nsecs_t latchTime, nsecs_t period);

    // The display's refresh-rate class selects which of each pair of rates holds.
    bool isHighFps() const { return isHighRefreshRate(mFps); }
    float defaultMaxRate() const;
    float minRateLocked(const LayerPHRState& state) const REQUIRES(state.mFieldsLock);

    Mutex mLifecycleLock;  // serialises init() and forceStop()
    std::thread mThread GUARDED_BY(mLifecycleLock);

    Mutex mLock;
    std::map<int32_t, sp<LayerPHRState>> mLayers GUARDED_BY(mLock);

    // Held by the headroom thread except while it waits.
    Mutex mCondLock;
    Condition mCond;
    // When the vsync was signalled that the headroom thread has yet to serve.
    nsecs_t mSignalledVsync GUARDED_BY(mCondLock) = kNoVsync;

    // The atomics keep the default order: the headroom thread and the queueing threads combine
    // several of them with those of a layer's state.
    std::atomic<bool> mRunning{true};
    std::atomic<nsecs_t> mVsyncPeriod{-1};
    std::atomic<int32_t> mFps{kHighestLowFps};     // display refresh rate, Hz
    std::atomic<int32_t> mFocusLayerId{kNoLayer};  // written under mLock

    // Read from FeatureManager by init().
    std::atomic<float> mDefaultMaxRate{0.0f};         // highest headroom rate at up to 60 Hz
    std::atomic<float> mHighFpsDefaultMaxRate{0.0f};  // and above
    std::atomic<bool> mPHRDynamicEnable{false};       // adaptive instead of stepped headroom
    std::atomic<int32_t> mTargetFpsSwitchTime{-1};    // in frames; below 1 = no ramp
    std::atomic<bool> mTargetFpsCompensate{true};     // late frames are made up for
};

}  // namespace android
