// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "model/DeviceModel.h"

#include <algorithm>
#include <limits>
#include <numeric>
#include <utility>

namespace corvane::model {
DeviceModel::DeviceModel(const Workload& workload, PacingPolicy& policy, RunListener& listener,
                         std::vector<GpuShare> gpuShares)
      : mWorkload(workload),
        mPolicy(policy),
        mListener(listener),
        mLatchOrder(workload.layers.size()) {
    for (const LayerWork& work : workload.layers) {
        Layer layer;
        layer.work = &work;
        // Buffers from before the recording: drawn, and taken as soon as the compositor works.
        while (layer.next < static_cast<size_t>(work.initialDepth)) {
            layer.queue.push_back({kUnseen, layer.next++, std::numeric_limits<int64_t>::min()});
        }
        layer.shows = true;
        mLayers.push_back(std::move(layer));
    }
    for (const GpuShare& share : gpuShares) mLayers[share.layer].gpu = share;
    std::iota(mLatchOrder.begin(), mLatchOrder.end(), size_t{0});
    std::stable_sort(mLatchOrder.begin(), mLatchOrder.end(), [&](size_t a, size_t b) {
        return workload.layers[a].latchOffsetNs < workload.layers[b].latchOffsetNs;
    });
    mNextLatch = mLatchOrder.size();
}

int64_t DeviceModel::run() {
    mVsync = mWorkload.compositor.firstFrom(0);
    for (size_t i = 0; i < mLayers.size(); ++i) tryBegin(i, 0);
    const int64_t limitNs = mWorkload.durationNs * kMaxStretch + kMaxOverrunNs;
    while (!isDone()) {
        const int64_t dueNs = nextDueNs();
        if (const auto event = mPolicy.advance(dueNs)) {
            mNowNs = std::max(mNowNs, event->timeNs);
            if (event->kind == PolicyEvent::Kind::kEnd) break;
            apply(*event);
            continue;
        }
        if (dueNs > limitNs) break;
        mNowNs = dueNs;
        step(dueNs);
    }
    while (!mFrames.empty()) tellOfFirstFrame();
    return mNowNs;
}

void DeviceModel::tellOfFirstFrame() {
    mListener.onFrame(mFrames.front());
    mFrames.pop_front();
    ++mFirstFrame;
}

bool DeviceModel::isDone() const {
    return std::all_of(mLayers.begin(), mLayers.end(), [](const Layer& layer) {
        return layer.phase == Phase::kFinished && layer.queue.empty();
    });
}

// The next vsync always comes, so there always is something.
int64_t DeviceModel::nextDueNs() const {
    int64_t dueNs = mWorkload.compositor.at(mVsync);
    if (mNextLatch < mLatchOrder.size()) {
        const int64_t offset = mLayers[mLatchOrder[mNextLatch]].work->latchOffsetNs;
        dueNs = std::min(dueNs, mWorkload.compositor.at(mVsync - 1) + offset);
    }
    for (const Layer& layer : mLayers) {
        if (isTimed(layer.phase)) dueNs = std::min(dueNs, layer.dueNs);
    }
    return std::max(dueNs, mNowNs);
}

// Does the first of what is due now.
void DeviceModel::step(int64_t nowNs) {
    if (mWorkload.compositor.at(mVsync) <= nowNs) {
        signalVsync();
        return;
    }
    if (mNextLatch < mLatchOrder.size()) {
        const size_t layer = mLatchOrder[mNextLatch];
        if (mWorkload.compositor.at(mVsync - 1) + mLayers[layer].work->latchOffsetNs <= nowNs) {
            ++mNextLatch;
            latch(layer, nowNs);
            return;
        }
    }
    for (const Phase phase : {Phase::kReturning, Phase::kDrawing, Phase::kWaiting}) {
        for (size_t i = 0; i < mLayers.size(); ++i) {
            if (mLayers[i].phase != phase || mLayers[i].dueNs > nowNs) continue;
            if (phase == Phase::kReturning) tryBegin(i, nowNs);
            if (phase == Phase::kDrawing) queue(i, nowNs);
            if (phase == Phase::kWaiting) start(i, nowNs);
            return;
        }
    }
}

void DeviceModel::apply(const PolicyEvent& event) {
    switch (event.kind) {
        case PolicyEvent::Kind::kRelease:
            if (mLayers[event.layer].phase == Phase::kHeld) letGo(event.layer, mNowNs);
            break;
        case PolicyEvent::Kind::kBoost:
            mListener.onBoost(event);
            boost(event.layer, mNowNs, event.freqMHz);
            break;
        case PolicyEvent::Kind::kBoostEnd:
            mListener.onBoost(event);
            break;
        case PolicyEvent::Kind::kEnd:
            break;
    }
}

void DeviceModel::signalVsync() {
    // Latches that are still due come first: an offset may be longer than a period.
    while (mNextLatch < mLatchOrder.size()) latch(mLatchOrder[mNextLatch++], mNowNs);
    mPolicy.vsync(mNowNs);
    ++mVsync;
    mNextLatch = 0;
}

void DeviceModel::latch(size_t index, int64_t nowNs) {
    Layer& layer = mLayers[index];
    bool more = true;
    while (more && !layer.queue.empty() && layer.queue.front().readyNs <= nowNs) {
        const Waiting taken = layer.queue.front();
        layer.queue.erase(layer.queue.begin());
        // Superseded only by one that is there; alone it is shown.
        more = layer.work->frames[taken.index].superseded && !layer.queue.empty() &&
               layer.queue.front().readyNs <= nowNs;
        if (taken.frame != kUnseen) {
            frame(taken.frame).latchVsync = mVsync - 1;
            frame(taken.frame).superseded = more;
        }
        mPolicy.latched(index, waiting(layer), nowNs);
    }
    while (!mFrames.empty() && mFrames.front().latchVsync) tellOfFirstFrame();
    if (layer.phase == Phase::kBlocked) tryBegin(index, nowNs);
}

// The producer wants to begin its next frame.
void DeviceModel::tryBegin(size_t index, int64_t nowNs) {
    Layer& layer = mLayers[index];
    if (layer.next >= layer.work->frames.size()) {
        layer.phase = Phase::kFinished;
        return;
    }
    // The one shown, those that wait, and the one to draw.
    if (1 + waiting(layer) + 1 > layer.work->buffers) {
        layer.phase = Phase::kBlocked;
        return;
    }
    const FrameWork work = layer.work->frames[layer.next];
    int64_t startNs = std::max(nowNs, work.notBeforeNs);
    if (work.paceNs > 0 && layer.lastStartNs) {
        startNs = std::max(startNs, *layer.lastStartNs + work.paceNs);
    }
    startNs = std::max(startNs, mPolicy.frameStart(index, startNs, layer.lastStartNs));
    if (work.startsOnVsync) {
        startNs = mWorkload.application.at(mWorkload.application.firstFrom(startNs));
    }
    layer.current = mFirstFrame + mFrames.size();
    ModelFrame& begun = mFrames.emplace_back();
    begun.layer = index;
    begun.index = layer.next;
    begun.readyNs = nowNs;
    layer.phase = Phase::kWaiting;
    layer.dueNs = startNs;
}

void DeviceModel::start(size_t index, int64_t nowNs) {
    Layer& layer = mLayers[index];
    frame(layer.current).startNs = nowNs;
    layer.lastStartNs = nowNs;
    layer.phase = Phase::kDrawing;
    layer.dueNs = nowNs + layer.work->frames[layer.next].workNs;
}

void DeviceModel::queue(size_t index, int64_t nowNs) {
    Layer& layer = mLayers[index];
    frame(layer.current).queueNs = nowNs;
    if (mPolicy.queueBuffer(index, waiting(layer), nowNs)) {
        letGo(index, nowNs);
    } else {
        layer.phase = Phase::kHeld;
    }
}

void DeviceModel::letGo(size_t index, int64_t nowNs) {
    Layer& layer = mLayers[index];
    ModelFrame& handed = frame(layer.current);
    handed.letGoNs = nowNs;
    // The GPU works on while the buffer is held.
    layer.queue.push_back(
            {layer.current, layer.next, std::max(nowNs, handed.queueNs + layer.work->gpuNs)});
    handed.waiting = waiting(layer);
    layer.phase = Phase::kReturning;
    layer.dueNs = nowNs + layer.work->frames[layer.next++].callNs;
}

// A faster GPU shortens what is left of the share of the frame's work that it does.
void DeviceModel::boost(size_t index, int64_t nowNs, int32_t freqMHz) {
    Layer& layer = mLayers[index];
    if (!layer.gpu || layer.phase != Phase::kDrawing || freqMHz <= layer.gpu->baseFreqMHz) return;
    const auto work = static_cast<double>(layer.work->frames[layer.next].workNs);
    const auto left = static_cast<double>(std::max<int64_t>(layer.dueNs - nowNs, 0));
    const double ofGpu = std::min(left, work * layer.gpu->share);
    const double factor = static_cast<double>(layer.gpu->baseFreqMHz) / freqMHz;
    layer.dueNs = std::max(nowNs, layer.dueNs - static_cast<int64_t>(ofGpu * (1.0 - factor)));
}

}  // namespace corvane::model
