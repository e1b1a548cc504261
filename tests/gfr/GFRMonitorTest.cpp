// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Frame rescue with its queue, thread and device, against a plain account of what each call and
// each check is to do; and what that leaves out: the thread itself, faults, where hints and
// tunables go and come from, and numbers that nothing sensible brings about.

#include <android-base/properties.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "DescriptorLimit.h"
#include "FramePathScheduling.h"
#include "RandomSteps.h"
#include "TracedEvents.h"
#include "corvane/host/Devices.h"
#include "corvane/host/LogCapture.h"
#include "corvane/host/PerfService.h"
#include "corvane/host/Simulation.h"
#include "corvane/host/Threads.h"
#include "features/FeatureManager.h"
#include "gfr/GFRMonitor.h"

namespace android {
namespace {

using corvane::host::BoostDevice;
using corvane::host::PerfService;
using corvane::host::Simulation;

constexpr nsecs_t kMs = 1'000'000;
constexpr nsecs_t kStart = 1000 * kMs;
constexpr nsecs_t kNever = INT64_MAX;

nsecs_t times(float factor, nsecs_t ns) {
    return static_cast<nsecs_t>(factor * static_cast<float>(ns));
}

struct Layer {
    int id;
    std::string name;
    GfrTunables tune{};
    bool active = false, boosted = false;
    float fps = 0;
    std::vector<nsecs_t> due{};  // after queue end, by level
    nsecs_t period = -1, golden = 0, resend = 0;
    nsecs_t begin = 0, end = 0, frameTime = 0, headroom = 0, deadline = 0;
    nsecs_t shortest = 0, adjusted = 0;  // delays of the first check
    nsecs_t checkAt = kNever;
    int level = 0;  // of that check
    int lastBoost = 0;
    std::string drops{};  // a digit for each frame, newest first

    int base(int of) const {
        return of < static_cast<int>(tune.baseFreq.size()) ? *(tune.baseFreq.begin() + of) : 0;
    }
    int levels() const { return static_cast<int>(due.size()); }
    int dropsAmong(size_t frames) const {
        const std::string newest = drops.substr(0, frames);
        return static_cast<int>(std::count(newest.begin(), newest.end(), '1'));
    }
};

class Model : public ModelLines {
  public:
    void init() {
        if (isRunning) return;
        isRunning = true;
        log("GFRMonitor thread started");
    }

    void stop() {
        if (!isRunning) return;
        isRunning = false;
        layers.clear();
        mOrphans.clear();
        log("GFRMonitor thread exited");
        log("GFRMonitor stopped");
    }

    void registerLayer(int id, const std::string& name) {
        if (Layer* old = find(id); old && old->checkAt < kNever) {
            mOrphans[old->checkAt] = {id, old->begin};
        }
        layers.erase(id);
        Layer& layer = layers.insert({id, {id, name}}).first->second;
        update(layer, 0, false);
        log("GFR Layer %d (%s): dynamic=false allowSkipOrLower=false golden=0.60vsync K=1.00 "
            "baseFreq=500;800;3000",
            id, name.c_str());
    }

    void unregisterLayer(int id) {
        layers.erase(id);
        log("GFR: Unregistered layer %d", id);
    }

    void setActive(Layer& layer, bool active) {
        layer.active = active;
        if (!active) layer.checkAt = kNever;
        log("Layer %d %s GFR", layer.id, active ? "enable" : "disable");
    }

    void tune(Layer& layer, const GfrTunables& t) {
        layer.tune = t;
        update(layer, layer.fps, true);
        log("updateLayerTunables layer %d: dynamic=%d lowerBoost=%d golden=%.2fvsync K=%.2f "
            "baseFreq=%d;%d;%d",
            layer.id, t.dynamic, t.lowerBoost, t.golden, t.kFactor, layer.base(0), layer.base(1),
            layer.base(2));
    }

