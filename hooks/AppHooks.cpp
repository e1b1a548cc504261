// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <android-base/properties.h>
#include <android/log.h>
#include <cutils/trace.h>
#include <gui/SurfaceComposerClient.h>
#include <utils/Timers.h>

#include <cstdio>
#include <system_error>

#include "base/Relaxed.h"
#include "base/SaturatingCast.h"
#include "corvane/hooks.h"
#include "hooks/GameTracker.h"
#include "hooks/HookState.h"
#include "hooks/PropertyMonitor.h"
#include "hooks/SmartTouch.h"

// Smart touch in the application's process: the frame after a touch is shown at once, and moves are
// consumed as late as their frame allows. Called on the application's input and render threads.

namespace android {
namespace {

// The platform's motion-event action codes.
enum TouchAction : int32_t {
    ACTION_DOWN = 0,
    ACTION_UP = 1,
    ACTION_MOVE = 2,
    ACTION_POINTER_DOWN = 5,
    ACTION_POINTER_UP = 6,
    ACTION_HOVER_MOVE = 7,
};

// Touches in quicker succession are one burst of taps: only its first is worth an instant frame.
constexpr nsecs_t kTouchPauseNs = 300'000'000;

// A frame queued at least this long after it was begun was not waiting for a buffer: one shown
// ahead of its time then finds the queue empty.
constexpr nsecs_t kMinQueueHeadroomNs = 1'000'000;

// An instant frame's present time lies in the past by this much, so that it is due at the very next
// composition.
constexpr nsecs_t kInstantAgeNs = 5'000'000;

constexpr int32_t kTouchPowerBoost = 110;  // the compositor client's id of this boost

// Cleared on every buffer whose present time the platform chooses.
constexpr uint32_t kAppTimedBufferFlag = 0x20;

constexpr size_t kTraceTextSize = 64;

Relaxed<bool> sAppSmartTouchActive{false};  // this process is an application that called init
Relaxed<int32_t> sLastTouchAction{0};
Relaxed<nsecs_t> sLastTouchTime{0};  // of the last down or up
Relaxed<bool> sTouchPending{false};  // a touch after a pause, not yet served by a frame
Relaxed<nsecs_t> sQueueMarkTime{0};
Relaxed<nsecs_t> sLastQueueTime{0};
Relaxed<bool> sQueueHeadroomOk{false};  // as of the last queued buffer
Relaxed<nsecs_t> sVsyncTime{0};
Relaxed<nsecs_t> sLastConsumeCheckTime{0};
Relaxed<nsecs_t> sLastConsumeNowTime{0};  // of the latest consumption for a vsync
Relaxed<int32_t> sPendCount{0};           // successive pends before a queue
Relaxed<nsecs_t> sFirstPendTime{0};       // the first of them

nsecs_t now() {
    return systemTime(SYSTEM_TIME_MONOTONIC);
}

void trace(const char* name) {
    if (!sSmartTouchTrace) return;
    atrace_begin(ATRACE_TAG_GRAPHICS, name);
    atrace_end(ATRACE_TAG_GRAPHICS);
}

bool isSmartTouchOn() {
    return sSmartTouch || sSmartTouchMove;
}

bool isMove(int32_t action) {
    return action == ACTION_MOVE || action == ACTION_HOVER_MOVE;
}

void watch(const char* property, bool current, void (*callback)(bool)) {
    try {
        propertyMonitor(property, current, callback);
    } catch (const std::system_error&) {
        // The switch keeps its value. An application must not die for want of a watcher.
    }
}

// A finger went down or up.
void onTouchEdge(const char* eventName, const char* skippedName) {
    const nsecs_t time = now();
    if (time - sLastTouchTime > kTouchPauseNs) {
        sTouchPending = true;
        SurfaceComposerClient::notifyPowerBoost(kTouchPowerBoost);
    }
    sLastTouchTime = time;
    trace(sTouchPending ? eventName : skippedName);
}

void traceInputTimes(const InputTimes& times) {
    if (!sSmartTouchTrace) return;
    trace("aCorvaneConsumeInputNow");
    char text[kTraceTextSize];
    snprintf(text, sizeof(text), "vsync: %lld, vsyncTs: %lld, touch: %lld",
             static_cast<long long>(times.frameInterval), static_cast<long long>(times.vsyncTime),
             static_cast<long long>(times.touchInterval));
    trace(text);
}

}  // namespace
}  // namespace android

using namespace android;

void aCorvaneAppInit() {
    sAppSmartTouchActive = true;
    const bool smartTouch = base::GetBoolProperty(kSmartTouchProperty, false);
    const bool smartTouchMove = base::GetBoolProperty(kSmartTouchMoveProperty, false);
    sSmartTouch = smartTouch;
    sSmartTouchMove = smartTouchMove;
    sSmartTouchTrace = base::GetBoolProperty(kSmartTouchTraceProperty, false);
    if (smartTouchMove) replaceInGameTracker();
    if (sSmartTouchTrace) {
        __android_log_print(ANDROID_LOG_DEBUG, kHookLogTag, "[App: ST:%d, STM:%d, STD:%d]",
                            smartTouch, smartTouchMove, 1);
    }
    watch(kSmartTouchProperty, smartTouch, onSTPropChanged);
    watch(kSmartTouchMoveProperty, smartTouchMove, onSTMPropChanged);
}

