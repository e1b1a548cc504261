// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <json/json.h>

#include <string>

namespace corvane::replay {

// The report as one page for people, which needs no network and no server: it carries `document`,
// the report for programs, with the script that draws it (replay/page/). Whatever names the
// document holds, none of them becomes markup or script.
std::string htmlReport(const Json::Value& document);

}  // namespace corvane::replay
