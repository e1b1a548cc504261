// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "model/Recorded.h"
#include "model/RunListener.h"
#include "model/Workload.h"

namespace corvane::model {

// How well a run without any pacing gives back what was recorded of one layer.
struct LayerFit {
    // Below this share of latches at their recorded vsync, figures of the model mean little.
    static constexpr double kGoodShare = 0.95;

    size_t latches = 0;      // recorded ones
    size_t onVsync = 0;      // of them, those that the model has at the same vsync
    int64_t queueP50Ns = 0;  // distance between recorded and modelled queue times
    int64_t queueP95Ns = 0;
    // Where the recording tells when frames came on the screen: how many of those that the model
    // shows as well, how many of them within half a period of the recorded time, and how far from
    // it. The time that the display itself takes, the median difference, is taken off before.
    size_t presents = 0;
    size_t presentsMet = 0;
    int64_t presentP50Ns = 0;
    int64_t presentP95Ns = 0;
    std::string likelyReason;  // of a bad fit, as a sentence; empty for a good one

    double share() const {
        return latches == 0 ? 1.0 : static_cast<double>(onVsync) / static_cast<double>(latches);
    }
    bool isGood() const { return share() >= kGoodShare; }
};

// One entry per layer. `run` is that of a NonePolicy on the workload taken from the recording.
std::vector<LayerFit> compareWithRecording(const Recorded& recorded, const Workload& workload,
                                           const ModelRun& run);

}  // namespace corvane::model
