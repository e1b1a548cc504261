// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "model/DeviceModel.h"
#include "model/Figures.h"
#include "model/Fit.h"
#include "model/Recorded.h"
#include "model/RunListener.h"
#include "model/Workload.h"
#include "replay/JsonStream.h"
#include "replay/Recording.h"
#include "replay/Scenario.h"
#include "replay/Spool.h"
#include "replay/Terminal.h"

namespace corvane::replay {

// One policy's run of the device model, and what a user would notice of it.
struct PolicyRun {
    std::string name;  // "none", "interval", "shallow" or "library"
    int64_t endNs;
    std::vector<model::LayerFigures> figures;  // one per layer
    size_t serviceCalls = 0;                   // of the library to the performance service
    // Nothing unless the comparison keeps records; in the run's order.
    Spool<model::ModelFrame> frames = {};
    Spool<model::PolicyEvent> boosts = {};
};

// The recorded device with the library and without it, under the same work.
struct Comparison {
    model::Recorded recorded;             // played once, without its frames
    model::Workload workload;             // of all passes
    std::vector<int64_t> intendedVsyncs;  // per layer, between two of its frames
    std::vector<model::GpuShare> gpuShares;
    std::vector<model::LayerFit> fits;
    size_t passes;                     // of the recording, end to end
    bool keepsRecords;                 // each frame of each run, for documents that list them
    std::vector<PolicyRun> others;     // those compared with, in the order asked for
    std::optional<PolicyRun> library;  // none: the library was not run

    // Layers with fewer recorded frames have no figures worth a table.
    static constexpr size_t kMinFrames = 10;
    bool isWorthATable(size_t layer) const {
        return workload.layers[layer].frames.size() >= kMinFrames * passes;
    }
};

// The names of policies that runs can be compared with, besides the library.
const std::vector<std::string>& policyNames();

// Takes the recording apart, played `repeat` times, and fits the model to it.
// What the scenario says of layers counts; one that is not in the recording is passed over.
Comparison prepareComparison(const Recording& recording, int repeat, const Scenario& scenario,
                             bool keepsRecords);

// Runs a policy without the library; `name` is one of policyNames().
void addPolicy(Comparison& comparison, const std::string& name);

// Makes what a comparison tells of a policy while that runs. The comparison must outlive it.
class PolicyRunMaker : public model::RunListener {
  public:
    explicit PolicyRunMaker(const Comparison& comparison);

    void onFrame(const model::ModelFrame& frame) override;
    void onBoost(const model::PolicyEvent& boost) override;

    // To be called once, for a run that ended at `endNs`.
    PolicyRun take(std::string name, int64_t endNs);

  private:
    model::FigureCounter mFigures;
    const bool mKeepsRecords;
    Spool<model::ModelFrame> mFrames;
    Spool<model::PolicyEvent> mBoosts;
};

// The table at the end of the text report.
std::string comparisonText(const Comparison& comparison, const Terminal& terminal);

// The report's "comparison": fits, assumptions, figures and frames of every policy.
void writeComparison(const Comparison& comparison, JsonStream& json);

}  // namespace corvane::replay
