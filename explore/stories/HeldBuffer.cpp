// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "explore/stories/HeadroomStory.h"
#include "explore/stories/Stories.h"

namespace corvane::explore {

// Each buffer goes at the headroom point of its vsync: not at the end of its own, longer wait.
void heldBuffer() {
    using Act = HeadroomStory::Act;
    constexpr int64_t kPeriod = HeadroomStory::kPeriod;
    constexpr int64_t kToPoint = HeadroomStory::kToHeadroomPoint;
    HeadroomStory story;
    std::vector<int64_t> delays;
    for (int i = 0; i < 3; ++i)
        delays.push_back(drawOne<int64_t>({0, kMs, kToPoint - 1, kToPoint}));
    const Act act = drawOne({Act::kNothing, Act::kUnblock, Act::kUnregister, Act::kStop});
    const int64_t vsync = story.startTime() + static_cast<int64_t>(draw(2)) * kPeriod;
    const int64_t actTime = vsync + drawOne<int64_t>({0, kMs, 5 * kMs, kToPoint});
    // A jank just now: no additional delay.
    story.state().mLastJankTime = story.startTime();
    const int queueThreads = drawOne({1, 1, 2});
    story.run(delays, act, actTime, queueThreads);

    story.check(act, actTime);
    if (queueThreads > 1) return;  // a vsync releases what waits then, not the second buffer
    int64_t lastEnd = 0;
    for (const HeadroomStory::Call& call : story.calls()) {
        const int64_t lastVsync =
                call.begin - (call.begin - story.startTime()) % HeadroomStory::kPeriod;
        const int64_t point = lastVsync + kToPoint;
        // Each vsync has one release, and that is void after a wait that ended by itself.
        const bool isFirst = lastEnd <= lastVsync;
        const bool isReleased = isFirst && !(call.dropsRelease && call.begin == point);
        lastEnd = call.end;
        EXPLORE_CHECK(!isReleased || call.end <= point,
                      "queued at %lld and let go at %lld, not at the headroom point %lld",
                      static_cast<long long>(call.begin - story.startTime()),
                      static_cast<long long>(call.end - story.startTime()),
                      static_cast<long long>(point - story.startTime()));
    }
}

}  // namespace corvane::explore
