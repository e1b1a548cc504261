// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>

#include "Holders.h"
#include "ThreadTable.h"

namespace corvane::host {

// Why the simulation cannot go on, and what each of its threads waits for, since when, and who
// holds that. The text lives as long as the process.
const char* stuckReport(const char* why, int64_t now, uint64_t steps, const ThreadTable& threads,
                        const Holders& holders);

}  // namespace corvane::host
