// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "layers/SceneReport.h"

#include <android/log.h>
#include <json/json.h>

#include <cmath>
#include <utility>

#include "base/SaturatingCast.h"
#include "layers/LogTag.h"

namespace android {
namespace {

// Characters, newline included: what the service's event takes.
constexpr size_t kMaxReportLength = 256;

// The rate travels as an integer of hundredths.
constexpr float kFpsScale = 100.0f;

Json::Value describe(const LayerInfo& layer) {
    Json::Value app(Json::objectValue);
    app["pkg"] = layer.mPackageName;
    if (!layer.mSceneTag.empty()) app["scene"] = layer.mSceneTag;
    app["fps"] = saturatingCast<Json::Int>(std::round(layer.mFps * kFpsScale));
    app["M"] = layer.mFpsMode;
    app["F"] = layer.mFocused ? 1 : 0;
    app["l"] = layer.mBounds.left;
    app["t"] = layer.mBounds.top;
    app["r"] = layer.mBounds.right;
    app["b"] = layer.mBounds.bottom;
    return app;
}

// Writes what Json::FastWriter would, which is deprecated: no spaces, no comments, one newline.
std::string write(const Json::Value& document) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    builder["commentStyle"] = "None";
    return Json::writeString(builder, document) + '\n';
}

}  // namespace

std::string buildSceneReport(const LayerList& apps) {
    Json::Value document(Json::objectValue);
    Json::Value& list = document["apps"] = Json::Value(Json::arrayValue);
    std::string text = write(document);
    for (const sp<LayerInfo>& layer : apps) {
        list.append(describe(*layer));
        std::string longer = write(document);
        if (longer.size() > kMaxReportLength) {
            __android_log_print(ANDROID_LOG_WARN, kLayerLogTag,
                                "JSON length limit reached, drop the last added group");
            break;
        }
        text = std::move(longer);
    }
    return text;
}

}  // namespace android
