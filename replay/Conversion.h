// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "replay/NameMask.h"
#include "replay/TraceFileWriter.h"

namespace corvane::replay {

// What is to become of a recording.
struct ConversionOptions {
    std::string input;
    std::string output;
    TraceFormat format = TraceFormat::kText;
    int64_t fromNs = 0;  // from the trace's first event
    std::optional<int64_t> toNs;
    NameMask names;
    bool help = false;
};

struct ConversionOptionsResult {
    std::optional<ConversionOptions> options;
    std::string error;
};
ConversionOptionsResult parseConversionOptions(int argc, const char* const* argv);

extern const char* const kConversionUsage;

// Writes the slices, counters and frames of one trace as another. Memory does not grow with it.
// Returns what a user should know of what was left out, a sentence each; throws Stop.
std::vector<std::string> convert(ConversionOptions options);

}  // namespace corvane::replay
