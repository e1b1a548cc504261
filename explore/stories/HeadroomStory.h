// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <vector>

#include "explore/Story.h"
#include "phr/PHRMonitor.h"

namespace corvane::explore {

// One layer under headroom control: a queue thread, the compositor's vsyncs and latches, and one
// more thread that does something to the layer at a drawn time.
class HeadroomStory {
  public:
    static constexpr int64_t kPeriod = 16 * kMs;
    static constexpr int64_t kHeadroom = 4 * kMs;
    static constexpr int64_t kToHeadroomPoint = kPeriod - kHeadroom;
    static constexpr int kLayer = 7;

    enum class Act { kNothing, kUnblock, kUnregister, kStop, kRateSwitch };

    struct Call {
        int64_t begin;
        int64_t end;
        bool dropsRelease;  // the wait before it timed out: the next release without a waiter is
                            // void
    };

    HeadroomStory();
    ~HeadroomStory();
    HeadroomStory(const HeadroomStory&) = delete;
    HeadroomStory& operator=(const HeadroomStory&) = delete;

    // `queueDelays`: after each vsync, when the buffer of that period is queued; by two threads at
    // once, when there are to be `queueThreads`.
    void run(const std::vector<int64_t>& queueDelays, Act act, int64_t actTime,
             int queueThreads = 1);

    // What holds whatever the layer was told to do.
    void check(Act act, int64_t actTime) const;

    int64_t startTime() const { return mStart; }
    android::LayerPHRState& state() { return *mState; }
    const std::vector<Call>& calls() const { return mCalls; }  // of the first queue thread

  private:
    void queue(const std::vector<int64_t>& delays, std::vector<Call>& calls);
    void composite(size_t vsyncs);
    void doAct(Act act, int64_t time);

    const int64_t mStart;
    android::PHRMonitor mMonitor;
    android::sp<android::LayerPHRState> mState;
    std::vector<Call> mCalls;
    std::vector<Call> mOtherCalls;
};

}  // namespace corvane::explore
