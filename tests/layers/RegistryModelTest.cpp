// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// The registry against a plain model of it: random frames, latches, vsyncs, pauses, settings,
// fences, stops and starts, with any of the switches on or off. After each step the layers'
// records, the lines of the registry and of what it asked of the monitors, the calls to the service
// and the deadlines of fences must be the model's.

#include <android-base/properties.h>
#include <errno.h>
#include <ui/Rect.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "RandomSteps.h"
#include "corvane/host/Devices.h"
#include "corvane/host/LogCapture.h"
#include "corvane/host/PerfService.h"
#include "corvane/host/Simulation.h"
#include "corvane/host/Threads.h"
#include "features/FeatureManager.h"
#include "layers/LayerInfo.h"
#include "layers/LayerManager.h"
#include "perf/PerfProxy.h"

namespace android {
namespace {

using corvane::host::LogCapture;
using corvane::host::PerfCall;
using corvane::host::PerfService;
using corvane::host::Simulation;
using corvane::host::SyncFiles;
using Strings = std::vector<std::string>;

constexpr nsecs_t kMs = 1'000'000;
constexpr nsecs_t kSecond = 1'000'000'000;

// Who draws. The first applications have no pid or uid of their own.
struct Producer {
    int app;
    std::string name, package;
    int uid() const { return app; }
    int pid() const { return app - 1; }
};

std::string packageOf(int app) {
    return app == 3 ? "com.tencent.mm" : "com.example.app" + std::to_string(app);
}
bool isGame(int app) {
    return app % 2 == 0;
}

// Layer ids go to other applications once they are `swapped`.
Producer producerOf(int id, bool swapped) {
    const std::string number = "#" + std::to_string(id);
    if (id >= 30) return {id - 30, "Splash" + number, ""};
    const int app = id > 20 ? id - 20 : swapped ? (id + 1) % 13 : id;
    const std::string package = packageOf(app);
    if (id > 20) return {app, "SurfaceView[" + package + "/AppBrandUI]" + number, package};
    return {app, "VRI-" + package + "/Main" + number, package};
}

int percent(float rate) {
    return static_cast<int>(std::lround(rate * 100));
}

struct Switches {
    bool touch, pacing, compensation, ramps, bigJank, fences, profile, worker;
};

struct ModelLayer {
    int id = 0;
    Producer producer;
    std::string package, scene;
    bool focused = true, visible = true, game = false, active = true;
    int weight = -1, mode = -1;
    Rect bounds = Rect::INVALID_RECT;
    bool rescueAllowed = false, rescued = false, atRescue = false;
    bool headroomAllowed = false, atHeadroom = false, paced = false;
    int target = 0, pacerTarget = 0, rate = 0, highRate = 0, matches = 0, depth = 0;
    bool pacing = false;  // as the monitor was told
    nsecs_t queued = 0, ended = 0, gap = 0, toPresent = 0, first = 0, anchor = 0, removeAt = 0;
    std::vector<nsecs_t> intervals;  // all there were
    nsecs_t windowStart = -1, measuredAt = 0;
    int frames = 0, fence = -1;
    std::string origin;  // of its fences, once known
    float fps = 0;

    const char* name() const { return producer.name.c_str(); }
};

class Model {
  public:
    explicit Model(const Switches& switches) : on(switches) {}

    const Switches on;
    Strings log;
    std::vector<std::pair<nsecs_t, std::string>> calls;
    std::vector<int> deadlines;
    std::map<int, ModelLayer> layers;
    nsecs_t now = 0, period = 0, lastCleanup = 0;
    int threadFailures = 0, fenceQuestions = 0;
    bool infoFails = false, deadlineFails = false;

    void init() {
        if (std::exchange(mRunning, true)) return;
        if (on.bigJank) mThreshold = mThresholdProperty;
        log.push_back("LayerManager initialized");
    }
    void stop() {
        if (!std::exchange(mRunning, false)) return;
        if (std::exchange(mRescueStarted, false)) log.push_back("GFRMonitor stopped");
        if (std::exchange(mHeadroomStarted, false)) log.push_back("PHRMonitor stopped");
        layers.clear();
        mCandidates.clear();
        mApps.clear();
        mCandidatesFull = false;
    }

    void setPeriod(nsecs_t ns, int mode) {
        if (ns == period) return;
        period = ns;
        mDisplayMode = mode;
        if (mode == 0) return say("Unexpected vsync received: %ld", ns);
        if (mRescueStarted) mRescuePeriod = ns;
        if (mHeadroomStarted && std::exchange(mHeadroomPeriod, ns) != ns) {
            mHeadroomMode = mode;
            for (const auto& [id, layer] : layers) setHeadroom(layer);
        }
        say("vsync: %ld", ns);
    }

    void queue(int id, const Producer& producer) {
        if (id < 1) return;
        if (layers.count(id) == 0 && !promote(id, producer)) return;
        if (layers.count(id) == 0) return;  // dropped at once
        ModelLayer& layer = layers[id];
        if (!layer.active) layer.removeAt = 0;
        layer.active = true;
        const nsecs_t previous = std::exchange(layer.queued, now);
        layer.gap = now - layer.ended;
        const nsecs_t phase = layer.anchor > 0 && period > 0 ? (now - layer.anchor) % period : 0;
        layer.toPresent = period - phase + period * layer.depth;
        if (layer.depth++ == 0) layer.first = now;
        if (previous != 0) measure(layer, now - previous);
        if (mThreshold >= 1 && layer.mode >= 30 && layer.gap >= mThreshold * kMs) {
            if (on.worker) event(4186, layer.package, "5 0 ");
            say("Send CPU big jank [%s].", layer.name());
        }
        if (layer.rescued && on.profile) {
            say("frameTime = %ld, frameHeadroom = %ld, jankHeadroom = %ld, [%s]", layer.gap,
                mRescuePeriod - layer.gap, layer.toPresent, layer.name());
        }
    }
    void queueEnded(int id) {
        if (layers.count(id) > 0) layers[id].ended = now;
    }