    void begin(Layer& layer, nsecs_t time, nsecs_t frameTime, nsecs_t headroom) {
        if (layer.checkAt < kNever) trace("frame finish, [%s]", layer.name.c_str());
        layer.checkAt = kNever;
        layer.begin = time;
        layer.headroom = headroom;
        trace("frameTime = %ld, frameHeadroom = %ld, jankHeadroom = %ld, [%s]", frameTime,
              vsync - frameTime, headroom, layer.name.c_str());
        update(layer, 0, false);
        layer.deadline = vsync + headroom + time;
        layer.adjusted = 0;
        const bool isResent = layer.tune.flag / 2 % 2 == 1 &&
                              std::abs(frameTime - layer.frameTime) > layer.resend;
        if (layer.boosted || isResent) hint(0, frameTime, layer.id, 0);
        layer.boosted = false;
        layer.frameTime = frameTime;
    }

    void end(Layer& layer, nsecs_t time, float fps) {
        layer.end = time;
        if (layer.tune.jankThresholds.empty()) return;
        if (std::fabs(layer.fps - fps) > 0.01f) update(layer, fps, false);
        if (layer.tune.dynamic && !layer.due.empty()) {
            const bool isLate = layer.deadline - (layer.due[0] + time) < layer.golden;
            const nsecs_t delay = layer.deadline - time - layer.golden;
            layer.adjusted = isLate ? std::max(delay, layer.shortest) : 0;
        }
        schedule(layer, 0);
    }

    void drop(Layer& layer, int count) {
        if (count >= 10) {
            layer.drops.clear();
            return trace("[FrameDrop] Extreme drop detected (%d frames), reset window", count);
        }
        const auto bits = static_cast<size_t>(count);
        layer.drops.insert(0, "0").replace(0, bits, std::string(bits, '1'));
        trace("[FrameDrop] drops64=%d/64, drops32=%d/32, drops16=%d/16, current=%d frames",
              layer.dropsAmong(64), layer.dropsAmong(32), layer.dropsAmong(16), count);
    }

    nsecs_t nextCheck() const {
        nsecs_t when = mOrphans.empty() ? kNever : mOrphans.begin()->first;
        for (const auto& [id, layer] : layers) when = std::min(when, layer.checkAt);
        return when;
    }

    void runUntil(nsecs_t time) {
        while (nextCheck() <= time) {
            now = nextCheck();
            size_t due = mOrphans.count(now);
            for (const auto& [id, layer] : layers) due += layer.checkAt == now;
            isTied |= due > 1;
            if (!mOrphans.empty() && mOrphans.begin()->first == now) {
                const auto [id, frame] = mOrphans.begin()->second;
                mOrphans.erase(now);
                const Layer* layer = find(id);
                const bool isNewFrame = layer != nullptr && layer->begin != frame;
                if (isNewFrame) trace("frame finish, [%s]", layer->name.c_str());
            }
            for (auto& [id, layer] : layers) {
                if (layer.checkAt == now) check(layer);
            }
        }
        now = time;
    }

    Layer* find(int id) { return layers.count(id) == 0 ? nullptr : &layers.at(id); }

    nsecs_t now = 0, vsync = -1;
    bool isRunning = false;
    bool isTied = false;  // of two checks due at once, which comes first is the heap's choice
    std::map<int, Layer> layers;
    std::vector<std::string> hints;

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

    void schedule(Layer& layer, int level) {
        // Without a period there is no time to check at.
        if (level >= layer.levels() || layer.period < 1) return;
        const auto due = layer.due.begin() + level;
        nsecs_t when = level > 0 ? now + due[0] - due[-1] : layer.end + due[0];
        if (level == 0 && layer.adjusted > 0) {
            when = layer.end + layer.adjusted;
            trace("[GFR2.0] L0 timer adjusted: delayTime=%ldns", layer.adjusted);
        }
        if (!isRunning) return;
        layer.checkAt = std::max(when, now);
        layer.level = level;
    }

