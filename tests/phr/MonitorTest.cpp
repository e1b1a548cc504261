// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Headroom control and pacing with their threads, against a plain account of what each call, vsync
// and wake-up is to do; and what that leaves out: orders within one call, faults, and numbers that
// nothing sensible brings about. Periods and rates of the model are such that single precision
// holds every product.

#include <android-base/properties.h>
#include <android/log.h>

#include <algorithm>
#include <cmath>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "FramePathScheduling.h"
#include "RandomSteps.h"
#include "TracedEvents.h"
#include "corvane/host/LogCapture.h"
#include "corvane/host/PerfService.h"
#include "corvane/host/Simulation.h"
#include "corvane/host/Threads.h"
#include "features/FeatureManager.h"
#include "perf/PerfProxy.h"
#include "phr/Headroom.h"
#include "phr/PHRMonitor.h"

namespace android {
namespace {

using corvane::host::Simulation;

constexpr nsecs_t kMs = 1'000'000;
constexpr nsecs_t kPeriod = 16 * kMs;
constexpr nsecs_t kStart = 1'000'000 * kMs;
constexpr nsecs_t kNever = INT64_MAX;

struct Config {
    bool isAdaptive, compensates;
    int rampFrames;
};

struct Layer {
    int id;
    std::string name;
    int rates[2];  // in eighths of a period, at up to 60 Hz and above
    nsecs_t preset = -1, max = -1, headroom = -1;
    int hold = 0, climb = 0;
    std::deque<int> weights{};
    bool quick = false, instant = false, released = false, timedOut = false, unblocked = false;
    bool hasPending = false;
    int pending = 0, sinceVsync = 0, dropWait = -1, busy = 0;
    nsecs_t lastQueue = -1, lastJank = -1, lastLatch = 0, lastPace = -1;
    std::deque<nsecs_t> janks{};
    bool paced = false, ramp = false, gone = false;
    float target = 0, rampFps = 0, rampStep = 0;
    nsecs_t count = 0, interval = -1, base = -1, due = -1;
    int calls = 0;  // that have not returned
};
using LayerPtr = std::shared_ptr<Layer>;

// Its operations have the monitor's names, so that a step can take both.
class Model : public ModelLines {
  public:
    explicit Model(const Config& config) : mConfig(config) {}

    LayerPtr find(int id) const { return layers.count(id) == 0 ? nullptr : layers.at(id); }

    void registerLayer(int id, const std::string& name, float low, float high) {
        layers[id] = std::make_shared<Layer>(Layer{id, name, {}});
        updateHeadRoom(id, low, high);
    }

    void unregisterLayer(int id) {
        if (focus == id) focus = -1;
        const LayerPtr layer = find(id);
        if (!layer) return;
        detach(layer);
        layers.erase(id);
        log("Layer %d destroyed", id);
    }

    void setVsyncInfo(nsecs_t newPeriod, int newFps) {
        if (newPeriod == period) return;
        period = newPeriod;
        fps = newFps;
        for (const auto& [id, layer] : layers) updateHeadRoom(id, -1, -1);
    }

    void updateHeadRoom(int id, float low, float high) {
        const LayerPtr layer = find(id);
        if (!layer) return;
        if (low >= 0) layer->rates[0] = static_cast<int>(low * 8);
        if (high >= 0) layer->rates[1] = static_cast<int>(high * 8);
        if (period < 1 || rate(*layer) == 0) return;
        nsecs_t headroom = rate(*layer) * period / 8;
        const nsecs_t past = headroom % period;
        if (past < 1'500'000) {
            headroom += 1'500'000 - past;
        } else if (period - past < 1'500'000) {
            headroom += period - past - 1'500'000;
        }
        layer->preset = layer->headroom = headroom;
        layer->max = std::max(headroom, period * (isFast() ? 18 : 9) / 10);
        log("Layer %d set headroom: %ld", id, headroom);
    }

    void setQuickTouchStatus(int id, bool on) {
        const LayerPtr layer = find(id);
        if ((focus != -1 && focus != id) || !layer || layer->quick == on) return;
        layer->quick = on;
        focus = on ? id : -1;
        if (on && mConfig.isAdaptive) reset(*layer);
        const char* what = on ? "enable PHR" : "disable PHR";
        trace("B|%s", what);
        log("Layer %d: %s", id, what);
    }

    void unblockBuffer(int id) {
        const LayerPtr layer = find(id);
        if (!layer) return;
        layer->unblocked = true;
        if (!layer->hasPending) layer->dropWait = 1;
        if (wake(layer)) trace("B|unblockBuffer");
    }

