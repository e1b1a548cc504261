// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// What a measured frame rate, a vsync period or a text is; no state, no device.

#include <cmath>

#include "perf/PerfProxy.h"

namespace android {

namespace {

// Below this an application is not aiming at a mode of the display; its rate is kept as measured.
constexpr float kMaxUnclassifiedFps = 18.0f;

struct FpsBand {
    float maxFps;  // inclusive
    int mode;
};

// Ascending. The limits stand a little above the modes, since a measured rate swings around its
// aim.
constexpr FpsBand kFpsBands[] = {
        {33.0f, 30},   {48.0f, 45},   {63.0f, 60},   {78.0f, 75},   {95.0f, 90},
        {123.0f, 120}, {147.0f, 144}, {168.0f, 165}, {210.0f, 185}, {260.0f, 240},
};

struct VsyncBand {
    long long minPeriodNs;  // inclusive
    long long maxPeriodNs;  // inclusive
    int mode;
};

// Gaps between the bands are meant: a period there belongs to no mode.
constexpr VsyncBand kVsyncBands[] = {
        {15'000'001, 17'999'999, 60}, {12'500'001, 14'899'999, 75}, {10'500'001, 11'699'999, 90},
        {8'000'001, 8'999'999, 120},  {6'800'001, 7'699'999, 144},  {5'800'001, 6'499'999, 165},
        {4'800'001, 5'599'999, 185},  {3'800'001, 4'599'999, 240},
};

}  // namespace

int PerfProxy::getFpsMode(float fps) {
    if (fps <= 0.0f) return -1;
    if (fps <= kMaxUnclassifiedFps) return static_cast<int>(std::lround(fps));
    for (const FpsBand& band : kFpsBands) {
        if (fps <= band.maxFps) return band.mode;
    }
    return -1;
}

int PerfProxy::setVsyncMode(long long periodNs) {
    for (const VsyncBand& band : kVsyncBands) {
        if (periodNs >= band.minPeriodNs && periodNs <= band.maxPeriodNs) return band.mode;
    }
    return 0;
}

bool PerfProxy::isNumericString(const std::string& s) {
    size_t digits = 0;
    size_t dots = 0;
    for (size_t i = !s.empty() && s.front() == '-' ? 1 : 0; i < s.size(); ++i) {
        if (s[i] == '.') {
            ++dots;
        } else if (s[i] >= '0' && s[i] <= '9') {
            ++digits;
        } else {
            return false;
        }
    }
    return digits > 0 && dots <= 1;
}

}  // namespace android
