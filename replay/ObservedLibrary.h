// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "corvane/host/Devices.h"
#include "corvane/host/LogCapture.h"
#include "replay/Findings.h"
#include "replay/HookCosts.h"
#include "replay/LibraryTrace.h"
#include "replay/LogDigest.h"
#include "replay/Recording.h"
#include "replay/Scenario.h"
#include "replay/Spool.h"

namespace corvane::replay {

// The library in this process, started on the scenario's phone, and everything that it gives away
// of itself from then on. One at a time; in simulated time when the simulation is on before it.
class ObservedLibrary {
  public:
    // Throws Stop.
    ObservedLibrary(const Scenario& scenario, const Recording& recording);
    ~ObservedLibrary();
    ObservedLibrary(const ObservedLibrary&) = delete;
    ObservedLibrary& operator=(const ObservedLibrary&) = delete;

    bool isEnabled() const { return mEnabled; }
    // What a compositor asks the library for itself.
    void query();
    // Of the start and of the queries.
    const HookCosts& costs() const { return mCosts; }

    // The replay starts at this systemTime. Reading along, log lines are read as they come, so that
    // none is kept; else at the end, so that reading costs the library no time.
    void begin(int64_t startNs, bool readsAlong);
    // What it did until now; ends the trace, which stays here. After begin(), once. Throws Stop.
    Evidence takeEvidence();
    const LibraryTrace& trace() const { return mTrace; }

  private:
    void readLog();
    void endReading();

    const Recording& mRecording;
    host::LogCapture mLog;
    std::optional<LogDigest> mDigest;   // filled with the log's lock held
    Spool<host::BoostRequest> mBoosts;  // filled with the device's lock held, as the next
    size_t mDeadlines = 0;
    LibraryTrace mTrace;
    HookCosts mCosts;
    bool mEnabled = false;
};

}  // namespace corvane::replay
