// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <algorithm>

#include "explore/stories/HeadroomStory.h"
#include "explore/stories/Stories.h"

namespace corvane::explore {

// Three buffers are pending, so the headroom point is not all: the buffer is held on. What lets it
// go comes before it is queued, while it waits for the headroom point, at the same instant as the
// decision to hold it on, or after that.
void additionalDelay() {
    using Act = HeadroomStory::Act;
    constexpr int64_t kPeriod = HeadroomStory::kPeriod;
    constexpr int64_t kToPoint = HeadroomStory::kToHeadroomPoint;
    HeadroomStory story;
    const std::vector<int64_t> delays = {drawOne<int64_t>({0, kMs, kToPoint}),
                                         drawOne<int64_t>({kMs, kToPoint})};
    const Act act = drawOne({Act::kUnblock, Act::kUnblock, Act::kUnblock, Act::kUnregister,
                             Act::kStop, Act::kRateSwitch});
    const int64_t actTime =
            story.startTime() + drawOne<int64_t>({0, 5 * kMs, kToPoint, kToPoint, kToPoint,
                                                  kToPoint, kToPoint + kMs, kToPoint + kPeriod});
    constexpr int32_t kPending = 2;
    story.state().mPendingCount = kPending;
    story.state().mLastJankTime = story.startTime() - 10'000 * kMs;
    story.run(delays, act, actTime);

    story.check(act, actTime);
    // An unblock that finds nothing held is kept: the next buffer is not held on.
    const HeadroomStory::Call& call = story.calls().front();
    const int64_t point = std::max(call.begin, story.startTime() + kToPoint);
    EXPLORE_CHECK(act != Act::kUnblock || actTime >= call.begin || call.end <= point,
                  "unblocked at %lld, queued at %lld and let go at %lld, not at %lld",
                  static_cast<long long>(actTime - story.startTime()),
                  static_cast<long long>(call.begin - story.startTime()),
                  static_cast<long long>(call.end - story.startTime()),
                  static_cast<long long>(point - story.startTime()));
}

}  // namespace corvane::explore
