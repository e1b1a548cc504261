// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <utility>

#include "replay/Comparison.h"
#include "replay/Figure.h"

namespace corvane::replay {
namespace {

void writeVsyncs(const Comparison& comparison, JsonStream& json) {
    json.beginList("recordedVsyncsNs");
    for (size_t pass = 0; pass < comparison.passes; ++pass) {
        const int64_t byNs = static_cast<int64_t>(pass) * model::passNs(comparison.recorded);
        for (const int64_t timeNs : comparison.recorded.vsyncs) {
            json.element(Json::Int64(timeNs + byNs));
        }
    }
    json.endList();
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

void writeRun(const Comparison& comparison, const PolicyRun& run, JsonStream& json) {
    json.beginObject();
    json.member("name", run.name);
    json.member("endNs", Json::Int64(run.endNs));
    json.member("serviceCalls", Json::UInt64(run.serviceCalls));
    json.beginList("figures");
    for (const model::LayerFigures& layer : run.figures) {
        Json::Value entry;
        for (const Figure& figure : figures()) entry[figure.jsonKey] = figure.get(layer);
        json.element(entry);
    }
    json.endList();
    json.beginList("frames");
    model::ShowingTracker showings(comparison.workload, comparison.intendedVsyncs);
    for (const model::ModelFrame& frame : run.frames) {
        json.element(frameOf(frame, showings.next(frame), comparison.workload.compositor));
    }
    json.endList();
    json.beginList("boosts");
    for (const model::PolicyEvent& boost : run.boosts) {
        Json::Value entry;
        entry["atNs"] = Json::Int64(boost.timeNs);
        entry["layer"] = Json::UInt64(boost.layer);
        entry["freqMHz"] = boost.kind == model::PolicyEvent::Kind::kBoost ? boost.freqMHz : 0;
        json.element(entry);
    }
    json.endList();
    json.endObject();
}

// How figures are named, rounded and judged, for whoever shows them: the page, and the programs
// that read the JSON report.
void writeFigureKinds(JsonStream& json) {
    json.beginList("figureKinds");
    for (const Figure& figure : figures()) {
        Json::Value kind;
        kind["key"] = figure.key;
        kind["jsonKey"] = figure.jsonKey;
        kind["label"] = figure.label;
        kind["unit"] = unitName(figure.unit);
        kind["better"] = betterName(figure.better);
        kind["resolution"] = shownResolution(figure.unit);
        json.element(kind);
    }
    json.endList();
}

}  // namespace

void writeComparison(const Comparison& comparison, JsonStream& json) {
    json.beginObject("comparison");
    json.member("vsyncPeriodNs", Json::Int64(comparison.recorded.rates.front().periodNs));
    json.beginList("assumptions");
    for (const std::string& assumption : comparison.workload.assumptions) json.element(assumption);
    json.endList();
    json.beginList("gpuShares");
    for (const model::GpuShare& share : comparison.gpuShares) {
        Json::Value entry;
        entry["layer"] = Json::UInt64(share.layer);
        entry["share"] = share.share;
        entry["baseFreqMHz"] = share.baseFreqMHz;
        json.element(entry);
    }
    json.endList();
    json.beginList("layers");
    for (size_t i = 0; i < comparison.recorded.layers.size(); ++i) {
        json.element(layerOf(comparison, i));
    }
    json.endList();
    writeFigureKinds(json);
    json.beginList("policies");
    if (comparison.library) writeRun(comparison, *comparison.library, json);
    for (const PolicyRun& other : comparison.others) writeRun(comparison, other, json);
    json.endList();
    writeVsyncs(comparison, json);
    json.endObject();
}

}  // namespace corvane::replay
