// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Headroom control and pacing with their threads, against a plain account of what each call, vsync
// and wake-up is to do. Periods and rates are such that single precision holds every product.

#include <algorithm>
#include <deque>
#include <limits>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "RandomSteps.h"
#include "TracedEvents.h"
#include "phr/MonitorFixture.h"

namespace android {
namespace {

constexpr nsecs_t kNever = std::numeric_limits<nsecs_t>::max();

struct Config {
    bool isAdaptive;
    bool compensates;
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
    bool paced = false, ramp = false;
    float target = 0, rampFps = 0, rampStep = 0;
    nsecs_t count = 0, interval = -1, base = -1, due = -1;
    bool gone = false;

    // The thread that queues, of which there is one at a time.
    enum { IDLE, HELD, DELAYED, PACED, WOKEN } thread = IDLE;
    bool wasHeld = false;  // of a woken one
    int call = 0;
    nsecs_t until = 0;
    nsecs_t heldHeadroom = 0, heldLatch = 0;

    bool waits() const { return thread == HELD || thread == DELAYED; }
};
using LayerPtr = std::shared_ptr<Layer>;

class Model {
  public:
    explicit Model(const Config& config) : mConfig(config) {}

    LayerPtr find(int id) const {
        const auto it = layers.find(id);
        return it == layers.end() ? nullptr : it->second;
    }

    void registerLayer(int id, const std::string& name, int low, int high) {
        layers[id] = std::make_shared<Layer>(Layer{id, name, {low, high}});
        derive(*layers[id]);
    }

    void unregisterLayer(int id) {
        if (focus == id) focus = -1;
        if (!find(id)) return;
        detach(find(id));
        layers.erase(id);
        logs.push_back(formatted("Layer %d destroyed", id));
    }

    void setVsync(nsecs_t newPeriod, int newFps) {
        if (newPeriod == period) return;
        period = newPeriod;
        fps = newFps;
        for (const auto& [id, layer] : layers) derive(*layer);
    }

    void setRates(int id, int low, int high) {
        const LayerPtr layer = find(id);
        if (!layer) return;
        if (low >= 0) layer->rates[0] = low;
        if (high >= 0) layer->rates[1] = high;
        derive(*layer);
    }

    void setQuick(int id, bool on) {
        const LayerPtr layer = find(id);
        if ((focus != -1 && focus != id) || !layer || layer->quick == on) return;
        layer->quick = on;
        focus = on ? id : -1;
        if (on && mConfig.isAdaptive) reset(*layer);
        const char* what = on ? "enable PHR" : "disable PHR";
        traces.push_back(std::string("B|") + what);
        logs.push_back(formatted("Layer %d: %s", id, what));
    }

    void unblock(int id) {
        const LayerPtr layer = find(id);
        if (!layer) return;
        layer->unblocked = true;
        if (!layer->hasPending) layer->dropWait = 1;
        if (!layer->waits()) return;
        wake(layer);
        traces.push_back("B|unblockBuffer");
    }

    void setTarget(int id, bool on, float current, float target) {
        const LayerPtr found = find(id);
        if (!found || (found->paced == on && found->target == target)) return;
        Layer& layer = *found;
        layer.target = target;
        if (!on) {
            traces.push_back("B|disable target fps");
            logs.push_back(formatted("Layer %d: disable target fps", id));
        } else {
            if (mConfig.rampFrames < 1) {
                layer.interval = static_cast<nsecs_t>(1e9f / target);
            } else {
                layer.rampFps = current;
                layer.ramp = true;
                layer.due = std::max(layer.lastQueue, layer.lastPace);
                layer.rampStep = (current - target) / static_cast<float>(mConfig.rampFrames);
            }
            traces.push_back(formatted("B|enable target fps: %f", static_cast<double>(target)));
            logs.push_back(
                    formatted("Layer %d: enable target fps: %f", id, static_cast<double>(target)));
        }
        layer.base = -1;
        layer.count = 0;
        layer.paced = on;
    }

