// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "model/Figures.h"

#include <cmath>
#include <optional>
#include <utility>

#include "model/Percentile.h"

namespace corvane::model {
namespace {

constexpr double kNsPerSecond = 1e9;

// Collects one layer's frames in the order in which they are shown.
class Collector {
  public:
    Collector(const LayerWork& work, const VsyncGrid& vsyncs, int64_t intended)
          : mWork(work), mVsyncs(vsyncs), mIntended(intended) {}

    void add(const ModelFrame& frame);
    LayerFigures figures();

  private:
    void addShown(const ModelFrame& frame, int64_t vsync);

    const LayerWork& mWork;
    const VsyncGrid& mVsyncs;
    const int64_t mIntended;
    LayerFigures mFigures;
    std::vector<int64_t> mLatencies, mQueueToDisplay, mHeld, mIntervals;
    std::optional<int64_t> mPrevious;  // vsync of the frame shown before
    size_t mWaiting = 0;
    size_t mQueued = 0;
};

void Collector::add(const ModelFrame& frame) {
    if (frame.letGoNs == 0) return;  // the run ended before
    mWaiting += static_cast<size_t>(frame.waiting);
    ++mQueued;
    if (frame.letGoNs > frame.queueNs) mHeld.push_back(frame.letGoNs - frame.queueNs);
    const auto vsync = frame.shownVsync();
    if (!vsync) return;  // still in the queue at the end
    if (frame.superseded) {
        ++mFigures.dropped;
        return;
    }
    addShown(frame, *vsync);
}

void Collector::addShown(const ModelFrame& frame, int64_t vsync) {
    ++mFigures.shown;
    const int64_t shownNs = mVsyncs.at(vsync);
    mLatencies.push_back(shownNs - frame.startNs);
    mQueueToDisplay.push_back(shownNs - frame.queueNs);
    // After a pause there is no frame before that this one could be late after.
    if (mPrevious && mWork.frames[frame.index].notBeforeNs == 0) {
        mIntervals.push_back(shownNs - mVsyncs.at(*mPrevious));
        if (vsync - *mPrevious > mIntended) ++mFigures.late;
    }
    mPrevious = vsync;
}

LayerFigures Collector::figures() {
    mFigures.latencyP50Ns = percentile(mLatencies, 50);
    mFigures.latencyP95Ns = percentile(mLatencies, 95);
    mFigures.latencyP99Ns = percentile(mLatencies, 99);
    mFigures.queueToDisplayP50Ns = percentile(mQueueToDisplay, 50);
    mFigures.queueToDisplayP95Ns = percentile(mQueueToDisplay, 95);
    mFigures.heldFrames = mHeld.size();
    for (const int64_t held : mHeld) mFigures.heldNs += held;
    mFigures.heldP50Ns = percentile(mHeld, 50);
    if (mQueued > 0) {
        mFigures.waitingMean = static_cast<double>(mWaiting) / static_cast<double>(mQueued);
    }
    if (mIntervals.empty()) return mFigures;
    const auto count = static_cast<double>(mIntervals.size());
    double sum = 0;
    for (const int64_t interval : mIntervals) sum += static_cast<double>(interval);
    const double mean = sum / count;
    double squares = 0;
    for (const int64_t interval : mIntervals) {
        const double off = static_cast<double>(interval) - mean;
        squares += off * off;
    }
    if (sum > 0) mFigures.fps = count * kNsPerSecond / sum;
    mFigures.intervalDeviationNs = std::sqrt(squares / count);
    return mFigures;
}

void addBoosts(const ModelRun& run, std::vector<LayerFigures>& figures) {
    struct Level {
        int64_t sinceNs = 0;
        int32_t freqMHz = 0;
    };
    std::vector<Level> levels(figures.size());
    const auto end = [&](size_t layer, int64_t timeNs) {
        Level& level = levels[layer];
        figures[layer].boostMHzSeconds +=
                level.freqMHz * static_cast<double>(timeNs - level.sinceNs) / kNsPerSecond;
        level = {timeNs, 0};
    };
    for (const PolicyEvent& event : run.boosts) {
        end(event.layer, event.timeNs);
        if (event.kind != PolicyEvent::Kind::kBoost) continue;
        levels[event.layer].freqMHz = event.freqMHz;
        ++figures[event.layer].boosts;
    }
    for (size_t i = 0; i < levels.size(); ++i) end(i, run.endNs);
}

}  // namespace

std::vector<LayerFigures> measure(const Workload& workload, const ModelRun& run,
                                  const std::vector<int64_t>& intendedVsyncs) {
    std::vector<Collector> collectors;
    collectors.reserve(workload.layers.size());
    for (size_t i = 0; i < workload.layers.size(); ++i) {
        collectors.emplace_back(workload.layers[i], workload.compositor, intendedVsyncs[i]);
    }
    for (const ModelFrame& frame : run.frames) collectors[frame.layer].add(frame);
    std::vector<LayerFigures> figures;
    figures.reserve(collectors.size());
    for (Collector& collector : collectors) figures.push_back(collector.figures());
    addBoosts(run, figures);
    return figures;
}

std::vector<int64_t> recordedCadences(const Workload& workload) {
    std::vector<int64_t> cadences;
    for (const LayerWork& layer : workload.layers) cadences.push_back(layer.cadence);
    return cadences;
}

}  // namespace corvane::model