    void setTargetFpsStatus(int id, bool on, float current, float target) {
        const LayerPtr layer = find(id);
        if (!layer || (layer->paced == on && layer->target == target)) return;
        if (!on) {
            trace("B|disable target fps");
            log("Layer %d: disable target fps", id);
        } else {
            layer->interval = static_cast<nsecs_t>(1e9f / target);
            layer->rampFps = current;
            layer->ramp |= mConfig.rampFrames >= 1;
            layer->due = std::max(layer->lastQueue, layer->lastPace);
            layer->rampStep = (current - target) / static_cast<float>(mConfig.rampFrames);
            trace("B|enable target fps: %f", static_cast<double>(target));
            log("Layer %d: enable target fps: %f", id, static_cast<double>(target));
        }
        layer->target = target;
        layer->base = -1;
        layer->count = 0;
        layer->paced = on;
    }

    void onVsync(nsecs_t) {
        const LayerPtr layer = find(focus);
        if (!layer) return;
        layer->sinceVsync = 0;
        trace("B|onVsync");
        mSignalled = now;
        serve();
    }

    void onBufferDecrement(int id, int pendingCount, nsecs_t time) {
        const LayerPtr layer = find(id);
        if ((focus != -1 && focus != id) || !layer || layer->paced || period < 1) return;
        layer->busy = pendingCount < 1 ? 0 : layer->busy + 1;
        if (!layer->quick && layer->busy >= 31 && rate(*layer) != 0) setQuickTouchStatus(id, true);
        if (layer->quick) {
            layer->pending = pendingCount;
            layer->hasPending = pendingCount > 0;
            if (fps == 60 && layer->dropWait >= 1) {
                const bool isOver = pendingCount < 1 || layer->dropWait > 29;
                layer->dropWait = isOver ? -1 : layer->dropWait + 1;
            }
        }
        const nsecs_t gap = time - layer->lastLatch;
        layer->lastLatch = time;
        if (2 * gap < 3 * period) return;
        layer->lastJank = time;
        auto& janks = layer->janks;
        if (janks.size() > 4 && time - janks.front() <= 14'999'999'999) {
            janks.clear();
            setQuickTouchStatus(id, false);
            return log("Disable QuickTouch due to jank");
        }
        if (janks.size() > 4) janks.pop_front();
        janks.push_back(time);
    }

    void onBufferIncrement(int id, nsecs_t frameTime, nsecs_t time, bool instant) {
        const LayerPtr layer = find(id);
        if (!layer) return;
        ++layer->calls;
        if (layer->quick && period >= 1) {
            mConfig.isAdaptive ? adapt(*layer, frameTime) : adjust(*layer, frameTime);
        }
        track('F', "CPU frame time", *layer);
        track('S', "CPU headroom", *layer);
        layer->lastQueue = time;
        if (layer->paced) return pace(layer);
        if (!layer->quick || period < 1 || !isRunning) return leave(layer);
        const nsecs_t headroom = layer->headroom;
        const nsecs_t latch = layer->lastLatch;
        const nsecs_t current = latch - time + period * (layer->pending + 1);
        trace("B|trackQueueBuffer");
        trace("B|bufferCount:%d, curHeadroom: %ld, mHeadroom: %ld", layer->pending, current,
              headroom);
        const bool passes = instant || layer->instant || current < headroom;
        layer->instant = instant;
        if (passes) {
            trace("B|not pending for instant buffer or not reach target headroom");
            return complete(layer);
        }
        if (layer->released) {
            trace("B|timer expired");
            return delay(layer, headroom, latch);
        }
        wait(layer, std::min(current - headroom, period), [=](bool isOver) {
            layer->timedOut |= isOver;
            trace("B|delay finish");
            delay(layer, headroom, latch);
        });
    }

    void forceStop() {
        if (!isRunning) return;
        isRunning = false;
        mServed = nullptr;
        if (const LayerPtr layer = find(focus)) detach(layer);
        log("PHRMonitor thread exited");
        runWoken();
        for (const auto& [id, layer] : layers) detach(layer);
        layers.clear();
        focus = -1;
        log("PHRMonitor stopped");
    }

    void init() {
        if (!isRunning) mSignalled = -1;
        isRunning = true;
    }

    nsecs_t nextWakeup() const {
        nsecs_t when = mServed ? mServedUntil : kNever;
        for (const Waiter& waiter : mWaiters) when = std::min(when, waiter.until);
        return when;
    }

    void runUntil(nsecs_t time) {
        runWoken();
        while (nextWakeup() <= time) {
            now = nextWakeup();
            if (mServed && mServedUntil == now) {
                release();
            } else {
                const auto at = std::find_if(mWaiters.begin(), mWaiters.end(),
                                             [this](const Waiter& w) { return w.until == now; });
                const Then then = at->then;
                mWaiters.erase(at);
                then(true);
            }
            runWoken();
        }
        now = time;
    }

