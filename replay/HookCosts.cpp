// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/HookCosts.h"

#include <algorithm>

namespace corvane::replay {

const char* hookName(Hook hook) {
    switch (hook) {
        case Hook::kInit:
            return "corvaneInit";
        case Hook::kSetVsyncPeriod:
            return "corvaneSetVsyncPeriod";
        case Hook::kTrackVsyncSignal:
            return "corvaneTrackVsyncSignal";
        case Hook::kTrackBufferIncrement:
            return "corvaneTrackBufferIncrement";
        case Hook::kTrackBufferDecrement:
            return "corvaneTrackBufferDecrement";
        case Hook::kUnblockPendingBuffer:
            return "corvaneUnblockPendingBuffer";
        case Hook::kNotifyGpuFenceUnsignaled:
            return "corvaneNotifyGpuFenceUnsignaled";
        case Hook::kTrackLatchUnsignaledGpuFence:
            return "corvaneTrackLatchUnsignaledGpuFence";
        case Hook::kFlushLatchUnsignaledGpuFences:
            return "corvaneFlushLatchUnsignaledGpuFences";
        case Hook::kSmartTouchEnabled:
            return "corvaneSmartTouchEnabled";
        case Hook::kIsTargetFpsActive:
            return "corvaneIsTargetFpsActive";
        case Hook::kAppInit:
            return "aCorvaneAppInit";
        case Hook::kAppSmartTouchActive:
            return "aCorvaneSmartTouchActive";
        case Hook::kAppQueueBuffer:
            return "aCorvaneQueueBuffer";
        case Hook::kAppSetTouchEvent:
            return "aCorvaneSetTouchEvent";
        case Hook::kAppSetVsyncTime:
            return "aCorvaneSetVsyncTime";
        case Hook::kAppFilterBuffer:
            return "aCorvaneFilterBuffer";
        case Hook::kAppConsumeInputNow:
            return "aCorvaneConsumeInputNow";
        case Hook::kCount:
            break;
    }
    return "";
}

Spread spreadOf(std::vector<int64_t> values) {
    if (values.empty()) return {};
    std::sort(values.begin(), values.end());
    const auto rank = [&](size_t percent) {
        return values[(values.size() * percent + 99) / 100 - 1];
    };
    return {values.size(), rank(50), rank(99), values.back()};
}

void HookCosts::merge(const HookCosts& other) {
    for (size_t i = 0; i < mCosts.size(); ++i) {
        mCosts[i].insert(mCosts[i].end(), other.mCosts[i].begin(), other.mCosts[i].end());
    }
}

}  // namespace corvane::replay