    void latch(int id, int pending, const Rect& bounds, bool focused, bool visible) {
        if (layers.count(id) == 0) return;
        ModelLayer& layer = layers[id];
        if (layer.rescued && on.profile) {
            const bool known = period > 0 && layer.anchor > 0;
            const nsecs_t periods = known ? (now + period / 2 - layer.anchor) / period : 0;
            say("%ld dropped", std::max<nsecs_t>(periods, 1) - 1);
        }
        layer.anchor = now;
        --layer.depth;
        if (layer.depth < 0 || (layer.depth != pending && now - layer.queued > 2'000'000)) {
            layer.depth = pending;
        }
        layer.bounds = bounds;
        layer.focused = focused;
        layer.visible = visible;
        const int uid = layer.producer.uid();
        if (focused && std::exchange(mFocusedUid, uid) != uid) {
            checkSceneSoon();
            say("Focused app changed: uid %d, [latched]", uid);
        }
        if (mApps.count(uid) > 0) mApps[uid].second = now;
    }

    void vsync() {
        if (lastCleanup > 0 && now - lastCleanup <= 3 * kSecond) return;
        if (std::exchange(lastCleanup, now) <= 0) return;
        cleanUp();
        if (!mForceScene && mScheduled == 0) checkScenes();
    }

    void fence(bool notify, int fd, const std::string& name, int id) {
        if ((!notify && !on.fences) || layers.count(id) == 0) return;
        ModelLayer& layer = layers[id];
        if (notify) layer.fence = -1;
        if (!isGpus(layer, fd, name)) return;
        if (!notify) {
            layer.fence = fd;
        } else if (layer.first != 0 && period > 0 && !isYoung(layer)) {
            hurry(fd);
        }
    }
    void flush() {
        for (auto& [id, layer] : layers) {
            const int fd = std::exchange(layer.fence, -1);
            if (fd >= 0 && period > 0 && layer.first != 0 && !isYoung(layer)) hurry(fd);
        }
    }

    void threshold(int ms) {
        if (!on.bigJank) return;
        mThresholdProperty = ms;
        if (!isRunning()) return;
        mThreshold = ms;
        say("OnFeatureConfigChanged - CPU_BIG_JANK: mCpuBigJankThreshold=%dms", ms);
    }
    void reportLater() {
        if (!isRunning()) return;
        log.push_back("OnFeatureConfigChanged - ACTV_IF_CONCURRENCY");
        if (!on.worker) return;
        ++mScheduled;
        mTasks.insert({now + 3 * kSecond, [this] {
                           cleanUp();
                           mForceScene = true;
                           --mScheduled;
                           checkScenes();
                       }});
    }
    void awaitApp(const std::string& package) {
        mAwaited = package;
        if (!isRunning()) return;
        mChecked = package;
        mMisses = 0;
        say("OnFeatureConfigChanged - ACTV_NON_GAME_RESUME: checkingAliveApp=%s", package.c_str());
    }
    void switching(bool over) {
        if (!isRunning()) return;
        say("OnFeatureConfigChanged - ACTV_SWITCHING: mActvStable=%s", over ? "true" : "false");
    }

    void headroomChanged(const std::string& package) {
        for (ModelLayer* layer : layersOf(package)) {
            if (!layer->game) continue;
            applyHeadroom(*layer, /*least=*/2);
            say("OnFeatureConfigChanged - QUICK_TOUCH: set enabled=%d, phrMinRate=%.2f, "
                "highFpsPhrMinRate=%.2f, pkgName=%s",
                layer->headroomAllowed, layer->rate / 100.0, layer->highRate / 100.0,
                layer->package.c_str());
        }
    }
    void rescueChanged(const std::string& package) {
        bool told = false;
        for (ModelLayer* layer : layersOf(package)) {
            if (!mayBeRescued(*layer)) continue;
            applyRescue(*layer);
            if (std::exchange(told, true)) continue;
            say("OnFeatureConfigChanged - FRAME_RESCUE: gfrEnabled=%d, pkgName=%s",
                layer->rescueAllowed, layer->package.c_str());
        }
    }
    void paceChanged(const std::string& package) {
        bool told = false;
        for (ModelLayer* layer : layersOf(package)) {
            if (!layer->game || !on.pacing) continue;
            applyPace(*layer);
            if (std::exchange(told, true)) continue;
            say("OnFeatureConfigChanged - TARGET_FPS: targetFps=%d.00, pkgName=%s", layer->target,
                layer->package.c_str());
        }
    }

    void cleanUp() {
        cleanLayers();
        cleanCandidates();
    }

    // The boost worker, until this time.
    void runTasks(nsecs_t until) {
        while (!mTasks.empty()) {
            const nsecs_t at = std::max(mTasks.begin()->first, mBusyUntil);
            if (at > until) break;
            const auto task = mTasks.begin()->second;
            now = std::max(now, at);
            mTasks.erase(mTasks.begin());
            task();
        }
        now = until;
    }
    void holdWorker(nsecs_t duration) {
        post([this, duration] { mBusyUntil = now + duration; });
    }

  private:
    // What is configured is not the registry's.
    static const FeatureManager& features() { return *FeatureManager::getInstance(); }

    struct Candidate {
        nsecs_t start, last;
        int count;
        std::string package;
    };

    template <typename... Args>
    void say(const char* format, Args... args) {
        log.push_back(formatted(format, args...));
    }
    bool isRunning() {
        if (!mRunning) log.push_back("LayerManager not initialized");
        return mRunning;
    }
    void post(std::function<void()> task) {
        if (on.worker) mTasks.insert({now, std::move(task)});
    }
    void event(int number, const std::string& package, const std::string& args) {
        const std::string text = formatted("perf_event %d ", number) + package + " " + args;
        if (!on.worker) return call(text);
        post([this, text] { call(text); });
    }
    void call(const std::string& text) { calls.emplace_back(now, text); }
    void checkSceneSoon() {
        mForceScene = on.worker;
        post([this] { checkScenes(); });
    }

