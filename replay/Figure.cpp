// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/Figure.h"

#include <cmath>

#include "replay/TextTable.h"

namespace corvane::replay {
namespace {

using model::LayerFigures;

constexpr double kNsPerMs = 1e6;

template <auto LayerFigures::*kMember>
double value(const LayerFigures& figures) {
    return static_cast<double>(figures.*kMember);
}

}  // namespace

const std::vector<Figure>& figures() {
    using Unit = Figure::Unit;
    using Better = Figure::Better;
    static const std::vector<Figure> sFigures = {
            {"latency-p50", "latencyP50Ns", "latency p50", Unit::kTime, Better::kLower,
             value<&LayerFigures::latencyP50Ns>},
            {"latency-p95", "latencyP95Ns", "latency p95", Unit::kTime, Better::kLower,
             value<&LayerFigures::latencyP95Ns>},
            {"latency-p99", "latencyP99Ns", "latency p99", Unit::kTime, Better::kLower,
             value<&LayerFigures::latencyP99Ns>},
            {"queue-to-display-p50", "queueToDisplayP50Ns", "queue to display p50", Unit::kTime,
             Better::kLower, value<&LayerFigures::queueToDisplayP50Ns>},
            {"queue-to-display-p95", "queueToDisplayP95Ns", "queue to display p95", Unit::kTime,
             Better::kLower, value<&LayerFigures::queueToDisplayP95Ns>},
            {"shown-frames", "shownFrames", "frames shown", Unit::kCount, Better::kHigher,
             value<&LayerFigures::shown>},
            {"late-frames", "lateFrames", "frames late", Unit::kCount, Better::kLower,
             value<&LayerFigures::late>},
            {"dropped-frames", "droppedFrames", "frames dropped", Unit::kCount, Better::kLower,
             value<&LayerFigures::dropped>},
            {"fps", "fps", "frame rate", Unit::kRate, Better::kHigher, value<&LayerFigures::fps>},
            {"interval-deviation", "intervalDeviationNs", "interval deviation", Unit::kTime,
             Better::kLower, value<&LayerFigures::intervalDeviationNs>},
            {"waiting", "waitingMean", "buffers waiting", Unit::kNumber, Better::kLower,
             value<&LayerFigures::waitingMean>},
            {"held-frames", "heldFrames", "frames held", Unit::kCount, Better::kNeither,
             value<&LayerFigures::heldFrames>},
            {"held-time", "heldNs", "time held", Unit::kTime, Better::kNeither,
             value<&LayerFigures::heldNs>},
            {"boosts", "boosts", "boosts", Unit::kCount, Better::kNeither,
             value<&LayerFigures::boosts>},
            {"boost-mhz-s", "boostMHzSeconds", "boosts, MHz s", Unit::kNumber, Better::kNeither,
             value<&LayerFigures::boostMHzSeconds>},
    };
    return sFigures;
}

// Tables show times to a hundredth of a millisecond, rates and numbers to a hundredth.
double shownResolution(Figure::Unit unit) {
    switch (unit) {
        case Figure::Unit::kTime:
            return 0.01 * kNsPerMs;
        case Figure::Unit::kCount:
            return 1.0;
        case Figure::Unit::kRate:
        case Figure::Unit::kNumber:
            return 0.01;
    }
    return 0.0;
}

const Figure* figureOf(std::string_view key) {
    for (const Figure& figure : figures()) {
        if (key == figure.key) return &figure;
    }
    return nullptr;
}

std::string valueText(const Figure& figure, double value) {
    switch (figure.unit) {
        case Figure::Unit::kTime:
            return format("%.2f ms", value / kNsPerMs);
        case Figure::Unit::kCount:
            return format("%.0f", value);
        case Figure::Unit::kRate:
            return format("%.2f/s", value);
        case Figure::Unit::kNumber:
            return format("%.2f", value);
    }
    return {};
}

std::string differenceText(const Figure& figure, double difference) {
    if (std::fabs(difference) < shownResolution(figure.unit) / 2) return "=";
    return (difference > 0 ? "+" : "") + valueText(figure, difference);
}

bool isWorse(const Figure& figure, double value, double other) {
    const double difference = value - other;
    if (std::fabs(difference) < shownResolution(figure.unit) / 2) return false;
    switch (figure.better) {
        case Figure::Better::kLower:
            return difference > 0;
        case Figure::Better::kHigher:
            return difference < 0;
        case Figure::Better::kNeither:
            return false;
    }
    return false;
}

}  // namespace corvane::replay
