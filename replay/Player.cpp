// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/Player.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <string>
#include <thread>
#include <utility>

#include <pthread.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <time.h>

#include <utils/Timers.h>

namespace corvane::replay {
namespace {

constexpr int64_t kNsPerSecond = 1'000'000'000;
// All threads are ready and asleep before the first step is due.
constexpr int64_t kLeadNs = 50'000'000;
constexpr auto kProgressInterval = std::chrono::milliseconds(100);

// Above the library's own threads, which run at 1: the compositor's clock must not wait for them.
constexpr int kFifoPriority = 2;
constexpr int kNice = -10;  // where real time is not allowed

int64_t now() {
    return systemTime(SYSTEM_TIME_MONOTONIC);
}

void sleepUntil(int64_t deadlineNs) {
    const timespec deadline{deadlineNs / kNsPerSecond, deadlineNs % kNsPerSecond};
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &deadline, nullptr) == EINTR) {
    }
}

// Names the calling thread and lets it keep the timeline as exactly as the system allows.
void enterTimelineThread(const std::string& name) {
    pthread_setname_np(pthread_self(), name.c_str());
    prctl(PR_SET_TIMERSLACK, 1UL);  // ns; the default of 50 us adds to every sleep
    sched_param param{};
    param.sched_priority = kFifoPriority;
    if (sched_setscheduler(0, SCHED_FIFO, &param) != 0) setpriority(PRIO_PROCESS, 0, kNice);
}

}  // namespace

Player::Player(const Recording& recording, Hooks& hooks, int repeat)
      : mRecording(recording), mHooks(hooks), mRepeat(repeat), mDepth(recording.layers.size()) {
    for (size_t i = 0; i < recording.processes.size(); ++i) {
        mProducers.emplace_back();
        mProducers.back().process = i;
    }
    for (size_t i = 0; i < recording.steps.size(); ++i) {
        const Step& step = recording.steps[i];
        if (step.kind != Step::Kind::kQueue) continue;
        mProducers[recording.layers[step.layer].process].steps.push_back(i);
    }
    // A trace does not tell the focus: it is taken to be where most frames come from.
    mFocusedProcess = static_cast<size_t>(
            std::max_element(mProducers.begin(), mProducers.end(),
                             [](auto& a, auto& b) { return a.steps.size() < b.steps.size(); }) -
            mProducers.begin());
}

PlayResult Player::play(const std::function<void(int64_t, int64_t)>& progress) {
    mCompositorCosts.measure(Hook::kSetVsyncPeriod,
                             [&] { mHooks.setVsyncPeriod(mRecording.vsyncPeriodNs); });
    for (size_t i = 0; i < mDepth.size(); ++i) mDepth[i] = mRecording.layers[i].initialDepth;
    mBusyProducers = mProducers.size();
    mStartNs = now() + kLeadNs;

    std::vector<std::thread> threads;
    threads.emplace_back([this] { runCompositor(); });
    for (auto& producer : mProducers) {
        threads.emplace_back([this, &producer] { runProducer(producer); });
    }
    if (!mActions.empty()) threads.emplace_back([this] { runActions(); });
    while (!mFinished) {
        progress(std::max<int64_t>(0, sinceStart(now())), passNs() * mRepeat);
        std::this_thread::sleep_for(kProgressInterval);
    }
    for (auto& thread : threads) thread.join();

    PlayResult result;
    result.startNs = mStartNs;
    result.durationNs = sinceStart(mEndNs);
    result.missedLatches = mMissedLatches;
    result.lateness = spreadOf(std::move(mVsyncLateness));
    result.costs.merge(mCompositorCosts);
    result.costs.merge(mActionCosts);
    for (auto& producer : mProducers) {
        result.costs.merge(producer.costs);
        result.droppedFrames += producer.dropped;
        result.frames.insert(result.frames.end(), producer.frames.begin(), producer.frames.end());
    }
    std::stable_sort(result.frames.begin(), result.frames.end(),
                     [](const auto& a, const auto& b) { return a.callNs < b.callNs; });
    return result;
}

void Player::runCompositor() {
    enterTimelineThread("compositor");
    for (int pass = 0; pass < mRepeat; ++pass) {
        for (size_t i = 0; i < mDepth.size(); ++i) {
            const Layer& layer = mRecording.layers[i];
            // What happened between the end of a recording and its beginning is not recorded.
            if (pass > 0) mDepth[i] += std::max(layer.initialDepth - layer.finalDepth, -mDepth[i]);
        }
        playPass(mStartNs + pass * passNs());
    }
    drain(mStartNs + mRepeat * passNs());
    mEndNs = now();
    mFinished = true;
}

