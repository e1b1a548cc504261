// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Frame rescue with its queue, thread and device, against a plain account of what each call and
// each check is to do.

#include <android-base/properties.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <list>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "RandomSteps.h"
#include "TracedEvents.h"
#include "corvane/host/Devices.h"
#include "corvane/host/LogCapture.h"
#include "corvane/host/PerfService.h"
#include "corvane/host/Simulation.h"
#include "features/FeatureManager.h"
#include "gfr/GFRMonitor.h"

namespace android {
namespace {

using corvane::host::BoostDevice;
using corvane::host::Simulation;

constexpr nsecs_t kMs = 1'000'000;
constexpr nsecs_t kNever = std::numeric_limits<nsecs_t>::max();

nsecs_t times(float factor, nsecs_t ns) {
    return static_cast<nsecs_t>(factor * static_cast<float>(ns));
}

struct Layer {
    std::string name;
    GfrTunables tune{};
    bool active = false;
    bool boosted = false;
    float fps = 0;
    nsecs_t period = -1;
    std::vector<nsecs_t> due{};  // after queue end, by level
    nsecs_t golden = 0;
    nsecs_t resend = 0;
    nsecs_t shortest = 0;  // delay of an adjusted first check
    nsecs_t begin = 0;
    nsecs_t end = 0;
    nsecs_t frameTime = 0;
    nsecs_t previousFrameTime = 0;
    nsecs_t headroom = 0;
    nsecs_t deadline = 0;
    nsecs_t adjusted = 0;
    int check = 0;  // pending; 0: none
    int lastBoost = 0;
    std::list<bool> drops{};  // newest first

    int base(int level) const {
        return level < static_cast<int>(tune.baseFreq.size())
                       ? tune.baseFreq[static_cast<size_t>(level)]
                       : 0;
    }
    int top() const { return tune.baseFreq.empty() ? 3000 : std::min(tune.baseFreq.back(), 3000); }
    int levels() const { return static_cast<int>(due.size()); }
    int dropsAmong(int frames) const {
        int count = 0;
        for (bool dropped : drops) count += frames-- > 0 && dropped;
        return count;
    }
};

struct Check {
    int id;
    nsecs_t when;
    int layer;
    int level;
    nsecs_t frame;
};

class Model {
  public:
    void init() {
        if (isRunning) return;
        isRunning = true;
        logs.push_back("GFRMonitor thread started");
    }

    void stop() {
        if (!isRunning) return;
        isRunning = false;
        layers.clear();
        checks.clear();
        logs.push_back("GFRMonitor thread exited");
        logs.push_back("GFRMonitor stopped");
    }

    void registerLayer(int id, const std::string& name) {
        Layer layer{name};
        update(layer, 0, false);
        const GfrTunables& t = layer.tune;
        logs.push_back(
                formatted("GFR Layer %d (%s): dynamic=%s allowSkipOrLower=%s golden=%.2fvsync "
                          "K=%.2f baseFreq=500;800;3000",
                          id, name.c_str(), "false", "false", t.golden, t.kFactor));
        layers[id] = layer;
    }

    void unregisterLayer(int id) {
        if (layers.count(id) != 0) cancel(layers[id]);
        layers.erase(id);
        logs.push_back(formatted("GFR: Unregistered layer %d", id));
    }

    void setActive(int id, bool active) {
        if (layers.count(id) == 0) return;
        layers[id].active = active;
        if (!active) cancel(layers[id]);
        logs.push_back(formatted("Layer %d %s GFR", id, active ? "enable" : "disable"));
    }

    void tune(int id, const GfrTunables& t) {
        if (layers.count(id) == 0) return;
        Layer& layer = layers[id];
        layer.tune = t;
        update(layer, layer.fps, true);
        logs.push_back(
                formatted("updateLayerTunables layer %d: dynamic=%d lowerBoost=%d "
                          "golden=%.2fvsync K=%.2f baseFreq=%d;%d;%d",
                          id, t.dynamic, t.lowerBoost, t.golden, t.kFactor, layer.base(0),
                          layer.base(1), layer.base(2)));
    }

