// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "model/Figures.h"

#include <cmath>
#include <utility>

namespace corvane::model {
namespace {

constexpr double kNsPerSecond = 1e9;

// The standard deviation.
double deviationOf(const CountedValues& values, double mean) {
    double squares = 0;
    for (const auto& [value, times] : values.values()) {
        const double off = static_cast<double>(value) - mean;
        squares += off * off * static_cast<double>(times);
    }
    return std::sqrt(squares / static_cast<double>(values.count()));
}

}  // namespace

ShowingTracker::ShowingTracker(const Workload& workload, std::vector<int64_t> intendedVsyncs)
      : mWorkload(workload),
        mIntendedVsyncs(std::move(intendedVsyncs)),
        mPrevious(workload.layers.size()) {}

Showing ShowingTracker::next(const ModelFrame& frame) {
    const auto vsync = frame.shownVsync();
    if (!vsync || frame.superseded) return {};
    const auto before = std::exchange(mPrevious[frame.layer], vsync);
    if (!before || mWorkload.layers[frame.layer].frames[frame.index].notBeforeNs != 0) return {};
    const VsyncGrid& vsyncs = mWorkload.compositor;
    return {vsyncs.at(*vsync) - vsyncs.at(*before),
            *vsync - *before > mIntendedVsyncs[frame.layer]};
}

FigureCounter::FigureCounter(const Workload& workload, std::vector<int64_t> intendedVsyncs)
      : mVsyncs(workload.compositor),
        mShowings(workload, std::move(intendedVsyncs)),
        mLayers(workload.layers.size()) {}

void FigureCounter::onFrame(const ModelFrame& frame) {
    const Showing showing = mShowings.next(frame);
    if (frame.letGoNs == ModelFrame::kNever) return;
    Layer& layer = mLayers[frame.layer];
    layer.waiting += static_cast<size_t>(frame.waiting);
    ++layer.letGo;
    if (frame.letGoNs > frame.queueNs) {
        layer.held.add(frame.letGoNs - frame.queueNs);
        layer.heldNs += frame.letGoNs - frame.queueNs;
    }
    const auto vsync = frame.shownVsync();
    if (!vsync) return;  // still in the queue at the end
    if (frame.superseded) {
        ++layer.dropped;
        return;
    }
    const int64_t shownNs = mVsyncs.at(*vsync);
    layer.latencies.add(shownNs - frame.startNs);
    layer.queueToDisplay.add(shownNs - frame.queueNs);
    if (showing.late) ++layer.late;
    if (!showing.intervalNs) return;
    layer.intervals.add(*showing.intervalNs);
    layer.intervalsNs += *showing.intervalNs;
}

double FigureCounter::Layer::boostUntil(int64_t endNs) const {
    return boostFreqMHz * static_cast<double>(endNs - boostSinceNs) / kNsPerSecond;
}

void FigureCounter::onBoost(const PolicyEvent& boost) {
    Layer& layer = mLayers[boost.layer];
    const bool begins = boost.kind == PolicyEvent::Kind::kBoost;
    layer.boostMHzSeconds += layer.boostUntil(boost.timeNs);
    layer.boostSinceNs = boost.timeNs;
    layer.boostFreqMHz = begins ? boost.freqMHz : 0;
    if (begins) ++layer.boosts;
}

LayerFigures FigureCounter::Layer::figures() const {
    LayerFigures figures;
    figures.latencyP50Ns = latencies.percentile(50);
    figures.latencyP95Ns = latencies.percentile(95);
    figures.latencyP99Ns = latencies.percentile(99);
    figures.queueToDisplayP50Ns = queueToDisplay.percentile(50);
    figures.queueToDisplayP95Ns = queueToDisplay.percentile(95);
    figures.shown = latencies.count();
    figures.late = late;
    figures.dropped = dropped;
    figures.heldFrames = held.count();
    figures.heldNs = heldNs;
    figures.heldP50Ns = held.percentile(50);
    figures.boosts = boosts;
    if (letGo > 0) figures.waitingMean = static_cast<double>(waiting) / static_cast<double>(letGo);
    if (intervals.count() == 0) return figures;
    const auto count = static_cast<double>(intervals.count());
    const auto sum = static_cast<double>(intervalsNs);
    if (sum > 0) figures.fps = count * kNsPerSecond / sum;
    figures.intervalDeviationNs = deviationOf(intervals, sum / count);
    return figures;
}

std::vector<LayerFigures> FigureCounter::figures(int64_t endNs) const {
    std::vector<LayerFigures> figures;
    figures.reserve(mLayers.size());
    for (const Layer& layer : mLayers) {
        figures.push_back(layer.figures());
        figures.back().boostMHzSeconds = layer.boostMHzSeconds + layer.boostUntil(endNs);
    }
    return figures;
}

std::vector<int64_t> recordedCadences(const Workload& workload) {
    std::vector<int64_t> cadences;
    for (const LayerWork& layer : workload.layers) cadences.push_back(layer.cadence);
    return cadences;
}

}  // namespace corvane::model
