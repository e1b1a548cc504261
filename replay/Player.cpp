// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/Player.h"

#include <pthread.h>
#include <unistd.h>
#include <utils/Timers.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include "replay/Timeline.h"

namespace corvane::replay {
namespace {

constexpr auto kProgressInterval = std::chrono::milliseconds(100);

int64_t now() {
    return systemTime(SYSTEM_TIME_MONOTONIC);
}

}  // namespace

Player::Player(const Recording& recording, Hooks& hooks, int repeat)
      : Playback(recording, hooks, repeat), mDepth(recording.layers.size()) {
    for (size_t i = 0; i < recording.processes.size(); ++i) {
        mProducers.emplace_back();
        mProducers.back().process = i;
    }
    for (size_t i = 0; i < recording.steps.size(); ++i) {
        const Step& step = recording.steps[i];
        if (step.kind != Step::Kind::kQueue) continue;
        mProducers[recording.layers[step.layer].process].steps.push_back(i);
    }
    for (auto& producer : mProducers) prepare(producer);
}

void Player::prepare(Producer& producer) {
    const size_t count = producer.steps.size();
    producer.toNext.resize(count);
    std::vector<size_t> nextOf(mRecording.layers.size());
    for (size_t i = 2 * count; i-- > 0;) {  // twice around: the last one's next is the first
        const size_t layer = mRecording.steps[producer.steps[i % count]].layer;
        if (i < count) producer.toNext[i] = nextOf[layer] - i;
        nextOf[layer] = i;
    }
    const auto& dequeues = mRecording.processes[producer.process].dequeues;
    int64_t previousNs = 0;
    for (const size_t step : producer.steps) {
        const int64_t queueNs = mRecording.steps[step].timeNs;
        const auto after = std::upper_bound(dequeues.begin(), dequeues.end(), queueNs);
        const bool known = after != dequeues.begin() && *std::prev(after) >= previousNs;
        producer.drawNs.push_back(known ? queueNs - *std::prev(after) : 0);
        previousNs = queueNs;
    }
}

PlayResult Player::play(const Progress& progress) {
    for (size_t i = 0; i < mDepth.size(); ++i) mDepth[i] = mRecording.layers[i].initialDepth;
    mBusyProducers = mProducers.size();
    begin();

    std::vector<std::thread> threads;
    try {
        for (auto& producer : mProducers) {
            threads.emplace_back([this, &producer] { runProducer(producer); });
        }
        startScripts();
        threads.emplace_back([this] { runCompositor(); });
    } catch (const std::system_error&) {
        stop();
        for (auto& thread : threads) thread.join();
        joinScripts();
        throw;
    }
    while (!mFinished) {
        progress(std::max<int64_t>(0, sinceStart(now())), playedNs());
        std::this_thread::sleep_for(kProgressInterval);
    }
    for (auto& thread : threads) thread.join();
    joinScripts();

    PlayResult result = takeResult();
    result.missedLatches = mMissedLatches;
    for (auto& producer : mProducers) {
        result.costs.merge(producer.costs);
        result.droppedFrames += producer.dropped;
        for (const PlayedFrame frame : producer.frames) result.frames.push_back(frame);
    }
    return result;
}

void Player::runCompositor() {
    enterTimelineThread("compositor");
    for (int pass = 0; pass < mRepeat && !mStopped; ++pass) {
        for (size_t i = 0; i < mDepth.size(); ++i) {
            const Layer& layer = mRecording.layers[i];
            // What happened between the end of a recording and its beginning is not recorded.
            if (pass > 0) mDepth[i] += std::max(layer.initialDepth - layer.finalDepth, -mDepth[i]);
        }
        playPass(mStartNs + pass * passNs());
    }
    if (!mStopped) drain(mStartNs + mRepeat * passNs());
    endCompositor();
    mFinished = true;
}

// The display's switches that come up to this time of the pass.
void Player::switchRates(int64_t passStartNs, int64_t untilNs) {
    const auto& changes = mRecording.rateChanges;
    for (; mNextRateChange < changes.size(); ++mNextRateChange) {
        const Rate& change = changes[mNextRateChange];
        if (change.atNs > untilNs) return;
        sleepUntil(passStartNs + change.atNs);
        setPeriod(change.periodNs);
    }
}

void Player::playPass(int64_t passStartNs) {
    mNextRateChange = 0;
    setPeriod(mRecording.vsyncPeriodNs);
    mRecordedDepth.clear();
    for (const Layer& layer : mRecording.layers) mRecordedDepth.push_back(layer.initialDepth);
    for (size_t i = 0; i < mRecording.steps.size() && !mStopped; ++i) {
        const Step& step = mRecording.steps[i];
        switchRates(passStartNs, step.timeNs);
        switch (step.kind) {
            case Step::Kind::kQueue:
                ++mRecordedDepth[step.layer];
                break;
            case Step::Kind::kVsync:
                vsync(passStartNs + step.timeNs);
                latchLate(i, passStartNs);
                break;
            case Step::Kind::kLatch:
                mRecordedDepth[step.layer] -= step.count;
                sleepUntil(passStartNs + step.timeNs, mStopped);
                if (mStopped) break;
                mMissedLatches += static_cast<size_t>(step.count - latch(step.layer, step.count));
                break;
        }
    }
}

// Gives producers that are still held the vsyncs that let them go, and their last buffers a latch.
void Player::drain(int64_t fromNs) {
    const auto isLate = [&] {
        for (size_t i = 0; i < mDepth.size(); ++i) {
            if (mDepth[i] > mRecordedDepth[i]) return true;
        }
        return false;
    };
    for (int64_t at = fromNs; !mStopped && (mBusyProducers > 0 || isLate()); at += periodNs()) {
        vsync(at);
        latchLate(mRecording.steps.size(), fromNs);
    }
}

void Player::vsync(int64_t atNs) {
    flushFences();
    sleepUntil(atNs, mStopped);
    if (mStopped) return;
    signalVsync(now() - atNs);
}

int Player::latch(size_t layer, int count) {
    const int taken = std::min(count, mDepth[layer].load());
    if (taken == 0) return 0;
    const int pending = mDepth[layer].fetch_sub(taken) - taken;
    latchBuffers(layer, taken, pending);
    return taken;
}

void Player::latchLate(size_t stepOfVsync, int64_t passStartNs) {
    for (size_t layer = 0; layer < mDepth.size(); ++layer) {
        // In this order: no buffer of the future is in a depth that was read before the time.
        const int depth = mDepth[layer];
        if (depth > mRecordedDepth[layer] &&
            isLatchMissing(stepOfVsync, layer, depth, now() - passStartNs)) {
            latch(layer, 1);
        }
    }
}

// Whether more of the layer's buffers are queued than were recorded by now, and none is latched
// before the next vsync.
bool Player::isLatchMissing(size_t stepOfVsync, size_t layer, int depth, int64_t nowNs) const {
    int recorded = mRecordedDepth[layer];
    for (size_t i = stepOfVsync + 1; i < mRecording.steps.size(); ++i) {
        const Step& step = mRecording.steps[i];
        if (step.kind == Step::Kind::kVsync && step.timeNs > nowNs) break;
        if (step.kind == Step::Kind::kVsync || step.layer != layer) continue;
        if (step.kind == Step::Kind::kLatch) return false;
        if (step.timeNs <= nowNs) ++recorded;
    }
    return depth > recorded;
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
        const size_t next = i + producer.toNext[i % count];
        if (next < total && freeNs > dueAt(i) && freeNs >= dueAt(next)) {
            ++producer.dropped;
            continue;
        }
        const int64_t startNs = std::max(dueAt(i), freeNs + producer.drawNs[i % count]);
        sleepUntil(startNs, mStopped);
        if (mStopped) break;
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

}  // namespace corvane::replay
