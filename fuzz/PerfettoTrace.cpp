// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Perfetto traces: the first byte says in how large pieces the others come.

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "fuzz/Check.h"
#include "replay/perfetto/PerfettoParser.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace corvane::replay;
    if (size == 0) return 0;
    const size_t piece = size_t{data[0]} + 1;
    std::string_view trace(reinterpret_cast<const char*>(data) + 1, size - 1);

    size_t prints = 0, marks = 0;
    int64_t lastNs = 0;
    PerfettoParser parser(
            [&](const Print& print) {
                // Nothing here is large enough to come later than the sorter's window.
                FUZZ_CHECK(print.timeNs >= lastNs && print.timeNs <= ClockTable::kMaxTimeNs);
                FUZZ_CHECK(!print.text.empty());
                lastNs = print.timeNs;
                ++prints;
            },
            [&](const FrameMark& mark) {
                FUZZ_CHECK(mark.timeNs >= 0 && mark.timeNs <= ClockTable::kMaxTimeNs);
                ++marks;
            });
    for (; !trace.empty(); trace.remove_prefix(std::min(piece, trace.size()))) {
        parser.feed(trace.substr(0, piece));
    }
    parser.finish();
    const PerfettoStats& stats = parser.stats();
    FUZZ_CHECK(prints <= stats.prints && marks <= stats.frameMarks);
    FUZZ_CHECK(stats.prints <= stats.ftraceEvents);
    FUZZ_CHECK(!(stats.cutShort && stats.broken));
    return 0;
}
