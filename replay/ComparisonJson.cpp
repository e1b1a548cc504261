// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <utility>

#include "replay/Comparison.h"
#include "replay/Figure.h"

namespace corvane::replay {
namespace {

Json::Value list() {
    return Json::Value(Json::arrayValue);
}

Json::Value vsyncsOf(const Comparison& comparison) {
    Json::Value values = list();
    for (size_t pass = 0; pass < comparison.passes; ++pass) {
        const int64_t byNs = static_cast<int64_t>(pass) * model::passNs(comparison.recorded);
        for (const int64_t timeNs : comparison.recorded.vsyncs) {
            values.append(Json::Int64(timeNs + byNs));
        }
    }
    return values;
}

const char* unitName(Figure::Unit unit) {
    switch (unit) {
        case Figure::Unit::kTime:
            return "ns";
        case Figure::Unit::kCount:
            return "count";
        case Figure::Unit::kRate:
            return "per second";
        case Figure::Unit::kNumber:
            return "number";
    }
    return "";
}

const char* betterName(Figure::Better better) {
    switch (better) {
        case Figure::Better::kLower:
            return "lower";
        case Figure::Better::kHigher:
            return "higher";
        case Figure::Better::kNeither:
            return "neither";
    }
    return "";
}

Json::Value layerOf(const Comparison& comparison, size_t i) {
    const model::LayerWork& work = comparison.workload.layers[i];
    const model::LayerFit& fit = comparison.fits[i];
    Json::Value value;
    value["name"] = work.name;
    value["producer"] =
            work.kind == model::ProducerKind::kVsyncDriven ? "vsync-driven" : "free-running";
    value["producerReason"] = work.reason;
    value["buffers"] = work.buffers;
    value["latchOffsetNs"] = Json::Int64(work.latchOffsetNs);
    value["gpuNs"] = Json::Int64(work.gpuNs);
    value["cadenceVsyncs"] = Json::Int64(work.cadence);
    value["intendedVsyncs"] = Json::Int64(comparison.intendedVsyncs[i]);
    value["worthATable"] = comparison.isWorthATable(i);
    value["fit"]["latches"] = Json::UInt64(fit.latches);
    value["fit"]["onVsync"] = Json::UInt64(fit.onVsync);
    value["fit"]["share"] = fit.share();
    value["fit"]["queueP50Ns"] = Json::Int64(fit.queueP50Ns);
    value["fit"]["queueP95Ns"] = Json::Int64(fit.queueP95Ns);
    value["fit"]["presents"] = Json::UInt64(fit.presents);
    value["fit"]["presentsMet"] = Json::UInt64(fit.presentsMet);
    value["fit"]["presentP50Ns"] = Json::Int64(fit.presentP50Ns);
    value["fit"]["presentP95Ns"] = Json::Int64(fit.presentP95Ns);
    value["fit"]["good"] = fit.isGood();
    value["fit"]["likelyReason"] = fit.likelyReason;
    return value;
}

Json::Value frameOf(const model::ModelFrame& frame, const model::Showing& showing,
                    const model::VsyncGrid& vsyncs) {
    Json::Value value;
    value["layer"] = Json::UInt64(frame.layer);
    value["frame"] = Json::UInt64(frame.index);
    value["startNs"] = Json::Int64(frame.startNs);
    value["queueNs"] = Json::Int64(frame.queueNs);
    value["letGoNs"] = Json::Int64(frame.letGoNs);
    const auto shown = frame.shownVsync();
    value["latchVsyncNs"] = frame.latchVsync
                                    ? Json::Value(Json::Int64(vsyncs.at(*frame.latchVsync)))
                                    : Json::Value();
    value["shownNs"] = shown && !frame.superseded ? Json::Value(Json::Int64(vsyncs.at(*shown)))
                                                  : Json::Value();
    value["intervalNs"] =
            showing.intervalNs ? Json::Value(Json::Int64(*showing.intervalNs)) : Json::Value();
    value["late"] = showing.late;
    value["dropped"] = frame.superseded;
    return value;
}

Json::Value runOf(const Comparison& comparison, const PolicyRun& run) {
    Json::Value value;
    value["name"] = run.name;
    value["endNs"] = Json::Int64(run.endNs);
    value["serviceCalls"] = Json::UInt64(run.serviceCalls);
    value["figures"] = list();
    for (const model::LayerFigures& layer : run.figures) {
        Json::Value entry;
        for (const Figure& figure : figures()) entry[figure.jsonKey] = figure.get(layer);
        value["figures"].append(std::move(entry));
    }
    value["frames"] = list();
    model::ShowingTracker showings(comparison.workload, comparison.intendedVsyncs);
    for (const model::ModelFrame& frame : run.records.frames) {
        value["frames"].append(
                frameOf(frame, showings.next(frame), comparison.workload.compositor));
    }
    value["boosts"] = list();
    for (const model::PolicyEvent& boost : run.records.boosts) {
        Json::Value entry;
        entry["atNs"] = Json::Int64(boost.timeNs);
        entry["layer"] = Json::UInt64(boost.layer);
        entry["freqMHz"] = boost.kind == model::PolicyEvent::Kind::kBoost ? boost.freqMHz : 0;
        value["boosts"].append(std::move(entry));
    }
    return value;
}

// How figures are named, rounded and judged, for whoever shows them: the page, and the programs
// that read the JSON report.
Json::Value figureKinds() {
    Json::Value kinds = list();
    for (const Figure& figure : figures()) {
        Json::Value kind;
        kind["key"] = figure.key;
        kind["jsonKey"] = figure.jsonKey;
        kind["label"] = figure.label;
        kind["unit"] = unitName(figure.unit);
        kind["better"] = betterName(figure.better);
        kind["resolution"] = shownResolution(figure.unit);
        kinds.append(std::move(kind));
    }
    return kinds;
}

}  // namespace

Json::Value comparisonJson(const Comparison& comparison) {
    Json::Value value;
    value["vsyncPeriodNs"] = Json::Int64(comparison.recorded.rates.front().periodNs);
    value["recordedVsyncsNs"] = vsyncsOf(comparison);
    value["assumptions"] = list();
    for (const std::string& assumption : comparison.workload.assumptions) {
        value["assumptions"].append(assumption);
    }
    value["gpuShares"] = list();
    for (const model::GpuShare& share : comparison.gpuShares) {
        Json::Value entry;
        entry["layer"] = Json::UInt64(share.layer);
        entry["share"] = share.share;
        entry["baseFreqMHz"] = share.baseFreqMHz;
        value["gpuShares"].append(std::move(entry));
    }
    value["layers"] = list();
    for (size_t i = 0; i < comparison.recorded.layers.size(); ++i) {
        value["layers"].append(layerOf(comparison, i));
    }
    value["figureKinds"] = figureKinds();
    value["policies"] = list();
    if (comparison.library) value["policies"].append(runOf(comparison, *comparison.library));
    for (const PolicyRun& other : comparison.others) {
        value["policies"].append(runOf(comparison, other));
    }
    return value;
}

}  // namespace corvane::replay
