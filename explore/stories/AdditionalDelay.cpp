// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "explore/stories/HeadroomStory.h"
#include "explore/stories/Stories.h"

namespace corvane::explore {

// Three buffers are pending, so the headroom point is not all: the buffer is held on. What lets it
// go meanwhile is due at the same instant as that decision, or soon after it.
void additionalDelay() {
    using Act = HeadroomStory::Act;
    constexpr int64_t kPeriod = HeadroomStory::kPeriod;
    constexpr int64_t kToPoint = HeadroomStory::kToHeadroomPoint;
    HeadroomStory story;
    const std::vector<int64_t> delays = {drawOne<int64_t>({0, kMs, kToPoint}),
                                         drawOne<int64_t>({kMs, kToPoint})};
    const Act act = drawOne({Act::kUnblock, Act::kUnregister, Act::kStop, Act::kRateSwitch});
    const int64_t actTime = story.startTime() + kToPoint + drawOne<int64_t>({0, 0, kMs, kPeriod});
    constexpr int32_t kPending = 2;
    story.state().mPendingCount = kPending;
    story.state().mLastJankTime = story.startTime() - 10'000 * kMs;
    story.run(delays, act, actTime);

    story.check(act, actTime);
}

}  // namespace corvane::explore
