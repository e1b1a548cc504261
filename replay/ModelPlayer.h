// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "model/DeviceModel.h"
#include "model/Workload.h"
#include "replay/Playback.h"

namespace corvane::replay {

// Plays a recording's work on the device model, paced by the library: a frame that the library
// holds back lets the next one begin later, and is latched and shown by the device's rules. In
// simulated time only; the thread that plays owns the simulation.
class ModelPlayer : public Playback {
  public:
    // The workload is that of the recording played `repeat` times.
    ModelPlayer(const Recording& recording, Hooks& hooks, int repeat,
                const model::Workload& workload, std::vector<model::GpuShare> gpuShares,
                size_t boostedLayer);

    PlayResult play(const Progress& progress) override;

    // The model's events, when it has played.
    model::ModelRun takeRun() { return std::move(mRun); }

  private:
    void runModel(const Progress& progress);
    void switchRate(int64_t nowNs);

    const model::Workload& mWorkload;
    const std::vector<model::GpuShare> mGpuShares;
    const size_t mBoostedLayer;
    model::ModelRun mRun;
    HookCosts mProducerCosts;
    std::vector<PlayedFrame> mFrames;
};

}  // namespace corvane::replay