    void vsync() {
        const LayerPtr layer = find(focus);
        if (!layer) return;
        layer->sinceVsync = 0;
        traces.push_back("B|onVsync");
        mSignalled = now;
        serve();
    }

    void latch(int id, int pendingCount, nsecs_t time) {
        const LayerPtr found = find(id);
        if ((focus != -1 && focus != id) || !found || found->paced || period < 1) return;
        Layer& layer = *found;
        layer.busy = pendingCount < 1 ? 0 : layer.busy + 1;
        if (!layer.quick && layer.busy >= 31 && rate(layer) != 0) setQuick(id, true);
        if (layer.quick) {
            layer.pending = pendingCount;
            layer.hasPending = pendingCount > 0;
            if (fps == 60 && layer.dropWait >= 1) {
                const bool isOver = pendingCount < 1 || layer.dropWait > 29;
                layer.dropWait = isOver ? -1 : layer.dropWait + 1;
            }
        }
        const nsecs_t gap = time - layer.lastLatch;
        layer.lastLatch = time;
        if (2 * gap < 3 * period) return;
        layer.lastJank = time;
        if (layer.janks.size() > 4 && time - layer.janks.front() <= 14'999'999'999) {
            layer.janks.clear();
            setQuick(id, false);
            logs.push_back("Disable QuickTouch due to jank");
            return;
        }
        if (layer.janks.size() > 4) layer.janks.pop_front();
        layer.janks.push_back(time);
    }

    void queue(int id, nsecs_t frameTime, bool instant, int call) {
        const LayerPtr layer = find(id);
        if (!layer) return done(call);
        layer->call = call;
        if (layer->quick && period >= 1) {
            mConfig.isAdaptive ? adapt(*layer, frameTime) : adjust(*layer, frameTime);
        }
        traces.push_back(track('F', "CPU frame time", *layer));
        traces.push_back(track('S', "CPU headroom", *layer));
        layer->lastQueue = now;
        if (layer->paced) return pace(layer);
        if (!layer->quick || period < 1 || !isRunning) return leave(layer);
        const nsecs_t current = layer->lastLatch - now + period * (layer->pending + 1);
        traces.push_back("B|trackQueueBuffer");
        traces.push_back(formatted("B|bufferCount:%d, curHeadroom: %ld, mHeadroom: %ld",
                                   layer->pending, current, layer->headroom));
        const bool passes = instant || layer->instant || current < layer->headroom;
        layer->instant = instant;
        if (passes) {
            traces.push_back("B|not pending for instant buffer or not reach target headroom");
            return complete(layer);
        }
        layer->heldHeadroom = layer->headroom;
        layer->heldLatch = layer->lastLatch;
        if (layer->released) {
            traces.push_back("B|timer expired");
            return delay(layer);
        }
        wait(layer, Layer::HELD, std::min(current - layer->headroom, period));
    }

    void stop() {
        if (!isRunning) return;
        isRunning = false;
        mServed = nullptr;
        if (const LayerPtr layer = find(focus)) detach(layer);
        logs.push_back("PHRMonitor thread exited");
        runWoken();
        for (const auto& [id, layer] : layers) detach(layer);
        layers.clear();
        focus = -1;
        logs.push_back("PHRMonitor stopped");
    }

    void init() {
        isRunning = true;
        mSignalled = -1;
    }

    nsecs_t nextWakeup() const {
        nsecs_t when = mServed ? mServedUntil : kNever;
        for (const LayerPtr& layer : mWaiting) when = std::min(when, layer->until);
        return when;
    }

    void runUntil(nsecs_t time) {
        runWoken();
        while (nextWakeup() <= time) {
            now = nextWakeup();
            if (mServed && mServedUntil == now) {
                release();
            } else {
                const LayerPtr layer =
                        *std::find_if(mWaiting.begin(), mWaiting.end(),
                                      [this](const LayerPtr& l) { return l->until == now; });
                layer->timedOut |= layer->thread == Layer::HELD;
                resume(layer);
            }
            runWoken();
        }
        now = time;
    }

