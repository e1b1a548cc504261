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
// simulated time only; the thread that plays owns the simulation. Which frames the model dropped,
// its listener knows.
class ModelPlayer : public Playback {
  public:
    // The workload is that of the recording played `repeat` times; the listener is told of it on
    // the thread that plays.
    ModelPlayer(const Recording& recording, Hooks& hooks, int repeat,
                const model::Workload& workload, std::vector<model::GpuShare> gpuShares,
                size_t boostedLayer, model::RunListener& listener);

    PlayResult play(const Progress& progress) override;

    // When the model's run ended, in its time; after play().
    int64_t modelEndNs() const { return mModelEndNs; }

  private:
    void runModel(const Progress& progress);
    void switchRate(int64_t nowNs);

    const model::Workload& mWorkload;
    const std::vector<model::GpuShare> mGpuShares;
    const size_t mBoostedLayer;
    model::RunListener& mListener;
    int64_t mModelEndNs = 0;
    HookCosts mProducerCosts;
    Spool<PlayedFrame> mFrames;
};

}  // namespace corvane::replay
