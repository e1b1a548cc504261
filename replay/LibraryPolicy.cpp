// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/LibraryPolicy.h"

#include <pthread.h>
#include <utils/Timers.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <utility>

#include "corvane/host/Devices.h"
#include "corvane/host/Simulation.h"

namespace corvane::replay {
namespace {

// The boost device's record of the level that ends a boost.
constexpr int32_t kReleaseLevel = 0;

}  // namespace

LibraryPolicy::LibraryPolicy(const Recording& recording, Hooks& hooks, int64_t startNs,
                             size_t boostedLayer, Compositor compositor,
                             const std::atomic<bool>& stopped)
      : mRecording(recording),
        mHooks(hooks),
        mStartNs(startNs),
        mBoostedLayer(boostedLayer),
        mCompositor(std::move(compositor)),
        mStopped(stopped),
        mProducers(recording.layers.size()) {
    host::BoostDevice::setListener([this](const host::BoostRequest& request) {
        using Kind = model::PolicyEvent::Kind;
        const Kind kind = request.level == kReleaseLevel ? Kind::kBoostEnd : Kind::kBoost;
        const std::lock_guard<std::mutex> lock(mMutex);
        mEvents.push_back({request.timeNs - mStartNs, kind, mBoostedLayer, request.freqMHz});
        mHappened.notify_all();
    });
    for (size_t i = 0; i < mProducers.size(); ++i) {
        mProducers[i].thread = std::thread([this, i] { runProducer(i); });
    }
}

void LibraryPolicy::finish() {
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mEnds = true;
        for (Producer& producer : mProducers) producer.changed.notify_all();
    }
    for (Producer& producer : mProducers) {
        if (producer.thread.joinable()) producer.thread.join();
    }
    host::BoostDevice::setListener(nullptr);
}

int64_t LibraryPolicy::now() const {
    return systemTime(SYSTEM_TIME_MONOTONIC) - mStartNs;
}

void LibraryPolicy::runProducer(size_t index) {
    const Layer& layer = mRecording.layers[index];
    const Process& process = mRecording.processes[layer.process];
    pthread_setname_np(pthread_self(), ("app-" + std::to_string(process.pid)).c_str());
    std::unique_lock<std::mutex> lock(mMutex);
    for (;;) {
        Producer& producer = mProducers[index];
        producer.changed.wait(lock, [&] { return producer.isQueueing || mEnds; });
        if (!std::exchange(producer.isQueueing, false)) return;
        lock.unlock();
        HookCosts costs;
        const int64_t callNs = now();
        costs.measure(Hook::kTrackBufferIncrement,
                      [&] { mHooks.trackBufferIncrement(layer, process); });
        const int64_t returnNs = now();
        lock.lock();
        mCosts.merge(costs);
        mFrames.push_back({index, callNs, returnNs});
        mEvents.push_back({returnNs, model::PolicyEvent::Kind::kRelease, index});
        mHappened.notify_all();
    }
}

bool LibraryPolicy::queueBuffer(size_t layer, int /*waiting*/, int64_t /*nowNs*/) {
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mProducers[layer].isQueueing = true;
        mProducers[layer].changed.notify_all();
    }
    host::Simulation::settle();
    const std::lock_guard<std::mutex> lock(mMutex);
    const auto release =
            std::find_if(mEvents.begin(), mEvents.end(), [layer](const model::PolicyEvent& event) {
                return event.kind == model::PolicyEvent::Kind::kRelease && event.layer == layer;
            });
    if (release == mEvents.end()) return false;
    mEvents.erase(release);
    return true;
}

void LibraryPolicy::latched(size_t layer, int waiting, int64_t nowNs) {
    mCompositor.latched(layer, waiting, nowNs);
}

void LibraryPolicy::vsync(int64_t nowNs) {
    mCompositor.vsync(nowNs);
}

std::optional<model::PolicyEvent> LibraryPolicy::advance(int64_t untilNs) {
    const std::chrono::steady_clock::time_point until{std::chrono::nanoseconds(mStartNs + untilNs)};
    if (mStopped) return model::PolicyEvent{now(), model::PolicyEvent::Kind::kEnd, 0};
    std::unique_lock<std::mutex> lock(mMutex);
    if (!mHappened.wait_until(lock, until, [this] { return !mEvents.empty(); }))
        return std::nullopt;
    const model::PolicyEvent event = mEvents.front();
    mEvents.pop_front();
    return event;
}

}  // namespace corvane::replay
