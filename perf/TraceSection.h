// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "perf/PerfProxy.h"

namespace android {

// A synchronous trace slice from construction to destruction.
class TraceSection {
  public:
    explicit TraceSection(const char* name) { PerfProxy::VTRACE_BEGIN(name); }
    // The name is put together, and cut to 255 characters, only while the library traces.
    static TraceSection formatted(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
    ~TraceSection() { PerfProxy::VTRACE_END(); }
    TraceSection(const TraceSection&) = delete;
    TraceSection& operator=(const TraceSection&) = delete;
};

}  // namespace android
