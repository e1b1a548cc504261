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

Json::Value timeOrNull(const std::optional<int64_t>& timeNs) {
    return timeNs ? Json::Value(Json::Int64(*timeNs)) : Json::Value();
}

Json::Value switchesOf(const std::vector<FeatureSwitch>& switches) {
    Json::Value values = list();
    for (const auto& change : switches) {
        Json::Value value;
        value["atNs"] = Json::Int64(change.atNs);
        value["on"] = change.on;
        if (change.targetFps > 0.0) value["targetFps"] = change.targetFps;
        if (change.becauseOfJank) value["becauseOfJank"] = true;
        values.append(std::move(value));
    }
    return values;
}

Json::Value boostsOf(const std::vector<Boost>& boosts) {
    Json::Value values = list();
    for (const auto& boost : boosts) {
        Json::Value value;
        value["atNs"] = Json::Int64(boost.atNs);
        value["level"] = boost.level;
        value["freqMHz"] = boost.freqMHz;
        if (boost.frame > 0) {
            value["frame"] = Json::UInt64(boost.frame);
            value["sinceQueueNs"] = Json::Int64(boost.sinceQueueNs);
        }
        values.append(std::move(value));
    }
    return values;
}

Json::Value featuresOf(const LayerFindings& found) {
    Json::Value headroom;
    headroom["switches"] = switchesOf(found.of(FeatureKind::kHeadroom));
    headroom["headroomNs"] = timeOrNull(found.headroomNs);
    headroom["inForce"] = list();
    for (const auto& change : found.headroomInForce) {
        Json::Value value;
        value["atNs"] = Json::Int64(change.atNs);
        value["headroomNs"] = Json::Int64(change.headroomNs);
        headroom["inForce"].append(std::move(value));
    }
    headroom["held"] = list();
    std::vector<int64_t> held, before;
    for (const auto& frame : found.held) {
        Json::Value value;
        value["atNs"] = Json::Int64(frame.atNs);
        value["heldNs"] = Json::Int64(frame.heldNs);
        value["beforeVsyncNs"] = timeOrNull(frame.beforeVsyncNs);
        headroom["held"].append(std::move(value));
        held.push_back(frame.heldNs);
        if (frame.beforeVsyncNs) before.push_back(*frame.beforeVsyncNs);
    }
    headroom["heldSpread"] = valueOf(spreadOf(held));
    headroom["beforeVsyncSpread"] = valueOf(spreadOf(before));

    Json::Value targetFps;
    targetFps["switches"] = switchesOf(found.of(FeatureKind::kTargetFps));
    targetFps["pacedSpread"] = valueOf(spreadOf(found.pacedNs));

    Json::Value rescue;
    rescue["switches"] = switchesOf(found.of(FeatureKind::kFrameRescue));
    rescue["boosts"] = boostsOf(found.boosts);

    Json::Value features;
    features["headroom"] = std::move(headroom);
    features["targetFps"] = std::move(targetFps);
    features["frameRescue"] = std::move(rescue);
    return features;
}

Json::Value framesOf(const LayerFindings& found) {
    Json::Value values = list();
    for (const auto& frame : found.frames) {
        Json::Value value;
        value["queueNs"] = Json::Int64(frame.queueNs);
        value["returnNs"] = Json::Int64(frame.returnNs);
        value["heldNs"] = Json::Int64(frame.heldNs);
        value["pacedNs"] = Json::Int64(frame.pacedNs);
        values.append(std::move(value));
    }
    return values;
}

Json::Value layersOf(const ReportSource& source) {
    Json::Value values = list();
    const size_t focusedProcess = source.recording.focusedProcess();
    for (size_t i = 0; i < source.recording.layers.size(); ++i) {
        const Layer& layer = source.recording.layers[i];
        const Process& process = source.recording.processes[layer.process];
        const LayerFindings& found = source.findings.layers[i];
        Json::Value value;
        value["id"] = layer.id;
        value["name"] = layer.name;
        value["pid"] = process.pid;
        value["uid"] = process.uid;
        value["focused"] = layer.focused.value_or(layer.process == focusedProcess);
        value["visible"] = layer.visible;
        const auto& [left, top, right, bottom] = layer.bounds;
        for (const int32_t edge : {left, top, right, bottom}) value["bounds"].append(edge);
        value["frames"] = Json::UInt64(layer.frames);
        value["package"] = found.package.empty() ? Json::Value() : Json::Value(found.package);
        value["game"] = orNull(found.game);
        value["weight"] = orNull(found.weight);
        value["candidateNs"] = timeOrNull(found.candidateNs);
        value["promotedNs"] = timeOrNull(found.promotedNs);
        const bool hasMode = !found.windows.empty() && found.windows.back().mode >= 0;
        value["fps"] = found.windows.empty() ? Json::Value() : found.windows.back().fps;
        value["fpsOfRun"] = orNull(found.runFps);
        value["fpsMode"] = hasMode ? Json::Value(found.windows.back().mode) : Json::Value();
        value["fpsWindows"] = list();
        for (const auto& window : found.windows) {
            Json::Value entry;
            entry["atNs"] = Json::Int64(window.atNs);
            entry["fps"] = window.fps;
            entry["mode"] = window.mode >= 0 ? Json::Value(window.mode) : Json::Value();
            value["fpsWindows"].append(std::move(entry));
        }
        value["fpsModes"] = list();
        for (const auto& [atNs, mode] : found.modes) {
            Json::Value entry;
            entry["atNs"] = Json::Int64(atNs);
            entry["mode"] = mode;
            value["fpsModes"].append(std::move(entry));
        }
        value["features"] = featuresOf(found);
        value["frameRecords"] = framesOf(found);
        value["latches"] = list();
        for (const auto& latch : source.played.latches) {
            if (latch.layer != i) continue;
            Json::Value entry;
            entry["atNs"] = Json::Int64(latch.atNs);
            entry["count"] = latch.count;
            entry["pending"] = latch.pending;
            value["latches"].append(std::move(entry));
        }
        values.append(std::move(value));
    }
    return values;
}

