// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <sstream>
#include <utility>

#include "replay/Comparison.h"
#include "replay/Figure.h"
#include "replay/TextTable.h"

namespace corvane::replay {
namespace {

constexpr const char* kIndent = "  ";
constexpr size_t kNameWidth = 60;

const char* kindText(model::ProducerKind kind) {
    return kind == model::ProducerKind::kVsyncDriven ? "vsync-driven" : "free-running";
}

std::string fitPart(const Comparison& comparison, size_t layer, size_t width) {
    const model::LayerFit& fit = comparison.fits[layer];
    const model::LayerWork& work = comparison.workload.layers[layer];
    std::string text;
    if (!fit.isGood()) {
        text += wrapped("Fits badly: trust the figures below little. " + fit.likelyReason, kIndent,
                        width);
    }
    const std::string latches =
            fit.latches == 0 ? "no latch is recorded to fit the model to"
                             : format("the model gives back %.1f %% of the recorded latches",
                                      100 * fit.share());
    text += wrapped(format("%s (%s), %d buffers, GPU %s after queueing; %s, queue times within %s "
                           "p50, %s p95",
                           kindText(work.kind), work.reason.c_str(), work.buffers,
                           millis(work.gpuNs).c_str(), latches.c_str(),
                           millis(fit.queueP50Ns).c_str(), millis(fit.queueP95Ns).c_str()),
                    kIndent, width);
    if (fit.presents > 0) {
        text += wrapped(format("%zu of %zu frames come on the screen within half a period of the "
                               "recorded present time, %s p50, %s p95 from it",
                               fit.presentsMet, fit.presents, millis(fit.presentP50Ns).c_str(),
                               millis(fit.presentP95Ns).c_str()),
                        kIndent, width);
    }
    return text;
}

using Runs = std::vector<PolicyRun>::const_iterator;

// One row per figure that any policy has: the library's value, then the value of each of these
// policies with what the library changes.
std::string table(const Comparison& comparison, size_t layer, Runs begin, Runs end, size_t width) {
    TextTable rows("l" + std::string(1 + 2 * static_cast<size_t>(end - begin), 'r'));
    std::vector<std::string> head = {""};
    if (comparison.library) head.push_back("library");
    for (auto other = begin; other != end; ++other) {
        head.push_back(other->name);
        if (comparison.library) head.push_back("library's change");
    }
    rows.add(std::move(head));
    for (const Figure& figure : figures()) {
        std::vector<std::string> row = {std::string(kIndent) + figure.label};
        const double own = comparison.library ? figure.get(comparison.library->figures[layer]) : 0;
        if (comparison.library) row.push_back(valueText(figure, own));
        for (auto other = begin; other != end; ++other) {
            const double value = figure.get(other->figures[layer]);
            row.push_back(valueText(figure, value));
            if (!comparison.library) continue;
            row.push_back(differenceText(figure, own - value) +
                          (isWorse(figure, own, value) ? " worse" : ""));
        }
        const bool any = std::any_of(comparison.others.begin(), comparison.others.end(),
                                     [&](const PolicyRun& other) {
                                         return figure.get(other.figures[layer]) != 0;
                                     });
        if (any || own != 0) rows.add(std::move(row));
    }
    return rows.text(width);
}

bool fits(const std::string& text, size_t width) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (columnsOf(line) > width) return false;
    }
    return true;
}

// As many policies beside each other as there is room for, and the others below.
std::string tables(const Comparison& comparison, size_t layer, size_t width) {
    std::string text;
    auto begin = comparison.others.begin();
    do {
        auto end = comparison.others.end();
        std::string part = table(comparison, layer, begin, end, width);
        while (end - begin > 1 && !fits(part, width)) {
            part = table(comparison, layer, begin, --end, width);
        }
        text += part;
        begin = end;
    } while (begin != comparison.others.end());
    return text;
}

}  // namespace

std::string comparisonText(const Comparison& comparison, const Terminal& terminal) {
    const auto heading = [&](const std::string& text) {
        return terminal.styled ? "\x1b[1m" + text + "\x1b[0m\n" : text + "\n";
    };
    std::string text;
    bool any = false;
    for (size_t i = 0; i < comparison.recorded.layers.size(); ++i) {
        if (!comparison.isWorthATable(i)) continue;
        text += heading("Comparison for " + shown(comparison.recorded.layers[i].name, kNameWidth));
        text += fitPart(comparison, i, terminal.width);
        text += tables(comparison, i, terminal.width);
        any = true;
    }
    if (!any) {
        text += heading("Comparison");
        text += wrapped(format("Nothing is compared: no layer has %zu frames in a pass.",
                               Comparison::kMinFrames),
                        kIndent, terminal.width);
    }
    for (const std::string& assumption : comparison.workload.assumptions) {
        text += wrapped(shown(assumption), "  Assumed: ", terminal.width);
    }
    if (comparison.library) {
        text += format("  The library called the service %zu times.\n",
                       comparison.library->serviceCalls);
    }
    return text;
}

}  // namespace corvane::replay
