// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "explore/stories/HeadroomStory.h"

#include "corvane/host/Simulation.h"
#include "perf/PerfProxy.h"

namespace corvane::explore {

using host::Simulation;

HeadroomStory::HeadroomStory() : mStart(Simulation::now() + kPeriod) {
    constexpr float kRate = static_cast<float>(kHeadroom) / kPeriod;
    EXPLORE_CHECK(mMonitor.init(), "the headroom thread does not start");
    mMonitor.setVsyncInfo(kPeriod, 60);
    mMonitor.registerLayer(kLayer, "com.example.game/Main", kRate, kRate);
    mState = mMonitor.getLayerState(kLayer);
    EXPLORE_CHECK(mState->mHeadroom == kHeadroom, "the headroom is %lld",
                  static_cast<long long>(mState->mHeadroom));
    mMonitor.setQuickTouchStatus(kLayer, true);
    mMonitor.onBufferDecrement(kLayer, 1, Simulation::now());
}

HeadroomStory::~HeadroomStory() {
    mMonitor.forceStop();
    delete android::PerfProxy::getInstance();
}

void HeadroomStory::run(const std::vector<int64_t>& queueDelays, Act act, int64_t actTime,
                        int queueThreads) {
    Simulation::restartSchedule();
    auto queueing = [&] { queue(queueDelays, mCalls); };
    auto queueingToo = [&] { queue(queueDelays, mOtherCalls); };
    auto compositing = [&] { composite(queueDelays.size()); };
    auto acting = [&] { doAct(act, actTime); };
    std::vector<std::thread> threads;
    threads.push_back(start("queue", queueing));
    if (queueThreads > 1) threads.push_back(start("queue too", queueingToo));
    threads.push_back(start("compositor", compositing));
    threads.push_back(start("act", acting));
    for (std::thread& thread : threads) thread.join();
    mMonitor.forceStop();
}

void HeadroomStory::queue(const std::vector<int64_t>& delays, std::vector<Call>& calls) {
    bool timedOut = false;
    for (size_t i = 0; i < delays.size(); ++i) {
        Simulation::sleepUntil(mStart + static_cast<int64_t>(i) * kPeriod + delays[i]);
        const int64_t begin = Simulation::now();
        mMonitor.onBufferIncrement(kLayer, kPeriod, begin, /*instant=*/false);
        calls.push_back({begin, Simulation::now(), timedOut});
        timedOut = mState->mTimedOut;
    }
}

void HeadroomStory::composite(size_t vsyncs) {
    for (size_t i = 0; i < vsyncs; ++i) {
        Simulation::sleepUntil(mStart + static_cast<int64_t>(i) * kPeriod);
        mMonitor.onVsync(Simulation::now());
        mMonitor.onBufferDecrement(kLayer, 1, Simulation::now());
    }
}

void HeadroomStory::doAct(Act act, int64_t time) {
    Simulation::sleepUntil(time);
    switch (act) {
        case Act::kNothing:
            break;
        case Act::kUnblock:
            mMonitor.unblockBuffer(kLayer);
            break;
        case Act::kUnregister:
            mMonitor.unregisterLayer(kLayer);
            break;
        case Act::kStop:
            mMonitor.forceStop();
            break;
        case Act::kRateSwitch:
            mMonitor.setVsyncInfo(kPeriod / 2, 120);
            break;
    }
    EXPLORE_CHECK(Simulation::now() == time, "the act took %lld ns",
                  static_cast<long long>(Simulation::now() - time));
}

void HeadroomStory::check(Act act, int64_t actTime) const {
    std::vector<Call> calls = mCalls;
    calls.insert(calls.end(), mOtherCalls.begin(), mOtherCalls.end());
    for (const Call& call : calls) {
        EXPLORE_CHECK(call.end - call.begin <= 2 * kPeriod, "a buffer was held for %lld ns",
                      static_cast<long long>(call.end - call.begin));
        // An unblock at the very time of the call may come before it and is for the one before.
        const bool isUnblocked = act == Act::kUnblock && call.begin < actTime;
        const bool isGone = (act == Act::kUnregister || act == Act::kStop) && call.begin <= actTime;
        EXPLORE_CHECK(!(isUnblocked || isGone) || call.end <= actTime,
                      "queued at %lld and let go at %lld, not at %lld: a wake-up was lost",
                      static_cast<long long>(call.begin - mStart),
                      static_cast<long long>(call.end - mStart),
                      static_cast<long long>(actTime - mStart));
    }
}

}  // namespace corvane::explore
