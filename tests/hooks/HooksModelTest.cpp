// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// The exported hooks against a plain model of them: one process that may be a compositor, an
// application or both, with calls before and after either's start, hostile arguments, and
// properties that change. After each step what the hooks wrote, answered, traced, logged and asked
// of the compositor's client must be the model's.

#include <unistd.h>

#include <algorithm>
#include <map>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "HookTest.h"
#include "RandomSteps.h"
#include "TracedEvents.h"
#include "corvane/host/Threads.h"

namespace corvane::host {
namespace {

using android::RandomSteps;
using Strings = std::vector<std::string>;
using Wide = __int128;  // differences of any two times

constexpr char kTouch[] = "debug.vendor.perf.smart_touch";
constexpr char kMove[] = "debug.vendor.perf.smart_touch.move";
constexpr char kTrace[] = "debug.vendor.perf.smart_touch.trace";

bool isTrue(const std::string& text) {
    return text == "1" || text == "true";
}

// What an application measures of itself.
struct ModelTracker {
    int64_t frames = 0, windowStart = 0, interval = -1;
    int64_t moves = 0, lastMove = -1, touchInterval = 10 * kMs;

    void queue(int64_t now) {
        if (frames == 0) windowStart = now;
        if (now - windowStart < kSecond) {
            ++frames;
            return;
        }
        constexpr int kLimits[] = {33, 48, 63, 78, 95, 123, 147, 168, 210, 260};
        constexpr int kModes[] = {30, 45, 60, 75, 90, 120, 144, 165, 185, 240};
        const int64_t mode =
                frames <= 18 ? frames
                             : kModes[std::lower_bound(kLimits, kLimits + 9, frames) - kLimits];
        if (frames <= 260) interval = kSecond / mode;
        frames = 0;
    }
    void move(int64_t now) {
        const int64_t since = now - lastMove;
        if (lastMove >= 0 && since < interval) {
            touchInterval = (touchInterval * (moves + 1) + since) / (moves + 2);
            ++moves;
        } else {
            moves = 0;
        }
        lastMove = now;
    }
};

struct ModelBuffer {
    bool isAuto = true;
    int64_t presentTime = -1;
    uint32_t flags = 0;
};

class Model {
  public:
    bool enabled = true, phr = false, pacing = false, fences = false;  // the switches
    std::map<std::string, std::string> properties;
    int threadFailures = 0;
    int64_t now = 0;
    Strings log, slices;
    std::vector<int32_t> boosts;
    std::vector<ModelTracker> trackers;  // the last one is in use

    // --- The application ---

    bool app = false, touch = false, move = false;
    int lastAction = 0;
    int64_t lastTouch = 0, mark = 0, lastQueue = 0, vsync = 0, lastCheck = 0, lastConsume = 0;
    int64_t firstPend = 0, pends = 0;

    ModelTracker tracker() const { return trackers.empty() ? ModelTracker() : trackers.back(); }

