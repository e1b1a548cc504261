// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/Comparison.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

#include "model/SimplePolicies.h"
#include "replay/ModelInput.h"

namespace corvane::replay {

namespace {

// The model proves itself on the recording alone: between two passes nothing is recorded.
std::vector<model::LayerFit> fitsOf(const model::Recorded& recorded,
                                    const model::Workload& workload) {
    model::NonePolicy none;
    model::ModelRun run;
    model::DeviceModel(workload, none, run).run();
    return model::compareWithRecording(recorded, workload, run);
}

// Between two frames of a layer whose game is configured to a target rate from the beginning; 0 for
// any other. A rate between two divisors of the display's alternates: the longer interval is meant.
int64_t vsyncsOfTarget(const Scenario& scenario, const Recording& recording, size_t layer) {
    constexpr double kNsPerSecond = 1e9;
    constexpr double kHundredths = 100.0;
    constexpr double kRounding = 0.05;  // of a vsync: rates and periods are rounded
    const std::string package = packageOf(recording.layers[layer]);
    double fps = 0;
    for (const Game& game : scenario.games) {
        for (const ServiceCallback& callback : game.configuration) {
            if (callback.hint != kTargetFpsHint || callback.package != package) continue;
            fps = callback.arg1 / kHundredths;
        }
    }
    if (fps <= 0) return 0;
    const double vsyncs = kNsPerSecond / fps / static_cast<double>(recording.vsyncPeriodNs);
    return static_cast<int64_t>(std::ceil(vsyncs - kRounding));
}

}  // namespace

const std::vector<std::string>& policyNames() {
    static const std::vector<std::string> sNames = {"none", "interval", "shallow"};
    return sNames;
}

Comparison prepareComparison(const Recording& recording, int repeat, const Scenario& scenario,
                             bool keepsRecords) {
    std::vector<model::LayerOverride> overrides;
    std::vector<model::GpuShare> gpuShares;
    for (size_t i = 0; i < recording.layers.size(); ++i) overrides.push_back({i, {}, {}});
    for (const LayerFacts& layer : scenario.layers) {
        const auto index = recording.findLayer(layer.layer);
        if (!index) continue;
        if (layer.producer) overrides[*index].kind = layer.producer;
        if (layer.buffers) overrides[*index].buffers = layer.buffers;
        if (layer.gpuShare) gpuShares.push_back({*index, *layer.gpuShare, layer.gpuBaseMHz});
    }
    model::Recorded recorded = modelInput(recording);
    auto fits = fitsOf(recorded, model::takeApart(recorded, overrides));
    model::Workload workload = model::takeApart(recorded, overrides, repeat);
    std::vector<int64_t> intended = model::recordedCadences(workload);
    for (size_t i = 0; i < intended.size(); ++i) {
        intended[i] = std::max(intended[i], vsyncsOfTarget(scenario, recording, i));
    }
    // The workload says of each what is needed from here on.
    for (model::RecordedLayer& layer : recorded.layers) layer.frames = {};
    return {std::move(recorded), std::move(workload),
            std::move(intended), std::move(gpuShares),
            std::move(fits),     static_cast<size_t>(repeat),
            keepsRecords,        {},
            std::nullopt};
}

PolicyRunMaker::PolicyRunMaker(const Comparison& comparison)
      : mFigures(comparison.workload, comparison.intendedVsyncs),
        mKeepsRecords(comparison.keepsRecords) {}

void PolicyRunMaker::onFrame(const model::ModelFrame& frame) {
    mFigures.onFrame(frame);
    if (mKeepsRecords) mFrames.push_back(frame);
}

void PolicyRunMaker::onBoost(const model::PolicyEvent& boost) {
    mFigures.onBoost(boost);
    if (mKeepsRecords) mBoosts.push_back(boost);
}

PolicyRun PolicyRunMaker::take(std::string name, int64_t endNs) {
    return {std::move(name),   endNs, mFigures.figures(endNs), 0, std::move(mFrames),
            std::move(mBoosts)};
}

void addPolicy(Comparison& comparison, const std::string& name) {
    const auto play = [&](model::PacingPolicy&& policy) {
        PolicyRunMaker maker(comparison);
        model::DeviceModel device(comparison.workload, policy, maker, comparison.gpuShares);
        const int64_t endNs = device.run();
        comparison.others.push_back(maker.take(name, endNs));
    };
    if (name == "none") {
        play(model::NonePolicy());
    } else if (name == "interval") {
        play(model::IntervalPolicy(comparison.workload.application,
                                   model::recordedCadences(comparison.workload)));
    } else if (name == "shallow") {
        play(model::ShallowPolicy());
    } else {
        throw std::invalid_argument("no policy " + name);
    }
}

}  // namespace corvane::replay
