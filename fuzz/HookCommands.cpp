// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "fuzz/HookCommands.h"

#include <android-base/properties.h>
#include <android/log.h>
#include <cutils/trace.h>
#include <json/json.h>
#include <ui/Rect.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <limits>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "corvane/hooks.h"
#include "corvane/host/Binder.h"
#include "corvane/host/Devices.h"
#include "corvane/host/PerfService.h"
#include "corvane/host/Simulation.h"
#include "corvane/host/Threads.h"
#include "corvane/host/TraceCapture.h"
#include "fuzz/Check.h"

namespace corvane::fuzz {
namespace {

using android::Rect;
using host::BoostDevice;
using host::PerfService;
using host::Simulation;
using host::SyncFiles;

constexpr int32_t kMaxInt = std::numeric_limits<int32_t>::max();
constexpr int32_t kMinInt = std::numeric_limits<int32_t>::min();
constexpr int64_t kMaxLong = std::numeric_limits<int64_t>::max();
constexpr int64_t kMinLong = std::numeric_limits<int64_t>::min();

constexpr int64_t kMs = 1'000'000;
constexpr int64_t k60Hz = 16'666'667;

// What one sequence may use, so that it ends soon and a run of days keeps the
// clock in range.
constexpr int64_t kMaxFrames = 600;
constexpr int64_t kMaxTimeNs = 120'000 * kMs;

// Each start of an application leaves watchers behind; later ones are refused their threads.
constexpr int kMaxAppInits = 16;

std::atomic<int64_t> sFramesLeft{0};
std::atomic<int64_t> sTimeLeft{0};
std::atomic<int> sAppInitsLeft{kMaxAppInits};

// Digits and small letters count from 0, so that seeds can be written by hand.
size_t toIndex(uint8_t arg) {
    if (arg >= '0' && arg <= '9') return arg - '0';
    return arg >= 'a' && arg <= 'z' ? arg - 'a' + 10 : arg;
}

template <typename Table>
auto& choose(Table& table, uint8_t arg) {
    return table[toIndex(arg) % std::size(table)];
}

bool bit(uint8_t arg, int number) {
    return (toIndex(arg) >> number & 1) != 0;
}

struct Layer {
    int32_t id;
    std::string package;
    std::string name;
    pid_t pid;
    uid_t uid;
};

// What applications of all kinds draw, the first three being games; then more layers than are ever
// tracked.
std::vector<Layer> makeLayers() {
    std::vector<Layer> list{
            {1, "com.example.one", "com.example.one/Main#1", 1'001, 10'001},
            {2, "com.example.two", "SurfaceView[com.example.two/Main](BLAST)#2", 1'002, 10'002},
            {3, "com.tencent.mm", "SurfaceView[com.tencent.mm/com.tencent.mm.AppBrandUI]#3", 1'003,
             10'003},
            {4, "com.example.four", "VRI-com.example.four/Main#4", 1'004, 10'004},
            {5, "%s%n%*d\"\x01\xff\\", "%s%n%*d\"\x01\xff\\/\n#5", -1, 10'005},
            {6, std::string(4'096, 'p'), std::string(4'096, 'p') + "/#6", 0, 10'006},
            {7, "UnknownKeyboard", "InputMethod#7", 1'007, static_cast<uid_t>(-1)},
            {8, "com.example.one", "a name without a package", 1'001, 10'001},
            {kMaxInt, "", "/", kMaxInt, 0},
            {0, "com.example.one", "com.example.one/Main#1", 1'001, 10'001},
            {-1, "com.example.one", "com.example.one/Main#1", 1'001, 10'001},
    };
    constexpr int32_t kFirstId = 101;
    constexpr int32_t kCount = 12;
    for (int32_t id = kFirstId; id < kFirstId + kCount; ++id) {
        list.push_back({id, "com.example.crowd", "com.example.crowd/Main", 1'009, 10'009});
    }
    return list;
}

const std::vector<Layer>& layers() {
    static const auto& list = *new std::vector<Layer>(makeLayers());
    return list;
}

// Instead of the layer's own name; an empty pointer stands for that.
const char* const kOtherNames[] = {
        nullptr,
        "",
        "#",
        "SurfaceView[",
        "SurfaceView[#1",
        "SurfaceView[a]#111111111111111111111",
        "\xc0\x80/",
        "InputMethod",
        "VRI-",
};

constexpr int64_t kPeriods[] = {k60Hz, 8'333'333, 11'111'111, 6'060'606, 4'166'667, 0,
                                -1,    kMaxLong,  kMinLong,   1,         15'000'000};
constexpr int64_t kFrameIntervals[] = {k60Hz,    33'333'333, 8'333'333, 11'111'111, 22'222'222,
                                       40 * kMs, 4'166'667,  1,         0,          200 * kMs};
constexpr int64_t kAdvances[] = {1,         kMs,       4 * kMs,     k60Hz,       50 * kMs,
                                 301 * kMs, 600 * kMs, 1'100 * kMs, 3'001 * kMs, 10'000 * kMs};
constexpr int32_t kCounts[] = {0, 1, 2, 3, 64, -1, kMaxInt, kMinInt};
constexpr int64_t kTimes[] = {0, 1, -1, kMaxLong, kMinLong};
constexpr int32_t kActions[] = {0, 1, 2, 5, 6, 7, 3, -1, kMaxInt};
constexpr int kErrors[] = {0, EINVAL, ENOTTY, EBADF, ENOMEM, EINTR};

const char* const kProperties[] = {
        "debug.vendor.perf.smart_touch",
        "debug.vendor.perf.smart_touch.move",
        "debug.vendor.perf.smart_touch.trace",
        "debug.perf.cpu_big_jank_threshold_ms",
};
const char* const kValues[] = {"0", "1", "true", "false", "20", "-5", "99999999999", "", "text"};

constexpr int kHints[] = {4171, 4187, 4189, 4192, 0};
constexpr int kHintArgs[] = {0, 1, 2, 3'000, 4'500, 5'000, 12'000, -1, kMaxInt, kMinInt};
constexpr int kPercents[] = {0, 50, 80, 150, -1, kMaxInt, kMinInt};
const char* const kRescueTexts[] = {
        ":golden=0.8",
        ":dynamic=1_histJank=1_lowerBoost=1_kFactor=2_jank=1.2;1.6;2.4_baseFreq=300;500;800",
        ":dynamic=1_baseFreq=2147483647_golden=0.2_kFactor=5.0",
        ":flag=2",
        ":",
        ":jank=nan",
        "1.5;2.5;3.5",
        "inf",
};
const char* const kCallers[] = {"",
                                "hx-core-thermalCallbackHandler",
                                "30",
                                "1e",
                                ".5",
                                "-0",
                                "99999999999999999999999999999999999999999999999"};

constexpr int kClosedDescriptor = 1'000'000;

// Names as GPU drivers and others give them; the descriptors stay open.
const std::vector<int>& fences() {
    static const auto& list = *new std::vector<int>{SyncFiles::create("mdrt-timeline_1"),
                                                    SyncFiles::create("detached_1"),
                                                    SyncFiles::create("display"),
                                                    SyncFiles::create("%s%n\xff"),
                                                    SyncFiles::create(""),
                                                    0,
                                                    -1,
                                                    kClosedDescriptor,
                                                    kMaxInt,
                                                    kMinInt};
    return list;
}

bool take(std::atomic<int64_t>& allowance, int64_t amount) {
    return allowance.fetch_sub(amount, std::memory_order_relaxed) >= amount;
}

void advance(int64_t ns) {
    if (take(sTimeLeft, ns)) Simulation::sleepFor(ns);
}

void queueBuffer(const Layer& layer, const char* name, bool flag, uint32_t extra, int64_t time) {
    if (!take(sFramesLeft, 1)) return;
    const host::ScopedBinderCaller caller(layer.pid, layer.uid);
    corvaneTrackBufferIncrement(name, layer.id, flag, extra, time);
}

// --- The compositor's hooks ---

void initialize(const HookArgs& args) {
    FUZZ_CHECK(corvaneInit(choose(kCounts, args[0]), choose(kCounts, args[1])));
}

void askSmartTouch(const HookArgs&) {
    corvaneSmartTouchEnabled();
}

void setPeriod(const HookArgs& args) {
    corvaneSetVsyncPeriod(choose(kPeriods, args[0]));
}

void unblock(const HookArgs&) {
    corvaneUnblockPendingBuffer();
}

// Layer, name, and bits: instant, without a name.
void queue(const HookArgs& args) {
    const Layer& layer = choose(layers(), args[0]);
    const char* other = choose(kOtherNames, args[1]);
    const char* name = other == nullptr ? layer.name.c_str() : other;
    queueBuffer(layer, bit(args[2], 1) ? nullptr : name, !bit(args[2], 0), args[2],
                choose(kTimes, args[2]));
}

// Layer, pending buffers, and bits: hidden, focused, without bounds, without a name, odd bounds.
void latch(const HookArgs& args) {
    const Layer& layer = choose(layers(), args[0]);
    const Rect bounds =
            bit(args[2], 4) ? Rect(kMinInt, kMinInt, kMaxInt, kMaxInt) : Rect(0, 0, 1'080, 2'400);
    corvaneTrackBufferDecrement(bit(args[2], 3) ? nullptr : layer.name.c_str(), layer.id,
                                choose(kCounts, args[1]), bit(args[2], 2) ? nullptr : &bounds,
                                bit(args[2], 1), !bit(args[2], 0));
}

void vsync(const HookArgs&) {
    corvaneTrackVsyncSignal();
}

void askTargetFps(const HookArgs&) {
    corvaneIsTargetFpsActive();
}

void notifyFence(const HookArgs& args) {
    corvaneNotifyGpuFenceUnsignaled(choose(fences(), args[0]), choose(layers(), args[1]).id);
}

void recordFence(const HookArgs& args) {
    corvaneTrackLatchUnsignaledGpuFence(choose(fences(), args[0]), choose(layers(), args[1]).id);
}

void flushFences(const HookArgs&) {
    corvaneFlushLatchUnsignaledGpuFences();
}

// Layer, interval, eights of frames, buffers that stay pending: frames as a compositor sees them.
void draw(const HookArgs& args) {
    constexpr size_t kFramesPerUnit = 8;
    const Layer& layer = choose(layers(), args[0]);
    const Rect bounds(0, 0, 1'080, 2'400);
    const size_t frames = std::min<size_t>(toIndex(args[2]) * kFramesPerUnit, kMaxFrames);
    for (size_t i = 0; i < frames; ++i) {
        advance(choose(kFrameIntervals, args[1]));
        corvaneTrackVsyncSignal();
        queueBuffer(layer, layer.name.c_str(), true, 0, 0);
        corvaneTrackBufferDecrement(layer.name.c_str(), layer.id, choose(kCounts, args[3]), &bounds,
                                    false, true);
    }
}

// --- The application's hooks ---

void initializeApp(const HookArgs&) {
    if (sAppInitsLeft.fetch_sub(1, std::memory_order_relaxed) > 0) {
        aCorvaneAppInit();
        return;
    }
    sAppInitsLeft = 0;
    static auto& lock = *new std::mutex;
    const std::lock_guard<std::mutex> onlyOne(lock);
    host::failThreadCreation(2);  // its two watchers'
    aCorvaneAppInit();
    host::failThreadCreation(0);
}

void askAppActive(const HookArgs&) {
    aCorvaneSmartTouchActive();
}

void queueAppBuffer(const HookArgs& args) {
    aCorvaneQueueBuffer(bit(args[0], 0));
}

void touch(const HookArgs& args) {
    aCorvaneSetTouchEvent(choose(kActions, args[0]));
}

void setVsyncTime(const HookArgs& args) {
    const int64_t now = Simulation::now();
    const int64_t times[] = {now, now - 4 * kMs, now + 4 * kMs, 0, -1, kMaxLong, kMinLong};
    aCorvaneSetVsyncTime(choose(times, args[0]));
}

// Bits: own present time, and the three arguments null.
void filter(const HookArgs& args) {
    constexpr uint32_t kAppTimed = 0x20;
    constexpr uint32_t kAllFlags = ~0u;
    constexpr int64_t kUntouched = -1;
    const bool wasAuto = !bit(args[0], 0);
    bool isAuto = wasAuto;
    int64_t presentTime = kUntouched;
    uint32_t flags = kAllFlags;
    aCorvaneFilterBuffer(bit(args[0], 1) ? nullptr : &isAuto,
                         bit(args[0], 2) ? nullptr : &presentTime,
                         bit(args[0], 3) ? nullptr : &flags);
    FUZZ_CHECK((flags | kAppTimed) == kAllFlags);
    FUZZ_CHECK(wasAuto || (!isAuto && flags == kAllFlags));
    FUZZ_CHECK((presentTime == kUntouched) == (isAuto == wasAuto));
}

void consume(const HookArgs& args) {
    bool now = false;
    aCorvaneConsumeInputNow(bit(args[0], 0) ? nullptr : &now);
}

// --- The world around ---

void passTime(const HookArgs& args) {
    advance(choose(kAdvances, args[0]));
}

void setProperty(const HookArgs& args) {
    FUZZ_CHECK(android::base::SetProperty(choose(kProperties, args[0]), choose(kValues, args[1])));
}

// Hint, layer whose package it is for (or a name that stands for all), argument, state or text.
void push(const HookArgs& args) {
    const size_t target = toIndex(args[1]) % (layers().size() + std::size(kCallers));
    const bool isLayer = target < layers().size();
    const std::string package =
            isLayer ? layers()[target].package : kCallers[target - layers().size()];
    const int hint = choose(kHints, args[0]);
    constexpr int kHeadroomRates = 4187;
    constexpr int kFrameRescue = 4189;
    if (hint == kHeadroomRates) {
        PerfService::push(hint, package, 0, 0,
                          {0, choose(kPercents, args[2]), 0, choose(kPercents, args[3])});
    } else if (hint == kFrameRescue) {
        PerfService::push(hint, package + choose(kRescueTexts, args[3]), 0, 0,
                          {choose(kCounts, args[2])});
    } else {
        PerfService::push(hint, package, choose(kHintArgs, args[2]), choose(kHintArgs, args[3]),
                          {});
    }
}

void failDevices(const HookArgs& args) {
    const int error = choose(kErrors, args[1]);
    BoostDevice::failIoctl(bit(args[0], 0) ? error : 0);
    SyncFiles::failInfo(bit(args[0], 1) ? error : 0);
    SyncFiles::failDeadline(bit(args[0], 2) ? error : 0);
}

void traceEvents(const HookArgs& args) {
    if (bit(args[0], 0)) {
        FUZZ_CHECK(host::startTrace("/dev/null", ATRACE_TAG_GRAPHICS));
    } else {
        host::stopTrace();
    }
}

// Until the boost worker has done what was posted so far.
void awaitWorker(const HookArgs&) {
    Simulation::settle();
}

constexpr HookCommand kCommands[] = {
        {'i', 2, initialize},    {'s', 0, askSmartTouch}, {'v', 1, setPeriod},
        {'u', 0, unblock},       {'q', 3, queue},         {'l', 3, latch},
        {'w', 0, vsync},         {'t', 0, askTargetFps},  {'n', 2, notifyFence},
        {'r', 2, recordFence},   {'f', 0, flushFences},   {'d', 4, draw},

        {'j', 0, initializeApp}, {'k', 0, askAppActive},  {'b', 1, queueAppBuffer},
        {'e', 1, touch},         {'y', 1, setVsyncTime},  {'m', 1, filter},
        {'c', 1, consume},

        {'a', 1, passTime},      {'p', 2, setProperty},   {'h', 4, push},
        {'x', 2, failDevices},   {'g', 1, traceEvents},   {'o', 0, awaitWorker},
};

// The report of the screen's applications is one line of JSON that fits the event.
void checkSceneReport(const std::string& text) {
    constexpr size_t kMaxLength = 256;
    FUZZ_CHECK(!text.empty() && text.size() <= kMaxLength && text.find('\n') == text.size() - 1);
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    Json::Value report;
    FUZZ_CHECK(reader->parse(text.data(), text.data() + text.size(), &report, nullptr));
    FUZZ_CHECK(report["apps"].isArray() && report["apps"].size() <= 3);
}

}  // namespace

const HookCommand* findHookCommand(char letter) {
    const auto* command = std::find_if(std::begin(kCommands), std::end(kCommands),
                                       [letter](const auto& c) { return c.letter == letter; });
    return command == std::end(kCommands) ? nullptr : command;
}

void setUpHooks() {
    __android_log_set_logger([](const __android_logger_data*, const char*) {});
    Simulation::Options options;
    options.policy = Simulation::Policy::kRandom;
    // Never destroyed: the library's threads live on in it.
    [[maybe_unused]] static const auto& simulation = *new Simulation(options);
    FUZZ_CHECK(PerfService::install());
    BoostDevice::enable();
    for (const char* name :
         {"vendor.perf.corvane.debug", "vendor.perf.corvane.profile", "vendor.perf.phr.enable",
          "vendor.rdxe.enable.target_fps", "vendor.perf.gpu_jank_detect.enable",
          "debug.perf.enable_big_jank_detect", "debug.vendor.perf.smart_touch",
          "debug.vendor.perf.smart_touch.move", "debug.vendor.perf.smart_touch.trace"}) {
        FUZZ_CHECK(android::base::SetProperty(name, "1"));
    }
    constexpr const char* kRampFrames = "20";
    FUZZ_CHECK(android::base::SetProperty("vendor.rdxe.target_fps.switch_time", kRampFrames));
    for (size_t i = 0; i < 3; ++i) {
        PerfService::addGame(layers()[i].package, static_cast<int>(i));
    }
}

void beginHookSequence() {
    sFramesLeft = kMaxFrames;
    sTimeLeft = kMaxTimeNs;
    failDevices({});
    host::stopTrace();
}

void checkHookEffects() {
    constexpr int kSceneEvent = 4194;
    constexpr int kMaxBoostLevel = 4;
    for (const auto& call : PerfService::calls("perf_event", kSceneEvent)) {
        checkSceneReport(call.package);
    }
    for (const auto& request : BoostDevice::requests()) {
        FUZZ_CHECK(request.level >= 0 && request.level <= kMaxBoostLevel);
        FUZZ_CHECK(request.freqMHz >= 0);
    }
    PerfService::clearCalls();
    BoostDevice::clear();
    SyncFiles::clear();
    host::clearPowerBoosts();
}

}  // namespace corvane::fuzz