    void appInit() {
        app = true;
        touch = isTrue(properties[kTouch]);
        move = isTrue(properties[kMove]);
        mTrace = isTrue(properties[kTrace]);
        if (move) trackers.emplace_back();
        if (mTrace) say("[App: ST:%d, STM:%d, STD:1]", touch, move);
        watch(kTouch, touch);
        watch(kMove, move);
    }
    void setProperty(const std::string& name, const std::string& text) {
        properties[name] = text;
        for (auto& [watched, value] : mWatchers) {
            if (watched != name || text != (value ? "0" : "1")) continue;
            value = !value;
            (name == kTouch ? touch : move) = value;
            if (name == kMove && value && trackers.empty()) trackers.emplace_back();
            if (mTrace) say("[Prop Changed: %s: %d]", name == kTouch ? "ST" : "STM", value);
        }
    }
    void queueBuffer(bool markOnly) {
        if (!touch && !move) return;
        slice("aCorvaneQueueBuffer");
        if (markOnly) {
            mark = now;
            return;
        }
        lastQueue = now;
        mHeadroom = now - mark > 1'000'000;
        if (move && !trackers.empty()) trackers.back().queue(now);
    }
    void touchEvent(int action) {
        if (!app || (!touch && !move)) return;
        lastAction = action;
        if (action == 2 || action == 7) {
            slice("EVENT_ACTION_MOVE");
            if (!trackers.empty()) trackers.back().move(now);
        } else if (action == 0 || action == 1 || action == 5 || action == 6) {
            const std::string edge = action % 5 == 0 ? "DOWN" : "UP";
            if (now - std::exchange(lastTouch, now) > 300 * kMs) {
                mPending = true;
                boosts.push_back(110);
            }
            slice(mPending ? "EVENT_ACTION_" + edge : "skip this " + edge + " event.");
        } else {
            slice("Unknown");
        }
    }
    void filter(ModelBuffer& buffer) {
        if (!app) return;
        if (!buffer.isAuto) return slice("game sets desiredPresentTime itself");
        buffer.flags &= ~0x20u;
        if (!touch) return;
        const bool touched = std::exchange(mPending, false);
        if (touched && mHeadroom) {
            buffer.isAuto = false;
            buffer.presentTime = now - 5 * kMs;
            slice("aCorvaneInstantBuffer true");
            if (!mTrace) return;
            return say(
                    "SurfaceFlinger: Smart touch debug: set desiredPresentTime for this frame.%s",
                    "");
        }
        if (touched) slice("Found touch down/up, but no enough headroom.");
        slice("aCorvaneInstantBuffer false");
    }
    void consume(bool& answer) {
        if (!app || !move || trackers.empty() || (lastAction != 2 && lastAction != 7)) return;
        const Wide frame = trackers.back().interval;
        const int64_t touchInterval = trackers.back().touchInterval;
        slice("aCorvaneConsumeInputNow");
        slice(android::formatted("vsync: %ld, vsyncTs: %ld, touch: %ld", trackers.back().interval,
                                 vsync, touchInterval)
                      .substr(0, 63));
        const Wide latest = frame - touchInterval - 500'000;
        if (now - lastCheck > 2 * frame) {
            slice("consume first MOVE");
            answer = true;
        } else if (!mHeadroom) {
            if (vsync == 0) return;
            answer = now - lastConsume > frame || Wide{now} - vsync > latest;
            slice(answer ? "consume input now" : "Pre Vsync: pend input");
            if (answer) lastConsume = now;
        } else {
            answer = now - lastQueue > latest || (pends > 0 && now - firstPend > frame);
            slice(answer ? "consume input now" : "Pre queue buffer: pend input");
            if (!answer && pends == 0) firstPend = now;
            pends = answer ? 0 : pends + 1;
        }
        lastCheck = now;
    }

    // --- The compositor ---

