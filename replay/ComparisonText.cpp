// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
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
    text += wrapped(format("%s (%s), %d buffers, GPU %s after queueing; the model gives back "
                           "%.1f %% of the recorded latches, queue times within %s p50, %s p95",
                           kindText(work.kind), work.reason.c_str(), work.buffers,
                           millis(work.gpuNs).c_str(), 100 * fit.share(),
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

// One row per figure: the library's value, then each other policy's with what the library changes.
std::string table(const Comparison& comparison, size_t layer, size_t width) {
    TextTable rows("l" + std::string(1 + 2 * comparison.others.size(), 'r'));
    std::vector<std::string> head = {""};
    if (comparison.library) head.push_back("library");
    for (const PolicyRun& other : comparison.others) {
        head.push_back(other.name);
        if (comparison.library) head.push_back("library's change");
    }
    rows.add(std::move(head));
    for (const Figure& figure : figures()) {
        std::vector<std::string> row = {std::string(kIndent) + figure.label};
        const double own = comparison.library ? figure.get(comparison.library->figures[layer]) : 0;
        bool any = own != 0;
        if (comparison.library) row.push_back(valueText(figure, own));
        for (const PolicyRun& other : comparison.others) {
            const double value = figure.get(other.figures[layer]);
            any = any || value != 0;
            row.push_back(valueText(figure, value));
            if (!comparison.library) continue;
            row.push_back(differenceText(figure, own - value) +
                          (isWorse(figure, own, value) ? " worse" : ""));
        }
        if (any) rows.add(std::move(row));
    }
    return rows.text(width);
}

}  // namespace

std::string comparisonText(const Comparison& comparison, const Terminal& terminal) {
    const auto heading = [&](const std::string& text) {
        return terminal.styled ? "\x1b[1m" + text + "\x1b[0m\n" : text + "\n";
    };
    std::string text;
    for (size_t i = 0; i < comparison.recorded.layers.size(); ++i) {
        if (!comparison.isWorthATable(i)) continue;
        text += heading("Comparison for " + shown(comparison.recorded.layers[i].name, kNameWidth));
        text += fitPart(comparison, i, terminal.width);
        text += table(comparison, i, terminal.width);
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