    void begin(int id, nsecs_t time, nsecs_t frameTime, nsecs_t headroom) {
        if (layers.count(id) == 0 || !layers[id].active) return;
        Layer& layer = layers[id];
        if (layer.check != 0) traces.push_back("frame finish, [" + layer.name + "]");
        cancel(layer);
        layer.begin = time;
        layer.frameTime = frameTime;
        layer.headroom = headroom;
        traces.push_back(formatted("frameTime = %ld, frameHeadroom = %ld, jankHeadroom = %ld, [%s]",
                                   frameTime, vsync - frameTime, headroom, layer.name.c_str()));
        update(layer, 0, false);
        layer.deadline = vsync + headroom + time;
        layer.adjusted = 0;
        const bool isResent = layer.tune.flag / 2 % 2 == 1 &&
                              std::abs(frameTime - layer.previousFrameTime) > layer.resend;
        if (layer.boosted || isResent) hint(0, frameTime, id, 0);
        layer.boosted = false;
        layer.previousFrameTime = frameTime;
    }

    void end(int id, nsecs_t time, float fps) {
        if (layers.count(id) == 0 || !layers[id].active) return;
        Layer& layer = layers[id];
        layer.end = time;
        if (layer.tune.jankThresholds.empty()) return;
        if (std::fabs(layer.fps - fps) > 0.01f) update(layer, fps, false);
        if (layer.tune.dynamic && !layer.due.empty()) {
            const nsecs_t left = layer.deadline - (layer.due[0] + time);
            layer.adjusted = 0;
            if (left < layer.golden) {
                layer.adjusted = std::max(layer.deadline - time - layer.golden, layer.shortest);
            }
        }
        schedule(id, 0);
    }

    void drop(int id, int count) {
        if (layers.count(id) == 0) return;
        auto& drops = layers[id].drops;
        if (count >= 10) {
            drops.clear();
            traces.push_back(
                    formatted("[FrameDrop] Extreme drop detected (%d frames), reset window",
                              count));
            return;
        }
        drops.push_front(false);
        while (static_cast<int>(drops.size()) < count) drops.push_back(false);
        std::fill_n(drops.begin(), count, true);
        const Layer& layer = layers[id];
        traces.push_back(
                formatted("[FrameDrop] drops64=%d/64, drops32=%d/32, drops16=%d/16, "
                          "current=%d frames",
                          layer.dropsAmong(64), layer.dropsAmong(32), layer.dropsAmong(16), count));
    }

    nsecs_t nextCheck() const {
        nsecs_t when = kNever;
        for (const Check& check : checks) when = std::min(when, check.when);
        return when;
    }

    void runUntil(nsecs_t time) {
        while (nextCheck() <= time) {
            now = nextCheck();
            const auto next = std::find_if(checks.begin(), checks.end(),
                                           [this](const Check& c) { return c.when == now; });
            const Check check = *next;
            checks.erase(next);
            run(check);
        }
        now = time;
    }

    nsecs_t now = 0;
    nsecs_t vsync = -1;
    bool isRunning = false;
    std::map<int, Layer> layers;
    std::list<Check> checks;
    std::vector<std::string> hints;
    std::vector<std::string> logs;
    std::vector<std::string> traces;

  private:
    void update(Layer& layer, float fps, bool force) const {
        const nsecs_t period = fps > 0.01f ? static_cast<nsecs_t>(1e9f / fps) : vsync;
        if (!force && (period < 1 || period == layer.period)) return;
        layer.fps = fps;
        layer.period = period;
        layer.resend = times(0.2f, period);
        layer.shortest = times(0.8f, period);
        layer.golden = times(layer.tune.golden, period);
        layer.due.clear();
        for (float threshold : layer.tune.jankThresholds) {
            layer.due.push_back(times(threshold, period));
        }
    }

    void cancel(Layer& layer) {
        checks.remove_if([&](const Check& check) { return check.id == layer.check; });
        layer.check = 0;
    }