    void check(Layer& layer) {
        const int level = layer.level;
        int freq = layer.base(level);
        if (layer.tune.dynamic) freq = layer.lastBoost = boost(layer, level);
        layer.boosted = true;
        hint(level + 1, layer.headroom, layer.id, freq);
        layer.checkAt = kNever;
        schedule(layer, level + 1);
    }

    int boost(const Layer& layer, int level) {
        const int base = layer.base(level);
        if (level >= layer.levels()) {
            trace("[GFR2.0] Invalid level: %d", level);
            return base;
        }
        unsigned flags = level == 0 && layer.adjusted > 0 ? 0x010 : 0;
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
        trace("[GFR2.0] L%d: ttd=%ldns base=%d MHz final_freq=%d MHz flags=0x%03x", level, left,
              base, freq, flags);
        return freq;
    }

    int estimate(const Layer& layer, nsecs_t left, int base, unsigned& flags) {
        const nsecs_t golden = layer.golden;
        int freq = base;
        if (golden <= 0 || layer.period <= 0) {
            flags += 0x800;
            log("[GFR2.0] Invalid golden threshold or targetFrameTime, using base freq");
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
        const auto& freqs = layer.tune.baseFreq;
        const int top = freqs.empty() ? 3'000 : std::min(freqs.back(), 3'000);
        if (freq < 100) flags += 0x080;
        if (freq < 100) freq = 0;
        if (freq > top) flags += 0x100;
        return std::min(freq, top);
    }

    void hint(int level, nsecs_t ns, int id, int freq) {
        const int low = static_cast<int>(ns);  // 32 bits go to the device
        hints.push_back(formatted("%d %d %d at %ld", level, low, freq, now));
        trace("[GFR_BOOST] GFR_IOCTL bl=%d hr=%d bf=%d, [id: %d]", level, low, freq, id);
    }