    bool isBusy(int id) const { return find(id) && find(id)->thread != Layer::IDLE; }

    nsecs_t now = kStart;
    nsecs_t period = -1;
    int fps = 60;
    int focus = -1;
    bool isRunning = true;
    std::map<int, LayerPtr> layers;
    std::vector<std::string> logs;
    std::vector<std::string> traces;
    std::vector<std::string> returned;

  private:
    bool isFast() const { return fps > 60; }
    int rate(const Layer& layer) const { return layer.rates[isFast()]; }

    static std::string track(char type, const char* what, const Layer& layer) {
        return formatted("%c|%s - %s|%d", type, what, layer.name.c_str(), layer.id);
    }

    void derive(Layer& layer) {
        if (period < 1 || rate(layer) == 0) return;
        nsecs_t headroom = rate(layer) * period / 8;
        const nsecs_t past = headroom % period;
        if (past < 1'500'000) {
            headroom += 1'500'000 - past;
        } else if (period - past < 1'500'000) {
            headroom += period - past - 1'500'000;
        }
        layer.preset = layer.headroom = headroom;
        layer.max = std::max(headroom, period * (isFast() ? 18 : 9) / 10);
        logs.push_back(formatted("Layer %d set headroom: %ld", layer.id, headroom));
    }

    void reset(Layer& layer) {
        layer.hold = layer.climb = 0;
        layer.weights.clear();
        layer.headroom = layer.preset;
        const std::string line = formatted("reset adaptive PHR state for layer %d, headroom=%ld",
                                           layer.id, layer.headroom);
        logs.push_back(line);
        traces.push_back("B|" + line);
    }

    void step(Layer& layer, bool down, nsecs_t by) {
        if (layer.headroom == (down ? layer.preset : layer.max)) return;
        nsecs_t next = down ? layer.headroom - by : layer.headroom + by;
        if (down && next <= layer.preset) {
            next = layer.preset;
        } else if (!down && next >= layer.max) {
            next = layer.max;
        } else {
            const nsecs_t clear = period / 10;
            for (const nsecs_t vsync : {next / period * period, next / period * period + period}) {
                if (std::abs(next - vsync) < clear) next = down ? vsync - clear : vsync + clear;
            }
            next = std::max(std::min(next, layer.max), layer.preset);
        }
        layer.headroom = next;
        traces.push_back(formatted("B|updatePresetHeadroom = %ld", next));
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
        if (layer.climb == 0) {
            step(layer, true, kMs / 10);
        } else {
            step(layer, false, 2 * kMs);
            ++layer.climb;
        }
        traces.push_back(
                formatted("B|checkAndUpdatePHR: weightRatio: %.3f, mFrameWeightWindowSum:%d, "
                          "heavyHeadroomFrameCount: %d, mHeadroom: %ld",
                          static_cast<double>(frameTime) / static_cast<double>(period), sum,
                          layer.climb, layer.headroom));
        if (layer.climb <= 50) return;
        layer.climb = 0;
        if (sum == 15 && !hasHeavy) reset(layer);
    }

