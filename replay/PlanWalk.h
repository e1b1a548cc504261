// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "replay/Application.h"

namespace corvane::replay {

struct DueStep {
    int64_t atNs;  // from the start of the replay
    const AppStep* step;
};

// Walks all passes of a plan in time's order; at one time recorded steps come before the scenario's
// events. The plan, which must outlive it, holds one pass however many are walked. A value of the
// thread that walks; several may walk one plan.
class PlanWalk {
  public:
    explicit PlanWalk(const AppPlan& plan) : mPlan(&plan) {}

    // None when all have been walked.
    std::optional<DueStep> next();

  private:
    std::optional<DueStep> nextRecorded() const;

    const AppPlan* mPlan;
    size_t mRecorded = 0;  // steps walked, of all passes
    size_t mEvents = 0;    // events walked
};

}  // namespace corvane::replay