Json::Value serviceCallsOf(const ReportSource& source) {
    Json::Value values = list();
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
        values.append(std::move(value));
    }
    return values;
}

}  // namespace

Json::Value reportDocument(const ReportSource& source) {
    const Recording& recording = source.recording;
    const PlayResult& played = source.played;
    Json::Value root;
    root["schemaVersion"] = kReportSchemaVersion;
    root["recording"]["file"] = source.recordingFile;
    root["recording"]["durationNs"] = Json::Int64(recording.durationNs);
    root["recording"]["vsyncPeriodNs"] = Json::Int64(recording.vsyncPeriodNs);
    root["recording"]["rateSource"] = recording.rateSource;
    root["recording"]["rateChanges"] = list();
    for (const Rate& change : recording.rateChanges) {
        Json::Value value;
        value["atNs"] = Json::Int64(change.atNs);
        value["vsyncPeriodNs"] = Json::Int64(change.periodNs);
        root["recording"]["rateChanges"].append(std::move(value));
    }
    root["recording"]["vsyncs"] = Json::UInt64(recording.vsyncs);
    root["recording"]["frames"] = Json::UInt64(recording.frames);
    root["recording"]["linesSkipped"] = Json::UInt64(recording.skippedLines);
    root["recording"]["layersLeftOut"] = Json::UInt64(recording.skippedLayers);
    if (source.scenarioFile.empty()) {
        root["scenario"] = Json::Value();
    } else {
        root["scenario"]["file"] = source.scenarioFile;
        root["scenario"]["description"] = source.scenarioDescription;
    }
    root["settings"] = source.scenario != nullptr
                               ? settingsJson(*source.scenario, source.findings.calls)
                               : Json::Value();
    root["notes"] = list();
    for (const auto& note : source.notes) root["notes"].append(note);
    root["suggestion"] = source.suggestion.empty() ? Json::Value() : Json::Value(source.suggestion);
    root["replay"]["repeat"] = source.repeat;
    root["replay"]["stopped"] = played.stopped;
    root["replay"]["durationNs"] = Json::Int64(played.durationNs);
    root["replay"]["realtime"] = source.isRealtime;
    root["replay"]["vsyncLateness"] = source.isRealtime ? valueOf(played.lateness) : Json::Value();
    root["replay"]["droppedFrames"] = Json::UInt64(played.droppedFrames);
    root["replay"]["missedLatches"] = Json::UInt64(played.missedLatches);
    root["layers"] = layersOf(source);
    root["boostsOfNoLayer"] = boostsOf(source.findings.unclaimedBoosts);
    root["serviceCalls"] = serviceCallsOf(source);
    root["hooks"] = list();
    for (size_t i = 0; i < static_cast<size_t>(Hook::kCount); ++i) {
        const auto hook = static_cast<Hook>(i);
        Json::Value value = valueOf(played.costs.spread(hook));
        value["name"] = hookName(hook);
        root["hooks"].append(std::move(value));
    }
    root["comparison"] =
            source.comparison != nullptr ? comparisonJson(*source.comparison) : Json::Value();
    root["buffersUnblocked"] = Json::UInt64(source.findings.unblocked);
    const FenceFindings& fences = source.findings.fences;
    root["fences"]["told"] = Json::UInt64(fences.told);
    root["fences"]["deadlinesSent"] = Json::UInt64(fences.sent);
    root["fences"]["filtered"] = Json::UInt64(fences.filtered);
    root["fences"]["skipped"] = Json::UInt64(fences.skipped());
    root["fences"]["origins"] = list();
    for (const auto& origin : fences.origins) root["fences"]["origins"].append(origin);
    root["application"] = source.application ? valueOf(*source.application) : Json::Value();
    root["complaints"] = list();
    for (const auto& [text, count] : source.findings.complaints) {
        Json::Value value;
        value["text"] = text;
        value["count"] = Json::UInt64(count);
        root["complaints"].append(std::move(value));
    }
    return root;
}

std::string jsonReport(const Json::Value& document) {
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "  ";
    return Json::writeString(builder, document) + "\n";
}

}  // namespace corvane::replay