    void schedule(int id, int level) {
        Layer& layer = layers[id];
        // Without a period there is no time to check at.
        if (level >= layer.levels() || layer.period < 1) return;
        const size_t index = static_cast<size_t>(level);
        nsecs_t when = 0;
        if (level > 0) {
            when = now + layer.due[index] - layer.due[index - 1];
        } else if (layer.adjusted > 0) {
            when = layer.end + layer.adjusted;
            traces.push_back(
                    formatted("[GFR2.0] L0 timer adjusted: delayTime=%ldns", layer.adjusted));
        } else {
            when = layer.end + layer.due[0];
        }
        if (!isRunning) return;
        cancel(layer);  // of a buffer whose end was told before
        layer.check = ++mLastCheck;
        checks.push_back({mLastCheck, std::max(when, now), id, level, layer.begin});
    }

    void run(const Check& check) {
        if (layers.count(check.layer) == 0) return;
        Layer& layer = layers[check.layer];
        if (layer.begin != check.frame) {
            traces.push_back("frame finish, [" + layer.name + "]");
            return;
        }
        if (!layer.active || layer.check != check.id) return;
        int freq = layer.base(check.level);
        if (layer.tune.dynamic) freq = layer.lastBoost = boost(layer, check.level);
        layer.boosted = true;
        hint(check.level + 1, layer.headroom, check.layer, freq);
        layer.check = 0;
        schedule(check.layer, check.level + 1);
    }

    int boost(const Layer& layer, int level) {
        const int base = layer.base(level);
        if (level >= layer.levels()) {
            traces.push_back(formatted("[GFR2.0] Invalid level: %d", level));
            return base;
        }
        int flags = level == 0 && layer.adjusted > 0 ? 0x010 : 0;
        const nsecs_t left = layer.deadline - now;
        int freq = base;
        if (level + 1 == layer.levels()) {
            flags += 0x200;
        } else if (left < 0) {
            flags += 0x400;
            freq = std::max(layer.lastBoost, base);
        } else {
            freq = estimate(layer, left, base, flags);
        }
        traces.push_back(
                formatted("[GFR2.0] L%d: ttd=%ldns base=%d MHz final_freq=%d MHz flags=0x%03x",
                          level, left, base, freq, static_cast<unsigned>(flags)));
        return freq;
    }

    int estimate(const Layer& layer, nsecs_t left, int base, int& flags) {
        const nsecs_t golden = layer.golden;
        int freq = base;
        if (golden <= 0 || layer.period <= 0) {
            flags += 0x800;
            logs.push_back("[GFR2.0] Invalid golden threshold or targetFrameTime, using base freq");
        } else if (left <= 2 * golden) {
            const float used = static_cast<float>(2 * golden - left);
            const float gain = layer.tune.kFactor * used / static_cast<float>(golden) + 1.0f;
            freq = std::max(static_cast<int>(gain * static_cast<float>(base)), 0);
            flags += left > golden ? 0x004 : 0x008;
        } else {
            flags += layer.tune.lowerBoost ? 0x001 : 0x002;
            if (layer.tune.lowerBoost) freq = 0;
        }
        const int reasons = (layer.dropsAmong(16) > 0) + (layer.dropsAmong(64) >= 3);
        if (layer.tune.histJank && reasons > 0) {
            flags += reasons == 2 ? 0x040 : 0x020;
            freq += static_cast<int>(std::floor(freq / (reasons == 2 ? 2.0 : 4.0)));
        }
        if (freq < 100) {
            flags += 0x080;
            freq = 0;
        }
        if (freq > layer.top()) {
            flags += 0x100;
            freq = layer.top();
        }
        return freq;
    }

    void hint(int level, nsecs_t ns, int id, int freq) {
        const int low = static_cast<int>(ns);  // 32 bits go to the device
        hints.push_back(formatted("%d %d %d at %ld", level, low, freq, now));
        traces.push_back(formatted("[GFR_BOOST] GFR_IOCTL bl=%d hr=%d bf=%d, [id: %d]", level, low,
                                   freq, id));
    }