bool aCorvaneSmartTouchActive() {
    return sAppSmartTouchActive;
}

void aCorvaneQueueBuffer(bool markOnly) {
    if (!isSmartTouchOn()) return;
    trace("aCorvaneQueueBuffer");
    const nsecs_t time = now();
    if (markOnly) {
        sQueueMarkTime = time;
        return;
    }
    sLastQueueTime = time;
    sQueueHeadroomOk = time - sQueueMarkTime > kMinQueueHeadroomNs;
    if (!sSmartTouchMove) return;
    if (InGameTracker* tracker = inGameTracker()) tracker->queueBuffer(time);
}

void aCorvaneSetTouchEvent(int32_t action) {
    if (!sAppSmartTouchActive || !isSmartTouchOn()) return;
    sLastTouchAction = action;
    switch (action) {
        case ACTION_DOWN:
        case ACTION_POINTER_DOWN:
            onTouchEdge("EVENT_ACTION_DOWN", "skip this DOWN event.");
            break;
        case ACTION_UP:
        case ACTION_POINTER_UP:
            onTouchEdge("EVENT_ACTION_UP", "skip this UP event.");
            break;
        case ACTION_MOVE:
        case ACTION_HOVER_MOVE:
            trace("EVENT_ACTION_MOVE");
            if (InGameTracker* tracker = inGameTracker()) tracker->trackMoveEvent(now());
            break;
        default:
            trace("Unknown");
    }
}

void aCorvaneSetVsyncTime(int64_t vsyncTime) {
    sVsyncTime = vsyncTime;
}

void aCorvaneFilterBuffer(bool* isAutoTimestamp, int64_t* desiredPresentTime,
                          uint32_t* bufferFlags) {
    if (!sAppSmartTouchActive) return;
    if (isAutoTimestamp == nullptr || desiredPresentTime == nullptr || bufferFlags == nullptr) {
        return;
    }
    if (!*isAutoTimestamp) {
        trace("game sets desiredPresentTime itself");
        return;
    }
    *bufferFlags &= ~kAppTimedBufferFlag;
    if (!sSmartTouch) return;

    // The first buffer after a touch serves it, whether it can be shown at once or not.
    const bool touched = sTouchPending.exchange(false);
    if (touched && sQueueHeadroomOk) {
        *isAutoTimestamp = false;
        *desiredPresentTime = now() - kInstantAgeNs;
        trace("aCorvaneInstantBuffer true");
        if (sSmartTouchTrace) {
            __android_log_print(ANDROID_LOG_DEBUG, kHookLogTag,
                                "SurfaceFlinger: Smart touch debug: set desiredPresentTime for "
                                "this frame.");
        }
        return;
    }
    if (touched) trace("Found touch down/up, but no enough headroom.");
    trace("aCorvaneInstantBuffer false");
}

void aCorvaneConsumeInputNow(bool* consumeNow) {
    const InGameTracker* tracker = inGameTracker();
    if (consumeNow == nullptr || !sAppSmartTouchActive || !sSmartTouchMove || tracker == nullptr ||
        !isMove(sLastTouchAction)) {
        return;
    }
    InputTimes times;
    times.now = now();
    times.frameInterval = tracker->getFrameInterval();
    times.touchInterval = tracker->getTouchInterval();
    times.lastCheckTime = sLastConsumeCheckTime;
    times.queueHeadroomOk = sQueueHeadroomOk;
    times.vsyncTime = sVsyncTime;
    times.lastConsumeTime = sLastConsumeNowTime;
    times.lastQueueTime = sLastQueueTime;
    times.pendCount = sPendCount;
    times.firstPendTime = sFirstPendTime;
    traceInputTimes(times);
    switch (decideInput(times)) {
        case InputDecision::NONE:
            return;
        case InputDecision::CONSUME_FIRST_MOVE:
            trace("consume first MOVE");
            *consumeNow = true;
            break;
        case InputDecision::PEND_BEFORE_VSYNC:
            trace("Pre Vsync: pend input");
            *consumeNow = false;
            break;
        case InputDecision::CONSUME_FOR_VSYNC:
            trace("consume input now");
            *consumeNow = true;
            sLastConsumeNowTime = times.now;
            break;
        case InputDecision::PEND_BEFORE_QUEUE:
            trace("Pre queue buffer: pend input");
            *consumeNow = false;
            if (times.pendCount == 0) sFirstPendTime = times.now;
            sPendCount = saturatingAdd(times.pendCount, 1);
            break;
        case InputDecision::CONSUME_FOR_QUEUE:
            trace("consume input now");
            *consumeNow = true;
            sPendCount = 0;
            break;
    }
    sLastConsumeCheckTime = times.now;
}
