// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "gfr/GFRHandler.h"

#include "perf/PerfProxy.h"

namespace android {

void GFRMonitor::GFRHandler::handleMessage(const Message&) {
    Mutex::Autolock lock(mMonitor->mLock);
    LayerGFRState* state = mMonitor->findLayerLocked(mLayerId);
    if (state == nullptr) return;
    if (state->queueBeginTime != mFrameIdentity) {
        PerfProxy::VTRACE_FORMAT("frame finish, [%s]", state->layerName.c_str());
        return;
    }
    // A check that was already collected for dispatch can no longer be cancelled in the queue. It
    // must not act either: the layer may have been switched off and on, or registered anew, and two
    // frames may begin at the same nanosecond.
    if (!state->active || state->pendingCheckId != mCheckId) return;

    int32_t freq = state->baseFreq(mLevel);
    if (state->tunables.dynamic) {
        state->flags = 0;
        freq = mMonitor->calculateBoostFrequencyOnWakeupLocked(*state, mLevel, freq);
        state->lastBoostFreq = freq;
    }
    state->boosted = true;
    // Level 0 is the release. The hint's headroom has 32 bits, which suffice for 2.1 s; of a longer
    // one the low bits are left.
    PerfProxy::getInstance()->frameHint(mLevel + 1, static_cast<int32_t>(state->jankHeadroom),
                                        mLayerId, state->packageName, freq);
    state->pendingCheckId = 0;
    mMonitor->scheduleNextCheckLocked(*state, mFrameIdentity, mLevel + 1);
}

}  // namespace android
