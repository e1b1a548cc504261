// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/Recording.h"

#include <algorithm>
#include <utility>

#include "perf/PerfProxy.h"
#include "replay/FtraceParser.h"
#include "replay/RecordingBuilder.h"
#include "replay/TextTable.h"
#include "replay/TraceReader.h"

namespace corvane::replay {
namespace {

// Removes the processes that have no layer.
void keepUsedProcesses(Recording& recording) {
    std::vector<size_t> newIndex(recording.processes.size(), SIZE_MAX);
    std::vector<Process> kept;
    for (auto& layer : recording.layers) {
        size_t& index = newIndex[layer.process];
        if (index == SIZE_MAX) {
            index = kept.size();
            kept.push_back(std::move(recording.processes[layer.process]));
        }
        layer.process = index;
    }
    recording.processes = std::move(kept);
}

// Leaves the times within the part, and counts them from its start.
void cutTimes(std::vector<int64_t>& times, int64_t startNs, int64_t durationNs) {
    std::vector<int64_t> left;
    for (const int64_t timeNs : times) {
        if (timeNs >= startNs && timeNs - startNs <= durationNs) left.push_back(timeNs - startNs);
    }
    times = std::move(left);
}

// Leaves what is from `fromNs` to `toNs`, and counts times from the first step that is left.
void cut(Recording& recording, int64_t fromNs, int64_t toNs) {
    std::vector<int> depth;
    for (const Layer& layer : recording.layers) depth.push_back(layer.initialDepth);
    const auto apply = [&](const Step& step) {
        if (step.kind == Step::Kind::kQueue) ++depth[step.layer];
        if (step.kind == Step::Kind::kLatch) depth[step.layer] -= step.count;
    };
    auto& steps = recording.steps;
    const auto first = std::find_if(steps.begin(), steps.end(),
                                    [&](const Step& step) { return step.timeNs >= fromNs; });
    std::for_each(steps.begin(), first, apply);
    for (size_t i = 0; i < depth.size(); ++i) recording.layers[i].initialDepth = depth[i];
    const auto end =
            std::find_if(first, steps.end(), [&](const Step& step) { return step.timeNs > toNs; });
    std::for_each(first, end, apply);
    for (size_t i = 0; i < depth.size(); ++i) recording.layers[i].finalDepth = depth[i];
    steps.erase(end, steps.end());
    steps.erase(steps.begin(), first);
    if (steps.empty()) return;

    const int64_t startNs = steps.front().timeNs;
    for (auto& step : steps) step.timeNs -= startNs;
    recording.durationNs = steps.back().timeNs;
    cutTimes(recording.appVsyncs, startNs, recording.durationNs);
    for (auto& process : recording.processes) {
        cutTimes(process.dequeues, startNs, recording.durationNs);
        cutTimes(process.returns, startNs, recording.durationNs);
    }
    for (auto& layer : recording.layers) {
        std::vector<ShownFrame> shown;
        for (const auto& [latchNs, shownNs] : layer.shown) {
            if (latchNs >= startNs && latchNs - startNs <= recording.durationNs) {
                shown.push_back({latchNs - startNs, shownNs - startNs});
            }
        }
        layer.shown = std::move(shown);
    }
    std::vector<Rate> rates{{0, recording.vsyncPeriodNs}};
    for (const Rate& change : recording.rateChanges) {
        rates.push_back({std::max<int64_t>(0, change.atNs - startNs), change.periodNs});
    }
    overruleRates(recording, rates, recording.rateSource);
}

}  // namespace

std::optional<size_t> Recording::findLayer(std::string_view part) const {
    for (size_t i = 0; i < layers.size(); ++i) {
        if (layers[i].name.find(part) != std::string::npos) return i;
    }
    return std::nullopt;
}

size_t Recording::focusedProcess() const {
    const auto focused = std::find_if(layers.begin(), layers.end(), [](const Layer& layer) {
        return layer.focused.value_or(false);
    });
    if (focused != layers.end()) return focused->process;
    std::vector<size_t> queued(processes.size());
    for (const auto& layer : layers) queued[layer.process] += layer.frames;
    return static_cast<size_t>(std::max_element(queued.begin(), queued.end()) - queued.begin());
}

void Recording::keepLayers(const std::vector<bool>& kept) {
    std::vector<size_t> newIndex(layers.size(), SIZE_MAX);
    std::vector<Layer> left;
    for (size_t i = 0; i < layers.size(); ++i) {
        if (!kept[i]) continue;
        newIndex[i] = left.size();
        left.push_back(std::move(layers[i]));
        left.back().frames = 0;
    }
    layers = std::move(left);
    steps.erase(std::remove_if(steps.begin(), steps.end(),
                               [&](Step& step) {
                                   if (step.kind == Step::Kind::kVsync) return false;
                                   step.layer = newIndex[step.layer];
                                   return step.layer == SIZE_MAX;
                               }),
                steps.end());
    frames = vsyncs = 0;
    for (const auto& step : steps) {
        if (step.kind == Step::Kind::kVsync) ++vsyncs;
        if (step.kind != Step::Kind::kQueue) continue;
        ++frames;
        ++layers[step.layer].frames;
    }
    if (!processes.empty()) keepUsedProcesses(*this);
}

std::string select(Recording& recording, const Selection& selection) {
    if (selection.layer.empty() && !selection.fromNs && !selection.toNs) return "";
    const int64_t wholeNs = recording.durationNs;
    if (selection.fromNs || selection.toNs) {
        cut(recording, selection.fromNs.value_or(0), selection.toNs.value_or(wholeNs));
    }
    std::vector<size_t> queued(recording.layers.size());
    size_t vsyncs = 0;
    for (const auto& step : recording.steps) {
        if (step.kind == Step::Kind::kQueue) ++queued[step.layer];
        if (step.kind == Step::Kind::kVsync) ++vsyncs;
    }
    std::vector<bool> kept;
    std::string names;
    for (size_t i = 0; i < recording.layers.size(); ++i) {
        const std::string& name = recording.layers[i].name;
        names += (names.empty() ? "" : ", ") + name;
        kept.push_back(queued[i] > 0 && name.find(selection.layer) != std::string::npos);
    }
    if (!selection.layer.empty() && !recording.findLayer(selection.layer)) {
        constexpr size_t kMaxNames = 1'000;
        return "holds no layer named like '" + selection.layer +
               "'; there are: " + shown(names, kMaxNames);
    }
    constexpr size_t kLeastVsyncs = 2;
    if (vsyncs < kLeastVsyncs || std::find(kept.begin(), kept.end(), true) == kept.end()) {
        return "holds no vsyncs and frames to play in the part that is chosen (it is " +
               seconds(wholeNs) + " long)";
    }
    recording.keepLayers(kept);
    return "";
}

std::string excess(const Recording& recording, int repeat) {
    constexpr int64_t kMillion = 1'000'000;
    constexpr int64_t kMostMillions = 10;  // a day at 100 Hz: some gigabytes, and an hour of work
    int64_t periodNs = recording.vsyncPeriodNs;
    for (const Rate& change : recording.rateChanges) {
        periodNs = std::min(periodNs, change.periodNs);
    }
    // The display goes on where nothing is recorded.
    const int64_t vsyncs = recording.durationNs / periodNs;
    const int64_t millions =
            (vsyncs + static_cast<int64_t>(recording.steps.size())) * repeat / kMillion;
    if (millions < kMostMillions) return "";
    return "asks for " + std::to_string(millions) + " million vsyncs and buffers to be played (" +
           seconds(recording.durationNs) + ", " + plural(static_cast<size_t>(repeat), "time") +
           "); at most " + std::to_string(kMostMillions) +
           " million are: --from and --to choose a part";
}

void overruleRates(Recording& recording, const std::vector<Rate>& rates,
                   const std::string& source) {
    recording.rateSource = source;
    recording.rateChanges.clear();
    for (const Rate& rate : rates) {
        if (rate.atNs <= 0) {
            recording.vsyncPeriodNs = rate.periodNs;
        } else if (rate.atNs <= recording.durationNs) {
            recording.rateChanges.push_back(rate);
        }
    }
}

std::string packageOf(const Layer& layer) {
    return android::PerfProxy::getPackageName(layer.name);
}

RecordingResult readRecording(const std::string& path) {
    RecordingBuilder builder;
    TraceReader reader([&](const TraceEvent& event) { builder.add(event); },
                       [&](const FrameMark& mark) { builder.add(mark); });
    reader.setLimit([&] { return builder.isFull(); },
                    "holds more than five million vsyncs and buffers; cut a part out of it");
    const std::string error = reader.read(path);
    if (!error.empty()) return {std::nullopt, error};
    if (reader.isPerfetto() && reader.stats().ftrace == 0) {
        return {std::nullopt, "holds nothing of a compositor" + reader.missing()};
    }
    RecordingResult result = builder.finish(reader.stats());
    if (!result.recording) {
        result.error += reader.missing();
        for (const auto& note : reader.notes()) result.error += "; " + note;
        return result;
    }
    for (auto& note : reader.notes()) result.recording->notes.push_back(std::move(note));
    return result;
}

RecordingResult parseRecording(std::string_view text) {
    RecordingBuilder builder;
    const ParseStats stats =
            parseFtrace(text, [&builder](const TraceEvent& event) { builder.add(event); });
    return builder.finish(stats);
}

}  // namespace corvane::replay
