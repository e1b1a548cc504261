// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "layers/LayerSelection.h"

#include <algorithm>
#include <tuple>
#include <unordered_map>

namespace android {
namespace {

// From 30 fps mode up a layer is worth tracking when room is scarce.
constexpr int32_t kPreferredAboveMode = 29;

// Greater is more important: focus before game before mode.
std::tuple<bool, bool, int32_t> importance(const LayerInfo& layer) {
    return {layer.mFocused, layer.mIsGame, layer.mFpsMode};
}

}  // namespace

LayerRemovals selectLayersToRemove(const LayerList& layers, nsecs_t now) {
    LayerRemovals removals;
    LayerList& remove = removals.layers;
    LayerList preferred;
    LayerList other;
    for (const sp<LayerInfo>& layer : layers) {
        if (!layer->mActive) {
            if (now >= layer->mRemoveDeadline) remove.push_back(layer);
        } else if (layer->mVisible && layer->mFpsMode > kPreferredAboveMode) {
            preferred.push_back(layer);
        } else {
            other.push_back(layer);
        }
    }

    const auto overLimit = [&] { return layers.size() - remove.size() > kMaxTrackedLayers; };
    removals.crowded = overLimit();
    if (!removals.crowded) return removals;
    remove.insert(remove.end(), other.begin(), other.end());
    removals.rankedOut = overLimit();
    if (!removals.rankedOut) return removals;

    std::stable_sort(preferred.begin(), preferred.end(),
                     [](const sp<LayerInfo>& a, const sp<LayerInfo>& b) {
                         return importance(*a) < importance(*b);
                     });
    const size_t excess = layers.size() - remove.size() - kMaxTrackedLayers;
    const auto end = preferred.begin() +
                     static_cast<LayerList::difference_type>(std::min(preferred.size(), excess));
    remove.insert(remove.end(), preferred.begin(), end);
    return removals;
}

LayerList rankVisibleApps(const LayerList& layers) {
    LayerList apps;
    std::unordered_map<int32_t, size_t> indexByUid;
    for (const sp<LayerInfo>& layer : layers) {
        if (!layer->mActive || !layer->mVisible) continue;
        const auto [entry, isNew] = indexByUid.try_emplace(layer->mUid, apps.size());
        if (isNew) {
            apps.push_back(layer);
        } else if (layer->mFpsMode > apps[entry->second]->mFpsMode) {
            apps[entry->second] = layer;
        }
    }
    std::sort(apps.begin(), apps.end(), [](const sp<LayerInfo>& a, const sp<LayerInfo>& b) {
        const auto left = importance(*a);
        const auto right = importance(*b);
        return left != right ? left > right : a->mId < b->mId;
    });
    return apps;
}

}  // namespace android
