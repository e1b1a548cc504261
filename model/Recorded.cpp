// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "model/Recorded.h"

#include <algorithm>

namespace corvane::model {
namespace {

void shift(std::optional<int64_t>& timeNs, int64_t byNs) {
    if (timeNs) *timeNs += byNs;
}

void appendPass(std::vector<RecordedFrame>& frames, const std::vector<RecordedFrame>& pass,
                int64_t byNs) {
    size_t open = frames.size();  // the first frame that is still queued
    while (open > 0 && !frames[open - 1].latchNs) --open;
    std::optional<int64_t> lastLatch;
    auto next = pass.begin();
    for (; next != pass.end() && !next->queueNs; ++next) {
        lastLatch = next->latchNs;
        shift(lastLatch, byNs);
        if (open < frames.size()) frames[open++].latchNs = lastLatch;
    }
    if (!lastLatch && next != pass.end()) {
        lastLatch = next->latchNs;
        shift(lastLatch, byNs);
    }
    for (; open < frames.size(); ++open) frames[open].latchNs = lastLatch;
    for (; next != pass.end(); ++next) {
        frames.push_back(*next);
        shift(frames.back().queueNs, byNs);
        shift(frames.back().returnNs, byNs);
        shift(frames.back().dequeueNs, byNs);
        shift(frames.back().latchNs, byNs);
        shift(frames.back().shownNs, byNs);
    }
}

void appendTimes(std::vector<int64_t>& times, const std::vector<int64_t>& pass, int64_t byNs) {
    for (const int64_t timeNs : pass) times.push_back(timeNs + byNs);
}

}  // namespace

int64_t passNs(const Recorded& recorded) {
    return recorded.durationNs + recorded.rates.back().periodNs;
}

Recorded repeated(const Recorded& recorded, int times) {
    Recorded result = recorded;
    for (int pass = 1; pass < times; ++pass) {
        const int64_t byNs = pass * passNs(recorded);
        for (const DisplayRate& rate : recorded.rates) {
            result.rates.push_back({rate.fromNs + byNs, rate.periodNs});
        }
        appendTimes(result.vsyncs, recorded.vsyncs, byNs);
        appendTimes(result.appVsyncs, recorded.appVsyncs, byNs);
        for (size_t i = 0; i < recorded.layers.size(); ++i) {
            appendPass(result.layers[i].frames, recorded.layers[i].frames, byNs);
        }
        result.durationNs = byNs + recorded.durationNs;
    }
    return result;
}

}  // namespace corvane::model
