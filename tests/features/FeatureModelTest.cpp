// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// The switches, the store of configurations, and what the observer, the log and the service get to
// know of them, against a plain account of what each property and each callback is to do.

#include <android-base/properties.h>
#include <android/log.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <system_error>
#include <tuple>
#include <utility>
#include <vector>

#include "RandomSteps.h"
#include "corvane/host/LogCapture.h"
#include "corvane/host/PerfService.h"
#include "corvane/host/Simulation.h"
#include "corvane/host/Threads.h"
#include "features/FeatureManager.h"
#include "perf/PerfProxy.h"
#include "perf/TFPSCallback.h"

namespace android {
namespace {

using aidl::vendor::hxw::hardware::perf2::TFPSCallback;
using corvane::host::LogCapture;
using corvane::host::PerfService;
using corvane::host::Simulation;
using Strings = std::vector<std::string>;
using Texts = std::map<std::string, std::string>;
using namespace std::string_literals;

enum Hint { kTargetFps = 4171, kHeadroomRates = 4187, kFrameRescue = 4189, kActivity = 4192 };
constexpr int kResumeEvent = 4099;

constexpr const char* kBigJank = "debug.perf.enable_big_jank_detect";
constexpr const char* kThreshold = "debug.perf.cpu_big_jank_threshold_ms";
const Texts kDefaults = {{"vendor.perf.corvane.debug", "0"},
                         {"vendor.perf.corvane.profile", "0"},
                         {"vendor.perf.corvane.enable", "1"},
                         {"vendor.perf.phr.enable", "0"},
                         {"vendor.perf.phr.dynamic.enable", "true"},
                         {"vendor.rdxe.enable.target_fps", "false"},
                         {"vendor.rdxe.target_fps.switch_time", "0"},
                         {"vendor.rdxe.target_fps.compensate", "true"},
                         {"vendor.perf.game_frame_rescue.headroom_resend_var", "0.2"},
                         {"vendor.perf.gpu_jank_detect.enable", "false"},
                         {"vendor.perf.gpu_jank_filter.min_exec_time_mult", "1.0"},
                         {kBigJank, "false"},
                         {kThreshold, "0"}};

const std::set<std::string> kNumeric = {"vendor.rdxe.target_fps.switch_time", kThreshold,
                                        "vendor.perf.game_frame_rescue.headroom_resend_var",
                                        "vendor.perf.gpu_jank_filter.min_exec_time_mult"};

// What is read from a property's text as a real number, and as a whole one.
const std::map<std::string, std::pair<float, int>> kNumbers =
        {{"0.2", {0.2f, 0}},   {"1.0", {1, 1}},    {"0.5", {0.5f, 0}}, {"12", {12, 12}},
         {"7", {7, 7}},        {"1", {1, 1}},      {"-2", {-2, -2}},   {"0.999", {0.999f, 0}},
         {"-0.5", {-0.5f, 0}}, {"2.9", {2.9f, 2}}, {"1e99", {0, 1}},   {"0.25x", {0.25f, 0}},
         {"0", {0, 0}},        {"nan", {0, 0}},    {"inf", {0, 0}},    {"9999999999", {1e10f, 0}},
         {"on", {0, 0}},       {"yes", {0, 0}},    {"true", {0, 0}},   {"maybe", {0, 0}},
         {"off", {0, 0}},      {"false", {0, 0}},  {"", {0, 0}}};

// Texts that are rates for every package, in hundredths.
const std::string kHugeRate(60, '9');
constexpr int kNoFloat = 123;  // no rate that is drawn
const std::map<std::string, int> kRates = {{"90", 9000},         {"-1", -100},
                                           {".5", 50},           {"5.", 500},
                                           {"-.5", -50},         {"240", 24000},
                                           {"59.75", 5975},      {"240.5", 24050},
                                           {kHugeRate, kNoFloat}};

constexpr const char* kThermal = "hx-core-thermalCallbackHandler";
const std::string kLikeThermal = kThermal + "X"s;
const std::string kHuge(5'000, 'a');
const std::string kWithZero = "a\0b"s;
const Strings kPackages = {"a",        "b",        "c",      "d",          "e",   "ab",
                           "",         "com.game", kThermal, kLikeThermal, kHuge, kWithZero,
                           "\xff%s%n", "1e5",      "+90",    ".",          "-",   "-.",
                           "--1",      "1-",       " 1",     "1.2.3",      "1/",  "0x1"};

// An entry of a package's tunables.
struct TunableText {
    const char* key;
    const char* text;
    const char* shown;  // its value when it is accepted
    const char* error = "";
    const char* errorForAll = "";  // of thresholds for every package
};
constexpr TunableText kTunableTexts[] = {
        {"jank", "1.2;1.4;1.6;abc", "1.20;1.40;1.60"},
        {"jank", ";1.01;;1.02;", "1.01;1.02"},
        {"jank", "1.0;1.5", "", "first jank threshold 1.00 must be > 1.0", "Must be > 1 vsync."},
        {"jank", "nan", "", "first jank threshold nan must be > 1.0", "Must be > 1 vsync."},
        {"jank", "1.2;1.4;inf", "", "jank thresholds must be finite", "Must be finite."},
        {"jank", "1.2;1.2", "", "jank thresholds not strictly increasing",
         "Must be strictly increasing."},
        {"jank", ";;", "", "empty jank thresholds"},
        {"jank", "", "", "empty value for key 'jank'"},
        {"jank", "1.2;1e99", "", "failed to parse 'jank=1.2;1e99': stof"},
        {"flag", "0", "0"},
        {"flag", "2", "2"},
        {"flag", "3", "", "invalid flag=3"},
        {"flag", "-1", "", "invalid flag=-1"},
        {"baseFreq", "1;2;3", "1;2;3"},
        {"baseFreq", ";;600;2147483647", "600;2147483647"},
        {"baseFreq", "500;0", "", "baseFreq value must be > 0"},
        {"baseFreq", "1;2;3;4", "", "baseFreq must have 1 to 3 values"},
        {"dynamic", "1", "true"},
        {"dynamic", "0", "false"},
        {"lowerBoost", "-7", "true"},
        {"histJank", "2", "true"},
        {"golden", "0.2", "0.20"},
        {"golden", "1.3", "1.30"},
        {"golden", "1.31", "", "golden=1.31vsync out of range [0.2, 1.3]"},
        {"golden", "0.19", "", "golden=0.19vsync out of range [0.2, 1.3]"},
        {"golden", "nan", "", "golden=nanvsync out of range [0.2, 1.3]"},
        {"golden", "a=b", "", "failed to parse 'golden=a=b': stof"},
        {"kFactor", "0.5", "0.50"},
        {"kFactor", "5", "5.00"},
        {"kFactor", "5.01", "", "kFactor=5.01 out of range [0.5, 5.0]"},
        {"kFactor", "0.49", "", "kFactor=0.49 out of range [0.5, 5.0]"},
        {"foo", "", "", "empty value for key 'foo'"},
};
constexpr int kThresholdTexts = 9;  // the first of these
const Strings kIgnored = {"", "foo=1", "Golden=0.7", "golden", "gold=1:", "\xff=%n", " flag=1"};

// What the frame-rescue hint carries, put together from these.
struct RescueText {
    std::string package, text;
    Texts changes{};      // when it is accepted
    std::string error{};  // or else
};

class Model {
  public:
    Texts properties;  // a text is empty when there is none
    bool hasService = true, isObserved = true;
    int threadFailures = 0;

    // What comes of it all.
    Strings logs, events;
    std::set<int> enabled{FRAME_RESCUE};
    bool isProfile = false, isDynamic = false, isCompensating = false, isWatching = false;
    float variation = 0, multiplier = 1;
    int switchTime = -1, threshold = 0;
    bool isStable = true;
    std::string awaited;
    std::map<std::string, std::pair<nsecs_t, std::string>>
            stores[GPU_JANK_DETECT];  // by feature and package

    void start() {
        mHasWorker = hasService && threadFailures-- <= 0;
        isOn("vendor.perf.corvane.debug", DEBUG);
        isProfile = isOn("vendor.perf.corvane.profile") && enabled.count(DEBUG);
        if (!isOn("vendor.perf.corvane.enable", CORVANE)) return;
        const bool hasHeadroom = isOn("vendor.perf.phr.enable", QUICK_TOUCH);
        isDynamic = hasHeadroom && isOn("vendor.perf.phr.dynamic.enable");
        const bool hasTarget = isOn("vendor.rdxe.enable.target_fps", TARGET_FPS);
        if (hasTarget) {
            switchTime = kNumbers.at(read("vendor.rdxe.target_fps.switch_time")).second;
            isCompensating = isOn("vendor.rdxe.target_fps.compensate");
            debug(formatted("Target fps switch time is %d seconds, compensation is %d.", switchTime,
                            isCompensating));
        }
        std::string text = read("vendor.perf.game_frame_rescue.headroom_resend_var");
        variation = kNumbers.at(text).first;
        if (variation > 0 && variation < 1) {
            debug("FrameResendVariation: " + text);
        } else {
            variation = 0.2f;
            error("Invalid FrameResendVariation: " + text + ", fall back to 0.2");
        }
        const bool hasGpuJank = isOn("vendor.perf.gpu_jank_detect.enable", GPU_JANK_DETECT);
        if (hasGpuJank) {
            text = read("vendor.perf.gpu_jank_filter.min_exec_time_mult");
            multiplier = kNumbers.at(text).first;
            if (multiplier <= 0) {
                multiplier = 1;
                error("Invalid GpuMinExecTimeMult: " + text + ", fall back to 1.0");
            }
        }
        debug(formatted("[TFPS:%d][QuickTouch:%d, mPHRDynamicEnable:%d][GpuJankDetect:%d]",
                        hasTarget, hasHeadroom, isDynamic, hasGpuJank));
        if (!isTrue(properties[kBigJank])) return;
        enabled.insert(CPU_BIG_JANK);
        threshold = kNumbers.at(properties[kThreshold]).second;
        isWatching = threadFailures-- <= 0;
        const std::system_error fault(EAGAIN, std::generic_category());
        if (!isWatching) error(formatted("Unable to watch %s: %s", kThreshold, fault.what()));
    }

    void changed(const std::string& name) {
        const std::string& text = properties[name];
        debug("[Prop Changed: " + name + ": " + (text.empty() ? "0" : text) + "]");
        if (name != kThreshold) return;
        threshold = kNumbers.at(text).second;
        if (threshold < 1) {
            error("Invalid thresholdMs of cpu_big_jank, disabled");
        } else {
            log(ANDROID_LOG_INFO, formatted("The thresholdMs of cpu_big_jank is %dms", threshold));
        }
        tell(CPU_BIG_JANK, "");
    }

    void pushTarget(const std::string& text, int hundredths) {
        const auto ofAll = kRates.find(text);
        if (ofAll != kRates.end()) hundredths = ofAll->second;
        if (hundredths == kNoFloat) return error("TFPS_CALLBACK");
        const float fps = inWhole(hundredths);
        if (fps < 0 || fps > 240) return error(formatted("Invalid target fps found: %.2f", fps));
        const std::string package = ofAll != kRates.end() || text == kThermal ? "" : text;
        put(TARGET_FPS, package, hundredths > 0 ? formatted("%f", fps) : "");
        debug(formatted("pkg = %s, targetFps = %f", package.c_str(), fps));
        tell(TARGET_FPS, package);
    }

    void pushHeadroom(const std::string& package, std::vector<int> values) {
        if (enabled.count(QUICK_TOUCH)) {
            values.resize(4);
            const std::string rates = formatted("phrMinRate=%f, highFpsPhrMinRate=%f",
                                                inWhole(values[1]), inWhole(values[3]));
            put(QUICK_TOUCH, package, values[1] > 0 || values[3] > 0 ? rates : "");
            debug(formatted("pkg=%s, ", package.c_str()) + rates);
        } else {
            debug("set PhrMinRate fail, Quick Touch disable!");
        }
        tell(QUICK_TOUCH, package);
    }

    void pushRescue(const RescueText& pushed, const std::vector<int>& values) {
        const std::string& package = pushed.package;
        if (values.empty()) return;
        const int flag = values[0];
        if (flag < 0 || flag > 2) return error(formatted("Invalid gfrFlag: %d", flag));
        if (flag == 0) {
            put(FRAME_RESCUE, package, "");
            return tell(FRAME_RESCUE, package);
        }
        if (!pushed.error.empty()) {
            error(pushed.error);
            if (!package.empty()) error("Invalid GFR tunables: " + pushed.text);
            return;
        }
        Texts t = stores[FRAME_RESCUE].count(package) ? mTunables[package] : mDefaultTunables;
        t["flag"] = std::to_string(flag);
        for (const auto& [key, value] : pushed.changes) t[key] = value;
        std::string line = "pkg="s + package.c_str() + " GFRProp: flag=" + t["flag"];
        if (!package.empty()) {
            line += " dynamic=" + t["dynamic"] + " lowerBoost=" + t["lowerBoost"] +
                    " golden=" + t["golden"] + "vsync kFactor=" + t["kFactor"] +
                    " baseFreq=" + inThree(t["baseFreq"], ";0");
        }
        line += " jankThresholds=" + inThree(t["jank"], ";0.00");
        debug(line + (package.empty() ? "" : " entries"));
        std::string value;
        for (const auto& [key, text] : t) value += key + "=" + text + " ";
        put(FRAME_RESCUE, package, value);
        mTunables[package] = t;
        tell(FRAME_RESCUE, package);
    }

    void pushActivity(const std::string& package, int kind, int state) {
        if (kind == 0) awaited = package;
        if (kind == 2) isStable = state == 0;
        if (kind >= 0 && kind <= 2) tell(ACTV_NON_GAME_RESUME + kind, package);
    }

    void checkAlive(const std::string& alive) {
        if (alive.find(awaited) == std::string::npos) {
            debug("The checked app is no longer alive. Cancel check");
        } else {
            debug("The checked app is still alive, trigger its resume logic");
            if (hasService) events.push_back(formatted("%s, %d, 0", awaited.c_str(), mHasWorker));
        }
        awaited = "";
    }

    // What is in force for a package; nothing while the feature is off.
    std::string inForce(int kind, const std::string& package, bool useGlobal) const {
        if (!enabled.count(kind)) return "";
        const auto& store = stores[kind];
        auto entry = store.find(package);
        if (entry == store.end() && useGlobal) entry = store.find("");
        if (entry == store.end()) return "";
        return entry->second.second + " at " + std::to_string(entry->second.first);
    }

  private:
    static float inWhole(int hundredths) { return static_cast<float>(hundredths / 100.0); }
    static std::string inThree(std::string list, const std::string& filler) {
        while (std::count(list.begin(), list.end(), ';') < 2) list += filler;
        return list;
    }
    static bool isTrue(const std::string& text) {
        return std::set<std::string>{"1", "on", "yes", "true"}.count(text) != 0;
    }

    std::string read(const std::string& name) {
        const bool isSet = hasService && !properties[name].empty();
        return isSet ? properties[name] : kDefaults.at(name);
    }
    bool isOn(const std::string& name, int feature = FRAME_RESCUE) {
        const bool isOn = isTrue(read(name));
        if (isOn) enabled.insert(feature);
        return isOn;
    }

    void log(int priority, const std::string& text) {
        logs.push_back(formatted("%d %.300s", priority, text.c_str()));
    }
    void error(const std::string& text) { log(ANDROID_LOG_ERROR, text); }
    void debug(const std::string& text) {
        if (enabled.count(DEBUG)) log(ANDROID_LOG_DEBUG, text);
    }
    void tell(int kind, const std::string& package) {
        if (!isObserved) return;
        log(ANDROID_LOG_INFO,
            formatted("told %d, %s awaited, %s", kind, awaited.c_str(), package.c_str()));
    }

    void put(int kind, const std::string& package, const std::string& value) {
        auto& store = stores[kind];
        if (package.empty()) store.clear();
        store.erase("");
        store.erase(package);
        if (store.size() == 4) {
            auto oldest = store.begin();
            for (auto it = oldest; it != store.end(); ++it) {
                if (it->second.first < oldest->second.first) oldest = it;
            }
            debug(formatted("Feature(%d) LRU remove [%s]", kind, oldest->first.c_str()));
            store.erase(oldest);
        }
        if (!value.empty()) store[package] = {Simulation::now(), value};
    }

    const Texts mDefaultTunables = {{"flag", "0"},        {"jank", "1.30;1.60;1.90"},
                                    {"dynamic", "false"}, {"baseFreq", "500;800;3000"},
                                    {"golden", "0.60"},   {"lowerBoost", "false"},
                                    {"kFactor", "1.00"},  {"histJank", "false"}};
    std::map<std::string, Texts> mTunables;  // as they were stored last
    bool mHasWorker = false;
};

constexpr const char* kTag = "Corvane.FeatureManager";

// In the place of the layer registry.
class Observer final : public ConfigObserver {
  public:
    void onFeatureConfigChanged(Feature feature, const std::string& pkgName) override {
        const std::string awaited = FeatureManager::getInstance()->getCheckingAliveApp();
        __android_log_print(ANDROID_LOG_INFO, kTag, "told %d, %s awaited, %s", feature,
                            awaited.c_str(), pkgName.c_str());
    }
} sObserver;

// Thresholds alone, for every package.
RescueText someThresholds(RandomSteps& steps) {
    const TunableText& entry = kTunableTexts[steps.below(kThresholdTexts)];
    RescueText pushed{"", entry.text, {{entry.key, entry.shown}}};
    if (*entry.errorForAll != '\0') {
        pushed.error = "Invalid GFR jank thresholds: "s + entry.text + ". " + entry.errorForAll;
    } else if (*entry.shown == '\0') {
        pushed.error = "Invalid parameters for GFR jank thresholds: "s + entry.text;
    }
    return pushed;
}

RescueText someTunables(RandomSteps& steps, const std::string& package) {
    RescueText pushed{package, ""};
    for (int64_t left = steps.below(5); left > 0; --left) {
        if (!pushed.text.empty()) pushed.text += "_";
        TunableText entry = steps.pick(kTunableTexts);
        // Few errors, or nothing is ever stored.
        while (*entry.error != '\0' && !steps.oneIn(8)) entry = steps.pick(kTunableTexts);
        if (steps.oneIn(4)) {
            pushed.text += steps.pick(kIgnored);
            continue;
        }
        pushed.text += entry.key + "="s + entry.text;
        pushed.changes[entry.key] = entry.shown;
        if (!pushed.error.empty() || *entry.error == '\0') continue;
        pushed.error = "parseGFRTunables: "s + entry.error;
    }
    if (pushed.changes.empty() && pushed.error.empty()) {
        pushed.error = "parseGFRTunables: no valid tunable found in '" + pushed.text + "'";
    }
    return pushed;
}

// One thing that happens, about this package.
void act(RandomSteps& steps, Model& model, FeatureManager& manager, const std::string& package) {
    const int numbers[] = {-1, 0, 1, 2, 3, 80, 120, 2575, 24000, 24001, INT_MAX, INT_MIN};
    const int first = steps.pick(numbers);
    const int second = steps.pick(numbers);
    std::vector<int> values(static_cast<size_t>(steps.below(7)));
    for (int& value : values) value = steps.pick(numbers);
    const char what = steps.pick(std::string_view("cccccccccccccccccckkwwppoo"));
    steps.tell("act", what, package, first, second, values);
    switch (what) {
        case 'c': {
            const int hints[] = {kTargetFps,   kTargetFps, kHeadroomRates, kFrameRescue,
                                 kFrameRescue, kActivity,  4170,           4172,
                                 4188,         4190,       4191,           4193};
            const int hint = steps.pick(hints);
            std::string text = package;
            if (hint == kTargetFps && steps.oneIn(4)) text = steps.pick(kRates).first;
            if (hint == kTargetFps) model.pushTarget(text, first);
            if (hint == kHeadroomRates) model.pushHeadroom(package, values);
            if (hint == kActivity) model.pushActivity(package, first, second);
            if (hint == kFrameRescue) {
                const RescueText pushed =
                        package.empty() ? someThresholds(steps) : someTunables(steps, package);
                if (steps.oneIn(2)) values.insert(values.begin(), 1);
                const bool hasColon = !package.empty() || steps.oneIn(2);
                text += (hasColon ? ":" : "") + pushed.text;
                model.pushRescue(pushed, values);
            }
            steps.tell("  callback", hint, text, values);
            TFPSCallback callback;
            const bool isOk = callback.notifyCallback(hint, text, first, second, values).isOk();
            return steps.expectEq(true, isOk, "the answer");
        }
        case 'k': {
            const std::string alive = steps.pick(kPackages) + "," + package;
            model.checkAlive(alive);
            return manager.processAliveAppCheck(alive);
        }
        case 'w':
        case 'p': {
            const std::string name = what == 'w' ? kThreshold : steps.pick(kDefaults).first;
            const std::string text = model.properties[name] = steps.pick(kNumbers).first;
            steps.tell("  property", name, text);
            base::SetProperty(name, text);
            if (name == kThreshold && model.isWatching) model.changed(name);
            Simulation::settle();
            model.changed(name);
            return manager.onPropChanged(name);
        }
        default:
            model.isObserved = !model.isObserved;
            manager.setConfigObserver(model.isObserved ? &sObserver : nullptr);
    }
}

std::string showTunables(const GfrTunables& t) {
    const auto list = [](const char* format, const auto& values) {
        std::string text;
        for (const auto value : values) text += ";" + formatted(format, value);
        return text.substr(1);
    };
    const auto word = [](bool value) { return value ? "true" : "false"; };
    return "baseFreq=" + list("%d", t.baseFreq) +
           formatted(" dynamic=%s flag=%d golden=%.2f histJank=%s jank=", word(t.dynamic), t.flag,
                     t.golden, word(t.histJank)) +
           list("%.2f", t.jankThresholds) +
           formatted(" kFactor=%.2f lowerBoost=%s ", t.kFactor, word(t.lowerBoost));
}
template <typename Config, typename Show>
std::string shown(const std::optional<Config>& config, Show show) {
    return config ? show(*config) + " at " + std::to_string(config->updateTime) : "";
}

void compare(RandomSteps& steps, Model& model, const FeatureManager& manager, LogCapture& log,
             const std::string& touched) {
    Strings logs;
    for (const auto& line : log.lines()) {
        if (line.tag != kTag && line.tag != line.text) continue;
        logs.push_back(formatted("%d %.300s", line.priority, line.text.c_str()));
    }
    log.clear();
    steps.expectEq(std::exchange(model.logs, {}), logs, "the log");
    std::set<int> enabled;
    for (int feature = -1; feature <= GPU_JANK_DETECT + 1; ++feature) {
        if (manager.isFeatureEnabled(static_cast<Feature>(feature))) enabled.insert(feature);
    }
    steps.expectEq(model.enabled, enabled, "what is enabled");
    steps.expectEq(std::tuple(model.threshold, model.variation, model.multiplier, model.switchTime,
                              model.isCompensating, model.isDynamic, model.isProfile,
                              model.isStable, model.awaited, !model.stores[TARGET_FPS].empty()),
                   std::tuple(manager.getCpuBigJankThresholdMs(), manager.getFrameResendVariation(),
                              manager.getGpuMinExecTimeMult(), manager.getTargetFpsSwitchTime(),
                              manager.isTargetFpsCompensate(), manager.isPHRDynamicEnabled(),
                              PerfProxy::isProfileable(), manager.isActvStable(),
                              manager.getCheckingAliveApp(), manager.isTfpsConfigured()),
                   "the settings");
    for (const std::string& package : {touched, steps.pick(kPackages), steps.pick(kPackages)}) {
        for (const bool useGlobal : {false, true}) {
            const auto expect = [&](int kind, const auto& config, const auto& show) {
                steps.expectEq(model.inForce(kind, package, useGlobal), shown(config, show),
                               "what is in force");
            };
            expect(TARGET_FPS, manager.getTfpsConfig(package, useGlobal),
                   [](const TfpsConfig& c) { return formatted("%f", c.targetFps); });
            expect(QUICK_TOUCH, manager.getPhrConfig(package, useGlobal), [](const PhrConfig& c) {
                return formatted("phrMinRate=%f, highFpsPhrMinRate=%f", c.phrMinRate,
                                 c.highFpsPhrMinRate);
            });
            expect(FRAME_RESCUE, manager.getGFRTunables(package, useGlobal), showTunables);
        }
    }
    Strings events;
    for (const auto& call : PerfService::calls("perf_event", kResumeEvent)) {
        events.push_back(formatted("%s, %d, %zu", call.package.c_str(), call.thread == "BP",
                                   call.args.size()));
    }
    steps.expectEq(model.events, events, "the events");
}

void followTheModel(RandomSteps& steps) {
    const Simulation simulation(1'000);
    LogCapture log;
    Model model;
    if (!steps.next()) return;
    const bool isAllOn = steps.oneIn(3);
    for (const auto& [name, text] : kDefaults) {
        if (!isAllOn && steps.oneIn(4)) continue;
        const bool isOn = !kNumeric.count(name) && (isAllOn || steps.oneIn(2));
        model.properties[name] = isOn ? "1" : steps.pick(kNumbers).first;
        base::SetProperty(name, model.properties[name]);
    }
    const bool isThresholdSet = model.properties.count(kThreshold) != 0;
    model.hasService = !steps.oneIn(8);
    model.threadFailures = steps.oneIn(4) ? static_cast<int>(steps.below(3)) : 0;
    steps.tell("start with", model.properties, model.hasService, model.threadFailures);
    PerfService::install(model.hasService ? "full" : "missing-perf_get_prop");
    corvane::host::failThreadCreation(model.threadFailures);
    model.start();
    FeatureManager& manager = *FeatureManager::getInstance();
    steps.expectEq(model.threshold, manager.getCpuBigJankThresholdMs(), "the first threshold");
    manager.setConfigObserver(&sObserver);
    Simulation::settle();
    // A property that exists counts as changed when its watcher starts.
    if (model.isWatching && isThresholdSet) model.changed(kThreshold);
    compare(steps, model, manager, log, "");
    while (steps.next()) {
        Simulation::advance(steps.below(3));
        const std::string package = steps.pick(kPackages);
        act(steps, model, manager, package);
        Simulation::settle();
        compare(steps, model, manager, log, package);
    }
}

TEST(FeatureModelTest, PropertiesAndCallbacksDoWhatIsDescribed) {
    RandomStepsRunner::run(/*sequences=*/120, /*steps=*/60, followTheModel);
}

// A quadratic search would take minutes over the long ones.
TEST(FeatureManagerTest, NamesOfAnyLengthAndWhatIsConstant) {
    FeatureManager& manager = *FeatureManager::getInstance();
    manager.setCallbackHintValue(kActivity, std::string(1 << 21, 'a') + 'b', 0, 0, {});
    manager.processAliveAppCheck(std::string(1 << 22, 'a'));
    EXPECT_EQ(manager.getCheckingAliveApp(), "");
    EXPECT_EQ(manager.getDefaultMaxHeadroomRate(true), 1.8f);
    EXPECT_EQ(manager.getDefaultMaxHeadroomRate(false), 0.9f);
    EXPECT_FALSE(FeatureManager::parseGFRTunables("golden=0.9", nullptr));
    EXPECT_FALSE(manager.setTargetFps("pkg", INFINITY));
    EXPECT_FALSE(manager.setTargetFps("pkg", -INFINITY));
    EXPECT_TRUE(manager.setTargetFps("pkg", 60));
    EXPECT_TRUE(manager.setTargetFps("pkg", NAN));
    EXPECT_FALSE(manager.isTfpsConfigured()) << "not a number is no rate";
}

}  // namespace
}  // namespace android
