// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/PlanWalk.h"

namespace corvane::replay {

std::optional<DueStep> PlanWalk::next() {
    const auto recorded = nextRecorded();
    const bool hasEvent = mEvents < mPlan->events.size();
    if (recorded && (!hasEvent || recorded->atNs <= mPlan->events[mEvents].atNs)) {
        ++mRecorded;
        return recorded;
    }
    if (!hasEvent) return std::nullopt;
    const AppStep& event = mPlan->events[mEvents++];
    return DueStep{event.atNs, &event};
}

std::optional<DueStep> PlanWalk::nextRecorded() const {
    const auto& steps = mPlan->steps;
    if (mRecorded >= steps.size() * static_cast<size_t>(mPlan->passes)) return std::nullopt;
    const auto pass = static_cast<int64_t>(mRecorded / steps.size());
    const AppStep& step = steps[mRecorded % steps.size()];
    return DueStep{pass * mPlan->passNs + step.atNs, &step};
}

}  // namespace corvane::replay
