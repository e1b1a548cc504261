// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <cmath>
#include <sstream>

#include "layers/LayerInfo.h"
#include "layers/LogTag.h"
#include "perf/PerfProxy.h"

namespace android {
namespace {

// Scheduling noise of a healthy frame. Without this floor, short intervals would be held to a bound
// that no real device meets.
constexpr float kMinDeviationNs = 2'000'000.0f;

}  // namespace

void LayerInfo::StableFpsTracker::resize(int n) {
    samples.resize(static_cast<size_t>(std::max(n, 0)));
    reset();
}

void LayerInfo::StableFpsTracker::reset() {
    std::fill(samples.begin(), samples.end(), 0);
    index = 0;
    sum = 0;
    full = false;
}

void LayerInfo::StableFpsTracker::push(nsecs_t interval) {
    if (samples.empty()) return;
    if (full) sum -= samples[index];
    samples[index] = interval;
    sum += interval;
    index = (index + 1) % static_cast<uint32_t>(samples.size());
    if (index == 0) full = true;
}

bool LayerInfo::StableFpsTracker::isStable(int layerId, float tolerance) const {
    if (!full || samples.empty()) return false;

    const float count = static_cast<float>(samples.size());
    const float mean = static_cast<float>(sum) / count;
    float variance = 0.0f;
    for (const nsecs_t sample : samples) {
        const float deviation = static_cast<float>(sample) - mean;
        variance += deviation * deviation;
    }
    variance /= count;
    const float stdDev = std::sqrt(variance);
    const bool stable = stdDev < std::max(kMinDeviationNs, tolerance * mean);

    if (PerfProxy::isProfileable()) {
        std::ostringstream line;
        line << "Window: [";
        for (size_t i = 0; i < samples.size(); ++i) line << (i == 0 ? "" : ", ") << samples[i];
        line << "] Layer: " << layerId << " StdDev: " << stdDev << " Mean: " << mean
             << " Result: " << stable;
        PerfProxy::VLOGD(kLayerLogTag, "%s", line.str().c_str());
    }
    return stable;
}

int LayerInfo::StableFpsTracker::getFpsMode() const {
    if (!full || samples.empty() || sum == 0) return -1;
    const float mean = static_cast<float>(sum) / static_cast<float>(samples.size());
    return PerfProxy::getFpsMode(1e9f / mean);
}

}  // namespace android