    // Checks of records that were replaced, by when: their layers and frames.
    std::map<nsecs_t, std::pair<int, nsecs_t>> mOrphans;
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
    t.golden = steps.pick(std::vector{0.0f, 0.25f, 0.5f, 0.6f, 0.6f, 1.0f});
    t.kFactor = steps.pick(std::vector{0.5f, 1.0f, 1.0f, 2.0f, 5.0f, -1.0f});
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
    Layer* const layer = model.find(id);
    const Layer is = layer != nullptr ? *layer : Layer{id, ""};
    const nsecs_t now = Simulation::now();
    // Each as often as it stands here; the first five are all that a layer mostly takes that is not
    // active.
    constexpr std::string_view kActs = "praasttddbbbbeee";
    const char kind = kActs[static_cast<size_t>(steps.below(is.active || steps.oneIn(9) ? 16 : 5))];
    const GfrTunables t = someTunables(steps);
    const int drops = static_cast<int>(steps.below(steps.oneIn(3) ? 12 : 2));
    const std::string name = "Game %n%s " + std::to_string(now);
    const bool stops = steps.oneIn(2);
    const bool isSeldom = steps.oneIn(4);
    const nsecs_t frameTime =
            steps.pick(std::vector<nsecs_t>{4 * kMs, 5'000 * kMs, steps.below(20 * kMs),
                                            is.frameTime + is.resend + steps.below(2),
                                            is.frameTime - is.resend - steps.below(2)});
    const nsecs_t headroom = someHeadroom(steps, is, model.vsync);
    const float fps =
            steps.pick(std::vector{0.f, 0.f, 0.f, 40.f, 40.008f, 40.012f, 50.f, .01f, .02f});
    // Also a frame with the identity of one before, perhaps of a record that was replaced.
    const nsecs_t begin = steps.oneIn(is.begin == 0 ? 2 : 16) ? is.begin : now;
    const nsecs_t end = now - (steps.oneIn(3) ? steps.below(20 * kMs) : 0);
    steps.tell("act", kind, id, isSeldom, drops, begin, frameTime, headroom, end, fps);
    switch (kind) {
        case 'p':
            model.vsync = steps.pick(
                    std::vector<nsecs_t>{10 * kMs, 10 * kMs, 16 * kMs, 25 * kMs, 8'333'333, 0, -1});
            return monitor.setVsyncInfo(model.vsync, 60);
        case 'r':
            if (layer != nullptr && steps.oneIn(2)) {
                model.unregisterLayer(id);
                return monitor.unregisterLayer(id);
            }
            model.registerLayer(id, name);
            return monitor.registerLayer(id, name, "com.example.game");
        case 'a':
            if (layer != nullptr) model.setActive(*layer, !isSeldom);
            return monitor.setGFRActive(id, !isSeldom);
        case 's':
            if (model.isRunning && !steps.oneIn(8)) return;
            stops ? model.stop() : model.init();
            return stops ? monitor.forceStop() : void(monitor.init());
        case 't':
            steps.tell("to", t.jankThresholds, t.baseFreq, t.dynamic, t.golden, t.flag);
            if (layer != nullptr) model.tune(*layer, t);
            return monitor.updateLayerTunables(id, t);
        case 'd':
            // Sometimes behind frames on time that move older drops to where they count less.
            for (int64_t left = isSeldom ? 1 + steps.below(40) : 1; left > 0; --left) {
                if (layer != nullptr) model.drop(*layer, left > 1 ? 0 : drops);
                monitor.updateFrameDropWindow(id, left > 1 ? 0 : drops);
            }
            return;
        case 'b':
            if (is.active) model.begin(*layer, begin, frameTime, headroom);
            monitor.onQueueBegin(id, begin, frameTime, headroom);
            if (isSeldom) return;
            [[fallthrough]];
        default:
            if (is.active) model.end(*layer, end, fps);
            return monitor.onQueueEnd(id, end, fps);
    }
}

void followTheModel(RandomSteps& steps) {
    Simulation simulation(kStart);
    const corvane::host::LogCapture log;
    BoostDevice::enable();
    PerfService::install();
    base::SetProperty("vendor.perf.corvane.debug", "1");
    base::SetProperty("vendor.perf.corvane.profile", "1");
    FeatureManager::getInstance();  // reads the properties
    GFRMonitor monitor;
    Model model;
    monitor.init();
    model.init();
    const auto events = tracedEvents([&] {
        while (steps.next()) {
            nsecs_t by = steps.below(steps.oneIn(3) ? 12 * kMs : 1'000);
            if (steps.oneIn(3) && model.nextCheck() < kNever) {
                by = model.nextCheck() - Simulation::now() - steps.below(2);
            }
            by = std::max<nsecs_t>(by, 1);
            // Seldom just when a check is due, lest those of two layers are due at once ever after.
            if (Simulation::now() + by == model.nextCheck() && !steps.oneIn(9)) ++by;
            Simulation::advance(by);
            model.runUntil(Simulation::now());
            act(steps, monitor, model);
            simulation.settle();
            model.runUntil(Simulation::now());
            if (model.isTied) return monitor.forceStop();
            std::vector<std::string> hints;
            for (const auto& sent : BoostDevice::requests()) {
                hints.push_back(formatted("%d %d %d at %ld", sent.level, sent.headroomNs,
                                          sent.freqMHz, sent.timeNs));
            }
            steps.expectEq(model.hints, hints, "the hints");
            steps.expectEq(model.nextCheck() == kNever ? -1 : model.nextCheck(),
                           Simulation::nextDeadline(), "the next check");
        }
        monitor.forceStop();
    });
    if (model.isTied) return;
    model.stop();
    std::vector<std::string> lines, traces;
    for (const auto& line : log.lines()) {
        if (line.tag == "Corvane.GFRMonitor") lines.push_back(line.text);
    }
    steps.expectEq(model.logs, lines, "the log");
    for (const std::string& event : events) {
        if (event.rfind("B|", 0) == 0) traces.push_back(event.substr(2));
    }
    steps.expectEq(model.traces, traces, "the trace");
}

TEST(GFRModelTest, FramesAreRescuedAsDescribed) {
    RandomStepsRunner::run(/*sequences=*/60, /*steps=*/250, followTheModel);
}

constexpr nsecs_t kPeriod = 10 * kMs;
constexpr int kLayer = 7;
constexpr char kPackage[] = "com.example.game";

// A running monitor in simulated time, its one layer active.
class GFRMonitorTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(PerfService::install());
        ASSERT_TRUE(monitor.init());
        monitor.setVsyncInfo(kPeriod, 90);
        addLayer();
    }

