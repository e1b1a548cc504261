// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <json/json.h>

#include <utility>

#include "replay/Report.h"
#include "replay/Settings.h"

namespace corvane::replay {
namespace {

Json::Value list() {
    return Json::Value(Json::arrayValue);
}

template <typename T>
Json::Value orNull(const std::optional<T>& value) {
    return value ? Json::Value(*value) : Json::Value();
}

Json::Value textOrNull(const std::string& text) {
    return text.empty() ? Json::Value() : Json::Value(text);
}

Json::Value textsOf(const std::vector<std::string>& texts) {
    Json::Value values = list();
    for (const std::string& text : texts) values.append(text);
    return values;
}

Json::Value timeOrNull(const std::optional<int64_t>& timeNs) {
    return timeNs ? Json::Value(Json::Int64(*timeNs)) : Json::Value();
}

void writeSwitches(const Spool<FeatureSwitch>& switches, JsonStream& json) {
    json.beginList("switches");
    for (const auto& change : switches) {
        Json::Value value;
        value["atNs"] = Json::Int64(change.atNs);
        value["on"] = change.on;
        if (change.targetFps > 0.0) value["targetFps"] = change.targetFps;
        if (change.becauseOfJank) value["becauseOfJank"] = true;
        json.element(value);
    }
    json.endList();
}

void writeBoosts(const char* key, const Spool<Boost>& boosts, JsonStream& json) {
    json.beginList(key);
    for (const auto& boost : boosts) {
        Json::Value value;
        value["atNs"] = Json::Int64(boost.atNs);
        value["level"] = boost.level;
        value["freqMHz"] = boost.freqMHz;
        if (boost.frame > 0) {
            value["frame"] = Json::UInt64(boost.frame);
            value["sinceQueueNs"] = Json::Int64(boost.sinceQueueNs);
        }
        json.element(value);
    }
    json.endList();
}

void writeFeatures(const LayerFindings& found, JsonStream& json) {
    json.beginObject("features");
    json.beginObject("headroom");
    writeSwitches(found.of(FeatureKind::kHeadroom), json);
    json.member("headroomNs", timeOrNull(found.headroomNs));
    json.beginList("inForce");
    for (const auto& change : found.headroomInForce) {
        Json::Value value;
        value["atNs"] = Json::Int64(change.atNs);
        value["headroomNs"] = Json::Int64(change.headroomNs);
        json.element(value);
    }
    json.endList();
    json.beginList("held");
    for (const auto& frame : found.held) {
        Json::Value value;
        value["atNs"] = Json::Int64(frame.atNs);
        value["heldNs"] = Json::Int64(frame.heldNs);
        value["beforeVsyncNs"] = timeOrNull(frame.beforeVsyncNs);
        json.element(value);
    }
    json.endList();
    const auto [held, beforeVsync] = spreadsOf(found.held);
    json.member("heldSpread", valueOf(held));
    json.member("beforeVsyncSpread", valueOf(beforeVsync));
    json.endObject();

    json.beginObject("targetFps");
    writeSwitches(found.of(FeatureKind::kTargetFps), json);
    json.member("pacedSpread", valueOf(spreadOf(found.pacedNs)));
    json.endObject();

    json.beginObject("frameRescue");
    writeSwitches(found.of(FeatureKind::kFrameRescue), json);
    writeBoosts("boosts", found.boosts, json);
    json.endObject();
    json.endObject();
}

void writeRates(const LayerFindings& found, JsonStream& json) {
    const bool hasMode = !found.windows.empty() && found.windows.back().mode >= 0;
    json.member("fps", found.windows.empty() ? Json::Value() : found.windows.back().fps);
    json.member("fpsOfRun", orNull(found.runFps));
    json.member("fpsMode", hasMode ? Json::Value(found.windows.back().mode) : Json::Value());
    json.beginList("fpsWindows");
    for (const auto& window : found.windows) {
        Json::Value value;
        value["atNs"] = Json::Int64(window.atNs);
        value["fps"] = window.fps;
        value["mode"] = window.mode >= 0 ? Json::Value(window.mode) : Json::Value();
        json.element(value);
    }
    json.endList();
    json.beginList("fpsModes");
    for (const auto& [atNs, mode] : found.modes) {
        Json::Value value;
        value["atNs"] = Json::Int64(atNs);
        value["mode"] = mode;
        json.element(value);
    }
    json.endList();
}

void writeFrames(const LayerFindings& found, JsonStream& json) {
    json.beginList("frameRecords");
    for (const auto& frame : found.frames) {
        Json::Value value;
        value["queueNs"] = Json::Int64(frame.queueNs);
        value["returnNs"] = Json::Int64(frame.returnNs);
        value["heldNs"] = Json::Int64(frame.heldNs);
        value["pacedNs"] = Json::Int64(frame.pacedNs);
        json.element(value);
    }
    json.endList();
}

void writeLatches(const ReportSource& source, size_t layer, JsonStream& json) {
    json.beginList("latches");
    for (const auto& latch : source.played.latches) {
        if (latch.layer != layer) continue;
        Json::Value value;
        value["atNs"] = Json::Int64(latch.atNs);
        value["count"] = latch.count;
        value["pending"] = latch.pending;
        json.element(value);
    }
    json.endList();
}

void writeLayer(const ReportSource& source, size_t index, JsonStream& json) {
    const Layer& layer = source.recording.layers[index];
    const Process& process = source.recording.processes[layer.process];
    const LayerFindings& found = source.findings.layers[index];
    const size_t focusedProcess = source.recording.focusedProcess();
    json.beginObject();
    json.member("id", layer.id);
    json.member("name", layer.name);
    json.member("pid", process.pid);
    json.member("uid", process.uid);
    json.member("focused", layer.focused.value_or(layer.process == focusedProcess));
    json.member("visible", layer.visible);
    Json::Value bounds = list();
    const auto& [left, top, right, bottom] = layer.bounds;
    for (const int32_t edge : {left, top, right, bottom}) bounds.append(edge);
    json.member("bounds", bounds);
    json.member("frames", Json::UInt64(layer.frames));
    json.member("package", textOrNull(found.package));
    json.member("game", orNull(found.game));
    json.member("weight", orNull(found.weight));
    json.member("candidateNs", timeOrNull(found.candidateNs));
    json.member("promotedNs", timeOrNull(found.promotedNs));
    writeRates(found, json);
    writeFeatures(found, json);
    writeFrames(found, json);
    writeLatches(source, index, json);
    json.endObject();
}

void writeServiceCalls(const ReportSource& source, JsonStream& json) {
    json.beginList("serviceCalls");
    for (const auto& call : source.findings.calls) {
        Json::Value value;
        value["entry"] = call.entry;
        value["number"] = call.number;
        value["atNs"] = Json::Int64(call.timeNs);
        value["package"] = call.hasPackage ? Json::Value(call.package) : Json::Value();
        value["args"] = list();
        for (const int arg : call.args) value["args"].append(arg);
        value["result"] = call.result;
        value["thread"] = call.thread;
        json.element(value);
    }
    json.endList();
}

Json::Value recordingOf(const ReportSource& source) {
    const Recording& recording = source.recording;
    Json::Value value;
    value["file"] = source.recordingFile;
    value["durationNs"] = Json::Int64(recording.durationNs);
    value["vsyncPeriodNs"] = Json::Int64(recording.vsyncPeriodNs);
    value["rateSource"] = recording.rateSource;
    value["rateChanges"] = list();
    for (const Rate& change : recording.rateChanges) {
        Json::Value rate;
        rate["atNs"] = Json::Int64(change.atNs);
        rate["vsyncPeriodNs"] = Json::Int64(change.periodNs);
        value["rateChanges"].append(std::move(rate));
    }
    value["vsyncs"] = Json::UInt64(recording.vsyncs);
    value["frames"] = Json::UInt64(recording.frames);
    value["linesSkipped"] = Json::UInt64(recording.skippedLines);
    value["layersLeftOut"] = Json::UInt64(recording.skippedLayers);
    return value;
}

Json::Value scenarioOf(const ReportSource& source) {
    if (source.scenarioFile.empty()) return {};
    Json::Value value;
    value["file"] = source.scenarioFile;
    value["description"] = source.scenarioDescription;
    return value;
}

Json::Value replayOf(const ReportSource& source) {
    const PlayResult& played = source.played;
    Json::Value value;
    value["repeat"] = source.repeat;
    value["stopped"] = played.stopped;
    value["durationNs"] = Json::Int64(played.durationNs);
    value["realtime"] = source.isRealtime;
    value["vsyncLateness"] = source.isRealtime ? valueOf(played.lateness) : Json::Value();
    value["droppedFrames"] = Json::UInt64(played.droppedFrames);
    value["missedLatches"] = Json::UInt64(played.missedLatches);
    return value;
}

Json::Value fencesOf(const FenceFindings& fences) {
    Json::Value value;
    value["told"] = Json::UInt64(fences.told);
    value["deadlinesSent"] = Json::UInt64(fences.sent);
    value["filtered"] = Json::UInt64(fences.filtered);
    value["skipped"] = Json::UInt64(fences.skipped());
    value["origins"] = textsOf(fences.origins);
    return value;
}

void writeHooks(const HookCosts& costs, JsonStream& json) {
    json.beginList("hooks");
    for (size_t i = 0; i < static_cast<size_t>(Hook::kCount); ++i) {
        const auto hook = static_cast<Hook>(i);
        Json::Value value = valueOf(costs.spread(hook));
        value["name"] = hookName(hook);
        json.element(value);
    }
    json.endList();
}

void writeComplaints(const Findings& findings, JsonStream& json) {
    json.beginList("complaints");
    for (const auto& [text, count] : findings.complaints) {
        Json::Value value;
        value["text"] = text;
        value["count"] = Json::UInt64(count);
        json.element(value);
    }
    json.endList();
}

}  // namespace

void writeJsonReport(const ReportSource& source, const JsonStream::Sink& sink) {
    const Findings& findings = source.findings;
    JsonStream json(sink);
    json.beginObject();
    json.member("schemaVersion", kReportSchemaVersion);
    json.member("recording", recordingOf(source));
    json.member("scenario", scenarioOf(source));
    json.member("settings", source.scenario != nullptr
                                    ? settingsJson(*source.scenario, findings.calls)
                                    : Json::Value());
    json.member("notes", textsOf(source.notes));
    json.member("suggestion", textOrNull(source.suggestion));
    json.member("replay", replayOf(source));
    json.beginList("layers");
    for (size_t i = 0; i < source.recording.layers.size(); ++i) writeLayer(source, i, json);
    json.endList();
    writeBoosts("boostsOfNoLayer", findings.unclaimedBoosts, json);
    json.member("buffersUnblocked", Json::UInt64(findings.unblocked));
    json.member("fences", fencesOf(findings.fences));
    json.member("application", source.application ? valueOf(*source.application) : Json::Value());
    writeServiceCalls(source, json);
    writeHooks(source.played.costs, json);
    writeComplaints(findings, json);
    if (source.comparison != nullptr) {
        writeComparison(*source.comparison, json);
    } else {
        json.member("comparison", Json::Value());
    }
    json.endObject();
}

}  // namespace corvane::replay