    void cleanLayers() {
        std::vector<int> other, remove;
        for (auto& [id, layer] : layers) {
            if (layer.active && layer.queued > 0 && now - layer.queued > kSecond) {
                layer.active = false;
                layer.removeAt = now + kSecond;
                say("Layer %d [%s] marked for removal (no frame update within 1s)", id,
                    layer.name());
                if (layer.rescued) setRescued(layer, false);
            }
            if (layer.active ? !layer.visible || layer.mode <= 29 : now >= layer.removeAt) {
                (layer.active ? other : remove).push_back(id);
            }
        }
        // What is just promoted has no mode: by these calls, dropping such layers always suffices.
        if (layers.size() - remove.size() >= 5) {
            remove.insert(remove.end(), other.begin(), other.end());
        }
        for (const int id : remove) {
            const ModelLayer layer = layers[id];
            if (layer.atRescue) say("GFR: Unregistered layer %d", id);
            if (layer.atHeadroom) say("Layer %d destroyed", id);
            layers.erase(id);
            if (mFastest == id) pickFastest();
            say("Unregistered layer %d: [%s]", id, layer.name());
        }
    }

    void cleanCandidates() {
        std::vector<std::pair<nsecs_t, int>> byAge;
        for (const auto& [id, candidate] : mCandidates) byAge.emplace_back(candidate.last, id);
        std::sort(byAge.begin(), byAge.end());
        for (const auto& [last, id] : byAge) {
            if (now - last <= 2 * kSecond) continue;
            mCandidates.erase(id);
            say("Remove candidate layer [%d]", id);
        }
        if (mCandidates.size() <= 10) {
            if (mCandidatesFull && mCandidates.size() <= 5) {
                mCandidatesFull = false;
                log.push_back("Candidate layer count dropped back within the tracking limit.");
            }
            return;
        }
        for (const auto& [last, id] : byAge) {
            if (mCandidates.size() == 10) break;
            if (mCandidates.erase(id) > 0) say("Force remove candidate layer [%d]", id);
        }
        if (!std::exchange(mCandidatesFull, true)) {
            log.push_back("Candidate layer count reached maximum tracking limit.");
        }
    }

    bool promote(int id, const Producer& producer) {
        const int uid = producer.uid();
        const auto found = mCandidates.find(id);
        if (found == mCandidates.end()) {
            if (mCandidatesFull) return false;
            std::string package = producer.package;
            if (package.empty() && mApps.count(uid) > 0) {
                package = mApps[uid].first;
                mApps[uid].second = now;
                say("Layer [%s] get pkg from AppInfo cache (uid=%d): %s", producer.name.c_str(),
                    uid, package.c_str());
            }
            if (package.empty()) return false;
            mCandidates[id] = {now, now, 1, package};
            say("Add new candidate layer: %d [%s]", id, producer.name.c_str());
            if (mCandidates.size() > 11) cleanCandidates();
            return false;
        }
        Candidate& candidate = found->second;
        candidate.last = now;
        const int before = candidate.count++;
        const nsecs_t elapsed = now - candidate.start;
        if (elapsed < kSecond / 2) return false;
        if (before * kSecond < 23 * elapsed) {
            candidate.count = 1;
            candidate.start = now;
            return false;
        }
        ModelLayer& layer = layers[id];
        layer.id = id;
        layer.producer = producer;
        layer.package = candidate.package;
        const bool mini = producer.name.find("AppBrandUI") != std::string::npos;
        if (mini && layer.package == "com.tencent.mm") layer.scene = "minigame";
        mCandidates.erase(found);
        layer.rescueAllowed =
                features().getGFRTunables(layer.package, false) && mayBeRescued(layer);
        layer.target = targetOf(layer, false);
        say("Add new layer to full tracking: [%s] layer %d", layer.name(), id);
        if (uid > 0) {
            if (mApps.count(uid) == 0 && mApps.size() >= 10) {
                auto oldest = mApps.begin();
                for (auto app = oldest; app != mApps.end(); ++app) {
                    if (app->second.second < oldest->second.second) oldest = app;
                }
                say("Remove oldest app from mAppInfoMap: [%s]", oldest->second.first.c_str());
                mApps.erase(oldest);
            }
            mApps[uid] = {layer.package, now};
        }
        post([this, id, package = layer.package] { classify(id, package); });
        if (layers.size() > 4) cleanLayers();
        return true;
    }

    void classify(int id, const std::string& package) {
        call("perf_get_feedback 5633 " + package + " ");
        call("perf_get_feedback_extn 5633 " + package + " 1 0 ");
        if (layers.count(id) == 0 || layers[id].package != package) return;
        ModelLayer& layer = layers[id];
        const int app = package == packageOf(3) ? 3 : std::stoi(package.substr(15));
        layer.game = isGame(app);
        layer.weight = layer.game ? app + 1 : 0;
        if (!layer.game) return;
        applyHeadroom(layer, /*least=*/0);
        if (mayBeRescued(layer)) applyRescue(layer);
        applyPace(layer);
    }

