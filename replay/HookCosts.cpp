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

Spread spreadOf(const ValueCounts& counts) {
    if (counts.empty()) return {};
    Spread spread;
    for (const auto& [value, count] : counts) spread.count += count;
    const auto ofRank = [&counts](size_t rank) {
        size_t seen = 0;
        for (const auto& [value, count] : counts) {
            seen += count;
            if (seen >= rank) return value;
        }
        return counts.rbegin()->first;
    };
    const auto percentile = [&](size_t percent) {
        return ofRank((spread.count * percent + 99) / 100);
    };
    spread.p50 = percentile(50);
    spread.p99 = percentile(99);
    spread.max = counts.rbegin()->first;
    return spread;
}

void HookCosts::merge(const HookCosts& other) {
    for (size_t i = 0; i < mCosts.size(); ++i) {
        for (const auto& [cost, count] : other.mCosts[i]) mCosts[i][cost] += count;
    }
}

}  // namespace corvane::replay
