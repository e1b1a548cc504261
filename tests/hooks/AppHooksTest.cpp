// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Smart touch in an application's process, through the exports.

#include <unistd.h>

#include <fstream>

#include "HookTest.h"
#include "corvane/host/Properties.h"
#include "corvane/host/Threads.h"
#include "corvane/host/TraceCapture.h"

namespace corvane::host {
namespace {

constexpr int64_t kFrame = kSecond / 50;     // between the frames of the games here
constexpr int64_t kInterval = kSecond / 60;  // what is measured: 50 a second are of mode 60

constexpr char kTouch[] = "debug.vendor.perf.smart_touch";
constexpr char kMove[] = "debug.vendor.perf.smart_touch.move";
constexpr char kTrace[] = "debug.vendor.perf.smart_touch.trace";

enum Action { DOWN, UP, MOVE, CANCEL, OUTSIDE, POINTER_DOWN, POINTER_UP, HOVER_MOVE };

constexpr uint32_t kTimedFlag = 0x20;

// A buffer on its way to the queue.
struct Buffer {
    bool isAuto = true;
    int64_t presentTime = -1;
    uint32_t flags = 0xff;

    bool filter() {
        aCorvaneFilterBuffer(&isAuto, &presentTime, &flags);
        return isInstant();
    }
    bool isInstant() const { return !isAuto; }
};

// The library's answer, or `standing` when it has none.
bool consumes(bool standing) {
    bool consume = standing;
    aCorvaneConsumeInputNow(&consume);
    return consume;
}

class AppHooksTest : public SimulatedHookTest {
  protected:
    void init(bool touch, bool move) {
        if (touch) set(kTouch, "1");
        if (move) set(kMove, "1");
        set(kTrace, "1");
        aCorvaneAppInit();
    }
    // A frame that was `work` in the making.
    void queue(int64_t work) {
        aCorvaneQueueBuffer(true);
        mSimulation.advance(work);
        aCorvaneQueueBuffer(false);
    }
    // A second of frames, after which the frame interval is known.
    void measureFrames(int64_t work = 2 * kMs) {
        for (int i = 0; i <= 50; ++i) {
            queue(work);
            mSimulation.advance(kFrame - work);
        }
    }
};

TEST_F(AppHooksTest, NothingHappensBeforeInit) {
    set(kTouch, "1");
    set(kMove, "1");
    EXPECT_FALSE(aCorvaneSmartTouchActive());
    aCorvaneSetTouchEvent(DOWN);
    Buffer buffer;
    EXPECT_FALSE(buffer.filter());
    EXPECT_EQ(0xffu, buffer.flags);
    EXPECT_TRUE(consumes(true));
    EXPECT_FALSE(consumes(false));
    EXPECT_TRUE(powerBoosts().empty());

    failThreadCreation(2);  // of the watchers, without which the switches stay as they are
    init(true, false);
    failThreadCreation(0);
    EXPECT_TRUE(aCorvaneSmartTouchActive());
    EXPECT_EQ(1u, mLog.count("[App: ST:1, STM:1, STD:1]"));
    aCorvaneSetTouchEvent(DOWN);
    EXPECT_EQ(1u, powerBoosts().size());
}

TEST_F(AppHooksTest, SwitchesFollowTheirProperties) {
    init(false, false);
    for (const char* property : {kTouch, kMove}) {
        EXPECT_EQ(propertyReads(property), 1) << "a flip between two would stay unnoticed";
    }
    aCorvaneSetTouchEvent(DOWN);
    EXPECT_TRUE(powerBoosts().empty());
    Buffer buffer;
    buffer.filter();
    EXPECT_EQ(0xffu & ~kTimedFlag, buffer.flags) << "cleared with smart touch off as well";

    set(kMove, "1");
    ASSERT_EQ(mLog.count("[Prop Changed: STM: 1]"), 1u);
    aCorvaneSetTouchEvent(DOWN);
    EXPECT_EQ(1u, powerBoosts().size());
    queue(2 * kMs);
    EXPECT_FALSE(Buffer{}.filter()) << "no frame is made instant by moves alone";
    aCorvaneSetTouchEvent(MOVE);
    EXPECT_TRUE(consumes(false)) << "the tracker came with the switch";

    set(kTouch, "1");
    ASSERT_EQ(mLog.count("[Prop Changed: ST: 1]"), 1u);
    // Null pointers are ignored; the touch is still pending.
    aCorvaneFilterBuffer(nullptr, &buffer.presentTime, &buffer.flags);
    aCorvaneFilterBuffer(&buffer.isAuto, nullptr, &buffer.flags);
    aCorvaneFilterBuffer(&buffer.isAuto, &buffer.presentTime, nullptr);
    EXPECT_FALSE(buffer.isInstant());
    EXPECT_TRUE(buffer.filter());
    aCorvaneConsumeInputNow(nullptr);

    set(kTouch, "true");  // the watcher knows "0" and "1" only
    set(kTouch, "0");
    ASSERT_EQ(mLog.count("[Prop Changed: ST: 0]"), 1u);
    EXPECT_EQ(2u, mLog.count("[Prop Changed: ST:"));
    aCorvaneAppInit();  // watches a second time
    set(kTouch, "1");
    EXPECT_EQ(mLog.count("[Prop Changed: ST: 1]"), 3u);
}

TEST_F(AppHooksTest, ATouchAfterAPauseAsksForABoost) {
    init(true, false);
    const struct {
        int64_t pause;
        int action;
        size_t boosts;
    } steps[] = {
            {0, DOWN, 1},
            {250 * kMs, UP, 1},
            {300 * kMs, DOWN, 1},
            {300 * kMs + 1, UP, 2},
            {kSecond, POINTER_DOWN, 3},
            {kSecond, POINTER_UP, 4},
            {kSecond, MOVE, 4},
            {0, CANCEL, 4},
            {0, -1, 4},
            {0, INT32_MAX, 4},
            {0, DOWN, 5},
    };
    for (const auto& step : steps) {
        mSimulation.advance(step.pause);
        aCorvaneSetTouchEvent(step.action);
        EXPECT_EQ(std::vector<int32_t>(step.boosts, 110), powerBoosts()) << step.action;
    }
}

TEST_F(AppHooksTest, TheFirstFrameAfterATouchIsInstant) {
    init(true, false);
    const struct {
        const char* name;
        bool touched;
        int64_t work;
        bool isAuto;
        bool instant;
        uint32_t flags;
    } cases[] = {
            {"no touch", false, 2 * kMs, true, false, 0xdf},
            {"own present time", true, 2 * kMs, false, true, 0xff},
            {"served now", false, 2 * kMs, true, true, 0xdf},
            {"only once", false, 2 * kMs, true, false, 0xdf},
            {"no headroom", true, kMs, true, false, 0xdf},
            {"served by that frame", false, 2 * kMs, true, false, 0xdf},
            {"just enough headroom", true, kMs + 1, true, true, 0xdf},
    };
    for (const auto& c : cases) {
        mSimulation.advance(kSecond);
        if (c.touched) aCorvaneSetTouchEvent(DOWN);
        queue(c.work);
        Buffer buffer;
        buffer.isAuto = c.isAuto;
        EXPECT_EQ(c.instant, buffer.filter()) << c.name;
        EXPECT_EQ(c.flags, buffer.flags) << c.name;
        const bool becameInstant = c.instant && c.isAuto;
        EXPECT_EQ(becameInstant ? mSimulation.now() - 5 * kMs : -1, buffer.presentTime) << c.name;
    }
    EXPECT_EQ(2u, mLog.count("set desiredPresentTime for this frame."));
}

TEST_F(AppHooksTest, MovesAreConsumedBeforeVsyncWhenFramesHaveNoHeadroom) {
    init(false, true);
    aCorvaneSetTouchEvent(MOVE);
    EXPECT_TRUE(consumes(false)) << "the frame interval is not known: the first move";
    measureFrames(/*work=*/0);
    // Latest: the interval less the touch interval, 10 ms at first, and half a millisecond.
    constexpr int64_t kLatest = kInterval - 10 * kMs - kMs / 2;

    EXPECT_TRUE(consumes(false)) << "first move after a pause";
    EXPECT_FALSE(consumes(false)) << "no vsync known: left as it is";
    EXPECT_TRUE(consumes(true));
    aCorvaneSetVsyncTime(mSimulation.now());
    EXPECT_TRUE(consumes(false)) << "nothing consumed for a vsync yet";
    EXPECT_FALSE(consumes(true));
    mSimulation.advance(kLatest);
    EXPECT_FALSE(consumes(true));
    mSimulation.advance(1);
    EXPECT_TRUE(consumes(false));
    aCorvaneSetVsyncTime(mSimulation.now());
    EXPECT_FALSE(consumes(true));

    aCorvaneSetTouchEvent(UP);
    EXPECT_TRUE(consumes(true)) << "not moving: left as it is";
    EXPECT_FALSE(consumes(false));
}

TEST_F(AppHooksTest, MovesAreHeldUpToOneFrameWhenFramesHaveHeadroom) {
    init(false, true);
    measureFrames();
    aCorvaneSetTouchEvent(HOVER_MOVE);
    EXPECT_TRUE(consumes(false)) << "first move after a pause";
    queue(2 * kMs);
    EXPECT_FALSE(consumes(true));
    mSimulation.advance(kInterval - 10 * kMs - kMs / 2);
    EXPECT_FALSE(consumes(true));
    mSimulation.advance(1);
    EXPECT_TRUE(consumes(false));

    // Buffers that keep coming hold the input for one interval, and no longer.
    queue(2 * kMs);
    EXPECT_FALSE(consumes(true));
    for (int64_t held = 0; held < kInterval - 5 * kMs; held += 5 * kMs) {
        mSimulation.advance(3 * kMs);
        queue(2 * kMs);
        EXPECT_FALSE(consumes(true)) << held;
    }
    mSimulation.advance(3 * kMs);
    queue(2 * kMs);
    EXPECT_TRUE(consumes(false));
    EXPECT_FALSE(consumes(true));
}

TEST_F(AppHooksTest, TheTrackerOutlivesItsSwitch) {
    init(true, true);
    measureFrames();
    set(kMove, "0");
    ASSERT_EQ(mLog.count("[Prop Changed: STM: 0]"), 1u);
    aCorvaneSetTouchEvent(MOVE);
    EXPECT_FALSE(consumes(false));
    EXPECT_TRUE(consumes(true));
    for (int i = 0; i < 20; ++i) {  // slower frames, which nobody measures
        mSimulation.advance(100 * kMs);
        queue(2 * kMs);
    }
    set(kMove, "1");
    ASSERT_EQ(mLog.count("[Prop Changed: STM: 1]"), 1u);
    aCorvaneSetTouchEvent(MOVE);
    EXPECT_TRUE(consumes(false));
    queue(2 * kMs);
    EXPECT_FALSE(consumes(true)) << "the interval measured before still counts";
    mSimulation.advance(kInterval);
    EXPECT_TRUE(consumes(false));

    queue(2 * kMs);
    EXPECT_FALSE(consumes(true));
    aCorvaneAppInit();  // measures anew
    EXPECT_TRUE(consumes(false));
}

TEST_F(AppHooksTest, EachStepHasItsSlice) {
    const std::string path = ::testing::TempDir() + "app_hooks_" + std::to_string(getpid());
    ASSERT_TRUE(startTrace(path, ~uint64_t{0}));
    init(true, true);
    aCorvaneQueueBuffer(false);
    mSimulation.advance(kSecond);
    queue(2 * kMs);  // closes a window of one frame: an interval of ten digits
    aCorvaneSetTouchEvent(DOWN);
    aCorvaneSetTouchEvent(UP);
    Buffer{}.filter();
    aCorvaneSetTouchEvent(DOWN);
    aCorvaneSetTouchEvent(MOVE);
    aCorvaneSetTouchEvent(CANCEL);
    aCorvaneSetVsyncTime(INT64_MIN);
    aCorvaneSetTouchEvent(HOVER_MOVE);
    consumes(false);
    set(kTrace, "0");
    aCorvaneAppInit();
    queue(2 * kMs);
    stopTrace();

    std::vector<std::string> slices;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        const size_t begin = line.find("B|");
        if (begin != std::string::npos)
            slices.push_back(line.substr(line.find('|', begin + 2) + 1));
    }
    unlink(path.c_str());
    EXPECT_EQ((std::vector<std::string>{"aCorvaneQueueBuffer", "aCorvaneQueueBuffer",
                                        "aCorvaneQueueBuffer", "EVENT_ACTION_DOWN",
                                        "EVENT_ACTION_UP", "aCorvaneInstantBuffer true",
                                        "skip this DOWN event.", "EVENT_ACTION_MOVE", "Unknown",
                                        "EVENT_ACTION_MOVE", "aCorvaneConsumeInputNow",
                                        // Cut to 63 characters.
                                        "vsync: 1000000000, vsyncTs: -9223372036854775808, touch: "
                                        "500000",
                                        "consume first MOVE"}),
              slices);
}

}  // namespace
}  // namespace corvane::host