    void measure(ModelLayer& layer, nsecs_t interval) {
        if (layer.windowStart < 0) layer.windowStart = now - interval;
        ++layer.frames;
        layer.intervals.push_back(interval);
        const nsecs_t elapsed = now - layer.windowStart;
        if (elapsed <= kSecond) return;
        // As imprecise as it is reported.
        layer.fps = 1 / (static_cast<float>(elapsed) / static_cast<float>(layer.frames) / 1e9f);
        layer.windowStart = -1;
        layer.measuredAt = now;
        layer.frames = 0;
        const int oldMode = layer.mode;
        const int mode = PerfProxy::getFpsMode(layer.fps);
        if (mode != layer.mode && isSteadyAt(layer, mode)) {
            layer.mode = mode;
            say("Stable FPS shift detected for layer %d: %.2f (mode -> %d)", layer.id, layer.fps,
                mode);
        }
        say("FPS:%.2F[%s] layer %d, (%d, %d) mode:%d focused:%d visible: %d", layer.fps,
            layer.name(), layer.id, layer.bounds.right - layer.bounds.left,
            layer.bounds.bottom - layer.bounds.top, layer.mode, layer.focused, layer.visible);
        switchFeatures(layer);
        if (layer.mode == oldMode) return;
        pickFastest();
        checkSceneSoon();
    }

    static bool isSteadyAt(const ModelLayer& layer, int mode) {
        if (layer.intervals.size() < 30) return false;
        const std::vector<nsecs_t> latest(layer.intervals.end() - 30, layer.intervals.end());
        double sum = 0, squares = 0;
        for (const nsecs_t interval : latest) sum += static_cast<double>(interval);
        const double mean = sum / 30;
        for (const nsecs_t interval : latest) {
            squares += std::pow(static_cast<double>(interval) - mean, 2);
        }
        return std::sqrt(squares / 30) < std::max(2e6, mean / 5) &&
               PerfProxy::getFpsMode(static_cast<float>(1e9 / mean)) == mode;
    }

    void pickFastest() {
        const ModelLayer* fastest = nullptr;
        for (const auto& [id, layer] : layers) {
            if (layer.mode >= 0 && (fastest == nullptr || layer.mode > fastest->mode)) {
                fastest = &layer;
            }
        }
        if (fastest != nullptr) {
            mFastest = fastest->id;
            event(4196, fastest->package, formatted("0 %d ", fastest->mode));
            say("Update MaxInfo: pkgName %s mode: %d layerId: %d", fastest->package.c_str(),
                fastest->mode, mFastest);
        } else if (std::exchange(mFastest, -1) != -1) {
            event(4196, "null", "0 -1 ");
            log.push_back("Update MaxInfo: Reset to default");
        }
    }

    bool isGpus(ModelLayer& layer, int fd, const std::string& name) {
        if (!layer.origin.empty()) return layer.origin == "mdrt";
        ++fenceQuestions;
        if (infoFails) {
            say("[GPU JANK DETECTION] SYNC_IOC_FILE_INFO failed, ret=-1, fd=%d, errno=%d", fd,
                ENOTTY);
            return true;
        }
        const bool detached = name.find("detached") == 0;
        if (!detached) layer.origin = name.find("mdrt-timeline") == 0 ? "mdrt" : "non-mdrt";
        say("[GPU JANK DETECTION] fence origin: %scached), layerId=%d [%s] fence_name=%s",
            (detached ? "detached (not " : layer.origin + " (").c_str(), layer.id, layer.name(),
            name.c_str());
        return layer.origin != "non-mdrt";
    }
    bool isYoung(const ModelLayer& layer) {
        return now - layer.first < (on.fences ? 2 : 1) * period;
    }
    void hurry(int fd) {
        deadlines.push_back(fd);
        if (!deadlineFails) return;
        say("[GPU JANK DETECTION] IOCTL failed, ret=-1, fd=%d, errno=%d", fd, EINVAL);
    }

    static bool mayBeRescued(const ModelLayer& layer) {
        return layer.package != "com.tencent.mm" || layer.scene == "minigame";
    }
    static int targetOf(const ModelLayer& layer, bool orEveryones) {
        const auto config = features().getTfpsConfig(layer.package, orEveryones);
        return config ? static_cast<int>(config->targetFps) : 0;
    }
    void setRescued(ModelLayer& layer, bool enable) {
        layer.rescued = enable;
        if (layer.atRescue) say("Layer %d %s GFR", layer.id, enable ? "enable" : "disable");
    }
    void setPaced(ModelLayer& layer, bool enable) {
        layer.paced = enable;
        if (enable == layer.pacing && layer.target == layer.pacerTarget) return;
        layer.pacing = enable;
        layer.pacerTarget = layer.target;
        if (!enable) return say("Layer %d: disable target fps", layer.id);
        say("Layer %d: enable target fps: %d.000000", layer.id, layer.target);
    }
    void setHeadroom(const ModelLayer& layer) {
        const int rate = mHeadroomMode > 60 ? layer.highRate : layer.rate;
        if (layer.atHeadroom && rate > 0) say("Layer %d set headroom", layer.id);
    }

    // Rates of the display's class that differ by less than `least` are no change.
    void applyHeadroom(ModelLayer& layer, int least) {
        const auto rates = features().getPhrConfig(layer.package, true);
        layer.headroomAllowed = rates.has_value();
        if (!rates) return;
        const int rate = percent(rates->phrMinRate), high = percent(rates->highFpsPhrMinRate);
        if (std::abs(mDisplayMode > 60 ? high - layer.highRate : rate - layer.rate) < least) return;
        layer.rate = rate;
        layer.highRate = high;
        setHeadroom(layer);
    }
    void applyRescue(ModelLayer& layer) {
        const bool allowed = features().getGFRTunables(layer.package, true).has_value();
        if (std::exchange(layer.rescueAllowed, allowed) != allowed) setRescued(layer, false);
        if (allowed && layer.atRescue) say("updateLayerTunables layer %d", layer.id);
    }
    void applyPace(ModelLayer& layer) {
        const int target = targetOf(layer, true);
        if (std::exchange(layer.target, target) == target) return;
        const bool pacing = target > 0 && layer.fps > target;
        if (layer.atHeadroom && (layer.paced || pacing)) setPaced(layer, pacing);
    }

