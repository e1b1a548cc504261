// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "replay/Application.h"
#include "replay/Comparison.h"
#include "replay/Findings.h"
#include "replay/JsonStream.h"
#include "replay/Player.h"
#include "replay/Recording.h"
#include "replay/Scenario.h"
#include "replay/Terminal.h"

namespace corvane::replay {

// Everything that a report tells of.
struct ReportSource {
    std::string recordingFile;
    std::string scenarioFile;  // empty: none
    std::string scenarioDescription;
    int repeat;
    const Recording& recording;
    const PlayResult& played;
    const Findings& findings;
    std::optional<AppResult> application = std::nullopt;  // where touches were played
    Terminal terminal = {};                               // where the text goes
    // What a reader of the report should know of the recording and the scenario, a sentence each;
    // may hold names that applications chose.
    std::vector<std::string> notes = {};
    bool isRealtime = true;                  // else times are simulated, and hooks cost nothing
    const Comparison* comparison = nullptr;  // null: the device model was not used
    const Scenario* scenario = nullptr;      // with what the command line added; null: none
    std::string suggestion = {};  // the line to type next, which ends the report; empty: none
};

// For a person at a terminal: as wide as the terminal, units at every number.
std::string textReport(const ReportSource& source);

// The same for programs, one JSON document as report.schema.json describes it; times in nanoseconds
// from the start of the replay. A change that breaks a reader raises the version.
constexpr int kReportSchemaVersion = 1;
void writeJsonReport(const ReportSource& source, const JsonStream::Sink& sink);

}  // namespace corvane::replay
