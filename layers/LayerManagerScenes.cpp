// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "layers/LayerManager.h"
#include "layers/LayerSelection.h"
#include "layers/LogTag.h"
#include "layers/SceneReport.h"
#include "perf/PerfProxy.h"

namespace android {
namespace {

// Service event of a scene report, and the kind of report that its first integer names.
constexpr int kSceneEvent = 4194;
constexpr int kSceneReportKind = 101;

// What fits the event's text, and all that the service weighs against each other.
constexpr size_t kMaxReportedApps = 3;

}  // namespace

void LayerManager::checkMultiLayer(nsecs_t /*now*/) {
    Mutex::Autolock lock(mLock);
    LayerList apps = rankVisibleApps(layersByIdLocked());
    if (apps.size() > kMaxReportedApps) apps.resize(kMaxReportedApps);
    setLowLatencyAppLocked(apps.empty() ? nullptr : apps.front().get());

    // One layer per application: the set of uids tells their number as well.
    std::set<int32_t> uids;
    for (const sp<LayerInfo>& layer : apps) uids.insert(layer->mUid);
    const bool forced = mMultiLayerCheckPending.exchange(false);
    if (!forced && uids == mReportedUids) return;

    const std::string report = buildSceneReport(apps);
    const int count = static_cast<int>(apps.size());
    PerfProxy::getInstance()->postEvent(kSceneEvent, report, {kSceneReportKind, count});
    mReportedUids = std::move(uids);
    PerfProxy::VLOGD(kLayerLogTag, "CheckMultiLayer: %d, %s", count, report.c_str());
}

void LayerManager::scheduleNotifyUserScene(nsecs_t delay) {
    ++mScheduledReports;
    const uint64_t posted = PerfProxy::getInstance()->postTaskDelayed(delay, [this] {
        const nsecs_t now = systemTime(SYSTEM_TIME_MONOTONIC);
        cleanupInactiveLayers(now);
        cleanupCandidates(now);
        // Not marked before: any check in between would have taken the mark for its own.
        mMultiLayerCheckPending = true;
        --mScheduledReports;
        checkMultiLayer(now);
    });
    if (posted == 0) --mScheduledReports;
}

void LayerManager::postSceneCheck() {
    mMultiLayerCheckPending = true;
    const uint64_t posted = PerfProxy::getInstance()->postTask(
            [this] { checkMultiLayer(systemTime(SYSTEM_TIME_MONOTONIC)); });
    // Without a worker nobody takes the mark, and the periodic check would wait for it forever.
    if (posted == 0) mMultiLayerCheckPending = false;
}

}  // namespace android
