// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/Playback.h"

#include <pthread.h>
#include <unistd.h>
#include <utils/Timers.h>

#include <algorithm>

#include "replay/Timeline.h"

namespace corvane::replay {
namespace {

// All threads are ready and asleep before the first step is due.
constexpr int64_t kLeadNs = 50'000'000;

}  // namespace

Playback::Playback(const Recording& recording, Hooks& hooks, int repeat)
      : mRecording(recording),
        mHooks(hooks),
        mRepeat(repeat),
        mFocusedProcess(recording.focusedProcess()),
        mLatched(recording.layers.size()) {}

void Playback::begin() {
    setPeriod(mRecording.vsyncPeriodNs);
    mStartNs = systemTime(SYSTEM_TIME_MONOTONIC) + kLeadNs;
    mOnStart(mStartNs);
}

void Playback::setPeriod(int64_t periodNs) {
    if (periodNs == mPeriodNs) return;
    mPeriodNs = periodNs;
    mCompositorCosts.measure(Hook::kSetVsyncPeriod, [&] { mHooks.setVsyncPeriod(periodNs); });
}

void Playback::signalVsync(int64_t lateNs) {
    mVsyncLateness.add(lateNs);
    mCompositorCosts.measure(Hook::kTrackVsyncSignal, [&] { mHooks.trackVsyncSignal(); });
}

void Playback::latchBuffers(size_t layer, int count, int pending) {
    mLatches.push_back({layer, sinceStart(systemTime(SYSTEM_TIME_MONOTONIC)), count, pending});
    const Layer& latched = mRecording.layers[layer];
    const bool focused = latched.focused.value_or(latched.process == mFocusedProcess);
    mCompositorCosts.measure(Hook::kTrackBufferDecrement,
                             [&] { mHooks.trackBufferDecrement(latched, pending, focused); });
    for (int i = 0; i < count; ++i) {
        ++mLatched[layer];
        tellFences(layer);
    }
}

void Playback::tellFences(size_t layer) {
    const size_t frame = mLatched[layer];
    for (const auto& mark : mFences) {
        if (mark.layer != layer || frame < mark.first || frame > mark.last ||
            (frame - mark.first) % mark.every != 0) {
            continue;
        }
        const int fd = mHooks.createFence(mark.timeline);
        if (fd < 0) continue;
        ++mToldFences;
        const Layer& latched = mRecording.layers[layer];
        if (mark.immediate) {
            mCompositorCosts.measure(Hook::kNotifyGpuFenceUnsignaled,
                                     [&] { mHooks.notifyGpuFenceUnsignaled(fd, latched); });
            close(fd);
        } else {
            mCompositorCosts.measure(Hook::kTrackLatchUnsignaledGpuFence,
                                     [&] { mHooks.trackLatchUnsignaledGpuFence(fd, latched); });
            mOpenFences.push_back(fd);
        }
    }
}

// Recorded descriptors stay open until they are flushed.
void Playback::flushFences() {
    if (mOpenFences.empty()) return;
    mCompositorCosts.measure(Hook::kFlushLatchUnsignaledGpuFences,
                             [&] { mHooks.flushLatchUnsignaledGpuFences(); });
    for (const int fd : mOpenFences) close(fd);
    mOpenFences.clear();
}

void Playback::endCompositor() {
    flushFences();
    mEndNs = systemTime(SYSTEM_TIME_MONOTONIC);
}

void Playback::addScript(std::string threadName, std::vector<TimedAction> actions) {
    if (actions.empty()) return;
    std::stable_sort(actions.begin(), actions.end(),
                     [](const auto& a, const auto& b) { return a.atNs < b.atNs; });
    addScript(std::move(threadName),
              [actions = std::move(actions),
               i = size_t{0}]() mutable -> std::optional<TimedAction> {
                  if (i == actions.size()) return std::nullopt;
                  return std::move(actions[i++]);
              });
}

void Playback::addScript(std::string threadName, NextAction next) {
    mScripts.push_back({std::move(threadName), std::move(next), {}, {}});
}

void Playback::startScripts() {
    for (Script& script : mScripts) {
        script.thread = std::thread([this, &script] { runScript(script); });
    }
}

void Playback::joinScripts() {
    for (Script& script : mScripts) {
        if (script.thread.joinable()) script.thread.join();
    }
}

void Playback::runScript(Script& script) {
    pthread_setname_np(pthread_self(), script.name.c_str());
    while (const auto action = script.next()) {
        if (action->atNs > playedNs()) break;  // never reached within the time that is played
        sleepUntil(mStartNs + action->atNs, mStopped);
        if (mStopped) break;
        action->run(script.costs);
    }
}

PlayResult Playback::takeResult() {
    PlayResult result;
    result.startNs = mStartNs;
    result.durationNs = std::max<int64_t>(0, sinceStart(mEndNs));
    result.stopped = mStopped;
    result.latches = std::move(mLatches);
    result.fences = mToldFences;
    result.lateness = spreadOf(mVsyncLateness);
    result.costs.merge(mCompositorCosts);
    for (const Script& script : mScripts) result.costs.merge(script.costs);
    return result;
}

}  // namespace corvane::replay
