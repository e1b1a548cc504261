// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/QueueCalls.h"

#include <algorithm>
#include <cstddef>
#include <iterator>

namespace corvane::replay {
namespace {

// The compositor counts a buffer within its producer's queueBuffer call or, where buffers come with
// transactions, shortly after it.
constexpr int64_t kQueueToCounterNs = 2'000'000;
// A longer call has lost its end.
constexpr int64_t kMaxCallNs = 1'000'000'000;
// Slices within each other; a thread with more has lost ends.
constexpr size_t kMaxOpen = 256;

}  // namespace

void QueueCalls::begin(const TraceEvent& event) {
    const auto [entry, isNew] = mThreads.try_emplace(event.tid);
    if (isNew) ++mKept;
    Thread& thread = entry->second;
    if (thread.open.size() == kMaxOpen) {
        ++thread.deeper;
        return;
    }
    Call call = Call::kOther;
    if (event.name == "queueBuffer") call = Call::kQueue;
    if (event.name == "dequeueBuffer") call = Call::kDequeue;
    thread.open.push_back({call, event.timeNs, event.pid});
}

void QueueCalls::end(const TraceEvent& event) {
    const auto entry = mThreads.find(event.tid);
    if (entry == mThreads.end()) return;
    Thread& thread = entry->second;
    if (thread.deeper > 0) {
        --thread.deeper;
        return;
    }
    if (thread.open.empty()) return;                       // begun before the recording
    const auto [call, beginNs, pid] = thread.open.back();  // an end need not name its process
    thread.open.pop_back();
    if (call == Call::kOther) return;
    if (event.timeNs < beginNs || event.timeNs - beginNs > kMaxCallNs) return;
    (call == Call::kQueue ? mQueues : mDequeues).push_back({beginNs, event.timeNs, pid});
    ++mKept;
}

void QueueCalls::settle(int64_t startNs, int compositorPid) {
    for (auto* slices : {&mQueues, &mDequeues}) {
        slices->erase(std::remove_if(slices->begin(), slices->end(),
                                     [&](const Slice& slice) {
                                         return slice.pid < 1 || slice.pid == compositorPid;
                                     }),
                      slices->end());
        for (auto& slice : *slices) {
            slice.beginNs -= startNs;
            slice.endNs -= startNs;
        }
        std::sort(slices->begin(), slices->end(),
                  [](const Slice& a, const Slice& b) { return a.beginNs < b.beginNs; });
    }
    for (const auto& slice : mQueues) mPids.insert(slice.pid);
}

std::vector<int> QueueCalls::producers(const Recording& recording) const {
    std::vector<std::map<int, size_t>> votes(recording.layers.size());
    std::vector<bool> spent(mQueues.size());
    // The call that began last before the step, if it reaches that far and `afterNs` further.
    const auto vote = [&](const Step& step, int64_t afterNs) {
        const auto next = std::upper_bound(mQueues.begin(), mQueues.end(), step.timeNs,
                                           [](int64_t time, const Slice& slice) {
                                               return time < slice.beginNs;
                                           });
        if (next == mQueues.begin()) return false;
        const auto call = std::prev(next);
        const auto index = static_cast<size_t>(call - mQueues.begin());
        if (step.timeNs > call->endNs + afterNs || (afterNs > 0 && spent[index])) return false;
        spent[index] = true;
        ++votes[step.layer][call->pid];
        return true;
    };
    // A call accounts for the buffers counted within it, or else for one that follows it.
    std::vector<const Step*> outside;
    for (const auto& step : recording.steps) {
        if (step.kind == Step::Kind::kQueue && !vote(step, 0)) outside.push_back(&step);
    }
    for (const Step* step : outside) vote(*step, kQueueToCounterNs);

    std::vector<int> pids;
    for (size_t i = 0; i < votes.size(); ++i) {
        const auto best = std::max_element(votes[i].begin(), votes[i].end(),
                                           [](auto& a, auto& b) { return a.second < b.second; });
        const bool most = best != votes[i].end() && best->second * 2 >= recording.layers[i].frames;
        pids.push_back(most ? best->first : 0);
    }
    return pids;
}

std::vector<int64_t> QueueCalls::endsOf(const std::vector<Slice>& slices, int pid,
                                        int64_t durationNs) {
    std::vector<int64_t> times;
    for (const auto& slice : slices) {
        const bool within = slice.endNs >= 0 && slice.endNs <= durationNs;
        if (slice.pid == pid && within) times.push_back(slice.endNs);
    }
    std::sort(times.begin(), times.end());
    return times;
}

std::vector<int64_t> QueueCalls::dequeues(int pid, int64_t durationNs) const {
    return endsOf(mDequeues, pid, durationNs);
}

std::vector<int64_t> QueueCalls::returns(int pid, int64_t durationNs) const {
    return endsOf(mQueues, pid, durationNs);
}

}  // namespace corvane::replay
