// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/ObservedLibrary.h"

#include <corvane/hooks.h>

#include "corvane/host/Devices.h"
#include "corvane/host/PerfService.h"
#include "replay/Phone.h"

namespace corvane::replay {

ObservedLibrary::ObservedLibrary(const Scenario& scenario) {
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

Evidence ObservedLibrary::takeEvidence() {
    mTrace.end();
    return {mLog.lines(), host::PerfService::calls(), host::BoostDevice::requests(),
            host::SyncFiles::deadlines(), &mTrace};
}

}  // namespace corvane::replay
