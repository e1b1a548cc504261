// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <android/log.h>

#include <algorithm>
#include <tuple>

#include "layers/LayerInfo.h"
#include "layers/LayerManager.h"
#include "layers/LogTag.h"
#include "perf/PerfProxy.h"
#include "perf/TraceSection.h"

namespace android {
namespace {

// Applications that were drawing lately; more are not switched between within a session.
constexpr size_t kMaxAppInfos = 10;

// Below are root, whose layers do not belong to one application, and the unknown user.
constexpr int kFirstAppUid = 1;

}  // namespace

std::string LayerManager::cachedPackageLocked(const std::string& name, int uid, nsecs_t now) {
    if (uid < kFirstAppUid) return {};
    const auto app = mAppInfoMap.find(uid);
    if (app == mAppInfoMap.end()) return {};
    app->second.lastUsed = now;
    PerfProxy::VLOGD(kLayerLogTag, "Layer [%s] get pkg from AppInfo cache (uid=%d): %s",
                     name.c_str(), uid, app->second.packageName.c_str());
    return app->second.packageName;
}

void LayerManager::checkAppInfo(int layerId, const std::string& packageName, int uid, nsecs_t now) {
    if (uid >= kFirstAppUid) {
        Mutex::Autolock lock(mLock);
        if (mAppInfoMap.count(uid) == 0 && mAppInfoMap.size() >= kMaxAppInfos) {
            const auto oldest = std::min_element(mAppInfoMap.begin(), mAppInfoMap.end(),
                                                 [](const auto& a, const auto& b) {
                                                     return std::tie(a.second.lastUsed, a.first) <
                                                            std::tie(b.second.lastUsed, b.first);
                                                 });
            PerfProxy::VLOGD(kLayerLogTag, "Remove oldest app from mAppInfoMap: [%s]",
                             oldest->second.packageName.c_str());
            mAppInfoMap.erase(oldest);
        }
        mAppInfoMap.insert_or_assign(uid, AppInfo{packageName, now});
    }
    // The service answers when it likes: never on the queue path. Without a worker the layer simply
    // stays no game.
    PerfProxy::getInstance()->postTask(
            [this, layerId, packageName] { classifyLayer(layerId, packageName); });
}

void LayerManager::classifyLayer(int layerId, const std::string& packageName) {
    PerfProxy* proxy = PerfProxy::getInstance();
    const TraceSection section("game layer checker");
    const bool isGame = proxy->isGameApp(packageName);
    const int weight = proxy->getGameWeight(packageName);

    Mutex::Autolock lock(mLock);
    const auto layer = mLayers.find(layerId);
    // The id may have gone to another application's layer meanwhile.
    if (layer == mLayers.end() || layer->second->mPackageName != packageName) return;
    layer->second->mIsGame = isGame;
    layer->second->mGameWeight = weight;
    if (isGame) applyGameConfigsLocked(*layer->second);
}

}  // namespace android
