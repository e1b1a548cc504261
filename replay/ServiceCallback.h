// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>
#include <vector>

namespace corvane::replay {

// One call of the performance service's callback, as it arrives.
struct ServiceCallback {
    int hint = 0;
    std::string package;
    int arg1 = 0;
    int arg2 = 0;
    std::vector<int> values;
};

// The hints that configure a package's features.
constexpr int kTargetFpsHint = 4171;
constexpr int kHeadroomHint = 4187;
constexpr int kFrameRescueHint = 4189;

// Frames per second.
ServiceCallback targetFpsCallback(const std::string& package, double fps);
// In vsync periods, at display rates up to 60 Hz and above; 0 leaves the feature off there.
ServiceCallback headroomCallback(const std::string& package, double upTo60Hz, double above60Hz);
// The flag switches the feature off (0) or chooses its way (1, 2).
ServiceCallback frameRescueCallback(const std::string& package, int flag,
                                    const std::string& tunables);

// The package that a callback of one of these hints configures; empty for another's, and for one
// that configures every package.
std::string configuredPackage(const ServiceCallback& callback);

}  // namespace corvane::replay