void Player::playPass(int64_t passStartNs) {
    mRecordedDepth.clear();
    for (const Layer& layer : mRecording.layers) mRecordedDepth.push_back(layer.initialDepth);
    for (size_t i = 0; i < mRecording.steps.size(); ++i) {
        const Step& step = mRecording.steps[i];
        switch (step.kind) {
            case Step::Kind::kQueue:
                ++mRecordedDepth[step.layer];
                break;
            case Step::Kind::kVsync:
                vsync(passStartNs + step.timeNs);
                latchLate(i);
                break;
            case Step::Kind::kLatch:
                mRecordedDepth[step.layer] -= step.count;
                sleepUntil(passStartNs + step.timeNs);
                mMissedLatches += static_cast<size_t>(step.count - latch(step.layer, step.count));
                break;
        }
    }
}

// Gives producers that are still held the vsyncs that let them go.
void Player::drain(int64_t fromNs) {
    for (int64_t at = fromNs; mBusyProducers > 0; at += mRecording.vsyncPeriodNs) vsync(at);
}

void Player::vsync(int64_t atNs) {
    sleepUntil(atNs);
    mVsyncLateness.push_back(now() - atNs);
    mCompositorCosts.measure(Hook::kTrackVsyncSignal, [&] { mHooks.trackVsyncSignal(); });
}

int Player::latch(size_t layer, int count) {
    const int taken = std::min(count, mDepth[layer].load());
    if (taken == 0) return 0;
    const int pending = mDepth[layer].fetch_sub(taken) - taken;
    const Layer& latched = mRecording.layers[layer];
    mCompositorCosts.measure(Hook::kTrackBufferDecrement, [&] {
        mHooks.trackBufferDecrement(latched, pending, latched.process == mFocusedProcess);
    });
    return taken;
}

void Player::latchLate(size_t stepOfVsync) {
    for (size_t layer = 0; layer < mDepth.size(); ++layer) {
        if (mDepth[layer] > mRecordedDepth[layer] &&
            !isLatchedBeforeNextVsync(stepOfVsync, layer)) {
            latch(layer, 1);
        }
    }
}

bool Player::isLatchedBeforeNextVsync(size_t stepOfVsync, size_t layer) const {
    for (size_t i = stepOfVsync + 1; i < mRecording.steps.size(); ++i) {
        const Step& step = mRecording.steps[i];
        if (step.kind == Step::Kind::kVsync) return false;
        if (step.kind == Step::Kind::kLatch && step.layer == layer) return true;
    }
    return false;
}

void Player::runProducer(Producer& producer) {
    const Process& process = mRecording.processes[producer.process];
    enterTimelineThread("app-" + std::to_string(process.pid));
    const size_t count = producer.steps.size();
    const auto stepAt = [&](size_t i) -> const Step& {
        return mRecording.steps[producer.steps[i % count]];
    };
    const auto dueAt = [&](size_t i) {
        return mStartNs + static_cast<int64_t>(i / count) * passNs() + stepAt(i).timeNs;
    };
    const size_t total = count * static_cast<size_t>(mRepeat);
    int64_t freeNs = 0;  // when the library let the producer go, apart from the machine's delays
    for (size_t i = 0; i < total; ++i) {
        const Step& step = stepAt(i);
        const bool nextIsDue = i + 1 < total && stepAt(i + 1).layer == step.layer &&
                freeNs >= dueAt(i + 1);
        if (nextIsDue && freeNs > dueAt(i)) {
            ++producer.dropped;
            continue;
        }
        const int64_t startNs = std::max(dueAt(i), freeNs);
        sleepUntil(startNs);
        const Layer& layer = mRecording.layers[step.layer];
        const int64_t callNs = now();
        const int64_t cost = producer.costs.measure(Hook::kTrackBufferIncrement, [&] {
            mHooks.trackBufferIncrement(layer, process);
        });
        freeNs = startNs + cost;
        ++mDepth[step.layer];
        producer.frames.push_back({step.layer, sinceStart(callNs), sinceStart(callNs) + cost});
    }
    --mBusyProducers;
}

void Player::runActions() {
    pthread_setname_np(pthread_self(), "scenario");
    std::stable_sort(mActions.begin(), mActions.end(),
                     [](const auto& a, const auto& b) { return a.atNs < b.atNs; });
    const int64_t endNs = mStartNs + mRepeat * passNs();
    for (const auto& action : mActions) {
        const int64_t at = mStartNs + action.atNs;
        if (at > endNs) break;  // never reached within the time that is played
        sleepUntil(at);
        action.run(mActionCosts);
    }
}

}  // namespace corvane::replay
