// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>
#include <utility>

#include "corvane/host/LogCapture.h"
#include "replay/Findings.h"
#include "replay/Recording.h"

namespace corvane::replay {

// What the library's log tells, read line by line, so that nobody has to keep the lines. Not
// synchronised: the log's lock serves.
class LogDigest {
  public:
    // `startNs` is systemTime at the start of the replay, which times are to count from.
    LogDigest(const Recording& recording, int64_t startNs);

    void add(const host::LogLine& line);
    // The findings of all lines; those of other sources are missing.
    Findings take() { return std::move(mFindings); }

  private:
    LayerFindings* layer(int id);
    void readStartLine(const std::string& text);
    void readRegistryLine(const std::string& text, int64_t atNs);
    void readFeatureLine(const std::string& text, int64_t atNs);
    void addSwitch(int id, FeatureKind kind, FeatureSwitch change);

    const int64_t mStartNs;
    std::unordered_map<int, size_t> mById;
    std::map<std::string, size_t> mComplaints;  // where each is in the findings
    int mHeadroomOffId = 0;  // the layer whose headroom control was switched off last
    Findings mFindings;
};

}  // namespace corvane::replay