    bool corvaneInit() {
        if (mInitialized) return true;
        say("[Corvane Enable: %d]", enabled);
        if (!enabled) return false;
        mInitialized = true;
        touch = isTrue(properties[kTouch]);
        mTrace = isTrue(properties[kTrace]);
        say("[sf: ST:%d]", touch);
        say("[PHR:%d]", phr || pacing);
        say("LayerManager %s", "initialized");
        watch(kTouch, touch);
        return true;
    }
    void setPeriod(int64_t period) {
        if (mInitialized && std::exchange(mPeriod, period) != period) say("vsync: %ld", period);
    }
    void unblock() {
        if (!mInitialized || !touch || !mTrace) return;
        say("SurfaceFlinger: Smart touch debug: %s", "corvaneUnblockPendingBuffer");
    }
    bool isTargetFpsActive(bool configured) const { return mInitialized && pacing && configured; }
    // More than half a second of frames.
    void draw() {
        if (!mInitialized || std::exchange(mTracked, true)) return;
        say("Add new layer to full tracking: [%s] layer 1", TestLayer::ofApp(1).name.c_str());
    }
    void latch(bool focused) {
        if (!mTracked || !focused || std::exchange(mFocused, true)) return;
        say("Focused app changed: uid %d, [%s]", 10'001, "com.example.app1/Main#1");
    }
    // What is no sync file is asked each time.
    void fence(bool notify, int fd, int id) {
        if (!mInitialized || !fences || !mTracked || id != 1 || fd < 0) return;
        say("[GPU JANK DETECTION] SYNC_IOC_FILE_INFO failed, ret=-1, fd=%d", fd);
        mFence = notify ? -1 : fd;
        if (notify) hurry(fd);
    }
    void flush() { hurry(std::exchange(mFence, -1)); }

  private:
    template <typename... Args>
    void say(const char* format, Args... args) {
        log.push_back(android::formatted(format, args...));
    }
    void slice(const std::string& name) {
        if (mTrace) slices.insert(slices.end(), {"B|" + name, "E"});
    }
    void watch(const char* property, bool value) {
        if (threadFailures > 0) {
            --threadFailures;
        } else {
            mWatchers.emplace_back(property, value);
        }
    }
    void hurry(int fd) {
        if (fd >= 0 && mPeriod > 0) say("[GPU JANK DETECTION] IOCTL failed, ret=-1, fd=%d", fd);
    }

    std::vector<std::pair<std::string, bool>> mWatchers;
    bool mTrace = false, mHeadroom = false, mPending = false;
    bool mInitialized = false, mTracked = false, mFocused = false;
    int64_t mPeriod = 0;
    int mFence = -1;
};

// The hooks beside their model.
class Hooks {
  public:
    explicit Hooks(RandomSteps& steps) : mSteps(steps) {
        mModel.now = Simulation::now();
        mModel.enabled = !steps.oneIn(8);
        mModel.phr = steps.oneIn(2);
        mModel.pacing = steps.oneIn(2);
        mModel.fences = !steps.oneIn(3);
        for (const auto& [name, value] :
             std::map<const char*, bool>{{"vendor.perf.corvane.debug", true},
                                         {"vendor.perf.corvane.enable", mModel.enabled},
                                         {"vendor.perf.phr.enable", mModel.phr},
                                         {"vendor.rdxe.enable.target_fps", mModel.pacing},
                                         {"vendor.perf.gpu_jank_detect.enable", mModel.fences}}) {
            android::base::SetProperty(name, value ? "1" : "0");
        }
        PerfService::install();
        for (const char* name : {kTouch, kMove, kTrace}) {
            if (!steps.oneIn(3)) set(name, "1");
        }
        setProperty();
    }

    void step() {
        using H = Hooks;
        static constexpr void (
                H::*kSteps[])() = {&H::init,    &H::appInit,  &H::setProperty, &H::play,
                                   &H::play,    &H::touch,    &H::touch,       &H::touch,
                                   &H::queue,   &H::queue,    &H::queue,       &H::filter,
                                   &H::filter,  &H::wait,     &H::wait,        &H::wait,
                                   &H::wait,    &H::setVsync, &H::moves,       &H::moves,
                                   &H::consume, &H::consume,  &H::consume,     &H::compose,
                                   &H::fences,  &H::drawLayer};
        (this->*mSteps.pick(kSteps))();
        Simulation::settle();
        compare();
    }

  private:
    void pass(int64_t duration) {
        Simulation::advance(duration);
        mModel.now = Simulation::now();
    }
    // Runs a hook of the application; its slices are the model's.
    template <typename Call>
    void traced(const Call& call) {
        mSteps.expectEq(std::exchange(mModel.slices, {}), android::tracedEvents(call),
                        "the slices");
    }