    // Whether the monitor runs, once it has been tried to start it.
    bool start(bool& started, const char* monitor) {
        if (started || !mRunning) return started;
        started = threadFailures == 0;
        if (!started) --threadFailures;
        say(started ? "%s initialized" : "Failed to initialize %s", monitor);
        return started;
    }
    void switchOn(ModelLayer& layer) {
        const bool waits = !mRescueStarted;
        if (layer.rescueAllowed && start(mRescueStarted, "GFRMonitor")) {
            if (waits) mRescuePeriod = period;
            if (!std::exchange(layer.atRescue, true)) {
                say("GFR: Registered layer %d [%s]", layer.id, layer.name());
            }
            if (!layer.rescued) setRescued(layer, true);
        }
        if ((!layer.headroomAllowed && layer.target <= 0) || (!on.touch && !on.pacing)) return;
        if (!mHeadroomStarted) {
            mHeadroomPeriod = period;
            mHeadroomMode = mDisplayMode;
        }
        if (!start(mHeadroomStarted, "PHRMonitor")) return;
        if (!std::exchange(layer.atHeadroom, true)) {
            setHeadroom(layer);
            say("PHR: Registered layer %d [%s]", layer.id, layer.name());
        }
        if (!layer.paced && layer.target > 0 && layer.fps > layer.target) setPaced(layer, true);
    }
    void switchFeatures(ModelLayer& layer) {
        if (layer.mode == mDisplayMode && layer.mode != -1 && layer.visible) {
            switchOn(layer);
        } else if (layer.rescued) {
            setRescued(layer, false);
        }
        if (layer.atHeadroom && layer.paced && layer.fps < layer.target - 2 && on.compensation &&
            !on.ramps) {
            setPaced(layer, false);
        }
        if (mMisses < 0 && layer.matches == 0) return;
        if (layer.package == mChecked) {
            ++layer.matches;
            mMisses = -1;
        } else {
            ++mMisses;
        }
        if (mMisses < 3 && layer.matches < 4) return;
        if (layer.package.find(mAwaited) != std::string::npos) event(4099, mAwaited, "");
        mAwaited.clear();
        mChecked.clear();
        mMisses = -1;
        layer.matches = 0;
    }

    std::vector<ModelLayer*> layersOf(const std::string& package) {
        std::vector<ModelLayer*> result;
        if (!isRunning()) return result;
        for (auto& [id, layer] : layers) {
            if (package.empty() ? mLowLatency > 0 && layer.producer.pid() == mLowLatency
                                : layer.package == package) {
                result.push_back(&layer);
            }
        }
        return result;
    }

    void checkScenes() {
        std::map<int, const ModelLayer*> byUid;
        for (const auto& [id, layer] : layers) {
            if (!layer.active || !layer.visible) continue;
            const ModelLayer*& best = byUid[layer.producer.uid()];
            if (best == nullptr || layer.mode > best->mode) best = &layer;
        }
        std::map<std::pair<int, int>, const ModelLayer*> ranked;
        for (const auto& [uid, layer] : byUid) {
            const int rank = layer->focused * 10'000 + layer->game * 1'000 + layer->mode;
            ranked[{-rank, layer->id}] = layer;
        }
        while (ranked.size() > 3) ranked.erase(std::prev(ranked.end()));
        chooseLowLatency(ranked.empty() ? nullptr : ranked.begin()->second);
        std::set<int> uids;
        for (const auto& [rank, layer] : ranked) uids.insert(layer->producer.uid());
        if (!std::exchange(mForceScene, false) && uids == mReported) return;
        mReported = uids;
        std::string apps;
        const auto report = [&apps](const std::string& app) {
            return "{\"apps\":[" + apps + app + "]}\n";
        };
        for (const auto& [rank, layer] : ranked) {
            const std::string scene =
                    layer->scene.empty() ? "" : ",\"scene\":\"" + layer->scene + "\"";
            const Rect& b = layer->bounds;
            const std::string app = formatted(
                    R"(%s{"F":%d,"M":%d,"b":%d,"fps":%ld,"l":%d,"pkg":"%s","r":%d%s,"t":%d})",
                    apps.empty() ? "" : ",", layer->focused, layer->mode, b.bottom,
                    std::lround(layer->fps * 100), b.left, layer->package.c_str(), b.right,
                    scene.c_str(), b.top);
            if (report(app).size() > 256) {
                log.push_back("JSON length limit reached, drop the last added group");
                break;
            }
            apps += app;
        }
        const std::string text = report("");
        event(4194, text, formatted("101 %zu ", ranked.size()));
        say("CheckMultiLayer: %zu, %s", ranked.size(), text.c_str());
    }

    void chooseLowLatency(const ModelLayer* layer) {
        const int pid = layer == nullptr ? -2 : layer->producer.pid();
        if (pid == mLowLatency) return;
        const bool enable = layer != nullptr && layer->game && pid > 0;
        if (!enable && mLowLatency < 1) return;
        say("SetLowLatency %s for pid=%d", enable ? "true" : "false", enable ? pid : mLowLatency);
        mLowLatency = enable ? pid : -1;
        post([this, enable, pid] {
            if (mHeld > 0) call(formatted("perf_lock_rel %d  ", mHeld));
            mHeld = -1;
            if (!enable) return;
            call(formatted("perf_lock_acq 0  0 %d %d ", 0x40CD0000, pid));
            mHeld = ++mLocks;
        });
    }

