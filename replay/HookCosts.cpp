// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/HookCosts.h"

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

Spread spreadOf(const model::CountedValues& values) {
    return {values.count(), values.percentile(50), values.percentile(99), values.max()};
}

void HookCosts::merge(const HookCosts& other) {
    for (size_t i = 0; i < mCosts.size(); ++i) mCosts[i].add(other.mCosts[i]);
}

}  // namespace corvane::replay