    nsecs_t waiting(const LayerPtr& layer) const {
        return std::count_if(mWaiters.begin(), mWaiters.end(),
                             [&](const Waiter& waiter) { return waiter.layer == layer; });
    }

    nsecs_t now = kStart, period = -1;
    int fps = 60, focus = -1;
    bool isRunning = false;
    std::map<int, LayerPtr> layers;

  private:
    // A queueing thread that waits, and what it does then.
    using Then = std::function<void(bool isTimeOver)>;
    struct Waiter {
        LayerPtr layer;  // null: it sleeps, and nothing wakes it
        nsecs_t until;
        Then then;
    };

    bool isFast() const { return fps > 60; }
    int rate(const Layer& layer) const { return layer.rates[isFast()]; }

    void track(char type, const char* what, const Layer& layer) {
        trace("%c|%s - %s|%d", type, what, layer.name.c_str(), layer.id);
    }

    void reset(Layer& layer) {
        layer.hold = layer.climb = 0;
        layer.weights.clear();
        layer.headroom = layer.preset;
        log("reset adaptive PHR state for layer %d, headroom=%ld", layer.id, layer.headroom);
        trace("B|%s", logs.back().c_str());
    }

    void step(Layer& layer, bool down, nsecs_t by) {
        if (layer.headroom == (down ? layer.preset : layer.max)) return;
        nsecs_t next = down ? layer.headroom - by : layer.headroom + by;
        const nsecs_t clear = period / 10;
        const bool isInside = down ? next > layer.preset : next < layer.max;
        for (const nsecs_t vsync : {next / period * period, next / period * period + period}) {
            if (!isInside || std::abs(next - vsync) >= clear) continue;
            next = down ? vsync - clear : vsync + clear;
        }
        layer.headroom = std::clamp(next, layer.preset, layer.max);
        trace("B|updatePresetHeadroom = %ld", layer.headroom);
    }

    void adjust(Layer& layer, nsecs_t frameTime) {
        if (frameTime > period + 2 * kMs) step(layer, false, kMs);
        if (frameTime < period - 2 * kMs) step(layer, true, kMs);
    }

    void adapt(Layer& layer, nsecs_t frameTime) {
        const nsecs_t tenths = 10 * frameTime;
        layer.weights.push_back((tenths >= 8 * period) + (tenths >= 12 * period) +
                                (tenths >= 15 * period));
        if (layer.weights.size() < 15) return;
        if (layer.weights.size() > 15) layer.weights.pop_front();
        int sum = 0;
        for (int weight : layer.weights) sum += weight;
        const bool hasHeavy = *std::max_element(layer.weights.begin(), layer.weights.end()) >= 2;
        if (sum >= 3 && hasHeavy) {
            layer.climb = 1;
            if (isFast() && sum >= 30) {
                layer.hold = 50;
                layer.max = std::max(layer.preset, period * 18 / 10);
            } else if (isFast() && layer.hold-- <= 0) {
                layer.max = std::max(layer.preset, period * 13 / 10);
            }
        }
        step(layer, layer.climb == 0, layer.climb == 0 ? kMs / 10 : 2 * kMs);
        if (layer.climb > 0) ++layer.climb;
        trace("B|checkAndUpdatePHR: weightRatio: %.3f, mFrameWeightWindowSum:%d, "
              "heavyHeadroomFrameCount: %d, mHeadroom: %ld",
              static_cast<double>(frameTime) / static_cast<double>(period), sum, layer.climb,
              layer.headroom);
        if (layer.climb <= 50) return;
        layer.climb = 0;
        if (sum == 15 && !hasHeavy) reset(layer);
    }