    std::map<int, Candidate> mCandidates;
    std::map<int, std::pair<std::string, nsecs_t>> mApps;  // by uid
    std::multimap<nsecs_t, std::function<void()>> mTasks;
    std::set<int> mReported;
    std::string mChecked, mAwaited;
    nsecs_t mBusyUntil = 0, mRescuePeriod = 0, mHeadroomPeriod = 0;
    int mDisplayMode = -1, mHeadroomMode = -1, mThreshold = 0, mThresholdProperty = 0;
    int mFocusedUid = -1, mFastest = -1, mMisses = -1;
    int mScheduled = 0, mLowLatency = -1, mHeld = -1, mLocks = 0;
    bool mRunning = false, mForceScene = false, mCandidatesFull = false;
    bool mRescueStarted = false, mHeadroomStarted = false;
};

// The registry beside its model.
class Registry {
  public:
    explicit Registry(RandomSteps& steps) : mSteps(steps), mModel(draw(steps)) {
        const Switches& on = mModel.on;
        for (const auto& [name, value] :
             std::map<const char*, bool>{{"vendor.perf.corvane.debug", true},
                                         {"vendor.perf.corvane.profile", on.profile},
                                         {"vendor.perf.phr.enable", true},
                                         {"vendor.rdxe.enable.target_fps", on.pacing},
                                         {"vendor.rdxe.target_fps.compensate", on.compensation},
                                         {"debug.perf.enable_big_jank_detect", on.bigJank},
                                         {"vendor.perf.gpu_jank_detect.enable", on.fences}}) {
            base::SetProperty(name, value ? "1" : "0");
        }
        base::SetProperty("vendor.perf.gpu_jank_filter.min_exec_time_mult", "2");
        // A ramp so long that none ends here.
        base::SetProperty("vendor.rdxe.target_fps.switch_time", on.ramps ? "100000" : "0");
        PerfService::install();
        for (int app = 0; app <= 12; app += 2) PerfService::addGame(packageOf(app), app + 1);
        if (!on.worker) PerfProxy::getInstance()->stopBoostThread();
        for (const char* name : {"mdrt-timeline", "mdrt-timeline-7", "detached", "detached-mdrt",
                                 "camera-mdrt-timeline", "a-detached"}) {
            mFences.emplace_back(SyncFiles::create(name), name);
        }
        init();
        setPeriod(16'666'667, 60);
    }

    void step() {
        pass(1);
        if (mSteps.oneIn(4)) castAnew();
        mId = mSteps.pick(mCast);
        mPackage = mSteps.oneIn(5) ? "" : packageOf(producer(mId).app);
        using R = Registry;
        static constexpr void (
                R::*kSteps[])() = {&R::vsync,        &R::idle,        &R::show,
                                   &R::changePeriod, &R::setHeadroom, &R::setRescue,
                                   &R::setPace,      &R::setHeadroom, &R::setRescue,
                                   &R::setPace,      &R::setJank,     &R::activity,
                                   &R::crowd,        &R::fences,      &R::disturb,
                                   &R::drawFrames,   &R::drawFrames,  &R::drawFrames,
                                   &R::drawFrames,   &R::drawFrames,  &R::drawFrames};
        (this->*mSteps.pick(kSteps))();
        settle();
        compare();
    }

  private:
    static constexpr int kIds[] = {1,  2,  3,  4,  5,  6,  7,  8,  9,  10,
                                   11, 12, 21, 22, 23, 24, 30, 31, 32, 0};
    static LayerManager& manager() { return *LayerManager::getInstance(); }
    static Switches draw(RandomSteps& steps) {
        const auto mostly = [&steps] { return !steps.oneIn(4); };
        return {mostly(), mostly(), mostly(),  !mostly(),
                mostly(), mostly(), !mostly(), !steps.oneIn(12)};
    }
    Producer producer(int id) const { return producerOf(id, mSwapped); }

    void init() {
        manager().init(mModel.on.touch, 0, 0);
        mModel.init();
    }
    void setPeriod(nsecs_t ns, int mode) {
        manager().setVsyncPeriod(ns);
        mModel.setPeriod(ns, mode);
    }
    void changePeriod() {
        const std::vector<std::pair<nsecs_t, int>> periods = {{16'666'667, 60}, {16'666'667, 60},
                                                              {15'000'000, 0},  {8'333'333, 120},
                                                              {0, 0},           {1, 0},
                                                              {-1, 0}};
        const auto [ns, mode] = mSteps.pick(periods);
        mSteps.tell("period", ns);
        setPeriod(ns, mode);
    }
    void pass(nsecs_t duration) {
        Simulation::advance(duration);
        mModel.runTasks(Simulation::now());
    }
    // What was posted has been done.
    void settle() {
        Simulation::settle();
        mModel.runTasks(Simulation::now());
    }

