// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <android-base/properties.h>
#include <android/binder_interface_utils.h>
#include <android/log.h>
#include <binder/IPCThreadState.h>
#include <utils/Mutex.h>
#include <utils/Timers.h>

#include <memory>
#include <string>

#include "corvane/hooks.h"
#include "features/FeatureManager.h"
#include "hooks/HookState.h"
#include "hooks/PropertyMonitor.h"
#include "layers/LayerManager.h"
#include "perf/PerfProxy.h"
#include "perf/TFPSCallback.h"

// Thin gates: each checks the switches and its arguments and forwards. Nothing is decided here.

namespace android {
namespace {

using aidl::vendor::hxw::hardware::perf2::TFPSCallback;

// By which the performance service tells this library from its other callback clients.
constexpr int kCallbackClientId = 4;

Mutex sLock;  // serialises corvaneInit()
bool sInitialized GUARDED_BY(sLock) = false;

void registerCallback() {
    const std::shared_ptr<TFPSCallback> callback = ndk::SharedRefBase::make<TFPSCallback>();
    if (callback == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kHookLogTag, "tfpsCB is null");
        return;
    }
    PerfProxy::getInstance()->perfCallbackRegister(callback, kCallbackClientId);
}

bool initLocked(int32_t arg0, int32_t arg1) REQUIRES(sLock) {
    const FeatureManager* features = FeatureManager::getInstance();
    sEnabled = features->isFeatureEnabled(CORVANE);
    __android_log_print(ANDROID_LOG_DEBUG, kHookLogTag, "[Corvane Enable: %d]", bool{sEnabled});
    if (!sEnabled) return false;

    sTargetFpsEnabled = features->isFeatureEnabled(TARGET_FPS);
    sGpuJankDetectEnabled = features->isFeatureEnabled(GPU_JANK_DETECT);
    sPhrEnabled = features->isFeatureEnabled(QUICK_TOUCH) || sTargetFpsEnabled;
    registerCallback();
    const bool smartTouch = base::GetBoolProperty(kSmartTouchProperty, false);
    sSmartTouch = smartTouch;
    sSmartTouchTrace = base::GetBoolProperty(kSmartTouchTraceProperty, false);
    __android_log_print(ANDROID_LOG_DEBUG, kHookLogTag, "[sf: ST:%d]", smartTouch);
    __android_log_print(ANDROID_LOG_DEBUG, kHookLogTag, "[PHR:%d]", bool{sPhrEnabled});
    LayerManager::getInstance()->init(sPhrEnabled || smartTouch, arg0, arg1);
    propertyMonitor(kSmartTouchProperty, smartTouch, onSTPropChanged);
    sInitialized = true;
    return true;
}

bool tracksGpuFence(int32_t fenceFd, int32_t layerId) {
    return layerId >= 1 && fenceFd >= 0 && sEnabled && sGpuJankDetectEnabled;
}

}  // namespace
}  // namespace android

using namespace android;

bool corvaneInit(int32_t arg0, int32_t arg1) {
    Mutex::Autolock lock(sLock);
    if (sInitialized) return sEnabled;
    return initLocked(arg0, arg1);
}

bool corvaneSmartTouchEnabled() {
    return sSmartTouch;
}

void corvaneSetVsyncPeriod(int64_t periodNs) {
    if (sEnabled) LayerManager::getInstance()->setVsyncPeriod(periodNs);
}

void corvaneUnblockPendingBuffer() {
    if (!sEnabled || !sSmartTouch) return;
    LayerManager::getInstance()->unblockPendingBuffer();
    if (sSmartTouchTrace) {
        __android_log_print(ANDROID_LOG_DEBUG, kHookLogTag,
                            "SurfaceFlinger: Smart touch debug: corvaneUnblockPendingBuffer");
    }
}

void corvaneTrackBufferIncrement(const char* layerName, int32_t layerId, bool bufferFlag,
                                 uint32_t extra, int64_t extraTime) {
    if (!sEnabled || layerName == nullptr) return;
    const IPCThreadState* caller = IPCThreadState::self();
    if (caller == nullptr) return;  // the process is shutting down
    const std::string name(layerName);
    // The compositor's flag is the opposite of ours, which marks a buffer to be shown at once.
    LayerManager::getInstance()->onBufferIncrement(name, layerId, caller->getCallingPid(),
                                                   static_cast<int>(caller->getCallingUid()),
                                                   extraTime, !bufferFlag, extra);
}

void corvaneTrackBufferDecrement(const char* layerName, int32_t layerId, int32_t pendingCount,
                                 const Rect* bounds, bool focused, bool visible) {
    if (!sEnabled || layerName == nullptr || bounds == nullptr) return;
    const std::string name(layerName);
    LayerManager::getInstance()->onBufferDecrement(name, layerId, pendingCount, *bounds, focused,
                                                   visible);
}

void corvaneTrackVsyncSignal() {
    if (sEnabled) LayerManager::getInstance()->onVsync(systemTime(SYSTEM_TIME_MONOTONIC));
}

bool corvaneIsTargetFpsActive() {
    return sTargetFpsEnabled && FeatureManager::getInstance()->isTfpsConfigured();
}

void corvaneNotifyGpuFenceUnsignaled(int32_t fenceFd, int32_t layerId) {
    if (!tracksGpuFence(fenceFd, layerId)) return;
    LayerManager::getInstance()->notifyGpuFenceUnsignaled(fenceFd, layerId);
}

void corvaneTrackLatchUnsignaledGpuFence(int32_t fenceFd, int32_t layerId) {
    if (!tracksGpuFence(fenceFd, layerId)) return;
    LayerManager::getInstance()->trackLatchUnsignaledGpuFence(fenceFd, layerId);
}

void corvaneFlushLatchUnsignaledGpuFences() {
    if (sEnabled && sGpuJankDetectEnabled) {
        LayerManager::getInstance()->flushLatchUnsignaledGpuFences();
    }
}