    void addLayer() {
        monitor.registerLayer(kLayer, "Game", kPackage);
        monitor.setGFRActive(kLayer, true);
    }

    // A frame whose buffer was queued at once; when its first check is due.
    nsecs_t queueFrame() {
        monitor.onQueueBegin(kLayer, Simulation::now(), 4 * kMs, 7 * kMs);
        monitor.onQueueEnd(kLayer, Simulation::now(), 0.0f);
        return Simulation::nextDeadline();
    }

    Simulation simulation{kStart};
    corvane::host::LogCapture log;
    GFRMonitor monitor;
};

TEST_F(GFRMonitorTest, ALateFrameIsBoostedInStagesAndReleasedByTheNext) {
    BoostDevice::enable();
    static std::vector<std::string> hints;
    BoostDevice::setListener([](const corvane::host::BoostRequest& request) {
        char thread[16];
        pthread_getname_np(pthread_self(), thread, sizeof(thread));
        hints.push_back(formatted("%d %d %d after %ld ms", request.level, request.headroomNs,
                                  request.freqMHz, (request.timeNs - kStart) / kMs) +
                        (request.level > 0 ? thread : ""));
    });
    queueFrame();
    Simulation::advance(100 * kMs);
    queueFrame();
    const std::vector<std::string> expected = {"1 7000000 500 after 13 msBLT",
                                               "2 7000000 800 after 16 msBLT",
                                               "3 7000000 3000 after 19 msBLT",
                                               "0 4000000 0 after 100 ms"};
    EXPECT_EQ(expected, hints);
    expectFramePathScheduling("BLT");
}

TEST_F(GFRMonitorTest, WithoutADeviceTheServiceIsAsked) {
    FeatureManager::getInstance()->setGFRProp("1.4;1.7", {1});  // for all packages
    addLayer();
    EXPECT_EQ(kStart + 14 * kMs, queueFrame());
    Simulation::advance(14 * kMs);
    queueFrame();
    simulation.settle();
    const auto calls = PerfService::calls("perf_event", 4186);
    ASSERT_EQ(2u, calls.size());
    EXPECT_EQ((std::vector<int>{1, 7'000'000}), calls[0].args);
    EXPECT_EQ((std::vector<int>{0, 4'000'000}), calls[1].args);
    EXPECT_EQ(kPackage, calls[1].package);
}

TEST_F(GFRMonitorTest, MayFailToStartAndStartLater) {
    monitor.forceStop();
    corvane::host::failThreadCreation(1);
    EXPECT_FALSE(monitor.init());
    EXPECT_EQ(1u, log.count("Failed to create GFRMonitor thread"));
    {
        const ScopedDescriptorLimit none(0);
        EXPECT_FALSE(monitor.init());
    }
    addLayer();
    EXPECT_EQ(-1, queueFrame());
    ASSERT_TRUE(monitor.init());
    EXPECT_TRUE(monitor.init()) << "it runs already";
    EXPECT_EQ(kStart + 13 * kMs, queueFrame()) << "the layer was registered meanwhile";
    monitor.setVsyncInfo(1, 90);
    EXPECT_EQ(kStart + 1, queueFrame());
}

TEST_F(GFRMonitorTest, TimesAtTheEndsOfTheirRangeDoNotOverflow) {
    GfrTunables tunables;
    tunables.dynamic = true;
    tunables.flag = 2;
    for (nsecs_t a : {INT64_MIN, nsecs_t{-1}, nsecs_t{1}, INT64_MAX}) {
        for (nsecs_t b : {INT64_MIN, nsecs_t{-1}, nsecs_t{1}, INT64_MAX}) {
            monitor.setVsyncInfo(a, 0);
            monitor.updateLayerTunables(kLayer, tunables);
            monitor.onQueueBegin(kLayer, a, b, a);
            monitor.onQueueEnd(kLayer, b, 0.0f);
            monitor.onQueueEnd(kLayer, a, INFINITY);
        }
    }
    Simulation::advance(kMs);
}

FrameDeadlines at(nsecs_t period, float fps = 0.0f, const GfrTunables& tunables = {}) {
    FrameDeadlines deadlines;
    deadlines.update(period, fps, tunables, /*resendVariation=*/0.25f, /*force=*/false);
    return deadlines;
}

TEST(GFRArithmeticTest, BoostsEndAtTheirLimits) {
    FrameDeadlines deadlines = at(kPeriod);  // golden: 6 ms
    GfrTunables tunables;
    const auto boost = [&](nsecs_t ttd, int32_t base) {
        const BoostDecision decision = calculateFrequencyByTTD(deadlines, tunables, ttd, base);
        return std::pair(decision.freqMHz, decision.flags);
    };
    EXPECT_EQ(std::pair(500, 0x004u), boost(12 * kMs, 500));
    EXPECT_EQ(std::pair(1000, 0x008u), boost(6 * kMs, 500));
    EXPECT_EQ(std::pair(INT32_MAX, 0x008u), boost(0, INT32_MAX));
    EXPECT_EQ(std::pair(INT32_MAX, 0x008u), boost(INT64_MIN, 500));
    tunables.kFactor = NAN;
    EXPECT_EQ(std::pair(0, 0x008u), boost(0, 500));
    tunables.kFactor = 1.0f;
    deadlines.goldenNs = INT64_MAX;
    EXPECT_EQ(std::pair(1000, 0x008u), boost(0, 500));
    deadlines.goldenNs = 1;
    EXPECT_EQ(std::pair(1500, 0x008u), boost(0, 500));
    const FrameDropWindow window;
    BoostInputs inputs(deadlines, tunables, window);
    inputs.level = -1;
    EXPECT_FALSE(decideBoost(inputs));
    deadlines.periodNs = 0;
    EXPECT_EQ(std::pair(500, 0x800u), boost(0, 500));
}

TEST(GFRArithmeticTest, DeadlinesEndAtTheirLimits) {
    EXPECT_EQ(1, at(1).periodNs);
    EXPECT_EQ(16'666'667, at(kPeriod, 60.0f).periodNs);  // 1e9 / 60 in float, truncated
    for (float none : {-40.0f, NAN, INFINITY}) {
        EXPECT_EQ(none == INFINITY ? -1 : kPeriod, at(kPeriod, none).periodNs) << none;
    }
    GfrTunables tunables;
    tunables.jankThresholds = {1.3f, INFINITY, -1e30f, NAN};
    tunables.golden = -INFINITY;
    const FrameDeadlines d = at(INT64_MAX, 0.0f, tunables);
    EXPECT_EQ((std::vector<nsecs_t>{INT64_MAX, INT64_MAX, INT64_MIN, 0}), d.jankDeadlinesNs);
    EXPECT_EQ(INT64_MIN, d.goldenNs);
    EXPECT_EQ(1, d.checkDelayNs(0, 0, 0, /*l0DelayNs=*/1));
}

}  // namespace
}  // namespace android