    void vsync() {
        mSteps.tell("vsync");
        manager().onVsync(Simulation::now());
        mModel.vsync();
    }
    void crowd() {
        mSteps.tell("crowd");
        for (const int any : kIds) queue(any);
    }
    void show() {
        mFocus = mId;
        mHidden = mSteps.oneIn(3) ? mId : -1;
        mSteps.tell("latch", mId, mHidden != mId);
        latch(mId, static_cast<int>(mSteps.below(4)) - 1);
    }
    // For any time, or until something is just due or not quite.
    void idle() {
        const nsecs_t due[] = {mModel.lastCleanup + 3 * kSecond, mLastQueue + kSecond,
                               mLastQueue + 2 * kSecond, mLastClean + kSecond,
                               Simulation::now() + mSteps.below(4 * kSecond)};
        const nsecs_t until = mSteps.pick(due) + mSteps.below(3) - 1;
        mSteps.tell("idle until", until);
        pass(std::max<nsecs_t>(until - Simulation::now(), 1));
        if (mSteps.oneIn(2)) return vsync();
        mLastClean = Simulation::now();
        manager().cleanupInactiveLayers(mLastClean);
        manager().cleanupCandidates(mLastClean);
        mModel.cleanUp();
    }
    // Who draws from now on, and how fast and evenly.
    void castAnew() {
        const nsecs_t intervals[] = {5'000'000,  8'450'000,  11'200'000, 16'700'000,
                                     16'700'000, 17'600'000, 20'000'000, 23'100'000,
                                     34'000'000, 43'478'000, 43'479'000, 45'000'000};
        const nsecs_t jitters[] = {0, 0, 0, 1'900'000, 2'100'000, 3'300'000, 3'400'000};
        mInterval = mSteps.pick(intervals);
        mJitter = mSteps.pick(jitters);
        if (mSteps.oneIn(2)) return;
        mCast.resize(static_cast<size_t>(1 + mSteps.below(mSteps.oneIn(3) ? 7 : 3)));
        for (int& id : mCast) id = mSteps.pick(kIds);
        std::sort(mCast.begin(), mCast.end());
        mCast.erase(std::unique(mCast.begin(), mCast.end()), mCast.end());
    }
    void latch(int id, int pending) {
        pass(1'000);
        const Rect bounds(0, 10, 1080, 1'000 + id);
        mModel.latch(id, pending, bounds, mFocus == id, mHidden != id);
        manager().onBufferDecrement("latched", id, pending, bounds, mFocus == id, mHidden != id);
        settle();
    }
    void queue(int id) {
        const Producer by = producer(id);
        pass(1'000);
        mLastQueue = Simulation::now();
        mModel.queue(id, by);
        manager().onBufferIncrement(by.name, id, by.pid(), by.uid(), 0, false, 0);
        mModel.runTasks(Simulation::now());
        mModel.queueEnded(id);
        settle();
    }
    void drawFrames() {
        const nsecs_t duration = mSteps.below(3 * kSecond);
        const nsecs_t until = Simulation::now() + duration;
        const bool latched = !mSteps.oneIn(8);
        mSteps.tell("draw", mCast, mInterval, mJitter, duration, latched);
        while (Simulation::now() < until) {
            mJitter = -mJitter;
            const nsecs_t next = Simulation::now() + mInterval + mJitter;
            for (const int id : mCast) {
                queue(id);
                if (latched) latch(id, 0);
            }
            if (next > Simulation::now()) pass(next - Simulation::now());
        }
    }

    void fences() {
        const auto layer = mModel.layers.find(mId);
        if (layer != mModel.layers.end() && mSteps.oneIn(2)) {
            const nsecs_t old = layer->second.first + 2 * mModel.period + mSteps.below(3) - 1;
            if (old > Simulation::now()) pass(old - Simulation::now());
        }
        for (int64_t left = mSteps.below(6); left >= 0; --left) {
            const auto [fd, name] = mSteps.pick(mFences);
            const int of = mSteps.pick(mCast);
            const bool notify = mSteps.oneIn(2);
            mModel.infoFails = mSteps.oneIn(4);
            mModel.deadlineFails = mSteps.oneIn(4);
            SyncFiles::failInfo(mModel.infoFails ? ENOTTY : 0);
            SyncFiles::failDeadline(mModel.deadlineFails ? EINVAL : 0);
            mSteps.tell(notify ? "notify" : "track", of, name);
            mModel.fence(notify, fd, name, of);
            if (notify) {
                manager().notifyGpuFenceUnsignaled(fd, of);
            } else {
                manager().trackLatchUnsignaledGpuFence(fd, of);
            }
            if (!mSteps.oneIn(3)) continue;
            mModel.flush();
            manager().flushLatchUnsignaledGpuFences();
        }
    }

    // What seldom happens.
    void disturb() {
        const int64_t what = mSteps.below(5);
        const nsecs_t duration = mSteps.below(9 * kSecond);
        mSteps.tell("disturb", what, duration);
        switch (what) {
            case 0:
                manager().stop();
                mModel.stop();
                if (!mSteps.oneIn(3)) init();
                break;
            case 1:
                PerfProxy::getInstance()->postTask([duration] { Simulation::sleepFor(duration); });
                mModel.holdWorker(duration);
                settle();
                break;
            case 2:
                mModel.threadFailures = static_cast<int>(duration % 3);
                corvane::host::failThreadCreation(mModel.threadFailures);
                break;
            case 3:
                mSwapped = !mSwapped;
                break;
            default:
                init();
        }
    }

    void configure(int hint, const std::string& text, int argument,
                   const std::vector<int>& values) {
        mSteps.tell("configure", hint, text, argument, values);
        FeatureManager::getInstance()->setCallbackHintValue(hint, text, argument, 0, values);
    }
    void setHeadroom() {
        const int rates[] = {0, 80, 81, 83, 120};
        const int rate = mSteps.pick(rates), high = mSteps.pick(rates);
        configure(4187, mPackage, 0, {0, rate, 0, high});
        mModel.headroomChanged(mPackage);
    }
    void setRescue() {
        const std::string text = mPackage.empty() ? "1.2;1.5" : mPackage + ":golden=0.8";
        configure(4189, text, 0, {!mSteps.oneIn(3)});
        mModel.rescueChanged(mPackage);
    }
    void setPace() {
        const int targets[] = {0, 30, 45, 50, 58, 58};
        const int target = mSteps.pick(targets);
        const bool all = mPackage.empty();
        configure(4171, all ? std::to_string(target) : mPackage, all ? 0 : target * 100, {});
        mModel.paceChanged(mPackage);
    }
    void setJank() {
        const int thresholds[] = {0, 1, 5, 20, 34, 43};
        const int ms = mSteps.pick(thresholds);
        mSteps.tell("threshold", ms);
        mModel.threshold(ms);
        base::SetProperty("debug.perf.cpu_big_jank_threshold_ms", std::to_string(ms));
    }
    void activity() {
        const int kind = static_cast<int>(mSteps.below(mPackage.empty() ? 2 : 4)) + 1;
        const bool over = mSteps.oneIn(2);
        mSteps.tell("activity", kind, mPackage, over);
        if (kind > 2) mModel.awaitApp(mPackage);
        if (kind == 2) mModel.switching(over);
        if (kind == 1) mModel.reportLater();
        FeatureManager::getInstance()->setCallbackHintValue(4192, mPackage, kind > 2 ? 0 : kind,
                                                            over ? 0 : 1, {});
    }

    // What the registry and what it asks for has logged, without what the monitors make of it.
    Strings takeLog() {
        static const std::regex monitors(
                "Layer \\d+ (enable|disable) GFR|Layer \\d+: .*target fps.*|Layer \\d+ destroyed|"
                "Layer \\d+ set headroom.*|GFR: Unregistered.*|updateLayerTunables layer \\d+: .*|"
                "[GP][FH]RMonitor stopped|frameTime = .*|.*, current=\\d+ frames|"
                ".*Extreme drop detected .*");
        static const std::regex values("(Tunables layer \\d+|set headroom): .*");
        static const std::regex drops(".*FrameDrop.*[(=](\\d+) frames.*");
        Strings lines;
        for (const auto& line : mLog.lines()) {
            const bool own = line.tag == "Corvane.LayerManager";
            if (!own && !std::regex_match(line.text, monitors)) continue;
            if (own && line.text.find("Window: ") == 0) continue;
            const std::string text = std::regex_replace(line.text, values, "$1");
            lines.push_back(std::regex_replace(text, drops, "$1 dropped"));
        }
        mLog.clear();
        std::sort(lines.begin(), lines.end());  // several walks have no order
        return lines;
    }
    static std::vector<std::pair<nsecs_t, std::string>> takeCalls() {
        std::vector<std::pair<nsecs_t, std::string>> calls;
        static const std::regex known("perf_(event|get_f.*|lock_.*)");
        for (const PerfCall& call : PerfService::calls()) {
            if (!std::regex_match(call.entry, known)) continue;
            if (call.number == 4186 && call.args[0] != 5) continue;  // of frame rescue
            std::string text =
                    call.entry + " " + std::to_string(call.number) + " " + call.package + " ";
            for (const int arg : call.args) text += std::to_string(arg) + " ";
            calls.emplace_back(call.timeNs, text);
        }
        PerfService::clearCalls();
        // Tasks of one instant have no order.
        std::sort(calls.begin(), calls.end());
        return calls;
    }

    void compare() {
        std::sort(mModel.log.begin(), mModel.log.end());
        expectSame(std::exchange(mModel.log, {}), takeLog(), "the log");
        std::sort(mModel.calls.begin(), mModel.calls.end());
        expectSame(std::exchange(mModel.calls, {}), takeCalls(), "the service's calls");
        std::vector<int> deadlines;
        for (const auto& deadline : SyncFiles::deadlines()) {
            deadlines.push_back(deadline.deadlineNs == 0 ? deadline.fd : -1);
        }
        mSteps.expectEq(mModel.deadlines, deadlines, "the deadlines");
        mSteps.expectEq(mModel.fenceQuestions, SyncFiles::infoCount(), "the fences' origins");
        for (const int id : kIds) {
            const sp<LayerInfo> layer = manager().getLayer(id);
            const auto found = mModel.layers.find(id);
            mSteps.expectEq(found != mModel.layers.end(), layer != nullptr, "whether tracked");
            if (layer == nullptr || found == mModel.layers.end()) continue;
            const ModelLayer& m = found->second;
            const LayerInfo& l = *layer;
            constexpr char kState[] =
                    "%s game %d %d active %d %ld mode %d rescue %d %d %d headroom %d %d %d %d "
                    "pace %d %d matches %d";
            mSteps.expectEq(formatted(kState, m.package.c_str(), m.game, m.weight, m.active,
                                      m.removeAt, m.mode, m.rescueAllowed, m.rescued, m.atRescue,
                                      m.headroomAllowed, m.atHeadroom, m.rate, m.highRate, m.paced,
                                      m.target, m.matches),
                            formatted(kState, l.mPackageName.c_str(), l.mIsGame, l.mGameWeight,
                                      l.mActive, l.mRemoveDeadline, l.mFpsMode, l.mGfrAllowed,
                                      l.mGfrActive, l.mGfrRegistered, l.mQuickTouchActive,
                                      l.mPhrRegistered, percent(l.phrMinRate),
                                      percent(l.highFpsPhrMinRate), l.isPaced(),
                                      static_cast<int>(l.targetFps()), l.mAliveCheckMatches),
                            "its state");
            mSteps.expectEq(std::tuple(m.depth, m.queued, m.ended, m.gap, m.toPresent, m.first,
                                       m.anchor, m.fence, m.measuredAt),
                            std::tuple(l.queueDepth(), l.mLastQueueTime,
                                       nsecs_t{l.mLastQueueEndTime}, l.mFrameGap, l.timeToPresent(),
                                       l.mFirstFrameTime, l.mVsyncAnchorTime, l.mPendingGpuFenceFd,
                                       l.mLastFpsTime),
                            "its frames");
        }
    }
    template <typename List>
    void expectSame(List expected, List actual, const char* what) {
        const size_t size = std::max(expected.size(), actual.size());
        expected.resize(size);
        actual.resize(size);
        for (size_t i = 0; i < size; ++i) mSteps.expectEq(expected[i], actual[i], what);
    }

    RandomSteps& mSteps;
    Model mModel;
    LogCapture mLog;
    std::vector<std::pair<int, std::string>> mFences;
    std::vector<int> mCast = {1, 2};
    nsecs_t mInterval = 16'700'000, mJitter = 0;
    nsecs_t mLastQueue = 0, mLastClean = 0;
    int mFocus = -1, mHidden = -1;
    bool mSwapped = false;
    int mId = 0;  // of this step
    std::string mPackage;
};

TEST(RegistryModelTest, AgreesWithTheModel) {
    RandomStepsRunner::run(120, 60, [](RandomSteps& steps) {
        const Simulation simulation(1'000 * kSecond);
        if (!steps.next()) return;
        Registry registry(steps);
        while (steps.next()) registry.step();
    });
}

}  // namespace
}  // namespace android
