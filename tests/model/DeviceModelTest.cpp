// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <deque>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <sstream>

#include "model/DeviceModel.h"
#include "model/Figures.h"
#include "model/Fit.h"
#include "model/SimplePolicies.h"
#include "replay/ModelInput.h"

namespace corvane::model {
namespace {

using Random = std::mt19937_64;

int64_t draw(Random& random, int64_t from, int64_t to) {
    return std::uniform_int_distribution<int64_t>(from, to)(random);
}

// A phone of one layer that goes on in ticks of a tenth of a millisecond: as plain as can be, and
// nothing in it is shared with the model.
Recorded recordOnAPlainPhone(Random& random, bool vsyncDriven) {
    constexpr int64_t kTick = 100'000;
    constexpr int64_t kPeriod = 160;  // ticks
    const int64_t offset = draw(random, 1, 30);
    const int64_t gpu = draw(random, 0, 80);
    const int buffers = static_cast<int>(draw(random, 3, 4));
    struct Buffer {
        size_t frame;
        int64_t readyAt;
    };
    Recorded recorded;
    recorded.rates = {{0, kPeriod * kTick}};
    recorded.layers.push_back({"game#1", {}});
    auto& frames = recorded.layers[0].frames;
    std::deque<Buffer> waiting;
    int64_t doneAt = -1;  // the frame being drawn
    bool wants = true;
    for (int64_t tick = 0; tick < 200 * kPeriod; ++tick) {
        if (tick % kPeriod == 0) recorded.vsyncs.push_back(tick * kTick);
        if (tick % kPeriod == offset && !waiting.empty() && waiting.front().readyAt <= tick) {
            frames[waiting.front().frame].latchNs = tick * kTick;
            waiting.pop_front();
        }
        if (tick == doneAt) {
            frames.back().queueNs = frames.back().returnNs = tick * kTick;
            waiting.push_back({frames.size() - 1, tick + gpu});
            doneAt = -1;
            wants = true;
        }
        const bool free = 2 + static_cast<int>(waiting.size()) <= buffers;
        if (wants && free && (!vsyncDriven || tick % kPeriod == 0)) {
            wants = false;
            frames.push_back({{}, {}, tick * kTick, {}});
            doneAt = tick + draw(random, 5, kPeriod * 3 / 2);
        }
    }
    if (!frames.back().queueNs) frames.pop_back();
    recorded.durationNs = 200 * kPeriod * kTick;
    return recorded;
}

TEST(DeviceModel, GivesBackWhatAPlainPhoneRecorded) {
    for (uint64_t seed = 0; seed < 60; ++seed) {
        SCOPED_TRACE(seed);
        Random random(seed);
        const bool vsyncDriven = seed % 2 == 0;
        Recorded recorded = recordOnAPlainPhone(random, vsyncDriven);
        const Workload workload = takeApart(recorded);
        size_t presents = 0;
        for (RecordedFrame& frame : recorded.layers[0].frames) {
            if (!frame.latchNs || !frame.queueNs) continue;
            const int64_t latchVsync = workload.compositor.lastUntil(*frame.latchNs);
            frame.shownNs = workload.compositor.at(latchVsync + 1) + 3'000'000;
            // Some are a whole period off, and to be told so.
            if (++presents % 10 == 0) *frame.shownNs += workload.compositor.periodAfter(latchVsync);
        }
        EXPECT_EQ(vsyncDriven, workload.layers[0].kind == ProducerKind::kVsyncDriven)
                << workload.layers[0].reason;
        NonePolicy none;
        const LayerFit fit =
                compareWithRecording(recorded, workload, DeviceModel(workload, none).run())[0];
        EXPECT_GE(fit.share(), 0.99) << fit.onVsync << " of " << fit.latches;
        EXPECT_EQ(0, fit.queueP95Ns);
        EXPECT_EQ("", fit.likelyReason);
        EXPECT_GE(fit.presents + 2, presents);
        EXPECT_NEAR(fit.presentsMet, fit.presents - fit.presents / 10, 1 + presents / 100.0);
        EXPECT_EQ(0, fit.presentP50Ns);
    }
}

// Holds each buffer for a drawn time, boosts now and then.
class ErraticPolicy : public PacingPolicy {
  public:
    explicit ErraticPolicy(uint64_t seed) : mRandom(seed) {}
    int64_t frameStart(size_t, int64_t nowNs, std::optional<int64_t>) override {
        return nowNs + draw(mRandom, 0, 9'000'000);
    }
    bool queueBuffer(size_t layer, int, int64_t nowNs) override {
        if (draw(mRandom, 0, 2) == 0) return true;
        const auto kind = PolicyEvent::Kind::kRelease;
        const int64_t at = nowNs + draw(mRandom, 0, 40'000'000);
        mEvents.emplace(at, PolicyEvent{at, kind, layer});
        mEvents.emplace(nowNs, PolicyEvent{nowNs, PolicyEvent::Kind::kBoost, layer, 800});
        return false;
    }
    std::optional<PolicyEvent> advance(int64_t untilNs) override {
        if (mEvents.empty() || mEvents.begin()->first > untilNs) return std::nullopt;
        return mEvents.extract(mEvents.begin()).mapped();
    }

