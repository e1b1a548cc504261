// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "Schedule.h"

#include <algorithm>

namespace corvane::host {
namespace {

constexpr uint64_t kLowestDrawnPriority = 1'000;  // above those of the change points
constexpr uint64_t kMinBlockShare = 4;
constexpr uint64_t kBlockShareDoublings = 7;  // so up to 512

}  // namespace

void Schedule::start(const Simulation::Options& options) {
    *this = Schedule();
    mPolicy = options.policy;
    mRandom = Random(options.seed);
    mBlockShare = kMinBlockShare << mRandom.below(kBlockShareDoublings + 1);
    mDepth = std::max(options.depth, 1u);
    mSteps = std::max<uint64_t>(options.steps, 1);
    drawChangePoints();
}

void Schedule::drawChangePoints() {
    if (mPolicy != Simulation::Policy::kPct) return;
    mChangePoints = std::min<size_t>(mDepth - 1, kMaxDepth);
    for (size_t i = 0; i < mChangePoints; ++i) {
        mPoints[i] = {mRandom.below(mSteps) + 1, mChangePoints - i};
    }
    std::sort(mPoints, mPoints + mChangePoints,
              [](const ChangePoint& a, const ChangePoint& b) { return a.step > b.step; });
    mNextChange = mChangePoints == 0 ? 0 : mPoints[mChangePoints - 1].step;
}

uint64_t Schedule::drawPriority() {
    return std::max(mRandom.next(), kLowestDrawnPriority);
}

bool Schedule::isChangePoint(uint64_t step, uint64_t& priority) {
    if (mNextChange == 0 || step < mNextChange) return false;
    priority = mPoints[--mChangePoints].priority;
    mNextChange = mChangePoints == 0 ? 0 : mPoints[mChangePoints - 1].step;
    return true;
}

bool Schedule::mayPreempt(bool isBasicBlock) {
    if (mPolicy != Simulation::Policy::kRandom) return false;
    return !isBasicBlock || mRandom.below(mBlockShare) == 0;
}

}  // namespace corvane::host
