// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/ObservedLibrary.h"

#include <corvane/hooks.h>

#include <utility>

#include "corvane/host/Devices.h"
#include "corvane/host/PerfService.h"
#include "replay/Phone.h"

namespace corvane::replay {

ObservedLibrary::ObservedLibrary(const Scenario& scenario, const Recording& recording)
      : mRecording(recording) {
    host::BoostDevice::setSink(
            [this](const host::BoostRequest& request) { mBoosts.push_back(request); });
    host::SyncFiles::setSink([this](const host::FenceDeadline&) { ++mDeadlines; });
    setUpPhone(scenario);
    mCosts.measure(Hook::kInit, [this] { mEnabled = corvaneInit(0, 0); });
    for (const auto& game : scenario.games) {
        for (const auto& callback : game.configuration) deliver(callback);
    }
}

void ObservedLibrary::query() {
    mCosts.measure(Hook::kSmartTouchEnabled, [] { corvaneSmartTouchEnabled(); });
    mCosts.measure(Hook::kIsTargetFpsActive, [] { corvaneIsTargetFpsActive(); });
}

ObservedLibrary::~ObservedLibrary() {
    endReading();
}

void ObservedLibrary::begin(int64_t startNs, bool readsAlong) {
    mDigest.emplace(mRecording, startNs);
    if (readsAlong) readLog();
}

void ObservedLibrary::readLog() {
    mLog.setSink([this](const host::LogLine& line) { mDigest->add(line); });
}

void ObservedLibrary::endReading() {
    mLog.setSink(nullptr);
    host::BoostDevice::setSink(nullptr);
    host::SyncFiles::setSink(nullptr);
}

Evidence ObservedLibrary::takeEvidence() {
    mTrace.end();
    readLog();
    endReading();
    return {mDigest->take(), host::PerfService::calls(), std::move(mBoosts), mDeadlines, &mTrace};
}

}  // namespace corvane::replay
