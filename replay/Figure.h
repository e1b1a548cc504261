// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "model/Figures.h"

namespace corvane::replay {

// A figure by which runs of the device model are compared: in the report's table, as a key of
// --fail-if and of a sweep, and in the JSON report.
struct Figure {
    enum class Unit { kTime, kCount, kRate, kNumber };

    const char* key;      // "latency-p95", as options name it
    const char* jsonKey;  // "latencyP95Ns"
    const char* label;    // "latency p95", in tables
    Unit unit;  // of get(): ns, a count, per second, or a number with its unit in the label
    enum class Better { kLower, kHigher, kNeither } better;
    double (*get)(const model::LayerFigures& figures);
};

// All of them, in the order of the table.
const std::vector<Figure>& figures();
// Null when no figure has this key.
const Figure* figureOf(std::string_view key);

// What a table rounds a value to, in the value's unit.
double shownResolution(Figure::Unit unit);
// A value with its unit, and the signed difference of two. Times in ms.
std::string valueText(const Figure& figure, double value);
std::string differenceText(const Figure& figure, double difference);
// Whether `value` is worse than `other` by more than what the table rounds away.
bool isWorse(const Figure& figure, double value, double other);

}  // namespace corvane::replay
