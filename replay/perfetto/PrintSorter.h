// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace corvane::replay {

// What one thread wrote to the kernel's trace. The text is valid until the sink returns.
struct Print {
    int64_t timeNs;
    int tid;
    std::string_view text;
};

// Puts into time's order what comes processor by processor, as the kernel's buffers are emptied.
// Of one time, what came first goes first. Keeps a window of kMaxText and kMaxPrints; what comes
// later than the window reaches back is counted and handed on late. Used from one thread.
class PrintSorter {
  public:
    // Several seconds of the busiest phone, which empties its buffers some times a second.
    static constexpr size_t kMaxText = 16U << 20U;
    static constexpr size_t kMaxPrints = 400'000;

    using Sink = std::function<void(const Print&)>;

    explicit PrintSorter(Sink sink) : mSink(std::move(sink)) {}

    void add(const Print& print);
    // Hands on all that is left.
    void finish() { handOn(mEntries.size()); }

    size_t late() const { return mLate; }

  private:
    struct Entry {
        int64_t timeNs;
        int tid;
        uint32_t offset;  // into mText; grows, and so tells the order in which prints came
        uint32_t length;
    };

    void handOn(size_t count);

    const Sink mSink;
    std::vector<Entry> mEntries;
    std::string mText;
    int64_t mHandedOnNs = INT64_MIN;  // the time of the latest print that was handed on
    size_t mLate = 0;
};

}  // namespace corvane::replay
