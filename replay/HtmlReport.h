// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <json/json.h>

#include "replay/JsonStream.h"
#include "replay/Report.h"

namespace corvane::replay {

// The report as one page for people, which needs no network and no server: it carries the report
// for programs, with the script that draws it (replay/page/). Whatever names that holds, none of
// them becomes markup or script.
void writeHtmlReport(const ReportSource& source, const JsonStream::Sink& sink);

}  // namespace corvane::replay
