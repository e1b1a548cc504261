// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/ModelPlayer.h"

#include <utility>

#include "replay/LibraryPolicy.h"
#include "replay/Timeline.h"

namespace corvane::replay {

ModelPlayer::ModelPlayer(const Recording& recording, Hooks& hooks, int repeat,
                         const model::Workload& workload, std::vector<model::GpuShare> gpuShares,
                         size_t boostedLayer, model::RunListener& listener)
      : Playback(recording, hooks, repeat),
        mWorkload(workload),
        mGpuShares(std::move(gpuShares)),
        mBoostedLayer(boostedLayer),
        mListener(listener) {}

PlayResult ModelPlayer::play(const Progress& progress) {
    begin();
    startScripts();
    sleepUntil(mStartNs);
    runModel(progress);
    endCompositor();
    joinScripts();

    PlayResult result = takeResult();
    result.costs.merge(mProducerCosts);
    result.frames = std::move(mFrames);
    return result;
}

void ModelPlayer::runModel(const Progress& progress) {
    LibraryPolicy::Compositor compositor;
    compositor.vsync = [&](int64_t nowNs) {
        flushFences();
        switchRate(nowNs);
        signalVsync(0);
        progress(nowNs, playedNs());
    };
    compositor.latched = [this](size_t layer, int waiting, int64_t /*nowNs*/) {
        latchBuffers(layer, 1, waiting);
    };
    LibraryPolicy policy(mRecording, mHooks, mStartNs, mBoostedLayer, std::move(compositor),
                         mStopped);
    mModelEndNs = model::DeviceModel(mWorkload, policy, mListener, mGpuShares).run();
    policy.finish();
    mProducerCosts = policy.costs();
    mFrames = policy.takeFrames();
}

// The display's period at this time of the pass.
void ModelPlayer::switchRate(int64_t nowNs) {
    const int64_t inPassNs = nowNs % passNs();
    int64_t current = mRecording.vsyncPeriodNs;
    for (const Rate& change : mRecording.rateChanges) {
        if (change.atNs <= inPassNs) current = change.periodNs;
    }
    setPeriod(current);
}

}  // namespace corvane::replay
