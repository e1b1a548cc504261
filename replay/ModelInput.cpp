// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/ModelInput.h"

#include <algorithm>
#include <iterator>

namespace corvane::replay {
namespace {

// Nothing is left of a queue call so long after the compositor has counted its buffer: what returns
// then is another call, and this one's end is not recorded.
constexpr int64_t kMaxCallNs = 10'000'000;

// The buffer of a frame is the last one that its process got before queueing it and after queueing
// its frame before.
// Its queue call is the first one to return after that.
void addCalls(const Recording& recording, model::Recorded& input) {
    for (size_t i = 0; i < recording.layers.size(); ++i) {
        const Process& process = recording.processes[recording.layers[i].process];
        const auto& dequeues = process.dequeues;
        int64_t previousNs = 0;
        for (model::RecordedFrame& frame : input.layers[i].frames) {
            if (!frame.queueNs) continue;
            const auto after = std::upper_bound(dequeues.begin(), dequeues.end(), *frame.queueNs);
            if (after != dequeues.begin() && *std::prev(after) >= previousNs) {
                frame.dequeueNs = *std::prev(after);
            }
            previousNs = *frame.queueNs;
            const auto returned =
                    std::lower_bound(process.returns.begin(), process.returns.end(), previousNs);
            if (returned != process.returns.end() && *returned - previousNs < kMaxCallNs) {
                frame.returnNs = *returned;
            }
        }
    }
}

// A buffer was shown by the frame of the compositor during which it was taken.
std::optional<int64_t> shownOf(const Layer& layer, int64_t latchNs, int64_t periodNs) {
    const auto next = std::upper_bound(layer.shown.begin(), layer.shown.end(), latchNs,
                                       [](int64_t timeNs, const ShownFrame& frame) {
                                           return timeNs < frame.latchNs;
                                       });
    if (next == layer.shown.begin()) return std::nullopt;
    const ShownFrame& frame = *std::prev(next);
    if (latchNs - frame.latchNs > periodNs) return std::nullopt;
    return frame.shownNs;
}

}  // namespace

model::Recorded modelInput(const Recording& recording) {
    model::Recorded input;
    input.durationNs = recording.durationNs;
    input.appVsyncs = recording.appVsyncs;
    input.rates.push_back({0, recording.vsyncPeriodNs});
    for (const Rate& rate : recording.rateChanges) {
        input.rates.push_back({rate.atNs, rate.periodNs});
    }
    for (const Layer& layer : recording.layers) {
        input.layers.push_back({layer.name, {}});
        input.layers.back().frames.resize(static_cast<size_t>(layer.initialDepth));
    }
    std::vector<size_t> latched(recording.layers.size());
    for (const Step& step : recording.steps) {
        switch (step.kind) {
            case Step::Kind::kVsync:
                input.vsyncs.push_back(step.timeNs);
                break;
            case Step::Kind::kQueue:
                input.layers[step.layer].frames.push_back({step.timeNs, {}, {}, {}});
                break;
            case Step::Kind::kLatch:
                for (int k = 0; k < step.count; ++k) {
                    auto& frame = input.layers[step.layer].frames[latched[step.layer]++];
                    frame.latchNs = step.timeNs;
                    if (k + 1 < step.count) continue;  // superseded by the next
                    frame.shownNs = shownOf(recording.layers[step.layer], step.timeNs,
                                            recording.vsyncPeriodNs);
                }
                break;
        }
    }
    addCalls(recording, input);
    return input;
}

}  // namespace corvane::replay
