// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// The registry against a plain model of it: random frames, latches, vsyncs, pauses, settings and
// property writes. After each step the layers' records, the lines of the registry and of what it
// asked of the monitors, and the calls to the service must be the model's.

#include <android/log.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "RandomSteps.h"
#include "RegistryTest.h"
#include "features/FeatureManager.h"

namespace android {
namespace {

using corvane::host::LogCapture;
using corvane::host::PerfCall;
using corvane::host::PerfService;
using Strings = std::vector<std::string>;

constexpr nsecs_t kSecond = 1'000'000'000;

std::string str(int64_t value) {
    return std::to_string(value);
}

// Who draws. Even applications are games; two layers without a package belong to applications 1, 2.
struct Producer {
    int app;
    std::string name, package, scene;
    int uid() const { return 10'000 + app; }
    int pid() const { return 1'000 + app; }
};

std::string packageOf(int app) {
    return app == 3 ? "com.tencent.mm" : "com.example.app" + str(app);
}

Producer producerOf(int id) {
    if (id > 30) return {id - 30, "Splash#" + str(id), "", ""};
    const int app = id > 20 ? id - 20 : id;
    const std::string package = packageOf(app);
    if (id > 20) {
        return {app, "SurfaceView[" + package + "/AppBrandUI]#" + str(id), package,
                app == 3 ? "minigame" : ""};
    }
    return {app, "VRI-" + package + "/Main#" + str(id), package, ""};
}

int modeOf(double fps) {
    if (!(fps > 0) || fps > 260) return -1;
    if (fps <= 18) return static_cast<int>(std::lround(fps));
    for (const auto& [limit, mode] : std::map<int, int>{{33, 30},
                                                        {48, 45},
                                                        {63, 60},
                                                        {78, 75},
                                                        {95, 90},
                                                        {123, 120},
                                                        {147, 144},
                                                        {168, 165},
                                                        {210, 185}}) {
        if (fps <= limit) return mode;
    }
    return 240;
}

// The settings of one kind. The empty name is everyone's.
class Settings {
  public:
    void set(const std::string& package, const std::vector<int>& values, nsecs_t now) {
        if (package.empty()) mEntries.clear();
        mEntries.erase("");
        mEntries.erase(package);
        if (mEntries.size() >= 4) {
            mEntries.erase(std::min_element(mEntries.begin(), mEntries.end(),
                                            [](const auto& a, const auto& b) {
                                                return a.second.second < b.second.second;
                                            }));
        }
        if (!values.empty()) mEntries[package] = {values, now};
    }
    // Empty when there are none.
    std::vector<int> get(const std::string& package, bool orEveryones) const {
        if (mEntries.count(package) > 0) return mEntries.at(package).first;
        return orEveryones && mEntries.count("") > 0 ? mEntries.at("").first : std::vector<int>();
    }

  private:
    std::map<std::string, std::pair<std::vector<int>, nsecs_t>> mEntries;
};

struct ModelLayer {
    int id = 0;
    Producer producer;
    std::string package, scene;
    bool focused = true, visible = true, game = false, active = true;
    int weight = -1, mode = -1, width = 0, height = 0, left = 0, top = 0, right = -1, bottom = -1;
    bool rescueAllowed = false, rescued = false, atRescue = false;
    bool headroomAllowed = false, atHeadroom = false, paced = false;
    int target = 0, pacerTarget = 0, rate = 0, highRate = 0, matches = 0, depth = 0;
    bool pacing = false;  // as the monitor was told
    nsecs_t queued = 0, ended = 0, gap = 0, toPresent = 0, first = 0, anchor = 0, removeAt = 0;
    std::vector<nsecs_t> intervals;  // all there were
    nsecs_t windowStart = -1;
    int frames = 0;
    double fps = 0;
};

class Model {
  public:
    Strings log;
    std::vector<std::pair<nsecs_t, std::string>> calls;
    std::map<int, ModelLayer> layers;
    Settings headroom, rescue, pace;
    nsecs_t now = 0;

    void setPeriod(nsecs_t ns, int mode) {
        if (ns == mPeriod) return;
        mPeriod = ns;
        mDisplayMode = mode;
        log.push_back((mode == 0 ? "Unexpected vsync received: " : "vsync: ") + str(ns));
    }

    void queue(int id) {
        if (id < 1) return;
        const Producer producer = producerOf(id);
        if (layers.count(id) == 0 && !promote(id, producer)) return;
        if (layers.count(id) == 0) return;  // dropped at once
        ModelLayer& layer = layers[id];
        if (!layer.active) layer.removeAt = 0;
        layer.active = true;
        const nsecs_t previous = std::exchange(layer.queued, now);
        layer.gap = now - layer.ended;
        const nsecs_t phase = layer.anchor > 0 && mPeriod > 0 ? (now - layer.anchor) % mPeriod : 0;
        layer.toPresent = mPeriod - phase + mPeriod * layer.depth;
        if (layer.depth++ == 0) layer.first = now;
        if (previous != 0 && measure(layer, now - previous)) return frameDone(layer);
        frameDone(layer);
    }
    void queueEnded(int id) {
        if (layers.count(id) > 0) layers[id].ended = now;
    }

    void latch(int id, int pending, const Rect& bounds, bool focused, bool visible) {
        if (layers.count(id) == 0) return;
        ModelLayer& layer = layers[id];
        layer.anchor = now;
        --layer.depth;
        if (layer.depth < 0 || (layer.depth != pending && now - layer.queued > 2'000'000)) {
            layer.depth = pending;
        }
        std::tie(layer.left, layer.top, layer.right, layer.bottom) =
                std::tie(bounds.left, bounds.top, bounds.right, bounds.bottom);
        layer.focused = focused;
        layer.visible = visible;
        if (focused && layer.producer.uid() != mFocusedUid) {
            mFocusedUid = layer.producer.uid();
            checkSceneSoon();
            log.push_back("Focused app changed: uid " + str(mFocusedUid) + ", [latched]");
        }
        if (mApps.count(layer.producer.uid()) > 0) mApps[layer.producer.uid()].second = now;
    }

    void vsync() {
        if (mLastCleanup > 0 && now - mLastCleanup <= 3 * kSecond) return;
        if (std::exchange(mLastCleanup, now) <= 0) return;
        cleanLayers();
        cleanCandidates();
        if (!mForceScene && mScheduled == 0) checkScenes();
    }

    void threshold(int ms) {
        mThreshold = ms;
        log.push_back("OnFeatureConfigChanged - CPU_BIG_JANK: mCpuBigJankThreshold=" + str(ms) +
                      "ms");
    }
    void reportLater() {
        ++mScheduled;
        mTasks.insert({now + 3 * kSecond, [this] {
                           cleanLayers();
                           cleanCandidates();
                           mForceScene = true;
                           --mScheduled;
                           checkScenes();
                       }});
        log.push_back("OnFeatureConfigChanged - ACTV_IF_CONCURRENCY");
    }
    void awaitApp(const std::string& package) {
        mChecked = mAwaited = package;
        mMisses = 0;
        log.push_back("OnFeatureConfigChanged - ACTV_NON_GAME_RESUME: checkingAliveApp=" + package);
    }

    void headroomChanged(const std::string& package) {
        for (ModelLayer* layer : layersOf(package)) {
            if (!layer->game) continue;
            const auto rates = headroom.get(layer->package, true);
            layer->headroomAllowed = !rates.empty();
            if (!rates.empty() && (mDisplayMode > 60 ? std::abs(rates[1] - layer->highRate) > 1
                                                     : std::abs(rates[0] - layer->rate) > 1)) {
                layer->rate = rates[0];
                layer->highRate = rates[1];
            }
            char text[100];
            snprintf(text, sizeof(text), "set enabled=%d, phrMinRate=%.2f, highFpsPhrMinRate=%.2f",
                     layer->headroomAllowed, layer->rate / 100.0, layer->highRate / 100.0);
            log.push_back(std::string("OnFeatureConfigChanged - QUICK_TOUCH: ") + text +
                          ", pkgName=" + layer->package);
        }
    }
    void rescueChanged(const std::string& package) {
        bool told = false;
        for (ModelLayer* layer : layersOf(package)) {
            if (!mayBeRescued(*layer)) continue;
            applyRescue(*layer);
            if (std::exchange(told, true)) continue;
            log.push_back("OnFeatureConfigChanged - FRAME_RESCUE: gfrEnabled=" +
                          str(layer->rescueAllowed) + ", pkgName=" + layer->package);
        }
    }
    void paceChanged(const std::string& package) {
        bool told = false;
        for (ModelLayer* layer : layersOf(package)) {
            if (!layer->game) continue;
            applyPace(*layer);
            if (std::exchange(told, true)) continue;
            log.push_back("OnFeatureConfigChanged - TARGET_FPS: targetFps=" + str(layer->target) +
                          ".00, pkgName=" + layer->package);
        }
    }

    void cleanLayers() {
        std::vector<int> preferred, other, remove;
        for (auto& [id, layer] : layers) {
            if (layer.active && layer.queued > 0 && now - layer.queued > kSecond) {
                layer.active = false;
                layer.removeAt = now + kSecond;
                log.push_back("Layer " + str(id) + " [" + layer.producer.name +
                              "] marked for removal (no frame update within 1s)");
                if (layer.rescued) setRescued(layer, false);
            }
            if (!layer.active) {
                if (now >= layer.removeAt) remove.push_back(id);
            } else {
                (layer.visible && layer.mode > 29 ? preferred : other).push_back(id);
            }
        }
        const size_t remaining = layers.size() - remove.size();
        if (remaining < 5) {
            if (mLayersFull && remaining + mCandidates.size() < 5) {
                mLayersFull = false;
                log.push_back("Active layer count dropped back within the tracking limit.");
            }
        } else {
            remove.insert(remove.end(), other.begin(), other.end());
            if (layers.size() - remove.size() >= 5) {
                std::stable_sort(preferred.begin(), preferred.end(), [&](int a, int b) {
                    return importance(layers[a]) < importance(layers[b]);
                });
                preferred.resize(std::min(preferred.size(), layers.size() - remove.size() - 4));
                remove.insert(remove.end(), preferred.begin(), preferred.end());
                if (!std::exchange(mLayersFull, true)) {
                    log.push_back("Active layer count reached maximum tracking limit.");
                }
            }
        }
        for (const int id : remove) {
            const ModelLayer layer = layers[id];
            if (layer.atRescue) log.push_back("GFR: Unregistered layer " + str(id));
            if (layer.atHeadroom) log.push_back("Layer " + str(id) + " destroyed");
            layers.erase(id);
            if (mFastest == id) pickFastest();
            log.push_back("Unregistered layer " + str(id) + ": [" + layer.producer.name + "]");
        }
    }

    void cleanCandidates() {
        std::vector<std::pair<nsecs_t, int>> byAge;
        for (const auto& [id, candidate] : mCandidates) byAge.emplace_back(candidate.last, id);
        std::sort(byAge.begin(), byAge.end());
        for (const auto& [last, id] : byAge) {
            if (now - last <= 2 * kSecond) continue;
            mCandidates.erase(id);
            log.push_back("Remove candidate layer [" + str(id) + "]");
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
            if (mCandidates.erase(id) == 0) continue;
            log.push_back("Force remove candidate layer [" + str(id) + "]");
        }
        if (!std::exchange(mCandidatesFull, true)) {
            log.push_back("Candidate layer count reached maximum tracking limit.");
        }
    }

    // The boost worker, until this time.
    void runTasks(nsecs_t until) {
        while (!mTasks.empty() && mTasks.begin()->first <= until) {
            const auto task = mTasks.begin()->second;
            now = std::max(now, mTasks.begin()->first);
            mTasks.erase(mTasks.begin());
            task();
        }
        now = until;
    }

  private:
    struct Candidate {
        nsecs_t start, last;
        int count;
        std::string package;
    };

    void post(std::function<void()> task) { mTasks.insert({now, std::move(task)}); }
    void event(int number, const std::string& package, const std::string& args) {
        post([=] { call("perf_event " + str(number) + " " + package + " " + args); });
    }
    void call(const std::string& text) { calls.emplace_back(now, text); }
    void checkSceneSoon() {
        mForceScene = true;
        post([this] { checkScenes(); });
    }

    bool promote(int id, const Producer& producer) {
        const auto found = mCandidates.find(id);
        if (found == mCandidates.end()) {
            if (mCandidatesFull) return false;
            std::string package = producer.package;
            if (package.empty() && mApps.count(producer.uid()) > 0) {
                package = mApps[producer.uid()].first;
                mApps[producer.uid()].second = now;
                log.push_back("Layer [" + producer.name + "] get pkg from AppInfo cache (uid=" +
                              str(producer.uid()) + "): " + package);
            }
            if (package.empty()) return false;
            mCandidates[id] = {now, now, 1, package};
            log.push_back("Add new candidate layer: " + str(id) + " [" + producer.name + "]");
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
        if (mLayersFull) return false;
        ModelLayer& layer = layers[id];
        layer.id = id;
        layer.producer = producer;
        layer.package = candidate.package;
        layer.scene = producer.scene;
        mCandidates.erase(found);
        layer.rescueAllowed = !rescue.get(layer.package, false).empty() && mayBeRescued(layer);
        const auto target = pace.get(layer.package, false);
        layer.target = target.empty() ? 0 : target[0];
        log.push_back("Add new layer to full tracking: [" + producer.name + "] layer " + str(id));
        const int uid = producer.uid();
        if (mApps.count(uid) == 0 && mApps.size() >= 10) {
            const auto oldest =
                    std::min_element(mApps.begin(), mApps.end(), [](const auto& a, const auto& b) {
                        return a.second.second < b.second.second;
                    });
            log.push_back("Remove oldest app from mAppInfoMap: [" + oldest->second.first + "]");
            mApps.erase(oldest);
        }
        mApps[uid] = {layer.package, now};
        post([this, id, package = layer.package] { classify(id, package); });
        if (layers.size() > 4) cleanLayers();
        return true;
    }

    void classify(int id, const std::string& package) {
        call("perf_get_feedback 5633 " + package + " ");
        call("perf_get_feedback_extn 5633 " + package + " 1 0 ");
        if (layers.count(id) == 0 || layers[id].package != package) return;
        ModelLayer& layer = layers[id];
        layer.game = layer.producer.app % 2 == 0;
        layer.weight = layer.game ? layer.producer.app : 0;
        if (!layer.game) return;
        const auto rates = headroom.get(package, true);
        layer.headroomAllowed = !rates.empty();
        if (!rates.empty()) {
            layer.rate = rates[0];
            layer.highRate = rates[1];
        }
        if (mayBeRescued(layer)) applyRescue(layer);
        applyPace(layer);
    }

    // One more interval; true when a window closed.
    bool measure(ModelLayer& layer, nsecs_t interval) {
        if (layer.windowStart < 0) layer.windowStart = now - interval;
        ++layer.frames;
        layer.intervals.push_back(interval);
        const nsecs_t elapsed = now - layer.windowStart;
        if (elapsed <= kSecond) return false;
        layer.fps = static_cast<double>(layer.frames) * kSecond / static_cast<double>(elapsed);
        layer.windowStart = -1;
        layer.frames = 0;
        const int oldMode = layer.mode;
        const int mode = modeOf(layer.fps);
        if (mode != layer.mode && isSteadyAt(layer, mode)) {
            layer.mode = mode;
            log.push_back("Stable FPS shift detected for layer " + str(layer.id) + ": (mode -> " +
                          str(mode) + ")");
        }
        log.push_back("FPS:[" + layer.producer.name + "] layer " + str(layer.id) + ", (" +
                      str(layer.right - layer.left) + ", " + str(layer.bottom - layer.top) +
                      ") mode:" + str(layer.mode) + " focused:" + str(layer.focused) +
                      " visible: " + str(layer.visible));
        switchFeatures(layer);
        if (layer.mode != oldMode) {
            pickFastest();
            checkSceneSoon();
        }
        return true;
    }

    static bool isSteadyAt(const ModelLayer& layer, int mode) {
        if (layer.intervals.size() < 30) return false;
        double sum = 0, squares = 0;
        for (size_t i = layer.intervals.size() - 30; i < layer.intervals.size(); ++i) {
            sum += static_cast<double>(layer.intervals[i]);
        }
        const double mean = sum / 30;
        for (size_t i = layer.intervals.size() - 30; i < layer.intervals.size(); ++i) {
            squares += std::pow(static_cast<double>(layer.intervals[i]) - mean, 2);
        }
        return std::sqrt(squares / 30) < std::max(2e6, mean / 5) && modeOf(1e9 / mean) == mode;
    }

    void frameDone(ModelLayer& layer) {
        if (mThreshold < 1 || layer.mode < 30 || layer.gap < mThreshold * kMs) return;
        event(4186, layer.package, "5 0 ");
        log.push_back("Send CPU big jank [" + layer.producer.name + "].");
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
            event(4196, fastest->package, "0 " + str(fastest->mode) + " ");
            log.push_back("Update MaxInfo: pkgName " + fastest->package +
                          " mode: " + str(fastest->mode) + " layerId: " + str(mFastest));
        } else if (mFastest != -1) {
            mFastest = -1;
            event(4196, "null", "0 -1 ");
            log.push_back("Update MaxInfo: Reset to default");
        }
    }

    static bool mayBeRescued(const ModelLayer& layer) {
        return layer.package != "com.tencent.mm" || layer.scene == "minigame";
    }
    void setRescued(ModelLayer& layer, bool on) {
        layer.rescued = on;
        if (layer.atRescue) {
            log.push_back("Layer " + str(layer.id) + (on ? " enable GFR" : " disable GFR"));
        }
    }
    void setPaced(ModelLayer& layer, bool on) {
        layer.paced = on;
        if (on == layer.pacing && layer.target == layer.pacerTarget) return;
        layer.pacing = on;
        layer.pacerTarget = layer.target;
        log.push_back("Layer " + str(layer.id) +
                      (on ? ": enable target fps: " + str(layer.target) + ".000000"
                          : ": disable target fps"));
    }

    void applyRescue(ModelLayer& layer) {
        const bool allowed = !rescue.get(layer.package, true).empty();
        if (std::exchange(layer.rescueAllowed, allowed) != allowed) setRescued(layer, false);
        if (allowed && layer.atRescue) log.push_back("updateLayerTunables layer " + str(layer.id));
    }
    void applyPace(ModelLayer& layer) {
        const auto config = pace.get(layer.package, true);
        const int target = config.empty() ? 0 : config[0];
        if (std::exchange(layer.target, target) == target) return;
        const bool on = target > 0 && layer.fps > target;
        if (layer.atHeadroom && (layer.paced || on)) setPaced(layer, on);
    }

    void switchFeatures(ModelLayer& layer) {
        const std::string id = str(layer.id);
        if (layer.mode == mDisplayMode && layer.mode != -1 && layer.visible) {
            if (layer.rescueAllowed) {
                if (!std::exchange(mRescueStarted, true)) log.push_back("GFRMonitor initialized");
                if (!std::exchange(layer.atRescue, true)) {
                    log.push_back("GFR: Registered layer " + id + " [" + layer.producer.name + "]");
                }
                if (!layer.rescued) setRescued(layer, true);
            }
            if (layer.headroomAllowed || layer.target > 0) {
                if (!std::exchange(mHeadroomStarted, true)) log.push_back("PHRMonitor initialized");
                if (!std::exchange(layer.atHeadroom, true)) {
                    log.push_back("PHR: Registered layer " + id + " [" + layer.producer.name + "]");
                }
                if (!layer.paced && layer.target > 0 && layer.fps > layer.target) {
                    setPaced(layer, true);
                }
            }
        } else if (layer.rescued) {
            setRescued(layer, false);
        }
        if (layer.atHeadroom && layer.paced && layer.fps < layer.target - 2) setPaced(layer, false);

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
        for (auto& [id, layer] : layers) {
            if (package.empty() ? mLowLatency > 0 && layer.producer.pid() == mLowLatency
                                : layer.package == package) {
                result.push_back(&layer);
            }
        }
        return result;
    }

    static int importance(const ModelLayer& layer) {
        return layer.focused * 10'000 + layer.game * 1'000 + layer.mode;
    }

    void checkScenes() {
        std::map<int, const ModelLayer*> byUid;
        for (const auto& [id, layer] : layers) {
            if (!layer.active || !layer.visible) continue;
            const ModelLayer*& best = byUid[layer.producer.uid()];
            if (best == nullptr || layer.mode > best->mode) best = &layer;
        }
        std::vector<const ModelLayer*> ranked;
        for (const auto& [uid, layer] : byUid) ranked.push_back(layer);
        std::sort(ranked.begin(), ranked.end(), [](const ModelLayer* a, const ModelLayer* b) {
            return std::pair(-importance(*a), a->id) < std::pair(-importance(*b), b->id);
        });
        ranked.resize(std::min<size_t>(ranked.size(), 3));
        chooseLowLatency(ranked.empty() ? nullptr : ranked[0]);
        std::set<int> uids;
        for (const ModelLayer* layer : ranked) uids.insert(layer->producer.uid());
        if (!std::exchange(mForceScene, false) && uids == mReported) return;
        mReported = uids;
        std::string apps;
        size_t length = std::string("{\"apps\":[]}\n").size();
        for (const ModelLayer* layer : ranked) {
            std::string app = std::string(apps.empty() ? "" : ",") +
                              "{\"F\":" + str(layer->focused) + ",\"M\":" + str(layer->mode) +
                              ",\"b\":" + str(layer->bottom) +
                              ",\"fps\":,\"l\":" + str(layer->left) + ",\"pkg\":\"" +
                              layer->package + "\",\"r\":" + str(layer->right);
            if (!layer->scene.empty()) app += ",\"scene\":\"" + layer->scene + "\"";
            app += ",\"t\":" + str(layer->top) + "}";
            length += app.size() + str(std::lround(layer->fps * 100)).size();
            if (length > 256) {
                log.push_back("JSON length limit reached, drop the last added group");
                break;
            }
            apps += app;
        }
        const std::string text = "{\"apps\":[" + apps + "]}\n";
        event(4194, text, "101 " + str(static_cast<int>(ranked.size())) + " ");
        log.push_back("CheckMultiLayer: " + str(static_cast<int>(ranked.size())) + ", " + text);
    }

    void chooseLowLatency(const ModelLayer* layer) {
        const int pid = layer == nullptr ? -1 : layer->producer.pid();
        if (layer != nullptr && pid == mLowLatency) return;
        const bool on = layer != nullptr && layer->game;
        if (!on && mLowLatency < 1) return;
        log.push_back("SetLowLatency " + std::string(on ? "true" : "false") +
                      " for pid=" + str(on ? pid : mLowLatency));
        mLowLatency = on ? pid : -1;
        post([this, on, pid] {
            if (mHeld > 0) call("perf_lock_rel " + str(mHeld) + "  ");
            mHeld = -1;
            if (!on) return;
            call("perf_lock_acq 0  0 " + str(0x40CD0000) + " " + str(pid) + " ");
            mHeld = ++mLocks;
        });
    }

    std::map<int, Candidate> mCandidates;
    std::map<int, std::pair<std::string, nsecs_t>> mApps;  // by uid
    std::multimap<nsecs_t, std::function<void()>> mTasks;
    std::set<int> mReported;
    std::string mChecked, mAwaited;
    nsecs_t mPeriod = 0, mLastCleanup = 0;
    int mDisplayMode = -1, mThreshold = 0, mFocusedUid = -1, mFastest = -1, mMisses = -1;
    int mScheduled = 0, mLowLatency = -1, mHeld = -1, mLocks = 0;
    bool mForceScene = false, mLayersFull = false, mCandidatesFull = false;
    bool mRescueStarted = false, mHeadroomStarted = false;
};

// The registry beside its model.
class Registry {
  public:
    explicit Registry(RandomSteps& steps) : mSteps(steps) {
        for (const char* name :
             {"vendor.perf.corvane.debug", "vendor.perf.phr.enable",
              "vendor.rdxe.enable.target_fps", "debug.perf.enable_big_jank_detect"}) {
            base::SetProperty(name, "1");
        }
        PerfService::install();
        for (int app = 2; app <= 12; app += 2) PerfService::addGame(packageOf(app), app);
        manager().init(/*smartTouchEnable=*/true, 0, 0);
        mLog.clear();
        manager().setVsyncPeriod(16'666'667);
        mModel.setPeriod(16'666'667, 60);
    }

    void step() {
        pass(1);
        if (mSteps.oneIn(4)) castAnew();
        const int id = mSteps.pick(mCast);
        const std::string package = mSteps.oneIn(5) ? "" : packageOf(producerOf(id).app);
        switch (mSteps.below(16)) {
            case 0:
                vsync();
                break;
            case 1:
                idle();
                break;
            case 2:
                mFocus = id;
                mHidden = mSteps.oneIn(3) ? id : -1;
                latch(id, static_cast<int>(mSteps.below(3)));
                break;
            case 3: {
                const std::vector<std::pair<nsecs_t, int>> periods = {{16'666'667, 60},
                                                                      {16'666'667, 60},
                                                                      {15'000'000, 0},
                                                                      {8'333'333, 120}};
                const auto [period, mode] = mSteps.pick(periods);
                mSteps.tell("period", period);
                manager().setVsyncPeriod(period);
                mModel.setPeriod(period, mode);
                break;
            }
            case 4:
            case 5:
            case 6:
            case 7:
                configure(id, package);
                break;
            case 8:
                activity(package);
                break;
            case 9:
                mSteps.tell("crowd");
                for (const int any : kIds) queue(any);
                break;
            default:
                draw();
        }
        compare();
    }

  private:
    static constexpr int kIds[] = {1,  2,  3,  4,  5,  6,  7,  8,  9, 10,
                                   11, 12, 21, 22, 23, 24, 31, 32, 0};
    static LayerManager& manager() { return *LayerManager::getInstance(); }

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
        settle();
    }
    // For any time, or until something is just due or not quite.
    void idle() {
        const nsecs_t due[] = {mLastQueue + kSecond, mLastQueue + 2 * kSecond, mLastClean + kSecond,
                               Simulation::now() + mSteps.below(4 * kSecond)};
        const nsecs_t until = mSteps.pick(due) + mSteps.below(3) - 1;
        mSteps.tell("idle until", until);
        pass(std::max<nsecs_t>(until - Simulation::now(), 1));
        if (mSteps.oneIn(2)) return vsync();
        mLastClean = Simulation::now();
        manager().cleanupInactiveLayers(mLastClean);
        manager().cleanupCandidates(mLastClean);
        mModel.cleanLayers();
        mModel.cleanCandidates();
        settle();
    }
    // Who draws from now on, and how fast.
    void castAnew() {
        const nsecs_t intervals[] = {8'450'000,  11'200'000, 16'700'000, 16'700'000, 17'600'000,
                                     20'300'000, 23'100'000, 34'000'000, 43'300'000, 45'000'000};
        mInterval = mSteps.pick(intervals);
        if (mSteps.oneIn(2)) return;
        mCast.resize(static_cast<size_t>(1 + mSteps.below(mSteps.oneIn(3) ? 7 : 3)));
        for (int& id : mCast) id = mSteps.pick(kIds);
        std::sort(mCast.begin(), mCast.end());
        mCast.erase(std::unique(mCast.begin(), mCast.end()), mCast.end());
    }
    void latch(int id, int pending) {
        mSteps.tell("latch", id, pending, mFocus == id, mHidden != id);
        latchQuietly(id, pending);
    }
    void latchQuietly(int id, int pending) {
        const Rect bounds(0, 10, 1080, 1'000 + id);
        manager().onBufferDecrement("latched", id, pending, bounds, mFocus == id, mHidden != id);
        mModel.latch(id, pending, bounds, mFocus == id, mHidden != id);
        settle();
    }
    void queue(int id) {
        const Producer producer = producerOf(id);
        pass(1'000);
        mLastQueue = Simulation::now();
        mModel.queue(id);
        manager().onBufferIncrement(producer.name, id, producer.pid(), producer.uid(), 0, false, 0);
        mModel.runTasks(Simulation::now());
        mModel.queueEnded(id);
        settle();
    }
    void draw() {
        const nsecs_t duration = mSteps.below(3 * kSecond);
        const nsecs_t until = Simulation::now() + duration;
        const bool latched = !mSteps.oneIn(8);
        mSteps.tell("draw", mCast, mInterval, duration, latched);
        while (Simulation::now() < until) {
            const nsecs_t next = Simulation::now() + mInterval;
            for (const int id : mCast) {
                queue(id);
                if (latched) latchQuietly(id, 0);
            }
            if (next > Simulation::now()) pass(next - Simulation::now());
        }
    }

    void configure(int id, const std::string& package) {
        FeatureManager& features = *FeatureManager::getInstance();
        const nsecs_t now = Simulation::now();
        mSteps.tell("configure", package);
        switch (mSteps.below(7)) {
            case 0:
            case 1: {
                const int rates[] = {0, 80, 81, 83, 120};
                const int rate = mSteps.pick(rates), high = mSteps.pick(rates);
                mModel.headroom.set(package,
                                    rate + high > 0 ? std::vector<int>{rate, high}
                                                    : std::vector<int>(),
                                    now);
                mModel.headroomChanged(package);
                features.setCallbackHintValue(4187, package, 0, 0, {0, rate, 0, high});
                break;
            }
            case 2:
            case 3: {
                const bool on = !mSteps.oneIn(3);
                mModel.rescue.set(package, on ? std::vector<int>{1} : std::vector<int>(), now);
                mModel.rescueChanged(package);
                const std::string text = package.empty() ? "1.2;1.5" : package + ":golden=0.8";
                features.setCallbackHintValue(4189, text, 0, 0, {on});
                break;
            }
            case 4:
            case 5: {
                const int targets[] = {0, 30, 45, 50, 58, 58};
                const int target = mSteps.pick(targets);
                mModel.pace.set(package, target > 0 ? std::vector<int>{target} : std::vector<int>(),
                                now);
                mModel.paceChanged(package);
                if (package.empty()) {
                    features.setCallbackHintValue(4171, str(target), 0, 0, {});
                } else {
                    features.setCallbackHintValue(4171, package, target * 100, 0, {});
                }
                break;
            }
            default: {
                const int ms = 20 + id;
                mModel.threshold(ms);
                base::SetProperty("debug.perf.cpu_big_jank_threshold_ms", str(ms));
            }
        }
        settle();
    }
    void activity(const std::string& package) {
        const bool resume = !mSteps.oneIn(3) && !package.empty();
        mSteps.tell(resume ? "await" : "report later", package);
        if (resume) {
            mModel.awaitApp(package);
        } else {
            mModel.reportLater();
        }
        FeatureManager::getInstance()->setCallbackHintValue(4192, package, resume ? 0 : 1, 0, {});
        settle();
    }

    // What the registry and what it asks for has logged, without measured rates.
    Strings takeLog() {
        static const std::regex monitors(
                "Layer \\d+ (enable|disable) GFR|Layer \\d+: .*target fps.*|Layer \\d+ destroyed|"
                "GFR: Unregistered.*|updateLayerTunables layer \\d+: .*");
        static const std::regex rates(
                "^FPS:[0-9.]+|: [0-9.]+ (?=\\(mode)|(\"fps\":)\\d+|(Tunables layer \\d+):.*");
        Strings lines;
        for (const auto& line : mLog.lines()) {
            const bool own = line.tag == "Corvane.LayerManager";
            if (!own && !std::regex_match(line.text, monitors)) continue;
            if (own && line.text.find("Window: ") == 0) continue;
            std::string text = std::regex_replace(line.text, rates, "$1$2");
            if (line.text.find("FPS:") == 0) text = "FPS:" + text;
            if (line.text.find("Stable") == 0) text.insert(text.find("(mode"), ": ");
            lines.push_back(text);
        }
        mLog.clear();
        return lines;
    }
    static std::vector<std::pair<nsecs_t, std::string>> takeCalls() {
        std::vector<std::pair<nsecs_t, std::string>> calls;
        static const std::regex rate("(\"fps\":)\\d+");
        for (const PerfCall& call : PerfService::calls()) {
            if (call.entry.find("perf_event") != 0 && call.entry.find("perf_get_feedback") != 0 &&
                call.entry.find("perf_lock") != 0) {
                continue;
            }
            if (call.number == 4186 && call.args[0] != 5) continue;  // of frame rescue
            std::string text = call.entry + " " + str(call.number) + " " +
                               std::regex_replace(call.package, rate, "$1") + " ";
            for (const int arg : call.args) text += str(arg) + " ";
            calls.emplace_back(call.timeNs, text);
        }
        PerfService::clearCalls();
        return calls;
    }

    void compare() {
        expectSame(ordered(std::exchange(mModel.log, {})), ordered(takeLog()), "the log");
        // Tasks of one instant have no order.
        auto expected = std::exchange(mModel.calls, {});
        auto actual = takeCalls();
        std::sort(expected.begin(), expected.end());
        std::sort(actual.begin(), actual.end());
        expectSame(expected, actual, "the service's calls");
        for (const int id : kIds) {
            const sp<LayerInfo> layer = manager().getLayer(id);
            const auto found = mModel.layers.find(id);
            mSteps.expectEq(found != mModel.layers.end(), layer != nullptr, "whether tracked");
            if (layer == nullptr || found == mModel.layers.end()) continue;
            const ModelLayer& m = found->second;
            mSteps.expectEq(std::tuple(m.producer.name, m.package, m.scene, m.producer.pid(),
                                       m.producer.uid(), m.focused, m.visible, m.game, m.weight,
                                       m.active, m.removeAt, m.mode),
                            std::tuple(layer->mName, layer->mPackageName, layer->mSceneTag,
                                       layer->mPid, layer->mUid, layer->mFocused, layer->mVisible,
                                       layer->mIsGame, layer->mGameWeight, layer->mActive,
                                       layer->mRemoveDeadline, layer->mFpsMode),
                            "the layer");
            mSteps.expectEq(std::tuple(m.rescueAllowed, m.rescued, m.atRescue, m.headroomAllowed,
                                       m.atHeadroom, m.paced, m.target, m.rate, m.highRate,
                                       m.matches),
                            std::tuple(layer->mGfrAllowed, layer->mGfrActive, layer->mGfrRegistered,
                                       layer->mQuickTouchActive, layer->mPhrRegistered,
                                       layer->isPaced(), static_cast<int>(layer->targetFps()),
                                       percent(layer->phrMinRate),
                                       percent(layer->highFpsPhrMinRate),
                                       layer->mAliveCheckMatches),
                            "its features");
            mSteps.expectEq(std::tuple(m.depth, m.queued, m.ended, m.gap, m.toPresent, m.first,
                                       m.anchor),
                            std::tuple(layer->queueDepth(), layer->mLastQueueTime,
                                       nsecs_t{layer->mLastQueueEndTime}, layer->mFrameGap,
                                       layer->timeToPresent(), layer->mFirstFrameTime,
                                       layer->mVsyncAnchorTime),
                            "its frames");
        }
    }
    // Silent candidates go in any order.
    static Strings ordered(Strings lines) {
        const auto isRemoval = [](const std::string& line) {
            return line.find("Remove cand") == 0;
        };
        for (auto begin = lines.begin(); begin != lines.end();) {
            begin = std::find_if(begin, lines.end(), isRemoval);
            const auto end = std::find_if_not(begin, lines.end(), isRemoval);
            std::sort(begin, end);
            begin = end;
        }
        return lines;
    }
    template <typename List>
    void expectSame(List expected, List actual, const char* what) {
        const size_t size = std::max(expected.size(), actual.size());
        expected.resize(size);
        actual.resize(size);
        for (size_t i = 0; i < size; ++i) mSteps.expectEq(expected[i], actual[i], what);
    }
    static int percent(float rate) { return static_cast<int>(std::lround(rate * 100)); }

    RandomSteps& mSteps;
    Model mModel;
    LogCapture mLog;
    std::vector<int> mCast = {1, 2};
    nsecs_t mInterval = 16'700'000;
    nsecs_t mLastQueue = 0, mLastClean = 0;
    int mFocus = -1, mHidden = -1;
};

TEST(RegistryModelTest, AgreesWithTheModel) {
    RandomStepsRunner::run(120, 60, [](RandomSteps& steps) {
        const Simulation simulation(1'000 * kSecond);
        Registry registry(steps);
        while (steps.next()) registry.step();
    });
}

}  // namespace
}  // namespace android
