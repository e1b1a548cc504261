// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include "layers/LayerSelection.h"

namespace android {
namespace {

constexpr nsecs_t kNow = 9'000'000'000;

sp<LayerInfo> makeLayer(int id, int mode, bool focused = true, bool game = false) {
    sp<LayerInfo> layer = sp<LayerInfo>::make();
    layer->mId = id;
    layer->mUid = 10'000 + id;
    layer->mActive = true;
    layer->mFpsMode = mode;
    layer->mFocused = focused;
    layer->mIsGame = game;
    return layer;
}

sp<LayerInfo> makeInactive(int id, nsecs_t removeDeadline) {
    sp<LayerInfo> layer = makeLayer(id, 60);
    layer->mActive = false;
    layer->mRemoveDeadline = removeDeadline;
    return layer;
}

std::vector<int> ids(const LayerList& layers) {
    std::vector<int> result;
    for (const sp<LayerInfo>& layer : layers) result.push_back(layer->mId);
    return result;
}

using Ids = std::vector<int>;

TEST(LayerRemovalTest, DropsExpiredLayersAlways) {
    const LayerRemovals removals =
            selectLayersToRemove({makeInactive(1, kNow), makeInactive(2, kNow + 1),
                                  makeLayer(3, -1)},
                                 kNow);
    EXPECT_EQ(ids(removals.layers), Ids{1});
    EXPECT_FALSE(removals.crowded);
    EXPECT_FALSE(removals.rankedOut);
}

TEST(LayerRemovalTest, FourMayStay) {
    const LayerRemovals removals = selectLayersToRemove({makeLayer(1, -1), makeLayer(2, -1),
                                                         makeLayer(3, -1), makeLayer(4, -1)},
                                                        kNow);
    EXPECT_TRUE(removals.layers.empty());
    EXPECT_FALSE(removals.crowded);
}

TEST(LayerRemovalTest, TheFifthCostsTheSlowAndHidden) {
    const sp<LayerInfo> hidden = makeLayer(2, 60);
    hidden->mVisible = false;
    const LayerRemovals removals =
            selectLayersToRemove({makeLayer(1, 29), hidden, makeLayer(3, 30), makeLayer(4, 60),
                                  makeInactive(5, kNow + 1)},
                                 kNow);
    EXPECT_EQ(ids(removals.layers), (Ids{1, 2}));
    EXPECT_TRUE(removals.crowded);
    EXPECT_FALSE(removals.rankedOut);
}

TEST(LayerRemovalTest, RanksTheRest) {
    // Focus outweighs game, game outweighs rate; equal layers go by id.
    const LayerList layers = {makeLayer(1, 60, true, true),   makeLayer(2, 30, true, true),
                              makeLayer(3, 120, true, false), makeLayer(4, 120, true, false),
                              makeLayer(5, 120, false, true), makeLayer(6, 120, false, false),
                              makeLayer(7, 60, false, false)};
    const LayerRemovals removals = selectLayersToRemove(layers, kNow);
    EXPECT_EQ(ids(removals.layers), (Ids{7, 6, 5}));
    EXPECT_TRUE(removals.rankedOut);

    const LayerList equals = {makeLayer(1, 60), makeLayer(2, 60), makeLayer(3, 60),
                              makeLayer(4, 60), makeLayer(5, 60)};
    EXPECT_EQ(ids(selectLayersToRemove(equals, kNow).layers), Ids{1});
}

TEST(LayerRemovalTest, LayersInGraceCannotMakeRoom) {
    LayerList layers;
    for (int id = 1; id <= 5; ++id) layers.push_back(makeInactive(id, kNow + 1));
    layers.push_back(makeLayer(6, 60));
    const LayerRemovals removals = selectLayersToRemove(layers, kNow);
    EXPECT_EQ(ids(removals.layers), Ids{6});
    EXPECT_TRUE(removals.rankedOut);
}

TEST(AppRankingTest, OneLayerPerApplication) {
    const sp<LayerInfo> slow = makeLayer(1, 30);
    const sp<LayerInfo> fast = makeLayer(2, 60);
    const sp<LayerInfo> alsoFast = makeLayer(3, 60);
    for (const sp<LayerInfo>& layer : {slow, fast, alsoFast}) layer->mUid = 7;
    const sp<LayerInfo> hidden = makeLayer(4, 120);
    hidden->mVisible = false;
    EXPECT_EQ(ids(rankVisibleApps({slow, fast, alsoFast, hidden, makeInactive(5, 0)})), Ids{2});
    EXPECT_TRUE(rankVisibleApps({}).empty());
}

TEST(AppRankingTest, RanksByFocusThenGameThenMode) {
    EXPECT_EQ(ids(rankVisibleApps({makeLayer(1, 120, false, true), makeLayer(2, 30, true, false),
                                   makeLayer(3, 60, true, false), makeLayer(4, 30, true, true),
                                   makeLayer(5, 60, true, false)})),
              (Ids{4, 3, 5, 2, 1}));
}

}  // namespace
}  // namespace android
