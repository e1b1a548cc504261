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

// Collects one layer's frames.
class Collector {
  public:
    explicit Collector(const VsyncGrid& vsyncs) : mVsyncs(vsyncs) {}

    void add(const ModelFrame& frame, const Showing& showing);
    LayerFigures figures();

  private:
    const VsyncGrid& mVsyncs;
    LayerFigures mFigures;
    std::vector<int64_t> mLatencies, mQueueToDisplay, mHeld, mIntervals;
    size_t mWaiting = 0;
    size_t mQueued = 0;
};

void Collector::add(const ModelFrame& frame, const Showing& showing) {
    if (frame.letGoNs == ModelFrame::kNever) return;
    mWaiting += static_cast<size_t>(frame.waiting);
    ++mQueued;
    if (frame.letGoNs > frame.queueNs) mHeld.push_back(frame.letGoNs - frame.queueNs);
    const auto vsync = frame.shownVsync();
    if (!vsync) return;  // still in the queue at the end
    if (frame.superseded) {
        ++mFigures.dropped;
        return;
    }
    ++mFigures.shown;
    const int64_t shownNs = mVsyncs.at(*vsync);
    mLatencies.push_back(shownNs - frame.startNs);
    mQueueToDisplay.push_back(shownNs - frame.queueNs);
    if (showing.intervalNs) mIntervals.push_back(*showing.intervalNs);
    if (showing.late) ++mFigures.late;
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

std::vector<Showing> showings(const Workload& workload, const ModelRun& run,
                              const std::vector<int64_t>& intendedVsyncs) {
    const VsyncGrid& vsyncs = workload.compositor;
    std::vector<Showing> shown(run.frames.size());
    std::vector<std::optional<int64_t>> previous(workload.layers.size());  // vsyncs
    for (size_t i = 0; i < run.frames.size(); ++i) {
        const ModelFrame& frame = run.frames[i];
        const auto vsync = frame.shownVsync();
        if (!vsync || frame.superseded) continue;
        auto& before = previous[frame.layer];
        if (before && workload.layers[frame.layer].frames[frame.index].notBeforeNs == 0) {
            shown[i] = {vsyncs.at(*vsync) - vsyncs.at(*before),
                        *vsync - *before > intendedVsyncs[frame.layer]};
        }
        before = vsync;
    }
    return shown;
}

std::vector<LayerFigures> measure(const Workload& workload, const ModelRun& run,
                                  const std::vector<int64_t>& intendedVsyncs) {
    std::vector<Collector> collectors(workload.layers.size(), Collector(workload.compositor));
    const std::vector<Showing> shown = showings(workload, run, intendedVsyncs);
    for (size_t i = 0; i < run.frames.size(); ++i) {
        collectors[run.frames[i].layer].add(run.frames[i], shown[i]);
    }
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
