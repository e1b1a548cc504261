// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace corvane::model {

// One frame of a producer: what it takes to draw it, apart from what it waits for.
struct FrameWork {
    int64_t workNs = 0;          // from the start of drawing to handing the buffer over
    int64_t callNs = 0;          // what is left of the queue call after that
    bool startsOnVsync = false;  // else as soon as it can
    // The application's own pace: not sooner after the start of the frame before. 0: it has none.
    int64_t paceNs = 0;
    // An application that had nothing to draw: not before this time of the recording.
    int64_t notBeforeNs = 0;
    bool superseded = false;  // the compositor took it together with the next one, which it showed
};

// A producer's frames in their order, of which a part may come again and again: a recording that is
// played for hours takes no more memory than a few passes of it.
class FrameWorks {
  public:
    FrameWorks() = default;
    explicit FrameWorks(std::vector<FrameWork> works) : mWorks(std::move(works)) {}
    // After the `count` works from `first` on, they come `times` more, each time `lengthNs` later
    // than the time before; then those behind them.
    FrameWorks(std::vector<FrameWork> works, size_t first, size_t count, size_t times,
               int64_t lengthNs);

    size_t size() const { return mWorks.size() + mCount * mTimes; }
    FrameWork operator[](size_t i) const;

  private:
    std::vector<FrameWork> mWorks;
    size_t mFirst = 0;
    size_t mCount = 0;
    size_t mTimes = 0;
    int64_t mLengthNs = 0;
};

}  // namespace corvane::model
