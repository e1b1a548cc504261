// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/ListReport.h"

#include "replay/TextTable.h"

namespace corvane::replay {
namespace {

std::string hertz(int64_t periodNs) {
    constexpr double kNsPerSecond = 1e9;
    return format("%.1f Hz", kNsPerSecond / static_cast<double>(periodNs));
}

}  // namespace

std::string listReport(const Recording& recording, const std::string& file, size_t width) {
    constexpr const char* kIndent = "  ";
    std::string text = "Recording  " + shown(file) + "\n";
    text += wrapped(seconds(recording.durationNs) + ", " + plural(recording.vsyncs, "vsync") +
                            ", " + plural(recording.frames, "frame") + ", " +
                            plural(recording.skippedLines, "line") + " skipped",
                    kIndent, width);
    std::string rates = hertz(recording.vsyncPeriodNs);
    for (const Rate& change : recording.rateChanges) {
        rates += ", " + hertz(change.periodNs) + " from " + seconds(change.atNs);
    }
    text += wrapped("display at " + rates + ", told by " + recording.rateSource, kIndent, width);
    for (const auto& note : recording.notes) text += wrapped(note, "  Note: ", width);

    TextTable layers("rlrrl");
    layers.add({"id", "package", "process", "frames", "name"});
    for (const Layer& layer : recording.layers) {
        const std::string package = packageOf(layer);
        layers.add({std::to_string(layer.id), package.empty() ? "-" : shown(package),
                    std::to_string(recording.processes[layer.process].pid),
                    std::to_string(layer.frames), shown(layer.name)});
    }
    text += "Layers\n" + layers.text(SIZE_MAX);

    TextTable counters("rrll");
    counters.add({"process", "changes", "use", "counter"});
    for (const auto& counter : recording.counters) {
        counters.add({std::to_string(counter.pid), std::to_string(counter.samples), counter.use,
                      shown(counter.name)});
    }
    return text + "Counters\n" + counters.text(SIZE_MAX);
}

}  // namespace corvane::replay