    void pace(const LayerPtr& found) {
        Layer& layer = *found;
        if (layer.ramp) {
            layer.rampFps -= layer.rampStep;
            layer.due += static_cast<nsecs_t>(1e9f / layer.rampFps);
            if (std::abs(layer.rampFps - layer.target) < std::abs(layer.rampStep)) {
                layer.base = layer.due;
                layer.ramp = false;
                layer.interval = static_cast<nsecs_t>(1e9f / layer.target);
                traces.push_back("B|Target fps smooth switch finished.");
            }
        } else {
            if (!mConfig.compensates && now - layer.lastPace > layer.interval + 1'000'000) {
                layer.base = -1;
                layer.count = 0;
            }
            if (layer.base < 0) {
                layer.base = layer.lastPace = now;
                traces.push_back("B|Switched to target fps now.");
                return leave(found);
            }
            layer.due = layer.base + ++layer.count * layer.interval;
        }
        const nsecs_t sleep = layer.due - now;
        if (sleep >= 1) {
            traces.push_back("B|Pending for target fps");
            const nsecs_t low = sleep % (nsecs_t{1} << 32);
            if (low < 1'000'000'000) return wait(found, Layer::PACED, low);
        }
        layer.lastPace = now;
        leave(found);
    }

    // The additional delay after the first wait.
    void delay(const LayerPtr& layer) {
        if (layer->unblocked) {
            layer->unblocked = false;
            return complete(layer);
        }
        if (period < 1) return complete(layer);
        const nsecs_t extra =
                layer->heldLatch - (now + layer->heldHeadroom) + period * (layer->pending + 1);
        if (layer->lastQueue - layer->lastJank <= 999'999'999) {
            traces.push_back("B|No additional delay due to recent jank.");
        } else if (layer->dropWait >= 1 && fps == 60) {
            traces.push_back("B|No additional delay due to wait for buffer drop");
        } else if (extra > 0 && layer->pending >= 1) {
            traces.push_back("B|additional delay");
            logs.push_back("additional delay");
            return wait(layer, Layer::DELAYED, std::min(period, extra));
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
        traces.push_back(track('F', "CPU headroom", *layer));
        traces.push_back(track('S', "CPU frame time", *layer));
        layer->thread = Layer::IDLE;
        done(layer->call);
    }

    void done(int call) { returned.push_back(formatted("%d at %ld", call, now)); }

    template <typename Kind>
    void wait(const LayerPtr& layer, Kind kind, nsecs_t ns) {
        layer->thread = kind;
        layer->until = now + ns;
        if (kind != Layer::PACED && layer->gone) return resume(layer);
        if (ns == 0) {
            layer->timedOut |= kind == Layer::HELD;
            return resume(layer);
        }
        mWaiting.push_back(layer);
    }

    void resume(const LayerPtr& layer) {
        mWaiting.remove(layer);
        const auto was = layer->thread;
        layer->thread = Layer::IDLE;
        if (was == Layer::PACED) {
            layer->lastPace = now;
            return leave(layer);
        }
        if (was == Layer::DELAYED || (was == Layer::WOKEN && !layer->wasHeld)) {
            return complete(layer);
        }
        traces.push_back("B|delay finish");
        delay(layer);
    }

    // A woken thread goes on once the one that woke it waits.
    void wake(const LayerPtr& layer) {
        if (!layer->waits()) return;
        layer->wasHeld = layer->thread == Layer::HELD;
        layer->thread = Layer::WOKEN;
        mWaiting.remove(layer);
        mWoken.push_back(layer);
    }

    void runWoken() {
        while (!mWoken.empty()) {
            const LayerPtr layer = mWoken.front();
            mWoken.pop_front();
            resume(layer);
        }
    }

    void detach(const LayerPtr& layer) {
        layer->gone = true;
        wake(layer);
    }

    // The headroom thread, when it waits for a vsync and there is one.
    void serve() {
        while (isRunning && !mServed && mSignalled >= 0) {
            const nsecs_t from = mSignalled;
            mSignalled = -1;
            traces.push_back("B|wait for preset headroom");
            const LayerPtr layer = find(focus);
            if (!layer || period < 1) continue;
            mServed = layer;
            mServedUntil = from + period - layer->headroom % period;
            if (mServedUntil <= now) release();
        }
    }

    void release() {
        const LayerPtr layer = mServed;
        mServed = nullptr;
        if (layer->sinceVsync == 0) {
            layer->released |= !layer->timedOut;
            layer->timedOut = false;
            wake(layer);
        }
        serve();
    }

    const Config mConfig;
    LayerPtr mServed;  // whose vsync the headroom thread serves
    nsecs_t mServedUntil = 0;
    nsecs_t mSignalled = -1;
    std::list<LayerPtr> mWaiting;
    std::list<LayerPtr> mWoken;
};

// The monitor and the threads that queue, in simulated time.
class Real {
  public:
    explicit Real(const Config& config) {
        corvane::host::PerfService::install();
        base::SetProperty("vendor.perf.phr.enable", config.isAdaptive ? "1" : "0");
        base::SetProperty("vendor.rdxe.enable.target_fps", "true");
        base::SetProperty("vendor.rdxe.target_fps.compensate",
                          config.compensates ? "true" : "false");
        base::SetProperty("vendor.rdxe.target_fps.switch_time", std::to_string(config.rampFrames));
        FeatureManager::getInstance();  // sets debuggability from the properties
        PerfProxy::setDebuggable(true, false);
        monitor.init();
    }

    void queue(int id, nsecs_t frameTime, bool instant, int call) {
        mThreads.emplace_back([this, id, frameTime, instant, call] {
            monitor.onBufferIncrement(id, frameTime, Simulation::now(), instant);
            const std::lock_guard<std::mutex> lock(mMutex);
            mReturned.push_back(formatted("%d at %ld", call, Simulation::now()));
        });
    }

    void join() {
        for (std::thread& thread : mThreads) thread.join();
        mThreads.clear();
    }

    std::vector<std::string> returned() {
        const std::lock_guard<std::mutex> lock(mMutex);
        return mReturned;
    }

    PHRMonitor monitor;

  private:
    std::mutex mMutex;
    std::vector<std::string> mReturned;
    std::list<std::thread> mThreads;
};

std::vector<nsecs_t> fieldsOf(const Layer& l) {
    return {l.headroom,  l.max,       l.pending,    l.sinceVsync, l.quick,  l.instant,   l.released,
            l.timedOut,  l.unblocked, l.hasPending, l.dropWait,   l.busy,   l.lastQueue, l.lastJank,
            l.lastLatch, l.lastPace,  l.paced,      l.ramp,       l.waits()};
}

std::vector<nsecs_t> fieldsOf(LayerPHRState& s) {
    Mutex::Autolock fields(s.mFieldsLock);
    Mutex::Autolock lock(s.mLock);
    return {s.mHeadroom,         s.mMaxHeadroom,      s.mPendingCount,
            s.mQueuedSinceVsync, s.mQuickTouchActive, s.mInstant,
            s.mReleased,         s.mTimedOut,         s.mUnblocked,
            s.mHasPending,       s.mDropWaitCount,    s.mBusyLatchCount,
            s.mLastQueueTime,    s.mLastJankTime,     s.mLastLatchTime,
            s.mLastPaceTime,     s.mTargetFpsActive,  s.mPacer.isSwitching(),
            s.mWaiting};
}

constexpr const char kFields[] =
        "headroom, max, pending, since vsync, quick, instant, released, timed out, unblocked, has "
        "pending, drop wait, busy, last queue, jank, latch, pace, paced, ramp, waits";

nsecs_t someFrameTime(RandomSteps& steps, nsecs_t period) {
    if (steps.oneIn(4)) return period + (steps.oneIn(2) ? 2 : -2) * kMs + steps.below(3) - 1;
    constexpr nsecs_t kPercents[] = {50, 80, 100, 120, 150, 200};
    return period * steps.pick(kPercents) / 100 + 4 * (steps.below(3) - 1);
}

// Latches on time up to now, or one that is not.
void latch(RandomSteps& steps, Real& real, Model& model, int id) {
    const LayerPtr layer = model.find(id);
    const int pending = static_cast<int>(steps.below(steps.oneIn(8) ? 1 : 4));
    std::vector<nsecs_t> times;
    const nsecs_t period = std::max(model.period, kMs);
    nsecs_t last = layer ? layer->lastLatch : 0;
    const bool isDropWait = layer && layer->dropWait >= 1;
    const int64_t kind = steps.below(isDropWait ? 5 : 16);
    if (kind == 0) times = {last + period * 3 / 2 - (steps.oneIn(2) ? 16 : 0)};
    if (kind == 1) times = {model.now};
    for (auto left = kind == 2 ? 29 + steps.below(4) : 0; left > 0; --left) {
        times.push_back(last += period);
    }
    for (; kind > 2 && last + period <= model.now && times.size() < 200; last += period) {
        times.push_back(last + period);
    }
    if (kind > 10 && layer) {  // the next buffer is just at its headroom
        times.push_back(model.now + layer->headroom - period * (pending + 1) + steps.below(3) - 1);
    }
    steps.tell("latch", id, pending, times);
    for (nsecs_t time : times) {
        model.latch(id, pending, time);
        real.monitor.onBufferDecrement(id, pending, time);
    }
}

// Frames that pass at once, under a load that lasts.
void queueFrames(RandomSteps& steps, Real& real, Model& model, int id, int& call) {
    if (model.isBusy(id) || !model.find(id) || model.find(id)->paced) return;
    const int64_t count = steps.oneIn(2) ? 60 : 15;
    const nsecs_t usual = someFrameTime(steps, model.period);
    const nsecs_t other = someFrameTime(steps, model.period);
    const int64_t rarity = int64_t{1} << steps.below(7);
    steps.tell("frames", id, count, usual, other, rarity);
    for (int64_t i = 0; i < count; ++i) {
        const nsecs_t frameTime = steps.oneIn(rarity) ? other : usual;
        model.queue(id, frameTime, true, ++call);
        real.queue(id, frameTime, true, call);
        Simulation::settle();
    }
}

void act(RandomSteps& steps, Real& real, Model& model, int& call) {
    PHRMonitor& monitor = real.monitor;
    const int id = static_cast<int>(7 + steps.below(steps.oneIn(3) ? 3 : 1));
    const nsecs_t rates[] = {-1, 0, 1, 2, 2, 2, 4, 4, 8, 12, 23, 24, 25};
    const int low = static_cast<int>(steps.pick(rates));
    const int high = static_cast<int>(steps.pick(rates));
    const bool isIdle = !model.isRunning || model.period < 1 || model.layers.empty();
    // Each as often as it stands here: the first five start what is stopped or gone.
    constexpr std::string_view kActs = "pgurstttbbcfllllllllvvvvvqqqqqqqqqqqqqqq";
    switch (kActs[static_cast<size_t>(steps.below(isIdle && steps.oneIn(2) ? 5 : 40))]) {
        case 'p': {
            const nsecs_t periods[] = {kPeriod, kPeriod, kPeriod / 2, kPeriod / 4, 0, -1};
            const int fps[] = {60, 60, 61, 90, 30};
            const nsecs_t period = steps.pick(periods);
            const int hz = steps.pick(fps);
            steps.tell("period", period, hz);
            model.setVsync(period, hz);
            return monitor.setVsyncInfo(period, hz);
        }
        case 'g': {
            if (model.find(id) && !steps.oneIn(4)) return;
            const std::string name = "com.example/%s%n " + std::to_string(call);
            steps.tell("register", id, low, high);
            model.registerLayer(id, name, std::max(low, 0), std::max(high, 0));
            return monitor.registerLayer(id, name, static_cast<float>(std::max(low, 0)) / 8,
                                         static_cast<float>(std::max(high, 0)) / 8);
        }
        case 'u':
            if (!steps.oneIn(3)) return;
            steps.tell("unregister", id);
            model.unregisterLayer(id);
            return monitor.unregisterLayer(id);
        case 'r':
            steps.tell("rates", id, low, high);
            model.setRates(id, low, high);
            return monitor.updateHeadRoom(id, static_cast<float>(low) / 8,
                                          static_cast<float>(high) / 8);
        case 's':
            if (!steps.oneIn(12) && model.isRunning) return;
            steps.tell(model.isRunning ? "stop" : "init");
            for (int times = steps.oneIn(2) ? 1 : 2; times > 0; --times) {
                model.isRunning ? monitor.forceStop() : void(monitor.init());
            }
            return model.isRunning ? model.stop() : model.init();
        case 't': {
            const bool on = !steps.oneIn(6);
            steps.tell("quick touch", id, on);
            model.setQuick(id, on);
            return monitor.setQuickTouchStatus(id, on);
        }
        case 'b':
            steps.tell("unblock", id);
            model.unblock(id);
            return monitor.unblockBuffer(id);
        case 'c': {
            const bool on = steps.oneIn(model.find(id) && model.find(id)->paced ? 4 : 2);
            constexpr float kTargets[] = {50, 40, 25, 0.5f, 0.2f};
            const float target = steps.pick(kTargets);
            steps.tell("target", id, on, target);
            model.setTarget(id, on, 60, target);
            return monitor.setTargetFpsStatus(id, on, 60, target);
        }
        case 'f':
            return queueFrames(steps, real, model, id, call);
        case 'l':
            return latch(steps, real, model, id);
        case 'v':
            steps.tell("vsync");
            model.vsync();
            return monitor.onVsync(-1);
        default: {
            if (model.isBusy(id)) return;
            const bool instant = steps.oneIn(8);
            const nsecs_t frameTime = someFrameTime(steps, model.period);
            steps.tell("queue", id, frameTime, instant);
            model.queue(id, frameTime, instant, ++call);
            return real.queue(id, frameTime, instant, call);
        }
    }
}

nsecs_t someTime(RandomSteps& steps, const Model& model) {
    const nsecs_t next = model.nextWakeup();
    if (next != kNever && steps.oneIn(3)) return next - model.now - steps.below(2);
    if (steps.oneIn(25)) return 700 * kMs + steps.below(2'000 * kMs);
    return steps.below(steps.oneIn(2) ? 1'000 : 6 * kMs);
}

void followTheModel(RandomSteps& steps, const Config& config) {
    Simulation simulation(kStart);
    const corvane::host::LogCapture log;
    Real real(config);
    Model model(config);

    real.monitor.setVsyncInfo(kPeriod, 60);
    model.setVsync(kPeriod, 60);
    real.monitor.registerLayer(kLayer, "game", 0.25f, 0.5f);
    model.registerLayer(kLayer, "game", 2, 4);
    int call = 0;
    const auto events = tracedEvents([&] {
        while (steps.next()) {
            Simulation::advance(std::max<nsecs_t>(someTime(steps, model), 1));
            model.runUntil(Simulation::now());
            act(steps, real, model, call);
            simulation.settle();
            model.runUntil(Simulation::now());
            for (const auto& [id, layer] : model.layers) {
                const sp<LayerPHRState> state = real.monitor.getLayerState(id);
                steps.expectEq(true, state != nullptr, "known");
                if (state != nullptr) steps.expectEq(fieldsOf(*layer), fieldsOf(*state), kFields);
            }
            steps.expectEq(model.returned, real.returned(), "the calls that returned");
            steps.expectEq(model.nextWakeup() == kNever ? -1 : model.nextWakeup(),
                           Simulation::nextDeadline(), "the next wake-up");
            std::vector<std::string> lines;
            for (const auto& line : log.lines()) {
                if (line.tag == "Corvane.PHRMonitor") lines.push_back(line.text);
            }
            steps.expectEq(model.logs, lines, "the log");
        }
        real.monitor.forceStop();
        real.join();
    });
    model.stop();
    model.runUntil(kNever - 1);
    std::vector<std::string> traces;
    for (const std::string& event : events) {
        if (event != "E") traces.push_back(event);
    }
    steps.expectEq(model.traces, traces, "the trace");
}

void run(const Config& config) {
    RandomStepsRunner::run(/*sequences=*/40, /*steps=*/300,
                           [&config](RandomSteps& steps) { followTheModel(steps, config); });
}

TEST(MonitorModelTest, SteppedHeadroomAndPacingThatCatchesUp) {
    run({/*isAdaptive=*/false, /*compensates=*/true, /*rampFrames=*/0});
}

TEST(MonitorModelTest, AdaptiveHeadroomAndPacingThatStartsAnew) {
    run({/*isAdaptive=*/true, /*compensates=*/false, /*rampFrames=*/0});
}

TEST(MonitorModelTest, AdaptiveHeadroomAndPacingWithARamp) {
    run({/*isAdaptive=*/true, /*compensates=*/true, /*rampFrames=*/4});
}

}  // namespace
}  // namespace android
