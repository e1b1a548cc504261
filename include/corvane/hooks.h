// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// The functions through which a compositor and applications enter libcorvane.
//
// Unless its comment says otherwise, a function may be called from any thread and any number at a
// time, does not block, and ignores null pointers and layer ids below 1. Texts are copied before
// the function returns and may hold any bytes.
//
// Times are nanoseconds of CLOCK_MONOTONIC.

#pragma once

#include <stdint.h>

#define CORVANE_EXPORT __attribute__((visibility("default")))

namespace android {
class Rect;
}  // namespace android

extern "C" {

// --- The compositor ---
//
// Call corvaneInit() once, before the first frame. Before it, and for ever when the master switch
// is off, every other function does nothing and every query is false. The others act as soon as it
// has read the switch: those called from other threads meanwhile may act before it returns.

// Reads the switches and properties, registers with the performance service and starts tracking.
// True when the library is enabled. Once it has returned true, further calls change nothing. The
// master switch is read once per process: a disabled library stays disabled, and every call logs
// that. The two integers are kept as they are and have no meaning to the library.
CORVANE_EXPORT bool corvaneInit(int32_t arg0, int32_t arg1);

// Whether smart touch is on now. It can change at run time.
CORVANE_EXPORT bool corvaneSmartTouchEnabled();

// The display's vsync period, in nanoseconds: before the first frame and whenever it changes. A
// period that belongs to no known refresh rate is kept but not acted upon.
CORVANE_EXPORT void corvaneSetVsyncPeriod(int64_t periodNs);

// Releases the buffers that are held back, because a touch waits for the next frame. Ignored while
// smart touch is off.
CORVANE_EXPORT void corvaneUnblockPendingBuffer();

// A layer queues a buffer. Call it on the binder thread that serves the queueing application: the
// caller's pid and uid are taken as the producer's.
//
// BLOCKS that thread while headroom control or target-FPS pacing holds the buffer back: at most two
// vsync periods for headroom control, less than a second for pacing. Hold no lock that the main
// thread needs.
//
// `bufferFlag` is false for an instant buffer, one to be shown at once: headroom control lets it
// and the next one pass, pacing does not. `extra` and `extraTime` are not used.
CORVANE_EXPORT void corvaneTrackBufferIncrement(const char* layerName, int32_t layerId,
                                                bool bufferFlag, uint32_t extra, int64_t extraTime);

// A layer's buffer is latched. `pendingCount` buffers are queued and not yet latched behind it;
// `bounds` is where the layer is on screen; `focused` and `visible` are its state.
CORVANE_EXPORT void corvaneTrackBufferDecrement(const char* layerName, int32_t layerId,
                                                int32_t pendingCount, const android::Rect* bounds,
                                                bool focused, bool visible);

// A vsync, on every one, as it happens.
CORVANE_EXPORT void corvaneTrackVsyncSignal();

// Whether a target frame rate is configured for any application.
CORVANE_EXPORT bool corvaneIsTargetFpsActive();

// The three below act only while GPU-jank detection is on. Descriptors are those of sync files;
// they stay the caller's, and negative ones are ignored.

// The GPU fence of a layer's frame is unsignalled although the frame is due: the GPU driver is told
// at once.
CORVANE_EXPORT void corvaneNotifyGpuFenceUnsignaled(int32_t fenceFd, int32_t layerId);

// A frame was latched while its GPU fence was unsignalled. The descriptor must stay open until the
// next flush; a later one for the same layer replaces it.
CORVANE_EXPORT void corvaneTrackLatchUnsignaledGpuFence(int32_t fenceFd, int32_t layerId);

// Tells the GPU driver of all fences recorded since the last flush.
CORVANE_EXPORT void corvaneFlushLatchUnsignaledGpuFences();

// --- An application's process: smart touch ---
//
// Call aCorvaneAppInit() once, before the first frame. The input thread reports touches and asks
// when to consume moves, the render thread reports and filters buffers. None of these takes a lock.

// Reads the smart-touch properties and watches them from then on. A second call reads them again
// and starts the measurement of the game's rhythm anew.
CORVANE_EXPORT void aCorvaneAppInit();

// Whether aCorvaneAppInit() was called.
CORVANE_EXPORT bool aCorvaneSmartTouchActive();

// A buffer is queued. With `markOnly` only the begin of that work is marked: a buffer queued more
// than 1 ms after its mark counts as one that did not wait for a free buffer.
CORVANE_EXPORT void aCorvaneQueueBuffer(bool markOnly);

// A touch, by its motion-event action code: 0 down, 1 up, 2 move, 5 pointer down, 6 pointer up,
// 7 hover move. The first down or up after 300 ms asks the compositor for a power boost.
CORVANE_EXPORT void aCorvaneSetTouchEvent(int32_t action);

// The time of the latest vsync.
CORVANE_EXPORT void aCorvaneSetVsyncTime(int64_t vsyncTime);

// Looks at a buffer before it is queued. One whose present time the application chose itself
// (`*isAutoTimestamp` false) is left alone. Otherwise bit 0x20 of the flags is cleared, and the
// first buffer after a touch becomes an instant one where it can: `*isAutoTimestamp` turns false
// and
// `*desiredPresentTime` a time just past. Null for any argument: ignored.
CORVANE_EXPORT void aCorvaneFilterBuffer(bool* isAutoTimestamp, int64_t* desiredPresentTime,
                                         uint32_t* bufferFlags);

// Whether pending move input is consumed now (true) or held for later in the frame (false).
// `*consumeNow` is left as it is while the library has no opinion.
CORVANE_EXPORT void aCorvaneConsumeInputNow(bool* consumeNow);

}  // extern "C"

// --- The types of these functions ---
//
// For those who open the library at run time: what dlsym(library, "corvaneInit") returns points to
// a CorvaneInitFn, and so on.

using CorvaneInitFn = decltype(corvaneInit);
using CorvaneSmartTouchEnabledFn = decltype(corvaneSmartTouchEnabled);
using CorvaneSetVsyncPeriodFn = decltype(corvaneSetVsyncPeriod);
using CorvaneUnblockPendingBufferFn = decltype(corvaneUnblockPendingBuffer);
using CorvaneTrackBufferIncrementFn = decltype(corvaneTrackBufferIncrement);
using CorvaneTrackBufferDecrementFn = decltype(corvaneTrackBufferDecrement);
using CorvaneTrackVsyncSignalFn = decltype(corvaneTrackVsyncSignal);
using CorvaneIsTargetFpsActiveFn = decltype(corvaneIsTargetFpsActive);
using CorvaneNotifyGpuFenceUnsignaledFn = decltype(corvaneNotifyGpuFenceUnsignaled);
using CorvaneTrackLatchUnsignaledGpuFenceFn = decltype(corvaneTrackLatchUnsignaledGpuFence);
using CorvaneFlushLatchUnsignaledGpuFencesFn = decltype(corvaneFlushLatchUnsignaledGpuFences);
using ACorvaneAppInitFn = decltype(aCorvaneAppInit);
using ACorvaneSmartTouchActiveFn = decltype(aCorvaneSmartTouchActive);
using ACorvaneQueueBufferFn = decltype(aCorvaneQueueBuffer);
using ACorvaneSetTouchEventFn = decltype(aCorvaneSetTouchEvent);
using ACorvaneSetVsyncTimeFn = decltype(aCorvaneSetVsyncTime);
using ACorvaneFilterBufferFn = decltype(aCorvaneFilterBuffer);
using ACorvaneConsumeInputNowFn = decltype(aCorvaneConsumeInputNow);