    void pace(const LayerPtr& layer) {
        const auto goOn = [=](bool) {
            layer->lastPace = now;
            leave(layer);
        };
        if (layer->ramp) {
            layer->rampFps -= layer->rampStep;
            layer->due += static_cast<nsecs_t>(1e9f / layer->rampFps);
            if (std::abs(layer->rampFps - layer->target) < std::abs(layer->rampStep)) {
                layer->base = layer->due;
                layer->ramp = false;
                trace("B|Target fps smooth switch finished.");
            }
        } else {
            const nsecs_t gap = layer->lastQueue - layer->lastPace;
            if (layer->base < 0 || (!mConfig.compensates && gap > layer->interval + kMs)) {
                layer->base = now;
                layer->count = 0;
                trace("B|Switched to target fps now.");
                return goOn(false);
            }
            layer->due = layer->base + ++layer->count * layer->interval;
        }
        const nsecs_t sleep = layer->due - layer->lastQueue;
        if (sleep < 1) return goOn(false);
        trace("B|Pending for target fps");
        const nsecs_t low = sleep % (nsecs_t{1} << 32);
        if (low >= 1'000'000'000) return goOn(false);
        wait(nullptr, low, goOn);
    }

    // The additional delay after the first wait.
    void delay(const LayerPtr& layer, nsecs_t headroom, nsecs_t latch) {
        const nsecs_t extra = latch - (now + headroom) + period * (layer->pending + 1);
        if (std::exchange(layer->unblocked, false) || period < 1) {
            // It may go.
        } else if (layer->lastQueue - layer->lastJank <= 999'999'999) {
            trace("B|No additional delay due to recent jank.");
        } else if (layer->dropWait >= 1 && fps == 60) {
            trace("B|No additional delay due to wait for buffer drop");
        } else if (extra > 0 && layer->pending >= 1) {
            trace("B|additional delay");
            log("additional delay");
            return wait(layer, std::min(period, extra), [=](bool) { complete(layer); });
        }
        complete(layer);
    }

    void complete(const LayerPtr& layer) {
        layer->released = false;
        ++layer->pending;
        ++layer->sinceVsync;
        leave(layer);
    }

    void leave(const LayerPtr& layer) {
        track('F', "CPU headroom", *layer);
        track('S', "CPU frame time", *layer);
        --layer->calls;
    }

    void wait(const LayerPtr& layer, nsecs_t ns, const Then& then) {
        const bool isGone = layer && layer->gone;
        if (isGone || ns == 0) return then(!isGone);
        mWaiters.push_back({layer, now + ns, then});
    }

    // Woken threads go on once the one that woke them waits.
    bool wake(const LayerPtr& layer) {
        const size_t before = mWoken.size();
        for (const Waiter& waiter : mWaiters) {
            if (waiter.layer == layer) mWoken.push_back(waiter.then);
        }
        mWaiters.remove_if([&](const Waiter& waiter) { return waiter.layer == layer; });
        return mWoken.size() > before;
    }

    void runWoken() {
        for (; !mWoken.empty(); mWoken.pop_front()) mWoken.front()(false);
    }

    void detach(const LayerPtr& layer) {
        layer->gone = true;
        wake(layer);
    }

    // The headroom thread, when it waits for a vsync and there is one.
    void serve() {
        while (isRunning && !mServed && mSignalled >= 0) {
            const nsecs_t from = std::exchange(mSignalled, -1);
            trace("B|wait for preset headroom");
            const LayerPtr layer = find(focus);
            if (!layer || period < 1) continue;
            mServed = layer;
            mServedUntil = from + period - layer->headroom % period;
            if (mServedUntil <= now) release();
        }
    }

    void release() {
        const LayerPtr layer = std::exchange(mServed, nullptr);
        if (layer->sinceVsync == 0) {
            layer->released |= !std::exchange(layer->timedOut, false);
            wake(layer);
        }
        serve();
    }

    const Config mConfig;
    LayerPtr mServed;  // whose vsync the headroom thread serves
    nsecs_t mServedUntil = 0;
    nsecs_t mSignalled = -1;
    std::list<Waiter> mWaiters;
    std::list<Then> mWoken;
};

// The model, and the monitor with the threads that queue.
struct Both {
    template <typename Call>
    void operator()(const Call& call) {
        call(model);
        call(monitor);
    }

