// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/ServiceCallback.h"

#include <cmath>

namespace corvane::replay {
namespace {

// The service sends rates as hundredths.
int hundredths(double value) {
    constexpr double kHundredths = 100.0;
    return static_cast<int>(std::lround(value * kHundredths));
}

}  // namespace

ServiceCallback targetFpsCallback(const std::string& package, double fps) {
    return {kTargetFpsHint, package, hundredths(fps), 0, {}};
}

ServiceCallback headroomCallback(const std::string& package, double upTo60Hz, double above60Hz) {
    // Pairs of a rate's kind, which the library does not read, and the rate.
    return {kHeadroomHint, package, 0, 0, {0, hundredths(upTo60Hz), 1, hundredths(above60Hz)}};
}

ServiceCallback frameRescueCallback(const std::string& package, int flag,
                                    const std::string& tunables) {
    return {kFrameRescueHint, package + ":" + tunables, 0, 0, {flag}};
}

std::string configuredPackage(const ServiceCallback& callback) {
    if (callback.hint == kTargetFpsHint || callback.hint == kHeadroomHint) return callback.package;
    if (callback.hint != kFrameRescueHint) return "";
    const size_t colon = callback.package.find(':');
    return colon == std::string::npos ? "" : callback.package.substr(0, colon);
}

}  // namespace corvane::replay