    void init() {
        mSteps.tell("corvaneInit");
        mSteps.expectEq(mModel.corvaneInit(), corvaneInit(1, 2), "corvaneInit()");
    }
    void appInit() {
        mModel.threadFailures = static_cast<int>(mSteps.oneIn(3) ? mSteps.below(3) : 0);
        mSteps.tell("aCorvaneAppInit", mModel.threadFailures);
        failThreadCreation(mModel.threadFailures);
        mModel.appInit();
        aCorvaneAppInit();
        failThreadCreation(0);
    }
    void setProperty() {
        const char* const names[] = {kTouch, kMove, kTrace};
        const char* const texts[] = {"0", "1", "1", "true", "false", "?"};
        const std::string name = mSteps.pick(names), text = mSteps.pick(texts);
        set(name, text);
    }
    void set(const std::string& name, const std::string& text) {
        mSteps.tell("set", name, text);
        mModel.setProperty(name, text);
        android::base::SetProperty(name, text);
    }
    // Frames and moves for about a second.
    void play() {
        const int64_t intervals[] = {3'500'000, 4 * kMs, 8 * kMs, 16 * kMs, 20 * kMs, 60 * kMs};
        const int64_t interval = mSteps.pick(intervals), work = mSteps.below(3) * kMs;
        mSteps.tell("play", interval, work);
        for (int64_t left = 1'050 * kMs / interval; left >= 0; --left) {
            mModel.queueBuffer(true);
            aCorvaneQueueBuffer(true);
            pass(work);
            mModel.queueBuffer(false);
            aCorvaneQueueBuffer(false);
            pass(interval - work);
        }
        mModel.slices.clear();
    }
    void moves() {
        mSteps.tell("moves");
        for (int64_t left = mSteps.below(5); left >= 0; --left) {
            const int64_t frame = mModel.tracker().interval;
            pass(frame > 0 && mSteps.oneIn(3) ? frame : mSteps.below(6 * kMs));
            mModel.touchEvent(2);
            traced([] { aCorvaneSetTouchEvent(2); });
            consume();
        }
    }
    void touch() {
        const int actions[] = {0, 1, 2, 2, 3, 4, 5, 6, 7, 8, -1, INT32_MAX};
        const int action = mSteps.pick(actions);
        mSteps.tell("touch", action);
        mModel.touchEvent(action);
        traced([action] { aCorvaneSetTouchEvent(action); });
    }
    void queue() {
        const bool markOnly = mSteps.oneIn(2);
        mSteps.tell(markOnly ? "mark" : "queue");
        mModel.queueBuffer(markOnly);
        traced([markOnly] { aCorvaneQueueBuffer(markOnly); });
    }
    void setVsync() {
        const int64_t times[] = {mModel.now, mModel.now, mModel.now - 3 * kMs,
                                 0,          INT64_MIN,  INT64_MAX};
        mModel.vsync = mSteps.pick(times);
        mSteps.tell("vsync time", mModel.vsync);
        aCorvaneSetVsyncTime(mModel.vsync);
    }
    void filter() {
        ModelBuffer expected{!mSteps.oneIn(4), mSteps.below(9),
                             static_cast<uint32_t>(mSteps.below(256))};
        ModelBuffer buffer = expected;
        const int64_t null = mSteps.below(12);
        mSteps.tell("filter", buffer.isAuto, buffer.flags, null);
        if (null > 2) mModel.filter(expected);
        traced([&] {
            aCorvaneFilterBuffer(null == 0 ? nullptr : &buffer.isAuto,
                                 null == 1 ? nullptr : &buffer.presentTime,
                                 null == 2 ? nullptr : &buffer.flags);
        });
        mSteps.expectEq(std::tuple(expected.isAuto, expected.presentTime, expected.flags),
                        std::tuple(buffer.isAuto, buffer.presentTime, buffer.flags), "the buffer");
    }
    void consume() {
        bool expected = mSteps.oneIn(2), answer = expected;
        mModel.consume(expected);
        traced([&] { aCorvaneConsumeInputNow(&answer); });
        mSteps.tell("consume", answer);
        mSteps.expectEq(expected, answer, "whether input is consumed");
        aCorvaneConsumeInputNow(nullptr);
    }
    // For any time, or until something is just due or not quite.
    void wait() {
        const Model& m = mModel;
        const ModelTracker t = m.tracker();
        const int64_t latest = t.interval - t.touchInterval - 500'000;
        const int64_t vsync = m.vsync == INT64_MAX || m.vsync == INT64_MIN ? 0 : m.vsync;
        const int64_t due[] = {m.lastTouch + 300 * kMs,
                               m.mark + kMs,
                               m.lastQueue + latest,
                               vsync + latest,
                               m.lastConsume + t.interval,
                               m.firstPend + t.interval,
                               m.lastCheck + 2 * t.interval,
                               t.windowStart + kSecond - 1,
                               t.lastMove + t.interval - 1,
                               m.now + mSteps.below(5 * kMs),
                               m.now + mSteps.below(2 * kSecond)};
        const int64_t until = mSteps.pick(due) + mSteps.below(2);
        mSteps.tell("wait until", until);
        if (until > m.now) pass(until - m.now);
    }

