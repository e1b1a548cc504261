// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "model/Fit.h"

#include <cstdlib>

#include "model/CountedValues.h"

namespace corvane::model {
namespace {

std::string likelyReason(const LayerWork& layer, const LayerFit& fit, int64_t periodNs) {
    if (fit.isGood()) return {};
    const double explained = layer.latches == 0 ? 1.0
                                                : static_cast<double>(layer.explainedLatches) /
                                                          static_cast<double>(layer.latches);
    if (explained < LayerFit::kGoodShare) {
        return "Its buffers were latched at times that no common GPU time explains: the GPU's work "
               "varies from frame to frame, or the recording lost events.";
    }
    if (fit.queueP95Ns > periodNs) {
        return "Its frames start at times that neither vsync nor the queue explains: something "
               "that "
               "was not recorded paces it, or several threads draw at once.";
    }
    return "Its frames are queued so close to the compositor's latch that small differences "
           "decide.";
}

// `differences` is how much later each frame was recorded on the screen than the model shows it.
void fitPresents(const CountedValues& differences, int64_t periodNs, LayerFit& fit) {
    const int64_t displayNs = differences.percentile(50);
    CountedValues distances;
    for (const auto& [difference, times] : differences.values()) {
        const int64_t distance = std::abs(difference - displayNs);
        distances.add(distance, times);
        if (distance <= periodNs / 2) fit.presentsMet += times;
    }
    fit.presents = differences.count();
    fit.presentP50Ns = distances.percentile(50);
    fit.presentP95Ns = distances.percentile(95);
}

}  // namespace

std::vector<LayerFit> compareWithRecording(const Recorded& recorded, const Workload& workload,
                                           const ModelRun& run) {
    std::vector<LayerFit> fits(recorded.layers.size());
    std::vector<CountedValues> distances(recorded.layers.size());
    std::vector<CountedValues> presents(recorded.layers.size());
    for (size_t i = 0; i < fits.size(); ++i) {
        const size_t unseen = static_cast<size_t>(workload.layers[i].initialDepth);
        for (size_t k = unseen; k < recorded.layers[i].frames.size(); ++k) {
            if (recorded.layers[i].frames[k].latchNs) ++fits[i].latches;
        }
    }
    for (const ModelFrame& frame : run.frames) {
        const RecordedFrame& original = recorded.layers[frame.layer].frames[frame.index];
        if (frame.queueNs == ModelFrame::kNever) continue;
        distances[frame.layer].add(std::abs(frame.queueNs - *original.queueNs));
        if (original.latchNs && frame.latchVsync &&
            *frame.latchVsync == workload.compositor.lastUntil(*original.latchNs)) {
            ++fits[frame.layer].onVsync;
        }
        if (original.shownNs && frame.latchVsync && !frame.superseded) {
            presents[frame.layer].add(*original.shownNs -
                                      workload.compositor.at(*frame.shownVsync()));
        }
    }
    const int64_t periodNs = recorded.rates.front().periodNs;
    for (size_t i = 0; i < fits.size(); ++i) {
        fits[i].queueP50Ns = distances[i].percentile(50);
        fits[i].queueP95Ns = distances[i].percentile(95);
        fitPresents(presents[i], periodNs, fits[i]);
        fits[i].likelyReason = likelyReason(workload.layers[i], fits[i], periodNs);
    }
    return fits;
}

}  // namespace corvane::model
