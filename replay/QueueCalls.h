// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <unordered_map>
#include <vector>

#include "replay/FtraceParser.h"
#include "replay/Recording.h"

namespace corvane::replay {

// The calls that applications made to their buffer queues while a phone was recorded. They tell
// which process is behind a layer's buffers.
//
// Fed with a trace's slices in the text's order, then settled, then asked.
class QueueCalls {
  public:
    void begin(const TraceEvent& event);
    void end(const TraceEvent& event);

    // How many pieces it keeps, which grow with the trace.
    size_t kept() const { return mKept; }

    // From now on times count from startNs. The compositor queues to the display itself; its calls
    // are no application's and are forgotten.
    void settle(int64_t startNs, int compositorPid);

    // For each of the recording's layers, the process in whose queueBuffer calls most of its
    // buffers were counted; 0 where that is not so for at least half of them.
    std::vector<int> producers(const Recording& recording) const;

    // Whether the process queued any buffer.
    bool isOf(int pid) const { return mPids.count(pid) > 0; }

    // When the process got a free buffer within the recording, ascending.
    std::vector<int64_t> dequeues(int pid, int64_t durationNs) const;
    // When its calls to queue a buffer ended, ditto.
    std::vector<int64_t> returns(int pid, int64_t durationNs) const;

  private:
    enum class Call { kQueue, kDequeue, kOther };
    struct Open {
        Call call;
        int64_t beginNs;
        int pid;
    };
    struct Slice {
        int64_t beginNs;
        int64_t endNs;
        int pid;
    };

    struct Thread {
        std::vector<Open> open;  // innermost last
        size_t deeper = 0;       // slices begun within those, beyond what is kept
    };

    static std::vector<int64_t> endsOf(const std::vector<Slice>& slices, int pid,
                                       int64_t durationNs);

    std::unordered_map<int, Thread> mThreads;
    size_t mKept = 0;
    std::vector<Slice> mQueues;  // settled: by begin
    std::vector<Slice> mDequeues;
    std::set<int> mPids;
};

}  // namespace corvane::replay