    void compose() {
        const int64_t what = mSteps.below(4);
        const bool focused = mSteps.oneIn(2);
        mSteps.tell("compositor", what, focused);
        const android::Rect bounds(0, 0, 10, 10);
        switch (what) {
            case 0:
                mModel.setPeriod(focused ? k60Hz : 8'333'333);
                return corvaneSetVsyncPeriod(focused ? k60Hz : 8'333'333);
            case 1:
                mModel.unblock();
                return corvaneUnblockPendingBuffer();
            case 2:
                mModel.latch(focused);
                corvaneTrackBufferDecrement(nullptr, 1, 0, &bounds, true, true);
                corvaneTrackBufferDecrement("name", 1, 0, nullptr, true, true);
                return TestLayer::ofApp(1).latch(true, 0, focused);
            default:
                if (PerfService::push(4171, "com.other", focused ? 3'000 : 0, 0, {})) {
                    mConfigured = focused;
                }
        }
    }
    void drawLayer() {
        mSteps.tell("draw");
        for (int i = 0; i < 40; ++i) {
            pass(k60Hz);
            TestLayer::ofApp(1).queue();
        }
        mModel.draw();
        corvaneTrackVsyncSignal();
        corvaneTrackBufferIncrement(nullptr, 2, true, 0, 0);
    }
    // None of these descriptors is a sync file's.
    void fences() {
        pass(kSecond);
        const int fd = static_cast<int>(mSteps.below(3)) - 1;
        const int id = static_cast<int>(mSteps.oneIn(3) ? mSteps.below(3) - 1 : 1);
        const bool notify = mSteps.oneIn(2);
        mSteps.tell(notify ? "notify" : "track", fd, id);
        mModel.fence(notify, fd, id);
        notify ? corvaneNotifyGpuFenceUnsignaled(fd, id)
               : corvaneTrackLatchUnsignaledGpuFence(fd, id);
        if (mSteps.oneIn(2)) return;
        mModel.flush();
        corvaneFlushLatchUnsignaledGpuFences();
    }

    void compare() {
        static const std::regex known(
                "^(Add new layer|Focused|LayerManager init|vsync: |.GPU JANK|.App|.Prop Changed: "
                "ST|"
                "SurfaceFl|.Corvane|.sf|.PHR:)");
        Strings lines;
        for (const auto& line : mLog.lines()) {
            const std::string text = line.text.substr(0, line.text.find(", errno="));
            if (std::regex_search(text, known)) lines.push_back(text);
        }
        mLog.clear();
        mSteps.expectEq(std::exchange(mModel.log, {}), lines, "the log");
        mSteps.expectEq(mModel.boosts, powerBoosts(), "the power boosts");
        mSteps.expectEq(mModel.app, aCorvaneSmartTouchActive(), "aCorvaneSmartTouchActive()");
        mSteps.expectEq(mModel.touch, corvaneSmartTouchEnabled(), "corvaneSmartTouchEnabled()");
        mSteps.expectEq(mModel.isTargetFpsActive(mConfigured), corvaneIsTargetFpsActive(),
                        "corvaneIsTargetFpsActive()");
    }

    RandomSteps& mSteps;
    Model mModel;
    LogCapture mLog;
    bool mConfigured = false;
};

TEST(HooksModelTest, AgreesWithTheModel) {
    android::RandomStepsRunner::run(160, 80, [](RandomSteps& steps) {
        const Simulation simulation(1'000 * kSecond);
        if (!steps.next()) return;
        Hooks hooks(steps);
        while (steps.next()) hooks.step();
    });
}

}  // namespace
}  // namespace corvane::host
