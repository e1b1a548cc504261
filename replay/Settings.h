// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <json/json.h>

#include <vector>

#include "corvane/host/PerfService.h"
#include "replay/Scenario.h"

namespace corvane::replay {

// The property by which the replay itself has the library log what the report is drawn from.
constexpr const char* kDebugProperty = "vendor.perf.corvane.debug";

// The report's "settings": what was set, and the properties that the library asked the service for
// with what it was told, defaults included.
Json::Value settingsJson(const Scenario& scenario, const std::vector<host::PerfCall>& calls);

}  // namespace corvane::replay
