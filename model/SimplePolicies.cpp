// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "model/SimplePolicies.h"

#include <algorithm>
#include <utility>

namespace corvane::model {

IntervalPolicy::IntervalPolicy(const VsyncGrid& vsyncs, std::vector<int64_t> intervals)
      : mVsyncs(vsyncs), mIntervals(std::move(intervals)) {}

int64_t IntervalPolicy::frameStart(size_t layer, int64_t nowNs,
                                   std::optional<int64_t> lastStartNs) {
    int64_t vsync = mVsyncs.firstFrom(nowNs);
    if (lastStartNs) {
        vsync = std::max(vsync, mVsyncs.lastUntil(*lastStartNs) + mIntervals[layer]);
    }
    return mVsyncs.at(vsync);
}

bool ShallowPolicy::queueBuffer(size_t layer, int waiting, int64_t /*nowNs*/) {
    if (waiting < 1) return true;
    mHeld.push_back(layer);
    return false;
}

void ShallowPolicy::latched(size_t layer, int waiting, int64_t nowNs) {
    const auto held = std::find(mHeld.begin(), mHeld.end(), layer);
    if (waiting > 0 || held == mHeld.end()) return;
    mHeld.erase(held);
    mReleases.push({nowNs, PolicyEvent::Kind::kRelease, layer});
}

std::optional<PolicyEvent> ShallowPolicy::advance(int64_t /*untilNs*/) {
    if (mReleases.empty()) return std::nullopt;
    const PolicyEvent release = mReleases.front();
    mReleases.pop();
    return release;
}

}  // namespace corvane::model
