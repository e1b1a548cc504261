// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "corvane/host/LogCapture.h"
#include "replay/Findings.h"
#include "replay/HookCosts.h"
#include "replay/LibraryTrace.h"
#include "replay/Scenario.h"

namespace corvane::replay {

// The library in this process, started on the scenario's phone, and everything that it gives away
// of itself from then on. One at a time; in simulated time when the simulation is on before it.
class ObservedLibrary {
  public:
    // Throws Stop.
    explicit ObservedLibrary(const Scenario& scenario);
    ObservedLibrary(const ObservedLibrary&) = delete;
    ObservedLibrary& operator=(const ObservedLibrary&) = delete;

    bool isEnabled() const { return mEnabled; }
    // What a compositor asks the library for itself.
    void query();
    // Of the start and of the queries.
    const HookCosts& costs() const { return mCosts; }

    // What it did until now; ends the trace, which stays here. Throws Stop.
    Evidence takeEvidence();
    const LibraryTrace& trace() const { return mTrace; }

  private:
    const host::LogCapture mLog;
    LibraryTrace mTrace;
    HookCosts mCosts;
    bool mEnabled = false;
};

}  // namespace corvane::replay
