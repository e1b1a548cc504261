// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "explore/stories/Stories.h"

namespace corvane::explore {

const std::vector<Story>& stories() {
    static const std::vector<Story> sStories = {
            {"held-buffer",
             "a queue thread held back, vsyncs and latches; unblock, unregister or stop meanwhile",
             heldBuffer},
            {"additional-delay",
             "what comes between the decision on an additional delay and its wait",
             additionalDelay},
            {"rate-switches",
             "a switch of the display's rate, frames, new headroom rates and a new layer at once",
             rateSwitches},
            {"heavy-frames", "a frame far too long, just as the display's rate switches",
             heavyFrames},
            {"frame-rescue",
             "two queue threads, the lateness checks and changes of the configuration",
             frameRescue},
            {"timer-queue", "posts, cancels, removals, wakes and the end of a timer queue",
             timerQueue},
            {"boost-worker", "the first use from several threads, posts, and the worker's end",
             boostWorker},
            {"hooks", "init, first buffers, a property that flips, a callback, stop and init again",
             hooks, /*watchers=*/1},
            {"switching",
             "a layer under headroom control and rescue, stopped, retired or configured anew",
             switching, /*watchers=*/1},
            {"activity-switches",
             "activities switch and are stable again while a buffer is held and a touch comes",
             activitySwitches, /*watchers=*/1},
            {"application-inits",
             "several inits of an application that draws, and switches that flip", applicationInits,
             /*watchers=*/6},
            {"scenes", "scene checks while layers come and go", scenes,
             /*watchers=*/0, /*callCostNs=*/1},
    };
    return sStories;
}

}  // namespace corvane::explore