    Model model;
    PHRMonitor monitor;
    std::list<std::thread> threads{};
};

void compare(RandomSteps& steps, const Layer& l, nsecs_t waiting, LayerPHRState& s) {
    Mutex::Autolock fields(s.mFieldsLock);
    Mutex::Autolock lock(s.mLock);
    const auto all = [](const auto&... n) { return std::vector{static_cast<nsecs_t>(n)...}; };
    steps.expectEq(all(l.headroom, l.max, l.pending, l.sinceVsync, l.quick, l.instant, l.released,
                       l.timedOut, l.unblocked, l.hasPending, l.dropWait, l.busy, l.lastJank,
                       l.lastPace, l.paced, waiting),
                   all(s.mHeadroom, s.mMaxHeadroom, s.mPendingCount, s.mQueuedSinceVsync,
                       s.mQuickTouchActive, s.mInstant, s.mReleased, s.mTimedOut, s.mUnblocked,
                       s.mHasPending, s.mDropWaitCount, s.mBusyLatchCount, s.mLastJankTime,
                       s.mLastPaceTime, s.mTargetFpsActive, s.mWaiting),
                   "the fields that compare() lists");
}

nsecs_t someFrameTime(RandomSteps& steps, nsecs_t period) {
    if (steps.oneIn(4)) return period + (steps.oneIn(2) ? 2 : -2) * kMs + steps.below(3) - 1;
    return period * steps.pick(std::vector{50, 80, 100, 120, 150, 200}) / 100 + 4 * steps.below(3) -
           4;
}

// Latches on time up to now, or one that is not.
void latch(RandomSteps& steps, Both& both, int id) {
    const Model& model = both.model;
    const LayerPtr layer = model.find(id);
    const int pending = static_cast<int>(steps.below(steps.oneIn(8) ? 1 : 4));
    std::vector<nsecs_t> times;
    const nsecs_t period = std::max(model.period, kMs);
    nsecs_t last = layer ? layer->lastLatch : 0;
    const int64_t kind = steps.below(layer && layer->dropWait >= 1 ? 5 : 16);
    if (kind == 0) times = {last + period * 3 / 2 - 16 * steps.below(2)};
    if (kind == 1) times = {model.now};
    if (kind <= 1 && layer && layer->janks.size() == 5) {
        times = {layer->janks.front() + 15'000 * kMs - steps.below(2)};
    }
    const int64_t count = kind == 2 ? 29 + steps.below(4) : kind > 2 ? 200 : 0;
    for (; count > 0 && static_cast<int64_t>(times.size()) < count; last += period) {
        if (kind > 2 && last + period > model.now) break;
        times.push_back(last + period);
    }
    if (kind > 10 && layer) {  // the next buffer is just at its headroom
        times.push_back(model.now + layer->headroom - period * (pending + 1) + steps.below(3) - 1);
    }
    steps.tell("latch", id, pending, times);
    for (nsecs_t time : times) both([&](auto& m) { m.onBufferDecrement(id, pending, time); });
}

// Buffers that are queued now, or so that one of the rules about their time just holds.
void queue(RandomSteps& steps, Both& both, int id) {
    const LayerPtr layer = both.model.find(id);
    const Layer is = layer ? *layer : Layer{id, "", {}};
    if (is.calls > (is.paced || steps.oneIn(2) ? 0 : 1)) return;
    const nsecs_t times[] = {both.model.now - steps.below(3),
                             is.lastJank + 1'000 * kMs - steps.below(2),
                             is.base + (is.count + 1) * is.interval - steps.below(3),
                             is.lastPace + is.interval + kMs + steps.below(2)};
    const nsecs_t time =
            steps.oneIn(3) ? times[steps.below(is.base < 0 || !is.paced ? 2 : 4)] : both.model.now;
    // Or many that pass at once, under a load that lasts: an overload too, and frames after it that
    // are heavy now and then.
    const bool areMany = is.calls == 0 && layer && !is.paced && steps.oneIn(14);
    const bool overload = areMany && steps.oneIn(2);
    const bool instant = areMany || steps.oneIn(8);
    if (areMany && steps.oneIn(3)) {  // headroom control starts anew before them
        for (bool on : {false, true}) both([&](auto& m) { m.setQuickTouchStatus(id, on); });
    }
    const nsecs_t period = both.model.period;
    const nsecs_t usual = overload ? period : someFrameTime(steps, period);
    const nsecs_t other = overload ? period * 5 / 4 : someFrameTime(steps, period);
    const int64_t rarity = overload ? 4 : int64_t{1} << steps.below(7);
    steps.tell("queue", id, time, instant, areMany, usual, other, rarity);
    std::vector<nsecs_t> frameTimes(areMany ? static_cast<size_t>(15 + 65 * steps.below(2)) : 1);
    for (nsecs_t& frameTime : frameTimes) frameTime = steps.oneIn(rarity) ? other : usual;
    if (overload) std::fill_n(frameTimes.begin(), 15, 2 * period);
    const auto queueThem = [=](auto& m) {
        for (nsecs_t frameTime : frameTimes) m.onBufferIncrement(id, frameTime, time, instant);
    };
    queueThem(both.model);
    both.threads.emplace_back([&both, queueThem] { queueThem(both.monitor); });
    Simulation::settle();
}

void act(RandomSteps& steps, Both& both) {
    const Model& model = both.model;
    const int id = static_cast<int>(7 + steps.below(steps.oneIn(3) ? 3 : 1));
    const LayerPtr layer = model.find(id);
    const bool isIdle = !model.isRunning || model.period < 1 || model.layers.empty();
    // Each as often as it stands here: the first five start what is stopped or gone.
    constexpr std::string_view kActs = "pgurstttbbcllllllllvvvvvqqqqqqqqqqqqqqqq";
    const char kind = kActs[static_cast<size_t>(steps.below(isIdle && steps.oneIn(2) ? 5 : 40))];
    const nsecs_t period =
            steps.pick(std::vector<nsecs_t>{kPeriod, kPeriod, kPeriod / 2, kPeriod / 4, 1, 0, -1});
    const int hz = steps.pick(std::vector{60, 60, 61, 90, 30});
    const std::vector<float> rates{-8, 0, 1, 2, 2, 2, 3, 4, 4, 5, 8, 12, 23, 24, 25};
    const float low = steps.pick(rates) / 8;
    const float high = steps.pick(rates) / 8;
    const float target = steps.pick(std::vector{50.0f, 40.0f, 25.0f, 0.5f, 0.2f});
    const bool isSeldom = steps.oneIn(4);
    const bool is = steps.oneIn(2);
    const bool paces = layer && layer->paced ? isSeldom : is;
    const std::string name = "com.example/%s%n " + std::to_string(model.now);
    if (kind != 'l' && kind != 'q') steps.tell("act", kind, id, period, hz, low, high, target, is);
    switch (kind) {
        case 'p':
            return both([&](auto& m) { m.setVsyncInfo(period, hz); });
        case 'g':
            if (layer && !isSeldom) return;
            return both([&](auto& m) {
                m.registerLayer(id, name, std::max(low, 0.0f), std::max(high, 0.0f));
            });
        case 'u':
            return isSeldom ? both([&](auto& m) { m.unregisterLayer(id); }) : void();
        case 'r':
            return both([&](auto& m) { m.updateHeadRoom(id, low, high); });
        case 's':
            if (model.isRunning && !steps.oneIn(8)) return;
            return both([&](auto& m) { is ? m.forceStop() : void(m.init()); });
        case 't':
            return both([&](auto& m) { m.setQuickTouchStatus(id, is || !isSeldom); });
        case 'b':
            return both([&](auto& m) { m.unblockBuffer(id); });
        case 'c':
            return both([&](auto& m) { m.setTargetFpsStatus(id, paces, 60, target); });
        case 'l':
            return latch(steps, both, id);
        case 'v':
            return both([&](auto& m) { m.onVsync(-1); });
        default:
            return queue(steps, both, id);
    }
}

void makeDebuggable() {
    corvane::host::PerfService::install();
    FeatureManager::getInstance();  // sets debuggability from the properties
    PerfProxy::setDebuggable(true, false);
}

void followTheModel(RandomSteps& steps, const Config& config) {
    Simulation simulation(kStart);
    const corvane::host::LogCapture log;
    for (const auto& [name, value] : {std::pair("vendor.perf.phr.enable", int{config.isAdaptive}),
                                      {"vendor.rdxe.enable.target_fps", 1},
                                      {"vendor.rdxe.target_fps.compensate", config.compensates},
                                      {"vendor.rdxe.target_fps.switch_time", config.rampFrames}}) {
        base::SetProperty(name, std::to_string(value));
    }
    makeDebuggable();
    Both both{Model(config), {}};
    Model& model = both.model;
    both([](auto& m) { m.init(); });
    both([](auto& m) { m.setVsyncInfo(kPeriod, 60); });
    both([](auto& m) { m.registerLayer(7, "game", 0.25f, 0.5f); });
    const auto events = tracedEvents([&] {
        while (steps.next()) {
            const nsecs_t next = model.nextWakeup();
            nsecs_t by = steps.below(steps.oneIn(2) ? 1'000 : 6 * kMs);
            if (steps.oneIn(25)) by = 700 * kMs + steps.below(2'000 * kMs);
            if (next != kNever && steps.oneIn(3)) by = next - model.now - steps.below(2);
            Simulation::advance(std::max<nsecs_t>(by, 1));
            model.runUntil(Simulation::now());
            act(steps, both);
            simulation.settle();
            model.runUntil(Simulation::now());
            for (const auto& [id, layer] : model.layers) {
                const sp<LayerPHRState> state = both.monitor.getLayerState(id);
                steps.expectEq(layer->ramp, both.monitor.isTargetFpsSwitching(id), "ramp");
                compare(steps, *layer, model.waiting(layer), *state);
            }
            steps.expectEq(model.nextWakeup() == kNever ? -1 : model.nextWakeup(),
                           Simulation::nextDeadline(), "the next wake-up");
        }
        both.monitor.forceStop();
        for (std::thread& thread : both.threads) thread.join();
    });
    model.forceStop();
    model.runUntil(kNever - 1);
    std::vector<std::string> lines, traces;
    for (const auto& line : log.lines()) {
        if (line.tag == "Corvane.PHRMonitor") lines.push_back(line.text);
    }
    steps.expectEq(model.logs, lines, "the log");
    for (const std::string& event : events) {
        if (event != "E") traces.push_back(event);
    }
    steps.expectEq(model.traces, traces, "the trace");
}

TEST(MonitorModelTest, BuffersAreHeldAndPacedAsDescribed) {
    for (const Config& config : {Config{/*isAdaptive=*/false, /*compensates=*/true, 0},
                                 Config{/*isAdaptive=*/true, /*compensates=*/false, 1},
                                 Config{/*isAdaptive=*/true, /*compensates=*/true, 4}}) {
        RandomStepsRunner::run(/*sequences=*/30, /*steps=*/300,
                               [&](RandomSteps& steps) { followTheModel(steps, config); });
    }
}

constexpr int kLayer = 7;

// A monitor in simulated time; once it is started, with one layer that has the focus, one buffer
// pending and a vsync and a latch that have just been.
class MonitorTest : public ::testing::Test {
  protected:
    void start() {
        makeDebuggable();
        ASSERT_TRUE(monitor.init());
        addLayer();
    }

    void addLayer() {
        monitor.setVsyncInfo(kPeriod, 60);
        monitor.registerLayer(kLayer, "com.example.game", 0.25f, 0.25f);
        state = monitor.getLayerState(kLayer);
        monitor.setQuickTouchStatus(kLayer, true);
        state->mPendingCount = 1;
        state->mLastLatchTime = kStart;
    }

    // Queues a buffer on a thread of its own, which waits when this returns, or is through.
    std::thread queue() {
        std::thread thread([this] {
            monitor.onBufferIncrement(kLayer, kPeriod, Simulation::now(), /*instant=*/false);
        });
        simulation.settle();
        return thread;
    }

    Simulation simulation{kStart};
    corvane::host::LogCapture log;
    PHRMonitor monitor;
    sp<LayerPHRState> state;
};

TEST_F(MonitorTest, MayFailToStartAndStartLater) {
    corvane::host::failThreadCreation(1);
    EXPECT_FALSE(monitor.init());
    EXPECT_EQ(log.count("PHRMonitor thread creation failed"), 1u);
    addLayer();
    monitor.onVsync(kStart);
    queue().join();  // nobody would release it
    EXPECT_EQ(Simulation::now(), kStart);
    monitor.setVsyncInfo(kPeriod / 2, 90);
    {
        Mutex::Autolock lock(state->mFieldsLock);
        EXPECT_EQ(state->mMaxHeadroom, 2 * kMs) << "no default has been read";
    }
    monitor.forceStop();
    EXPECT_EQ(log.count("stopped"), 0u);
    start();
    EXPECT_TRUE(monitor.init()) << "it runs already";
    simulation.settle();
    expectFramePathScheduling("PHR");
}

// The display switches just before a change gets hold of the layer's record. The layer has been
// unregistered meanwhile, so that the switch itself leaves the record alone.
TEST_F(MonitorTest, ChangesOfTheRecordTakeThePeriodOfTheirMoment) {
    start();
    const std::pair<nsecs_t, std::function<void()>> cases[] =
            {{5 * kMs, [&] { monitor.checkAndUpdateHeadroom(state.get(), kPeriod); }},
             {2 * kMs, [&] { monitor.updateHeadRoom(kLayer, -1, -1); }},
             {6 * kMs, [&] {
                  for (int i = 0; i < 15; ++i) monitor.updateDynamicHeadroom(state.get(), kPeriod);
              }}};
    for (const auto& [headroom, change] : cases) {
        addLayer();
        std::thread changer;
        {
            Mutex::Autolock lock(state->mFieldsLock);
            changer = std::thread(change);
            simulation.settle();
            monitor.unregisterLayer(kLayer);
            monitor.setVsyncInfo(kPeriod / 2, 120);
        }
        changer.join();
        Mutex::Autolock lock(state->mFieldsLock);
        EXPECT_EQ(headroom, state->mHeadroom);
        EXPECT_EQ(144 * kMs / 10, state->mMaxHeadroom);
    }
}

// What happens on the queuing thread between the decision for the additional delay and its wait,
// which is when it logs.
std::function<void()> sOnceDecided;

TEST_F(MonitorTest, UnblockOrReleaseEndsTheAdditionalDelayAsItIsDecided) {
    start();
    state->mHasPending = true;
    __android_log_set_logger([](const __android_logger_data*, const char* message) {
        if (message == std::string("additional delay")) sOnceDecided();
    });
    for (const bool unblocks : {true, false}) {
        sOnceDecided = [&] {
            unblocks ? monitor.unblockBuffer(kLayer) : void(state->releaseWaiters());
        };
        state->mPendingCount = 1;
        std::thread call = queue();
        state->releaseWaiters();
        call.join();
        EXPECT_EQ(Simulation::now(), kStart) << unblocks;
        EXPECT_FALSE(state->mUnblocked);
    }
}

TEST_F(MonitorTest, AThreadThatStillHoldsAGoneStateDoesNotWait) {
    start();
    // Released just before the wait is not too late either: nobody would end it.
    state->mReleased = true;
    EXPECT_FALSE(state->waitUnlessReleased(kPeriod));
    state->mReleased = false;
    std::thread call = queue();
    monitor.unregisterLayer(kLayer);
    call.join();
    EXPECT_FALSE(state->waitUnlessReleased(kPeriod));
    EXPECT_FALSE(state->waitUnlessReleasedSince(state->releaseCount(), kPeriod));
    Mutex::Autolock lock(state->mLock);
    EXPECT_EQ(state->mWaiting, 0);
    EXPECT_EQ(Simulation::now(), kStart);
}

TEST_F(MonitorTest, BearsTimesAtTheEndsOfTheirRange) {
    start();
    for (const auto& [time, headroom] : {std::pair(INT64_MAX, 5 * kMs), {INT64_MIN, 4 * kMs}}) {
        monitor.checkAndUpdateHeadroom(state.get(), time);
        EXPECT_EQ(state->mHeadroom, headroom) << time;
    }
    for (nsecs_t time : {INT64_MIN, INT64_MAX}) monitor.onBufferDecrement(kLayer, 1, time);
    monitor.setVsyncInfo(INT64_MAX, 60);
    state->mHeadroom = INT64_MAX;
    monitor.onVsync(kStart);
    simulation.settle();
    EXPECT_EQ(Simulation::nextDeadline(), INT32_MAX * nsecs_t{1'000'000'000});
}

TEST(HeadroomTest, EndsAtTheLimitsOfItsNumbers) {
    EXPECT_EQ(deriveHeadroomRange(3.0f, 0.0f, kPeriod).preset, 3 * kPeriod + 3 * kMs / 2);
    EXPECT_EQ(deriveHeadroomRange(2.9375f, 0.0f, kPeriod).preset, 3 * kPeriod - 3 * kMs / 2);
    EXPECT_EQ(deriveHeadroomRange(NAN, 0.0f, kPeriod).preset, 3 * kMs / 2);
    EXPECT_EQ(deriveHeadroomRange(INFINITY, INFINITY, 3).preset, INT64_MAX);
    EXPECT_EQ(deriveHeadroomRange(-0.9f, 0.0f, INT64_MAX).preset, 3 * kMs / 2);
    EXPECT_EQ(stepHeadroom(-1, {-1, -1}, kPeriod, true, kMs), std::nullopt);  // not derived yet
    EXPECT_EQ(stepHeadroom(INT64_MAX - 1, {0, INT64_MAX}, kPeriod, false, kMs), INT64_MAX);
    EXPECT_EQ(avoidVsync(kPeriod + kPeriod / 10, kPeriod, true), kPeriod + kPeriod / 10);
    EXPECT_EQ(avoidVsync(kPeriod - kPeriod / 10, kPeriod, false), kPeriod - kPeriod / 10);
    EXPECT_EQ(avoidVsync(INT64_MIN, INT64_MAX, true), INT64_MIN);
    EXPECT_EQ(currentHeadroom(INT64_MAX, -1, INT64_MAX, INT32_MAX), INT64_MAX);
    EXPECT_EQ(vsyncToHeadroomPoint(-1, kPeriod), kPeriod + 1);
    EXPECT_EQ(vsyncToHeadroomPoint(-1, INT64_MAX), INT64_MAX);
}

TEST(FramePacerTest, HostileRatesNeitherOverflowNorRampForEver) {
    // The first has nothing to step; the second's step is lost in rounding.
    const std::pair<float, float> rates[] = {
            {60, 60},  {60.000004f, 60}, {0, 60},        {-30, 60},      {60, -60}, {60, 0},
            {NAN, 60}, {60, 1e-30f},     {INFINITY, 60}, {60, INFINITY}, {60, NAN},
    };
    for (const auto& [current, target] : rates) {
        for (int rampFrames : {0, 10}) {
            FramePacer pacer;
            pacer.start(current, target, rampFrames, kStart);
            for (nsecs_t now = kStart; now < kStart + 40 * kPeriod; now += kPeriod) {
                pacer.schedule(now, now, now, /*compensate=*/true);
            }
            EXPECT_FALSE(pacer.isSwitching()) << current << " to " << target;
        }
    }
}

}  // namespace
}  // namespace android
