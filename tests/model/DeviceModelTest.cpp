// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <deque>
#include <map>
#include <memory>
#include <numeric>
#include <optional>
#include <random>
#include <tuple>
#include <utility>

#include "model/CountedValues.h"
#include "model/DeviceModel.h"
#include "model/Figures.h"
#include "model/Fit.h"
#include "model/SimplePolicies.h"

namespace corvane::model {
namespace {

using Random = std::mt19937_64;

int64_t draw(Random& random, int64_t from, int64_t to) {
    return std::uniform_int_distribution<int64_t>(from, to)(random);
}

ModelRun record(const Workload& workload, PacingPolicy& policy, std::vector<GpuShare> shares,
                int64_t* endNs) {
    ModelRun run;
    *endNs = DeviceModel(workload, policy, run, std::move(shares)).run();
    return run;
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

// No pacing, and no waiting for news: a latched frame of the only layer is known by the next vsync.
class PromptnessPolicy : public NonePolicy, public ModelRun {
  public:
    explicit PromptnessPolicy(int initialDepth) : mUnseen(static_cast<size_t>(initialDepth)) {}
    void latched(size_t, int, int64_t) override { ++mLatched; }
    void vsync(int64_t) override { EXPECT_GE(frames.size() + mUnseen, mLatched); }

  private:
    const size_t mUnseen;
    size_t mLatched = 0;
};

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
        PromptnessPolicy none(workload.layers[0].initialDepth);
        DeviceModel(workload, none, none).run();
        const ModelRun& run = none;
        const LayerFit fit = compareWithRecording(recorded, workload, run)[0];
        EXPECT_GE(fit.share(), 0.99) << fit.onVsync << " of " << fit.latches;
        EXPECT_EQ(0, fit.queueP95Ns);
        EXPECT_EQ("", fit.likelyReason);
        EXPECT_GE(fit.presents + 2, presents);
        EXPECT_NEAR(fit.presentsMet, fit.presents - fit.presents / 10, 1 + presents / 100.0);
        EXPECT_EQ(0, fit.presentP50Ns);
    }
}

// What no phone records: anything at any time, many at one instant, or never.
Recorded recordNonsense(Random& random) {
    const int64_t durationNs = draw(random, 0, 1) * draw(random, 0, 3'000'000'000);
    const auto times = [&](int64_t least) {
        std::vector<int64_t> values;
        const int64_t grain = draw(random, 1, 50'000'000);
        for (int64_t i = draw(random, least, 40); i > 0; --i) {
            values.push_back(draw(random, 0, durationNs) / grain * grain);
        }
        std::sort(values.begin(), values.end());
        return values;
    };
    const auto maybe = [&](int64_t timeNs) {
        return draw(random, 0, 2) == 0 ? std::nullopt : std::optional<int64_t>(timeNs);
    };
    Recorded recorded;
    recorded.durationNs = durationNs;
    recorded.vsyncs = times(1);
    recorded.appVsyncs = times(0);
    recorded.rates = {{0, draw(random, 1'000'000, 100'000'000)}};
    for (const int64_t atNs : times(0)) {
        recorded.rates.push_back({atNs, draw(random, 1'000'000, 100'000'000)});
    }
    for (int64_t layer = draw(random, 0, 3); layer > 0; --layer) {
        recorded.layers.push_back({"", std::vector<RecordedFrame>(draw(random, 0, 5))});
        auto& frames = recorded.layers.back().frames;
        for (const int64_t queueNs : times(0)) frames.push_back({queueNs, {}, {}, {}});
        for (RecordedFrame& frame : frames) {
            for (auto* time : {&frame.returnNs, &frame.dequeueNs, &frame.latchNs, &frame.shownNs}) {
                *time = maybe(draw(random, 0, durationNs));
            }
        }
    }
    return recorded;
}

// Holds each buffer for a drawn time, boosts now and then.
class ErraticPolicy : public PacingPolicy {
  public:
    explicit ErraticPolicy(uint64_t seed) : mRandom(seed) {}
    int64_t frameStart(size_t, int64_t nowNs, std::optional<int64_t>) override {
        return nowNs + draw(mRandom, 0, 9'000'000);
    }
    bool queueBuffer(size_t layer, int, int64_t nowNs) override {
        using Kind = PolicyEvent::Kind;
        if (draw(mRandom, 0, 2) == 0) return true;
        const int64_t at = nowNs + draw(mRandom, 0, 40'000'000);
        mEvents.emplace(at, PolicyEvent{at, Kind::kRelease, layer});
        mEvents.emplace(nowNs,
                        PolicyEvent{nowNs, draw(mRandom, 0, 4) > 0 ? Kind::kBoost : Kind::kBoostEnd,
                                    layer, static_cast<int32_t>(draw(mRandom, 1, 12) * 100)});
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

double nearestRank(std::vector<int64_t> values, size_t percent) {
    std::sort(values.begin(), values.end());
    const auto isEnough = [&](size_t count) { return count * 100 >= percent * values.size(); };
    size_t count = 0;
    while (count < values.size() && !isEnough(count)) ++count;
    return count == 0 ? 0 : static_cast<double>(values[count - 1]);
}

double sum(const std::vector<int64_t>& values) {
    return static_cast<double>(std::accumulate(values.begin(), values.end(), int64_t{0}));
}

double meanOf(const std::vector<int64_t>& values) {
    return values.empty() ? 0 : sum(values) / static_cast<double>(values.size());
}

// The figures of one layer, from their definitions.
void expectFigures(const Workload& workload, const ModelRun& run, int64_t endNs, size_t layer,
                   int64_t intended) {
    std::vector<int64_t> latencies, toDisplay, intervals, held, waiting;
    double dropped = 0, late = 0, boosts = 0, boosted = 0, squares = 0;
    std::optional<int64_t> before;
    for (const ModelFrame& frame : run.frames) {
        if (frame.layer != layer || frame.letGoNs < 0) continue;
        waiting.push_back(frame.waiting);
        if (frame.letGoNs != frame.queueNs) held.push_back(frame.letGoNs - frame.queueNs);
        if (frame.superseded) ++dropped;
        if (!frame.latchVsync || frame.superseded) continue;
        const int64_t shown = *frame.latchVsync + 1, shownNs = workload.compositor.at(shown);
        latencies.push_back(shownNs - frame.startNs);
        toDisplay.push_back(shownNs - frame.queueNs);
        if (before && workload.layers[layer].frames[frame.index].notBeforeNs == 0) {
            intervals.push_back(shownNs - workload.compositor.at(*before));
            late += shown > *before + intended ? 1 : 0;
        }
        before = shown;
    }
    const double interval = meanOf(intervals);
    for (const int64_t ns : intervals) squares += std::pow(static_cast<double>(ns) - interval, 2);
    int64_t untilNs = endNs;
    for (auto event = run.boosts.rbegin(); event != run.boosts.rend(); ++event) {
        if (event->layer != layer) continue;
        const bool isBoost = event->kind == PolicyEvent::Kind::kBoost;
        if (isBoost) boosted += event->freqMHz * static_cast<double>(untilNs - event->timeNs) / 1e9;
        boosts += isBoost ? 1 : 0;
        untilNs = event->timeNs;
    }
    FigureCounter counter(workload, std::vector<int64_t>(workload.layers.size(), intended));
    for (const ModelFrame& frame : run.frames) counter.onFrame(frame);
    for (const PolicyEvent& boost : run.boosts) counter.onBoost(boost);
    const LayerFigures f = counter.figures(endNs)[layer];
    const auto number = [](auto value) { return static_cast<double>(value); };
    const std::pair<double, double> figures[] = {
            {nearestRank(latencies, 50), number(f.latencyP50Ns)},
            {nearestRank(latencies, 95), number(f.latencyP95Ns)},
            {nearestRank(latencies, 99), number(f.latencyP99Ns)},
            {nearestRank(toDisplay, 50), number(f.queueToDisplayP50Ns)},
            {nearestRank(toDisplay, 95), number(f.queueToDisplayP95Ns)},
            {number(latencies.size()), number(f.shown)},
            {late, number(f.late)},
            {dropped, number(f.dropped)},
            {interval > 0 ? 1e9 / interval : 0, f.fps},
            {intervals.empty() ? 0 : std::sqrt(squares / number(intervals.size())),
             f.intervalDeviationNs},
            {meanOf(waiting), f.waitingMean},
            {number(held.size()), number(f.heldFrames)},
            {sum(held), number(f.heldNs)},
            {nearestRank(held, 50), number(f.heldP50Ns)},
            {boosts, number(f.boosts)},
            {boosted, f.boostMHzSeconds},
    };
    for (const auto& [expected, actual] : figures) {
        EXPECT_NEAR(expected, actual, 1e-9 * std::abs(expected)) << &expected - &figures[0].first;
    }
}

void expectTheDevicesRules(const Workload& workload, const ModelRun& run, int64_t endNs,
                           bool isShallow, int64_t apart) {
    const VsyncGrid &compositor = workload.compositor, &app = workload.application;
    std::vector<const ModelFrame*> last(workload.layers.size());
    size_t latched = 0, frames = 0;
    for (const LayerWork& layer : workload.layers) {
        frames += layer.frames.size() - static_cast<size_t>(layer.initialDepth);
    }
    for (const ModelFrame& frame : run.frames) {
        const LayerWork& layer = workload.layers[frame.layer];
        const FrameWork work = layer.frames[frame.index];
        const ModelFrame* const before = std::exchange(last[frame.layer], &frame);
        if (!frame.latchVsync) continue;
        ++latched;
        EXPECT_LE(frame.readyNs, frame.startNs);
        EXPECT_LE(frame.startNs, frame.queueNs);
        EXPECT_LE(frame.queueNs - frame.startNs, work.workNs);
        EXPECT_LE(frame.queueNs, frame.letGoNs);
        // At the layer's offset, or at the next vsync if that comes first.
        EXPECT_LE(frame.letGoNs, std::min(compositor.at(*frame.latchVsync) + layer.latchOffsetNs,
                                          compositor.at(*frame.latchVsync + 1)));
        EXPECT_LE(frame.waiting, isShallow ? 1 : layer.buffers - 1);
        if (work.startsOnVsync) {
            EXPECT_EQ(frame.startNs, app.at(app.lastUntil(frame.startNs)));
        }
        if (before == nullptr) continue;
        EXPECT_EQ(before->index + 1, frame.index);
        EXPECT_GE(frame.readyNs, before->letGoNs);
        EXPECT_GE(*frame.latchVsync, *before->latchVsync + (before->superseded ? 0 : 1));
        EXPECT_GE(app.lastUntil(frame.startNs), app.lastUntil(before->startNs) + apart);
    }
    // All is shown, or the run was cut at its limit, which it may miss by a vsync.
    constexpr int64_t kVsyncNs = 150'000'000;
    const int64_t limitNs =
            workload.durationNs * DeviceModel::kMaxStretch + DeviceModel::kMaxOverrunNs;
    EXPECT_LE(endNs, limitNs + kVsyncNs);
    EXPECT_TRUE(latched == frames || endNs > limitNs - kVsyncNs) << latched << " of " << frames;
}

// A recording played many times is taken apart like one that was recorded so.
void expectTheWorkOfEachPass(Random& random, const Recorded& once, int passes,
                             const std::vector<LayerOverride>& overrides) {
    SCOPED_TRACE(testing::Message() << passes << " passes");
    const Workload played = takeApart(once, overrides, passes);
    const Workload written = takeApart(repeated(once, passes), overrides);
    EXPECT_EQ(written.durationNs, played.durationNs);
    for (size_t i = 0; i < written.layers.size(); ++i) {
        const FrameWorks &expected = written.layers[i].frames, &actual = played.layers[i].frames;
        ASSERT_EQ(expected.size(), actual.size());
        const auto fields = [](const FrameWork& work) {
            return std::tuple(work.workNs, work.callNs, work.startsOnVsync, work.paceNs,
                              work.notBeforeNs, work.superseded);
        };
        for (size_t k = 0; k < expected.size(); ++k) {
            ASSERT_EQ(fields(expected[k]), fields(actual[k])) << "layer " << i << " frame " << k;
        }
    }
    const std::pair<const VsyncGrid&, const VsyncGrid&> grids[] =
            {{written.compositor, played.compositor}, {written.application, played.application}};
    for (int k = 0; k < 200; ++k) {
        const int64_t timeNs = draw(random, -played.durationNs / 4, played.durationNs * 5 / 4);
        for (const auto& [expected, actual] : grids) {
            const int64_t vsync = expected.lastUntil(timeNs);
            ASSERT_EQ(vsync, actual.lastUntil(timeNs)) << timeNs;
            ASSERT_EQ(expected.at(vsync), actual.at(vsync)) << vsync;
        }
    }
}

// Whatever was recorded, a run ends, keeps the device's rules, and gives figures that are right.
TEST(DeviceModel, KeepsTheDevicesRulesUnderEveryPolicy) {
    for (uint64_t seed = 0; seed < 300; ++seed) {
        Random random(seed);
        Recorded recorded = recordNonsense(random);
        if (seed % 8 == 0) {
            recorded = recordOnAPlainPhone(random, seed % 16 == 0);
            recorded.layers.push_back(recordOnAPlainPhone(random, seed % 3 == 0).layers[0]);
        }
        std::vector<LayerOverride> overrides;
        std::vector<GpuShare> shares;
        for (size_t i = 0; i < recorded.layers.size(); ++i) {
            if (seed % 8 > 4)
                overrides.push_back({i, static_cast<ProducerKind>(draw(random, 0, 1)),
                                     static_cast<int>(draw(random, 2, 6))});
            if (seed % 2 > 0)
                shares.push_back({i, static_cast<double>(draw(random, 0, 4)) / 4, 400});
        }
        const auto passes = static_cast<int>(draw(random, 1, 3));
        const Workload workload = takeApart(recorded, overrides, passes);
        expectTheWorkOfEachPass(random, recorded, passes, overrides);
        // So many that most are not read one by one.
        if (seed % 128 == 0 || seed % 16 == 3) {
            expectTheWorkOfEachPass(random, recorded, static_cast<int>(draw(random, 80, 160)), {});
        }
        recorded = repeated(recorded, passes);
        NonePolicy none;
        IntervalPolicy interval(workload.application,
                                std::vector<int64_t>(recorded.layers.size(), 2));
        ShallowPolicy shallow;
        ErraticPolicy erratic(seed);
        for (PacingPolicy* policy :
             std::initializer_list<PacingPolicy*>{&none, &interval, &shallow, &erratic}) {
            SCOPED_TRACE(testing::Message() << "seed " << seed << typeid(*policy).name());
            int64_t endNs = 0;
            const ModelRun run = record(workload, *policy, shares, &endNs);
            expectTheDevicesRules(workload, run, endNs, policy == &shallow,
                                  policy == &interval ? 2 : 0);
            for (size_t i = 0; i < workload.layers.size(); ++i) {
                expectFigures(workload, run, endNs, i, draw(random, 1, 3));
            }
            for (const LayerFit& fit : compareWithRecording(recorded, workload, run)) {
                EXPECT_TRUE(fit.onVsync <= fit.latches && fit.presentsMet <= fit.presents);
            }
            if (HasFailure()) return;
        }
    }
}

TEST(CountedValues, CountsEachValueWhileFewDiffer) {
    constexpr auto kMost = static_cast<int64_t>(CountedValues::kMaxDistinct);
    for (const int64_t differing : {int64_t{1}, kMost / 2, kMost * 20}) {
        Random random(static_cast<uint64_t>(differing));
        CountedValues counted;
        std::vector<int64_t> values;
        while (values.size() < 300'000) {
            const int64_t value = draw(random, -differing / 2, differing / 2);
            const int64_t times = draw(random, 1, 3);
            values.insert(values.end(), static_cast<size_t>(times), value);
            counted.add(value, static_cast<size_t>(times));
        }
        EXPECT_EQ(values.size(), counted.count());
        EXPECT_GE(CountedValues::kMaxDistinct, counted.values().size());
        EXPECT_EQ(counted.percentile(100), counted.max());
        for (const size_t percent : {1, 50, 99, 100}) {
            // Twelve bits are the fewest that are left.
            const double expected = nearestRank(values, percent);
            const auto actual = static_cast<double>(counted.percentile(percent));
            EXPECT_LE(actual, expected);
            EXPECT_GE(actual + (differing > kMost ? std::abs(expected) / 2'048 : 0), expected);
        }
    }
}

}  // namespace
}  // namespace corvane::model