  private:
    Random mRandom;
    std::multimap<int64_t, PolicyEvent> mEvents;
};

TEST(DeviceModel, KeepsTheDevicesRulesUnderEveryPolicy) {
    for (uint64_t seed = 0; seed < 40; ++seed) {
        Random random(seed);
        Recorded recorded = recordOnAPlainPhone(random, seed % 2 == 0);
        recorded.layers.push_back(recordOnAPlainPhone(random, seed % 3 == 0).layers[0]);
        const Workload workload = takeApart(recorded);
        const std::vector<int64_t> two(2, 2);
        NonePolicy none;
        IntervalPolicy interval(workload.compositor, two);
        ShallowPolicy shallow;
        ErraticPolicy erratic(seed);
        for (PacingPolicy* policy :
             std::initializer_list<PacingPolicy*>{&none, &interval, &shallow, &erratic}) {
            SCOPED_TRACE(testing::Message() << "seed " << seed << typeid(*policy).name());
            const ModelRun run = DeviceModel(workload, *policy, {{0, 0.5, 400}}).run();
            std::vector<const ModelFrame*> last(2, nullptr);
            size_t drawn = 0;
            for (const ModelFrame& frame : run.frames) {
                const LayerWork& layer = workload.layers[frame.layer];
                const FrameWork& work = layer.frames[frame.index];
                ASSERT_TRUE(frame.latchVsync.has_value());
                EXPECT_LE(frame.readyNs, frame.startNs);
                EXPECT_LE(frame.startNs, frame.queueNs);
                EXPECT_LE(frame.queueNs - frame.startNs, work.workNs);
                EXPECT_LE(frame.queueNs, frame.letGoNs);
                EXPECT_LE(frame.letGoNs,
                          workload.compositor.at(*frame.latchVsync) + layer.latchOffsetNs);
                EXPECT_LE(frame.waiting, policy == &shallow ? 1 : layer.buffers - 1);
                if (work.startsOnVsync) {
                    const auto& app = workload.application;
                    EXPECT_EQ(frame.startNs, app.at(app.lastUntil(frame.startNs)));
                }
                if (const ModelFrame* before = std::exchange(last[frame.layer], &frame)) {
                    EXPECT_EQ(before->index + 1, frame.index);
                    EXPECT_GE(frame.readyNs, before->letGoNs);
                    EXPECT_GT(*frame.latchVsync, *before->latchVsync);
                    if (policy == &interval) {
                        EXPECT_GE(frame.startNs - before->startNs, 2 * recorded.rates[0].periodNs);
                    }
                }
                ++drawn;
            }
            EXPECT_EQ(recorded.layers[0].frames.size() + recorded.layers[1].frames.size(), drawn);
        }
    }
}

TEST(DeviceModel, FitsTheBundledRecordings) {
    for (const char* name :
         {"arena-30fps-on-60hz", "launcher-scroll-two-layers", "reader-60fps-stuffed"}) {
        std::ifstream file(std::string(RECORDINGS_DIR) + '/' + name + ".systrace.txt");
        std::stringstream text;
        text << file.rdbuf();
        const auto result = replay::parseRecording(text.str());
        ASSERT_TRUE(result.recording) << result.error;
        const Recorded recorded = replay::modelInput(*result.recording);
        const Workload workload = takeApart(recorded);
        NonePolicy none;
        const auto fits =
                compareWithRecording(recorded, workload, DeviceModel(workload, none).run());
        for (size_t i = 0; i < fits.size(); ++i) {
            // A status bar's three buffers have no rhythm to be fitted.
            if (fits[i].latches < 10) continue;
            EXPECT_GE(fits[i].share(), LayerFit::kGoodShare) << name << ' ' << i;
            EXPECT_LT(fits[i].queueP95Ns, 1'000'000) << name << ' ' << i;
        }
    }
}

// Four frames at 100 Hz, drawn by hand: the second is held, the third a vsync late, the fourth
// takes the third's place.
TEST(DeviceModel, FiguresOfFramesByHand) {
    constexpr int64_t kMs = 1'000'000;
    Workload workload{VsyncGrid({0, 10 * kMs}, {{0, 10 * kMs}}),
                      VsyncGrid({0}, {{0, 10 * kMs}}),
                      {},
                      60 * kMs,
                      {}};
    workload.layers.emplace_back();
    workload.layers[0].frames.resize(4);
    ModelRun run;
    run.endNs = 60 * kMs;
    run.frames = {{0, 0, 0, 0, 4 * kMs, 4 * kMs, 0, false, 1},
                  {0, 1, 4 * kMs, 4 * kMs, 8 * kMs, 13 * kMs, 2, false, 1},
                  {0, 2, 13 * kMs, 13 * kMs, 25 * kMs, 25 * kMs, 4, true, 2},
                  {0, 3, 25 * kMs, 25 * kMs, 28 * kMs, 28 * kMs, 4, false, 2}};
    using Kind = PolicyEvent::Kind;
    run.boosts = {{10 * kMs, Kind::kBoost, 0, 500},
                  {20 * kMs, Kind::kBoost, 0, 800},
                  {30 * kMs, Kind::kBoostEnd, 0},
                  {55 * kMs, Kind::kBoost, 0, 100}};
    const LayerFigures figures = measure(workload, run, {2})[0];
    EXPECT_EQ(25 * kMs, figures.latencyP50Ns);  // of 10, 26 and 25 ms
    EXPECT_EQ(26 * kMs, figures.latencyP99Ns);
    EXPECT_EQ(22 * kMs, figures.queueToDisplayP50Ns);  // of 6, 22 and 22 ms
    EXPECT_EQ(3u, figures.shown);
    EXPECT_EQ(0u, figures.late);
    EXPECT_EQ(2u, measure(workload, run, {1})[0].late);
    EXPECT_EQ(1u, figures.dropped);
    EXPECT_DOUBLE_EQ(50.0, figures.fps);
    EXPECT_DOUBLE_EQ(0.0, figures.intervalDeviationNs);
    EXPECT_DOUBLE_EQ(1.5, figures.waitingMean);
    EXPECT_EQ(5 * kMs, figures.heldNs);
    EXPECT_EQ(3u, figures.boosts);
    EXPECT_NEAR(5.0 + 8.0 + 0.5, figures.boostMHzSeconds, 1e-9);
}

}  // namespace
}  // namespace corvane::model