    int mLastCheck = 0;
};

GfrTunables someTunables(RandomSteps& steps) {
    GfrTunables t;
    t.flag = static_cast<int>(steps.below(4));
    const std::vector<float> thresholds[] =
            {{1.3f, 1.6f, 1.9f}, {1.25f, 1.5f}, {1.5f}, {1.3f, 1.7f, 1.9f}, {}, {1.5f, 1.25f}};
    t.jankThresholds = steps.pick(thresholds);
    t.baseFreq.resize(static_cast<size_t>(steps.below(4)));
    const int freqs[] = {-200, 0, 50, 66, 79, 80, 99, 100, 101, 500, 800, 2'000, 3'000, 4'000};
    for (int& freq : t.baseFreq) freq = steps.pick(freqs);
    t.dynamic = !steps.oneIn(4);
    t.lowerBoost = steps.oneIn(3);
    t.histJank = steps.oneIn(2);
    const float goldens[] = {0.0f, 0.25f, 0.5f, 0.6f, 0.6f, 1.0f};
    t.golden = steps.pick(goldens);
    const float factors[] = {0.5f, 1.0f, 1.0f, 2.0f, 5.0f, -1.0f};
    t.kFactor = steps.pick(factors);
    return t;
}

// A headroom that brings the deadline of a frame that begins and ends now to where the rules
// change, as one of the checks will see it.
nsecs_t someHeadroom(RandomSteps& steps, const Layer& layer, nsecs_t vsync) {
    if (layer.due.empty() || steps.oneIn(3)) return steps.below(20 * kMs);
    const nsecs_t ahead = layer.golden * steps.below(4) + steps.below(3) - 1;
    return ahead + steps.pick(layer.due) - vsync;
}

void act(RandomSteps& steps, GFRMonitor& monitor, Model& model) {
    const int id = static_cast<int>(7 + steps.below(2));
    const bool isKnown = model.layers.count(id) != 0;
    const nsecs_t now = Simulation::now();
    // Each as often as it stands here; the first five are all that a layer takes that is not
    // active.
    constexpr std::string_view kActs = "praasttddbbbbeee";
    const bool isActive = isKnown && model.layers[id].active;
    switch (kActs[static_cast<size_t>(steps.below(isActive ? 16 : 5))]) {
        case 'p': {
            const nsecs_t periods[] = {10 * kMs, 10 * kMs, 16 * kMs, 25 * kMs, 8'333'333, 0, -1};
            model.vsync = steps.pick(periods);
            steps.tell("period", model.vsync);
            return monitor.setVsyncInfo(model.vsync, 60);
        }
        case 'r': {
            const bool isReplaced = !isKnown || steps.oneIn(2);
            const std::string name = "Game %n%s " + std::to_string(now);
            steps.tell(isReplaced ? "register" : "unregister", id);
            isReplaced ? model.registerLayer(id, name) : model.unregisterLayer(id);
            return isReplaced ? monitor.registerLayer(id, name, "com.example.game")
                              : monitor.unregisterLayer(id);
        }
        case 'a': {
            const bool active = !steps.oneIn(4);
            steps.tell("active", id, active);
            model.setActive(id, active);
            return monitor.setGFRActive(id, active);
        }
        case 's': {
            if (model.isRunning && !steps.oneIn(8)) return;
            steps.tell(model.isRunning ? "stop" : "init");
            for (int times = steps.oneIn(2) ? 1 : 2; times > 0; --times) {
                model.isRunning ? monitor.forceStop() : void(monitor.init());
            }
            return model.isRunning ? model.stop() : model.init();
        }
        case 't': {
            const GfrTunables t = someTunables(steps);
            steps.tell("tunables", id, t.jankThresholds, t.baseFreq, t.dynamic, t.golden, t.flag);
            model.tune(id, t);
            return monitor.updateLayerTunables(id, t);
        }
        case 'd': {
            const int drops = static_cast<int>(steps.below(steps.oneIn(3) ? 12 : 2));
            steps.tell("drops", id, drops);
            // Sometimes behind frames on time that move older drops to where they count less.
            for (int64_t left = steps.oneIn(3) ? 1 + steps.below(40) : 1; left > 0; --left) {
                model.drop(id, left > 1 ? 0 : drops);
                monitor.updateFrameDropWindow(id, left > 1 ? 0 : drops);
            }
            return;
        }
        case 'b': {
            const Layer& layer = model.layers[id];
            const nsecs_t frameTimes[] = {4 * kMs, 5'000 * kMs, steps.below(20 * kMs),
                                          layer.previousFrameTime + layer.resend + steps.below(2),
                                          layer.previousFrameTime - layer.resend - steps.below(2)};
            const nsecs_t frameTime = steps.pick(frameTimes);
            const nsecs_t headroom = someHeadroom(steps, layer, model.vsync);
            const nsecs_t time = steps.oneIn(16) ? layer.begin : now;
            steps.tell("begin", id, time, frameTime, headroom);
            model.begin(id, time, frameTime, headroom);
            monitor.onQueueBegin(id, time, frameTime, headroom);
            if (steps.oneIn(4)) return;
            [[fallthrough]];
        }
        default: {
            const float rates[] = {0, 0, 0, 40, 40.008f, 40.012f, 50, 0.01f, 0.02f};
            const float fps = steps.pick(rates);
            const nsecs_t time = now - (steps.oneIn(3) ? steps.below(20 * kMs) : 0);
            steps.tell("end", id, time, fps);
            model.end(id, time, fps);
            return monitor.onQueueEnd(id, time, fps);
        }
    }
}

std::vector<std::string> hintsSent() {
    std::vector<std::string> hints;
    for (const auto& request : BoostDevice::requests()) {
        hints.push_back(formatted("%d %d %d at %ld", request.level, request.headroomNs,
                                  request.freqMHz, request.timeNs));
    }
    return hints;
}

void followTheModel(RandomSteps& steps) {
    Simulation simulation(1000 * kMs);
    const corvane::host::LogCapture log;
    BoostDevice::enable();
    corvane::host::PerfService::install();
    base::SetProperty("vendor.perf.corvane.debug", "1");
    base::SetProperty("vendor.perf.corvane.profile", "1");
    FeatureManager::getInstance();  // reads the properties
    GFRMonitor monitor;
    Model model;
    monitor.init();
    model.init();
    const auto events = tracedEvents([&] {
        while (steps.next()) {
            // The checks of two layers never fall due at once: their order would be the heap's.
            nsecs_t by = 1 + steps.below(1'000);
            if (steps.oneIn(3)) by = steps.below(12 * kMs);
            if (steps.oneIn(3) && model.nextCheck() < kNever) {
                by = model.nextCheck() - Simulation::now() - steps.below(2);
            }
            Simulation::advance(std::max<nsecs_t>(by, 1));
            model.runUntil(Simulation::now());
            act(steps, monitor, model);
            simulation.settle();
            model.runUntil(Simulation::now());
            steps.expectEq(model.hints, hintsSent(), "the hints");
            steps.expectEq(model.nextCheck() == kNever ? -1 : model.nextCheck(),
                           Simulation::nextDeadline(), "the next check");
            std::vector<std::string> lines;
            for (const auto& line : log.lines()) {
                if (line.tag == "Corvane.GFRMonitor") lines.push_back(line.text);
            }
            steps.expectEq(model.logs, lines, "the log");
        }
        monitor.forceStop();
    });
    std::vector<std::string> traces;
    for (const std::string& event : events) {
        if (event.rfind("B|", 0) == 0) traces.push_back(event.substr(2));
    }
    steps.expectEq(model.traces, traces, "the trace");
}

TEST(GFRModelTest, FramesAreRescuedAsDescribed) {
    RandomStepsRunner::run(/*sequences=*/60, /*steps=*/250, followTheModel);
}

}  // namespace
}  // namespace android
