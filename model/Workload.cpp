// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "model/Workload.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <cstdio>
#include <limits>
#include <utility>

namespace corvane::model {
namespace {

constexpr double kTwoPi = 6.283185307179586;

// A queue of three is what applications get unless they ask for more.
constexpr int kUsualBuffers = 3;

// Starts without any relation to vsync spread evenly over the period, with a deviation of 0.29
// periods. Below 0.17 they follow it, with all the delays of threads that wake each other.
constexpr double kVsyncDrivenSpread = 1.0 / 6;
// Fewer starts tell nothing.
constexpr size_t kMinStarts = 8;

// Latches that were passed over give at most so many values to try for the GPU's time: their
// quantiles, so that a long recording takes no longer than it must.
constexpr size_t kMaxGpuCandidates = 64;

int64_t medianOf(std::vector<int64_t> values, int64_t otherwise) {
    if (values.empty()) return otherwise;
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

double deviationOf(const std::vector<double>& values) {
    double sum = 0;
    for (const double value : values) sum += value;
    const double mean = sum / static_cast<double>(values.size());
    double squares = 0;
    for (const double value : values) squares += (value - mean) * (value - mean);
    return std::sqrt(squares / static_cast<double>(values.size()));
}

// Passes that are played and not read, just before the last one.
struct FurtherPasses {
    size_t frames;  // of the layer, in each
    size_t times;
    int64_t passNs;
};

// Everything about one layer is read off its recorded frames in one order: buffers, offset of its
// latches, GPU time, what drives it, and then each frame's work.
class LayerReader {
  public:
    LayerReader(const RecordedLayer& recorded, const VsyncGrid& compositor,
                const VsyncGrid& application)
          : mRecorded(recorded), mCompositor(compositor), mApplication(application) {
        mLayer.name = recorded.name;
    }

    LayerWork read(const LayerOverride& known, const FurtherPasses& further);

  private:
    struct Latch {
        int64_t vsync;  // number of the compositor's vsync
        int64_t timeNs;
    };

    const RecordedFrame& frame(size_t i) const { return mRecorded.frames[i]; }
    size_t count() const { return mRecorded.frames.size(); }
    std::optional<Latch> latchOf(size_t i) const;
    bool isSuperseded(size_t i) const;
    int64_t latchTimeAt(int64_t vsync) const;
    std::vector<int64_t> passedOver() const;
    size_t explainedLatches(int64_t gpuNs) const;

    void readQueue(const LayerOverride& known);
    void readLatches();
    void readGpuTime();
    void readKind(const LayerOverride& known);
    std::vector<FrameWork> readFrames() const;
    // When the buffer of frame i could be dequeued: the last but one before it had been shown.
    int64_t bufferFreeNs(size_t i) const;
    int64_t readyNs(size_t i) const;
    FrameWork readFrame(size_t i, std::optional<int64_t> previousStartNs, int64_t* startNs) const;

    const RecordedLayer& mRecorded;
    const VsyncGrid& mCompositor;
    const VsyncGrid& mApplication;
    LayerWork mLayer;
};

std::optional<LayerReader::Latch> LayerReader::latchOf(size_t i) const {
    if (!frame(i).latchNs) return std::nullopt;
    return Latch{mCompositor.lastUntil(*frame(i).latchNs), *frame(i).latchNs};
}

bool LayerReader::isSuperseded(size_t i) const {
    const auto own = latchOf(i);
    const auto next = i + 1 < count() ? latchOf(i + 1) : std::nullopt;
    return own && next && own->vsync == next->vsync;
}

int64_t LayerReader::latchTimeAt(int64_t vsync) const {
    return mCompositor.at(vsync) + mLayer.latchOffsetNs;
}

void LayerReader::readQueue(const LayerOverride& known) {
    int waiting = 0;
    int deepest = 0;
    size_t latched = 0;
    for (size_t i = 0; i < count(); ++i) {
        if (frame(i).queueNs) {
            while (latched < i && frame(latched).latchNs &&
                   *frame(latched).latchNs <= *frame(i).queueNs) {
                ++latched;
                --waiting;
            }
        } else {
            ++mLayer.initialDepth;
        }
        deepest = std::max(deepest, ++waiting);
    }
    mLayer.buffers = known.buffers.value_or(std::max(kUsualBuffers, deepest + 1));
}

void LayerReader::readLatches() {
    std::vector<int64_t> offsets;
    std::vector<int64_t> cadences;
    std::optional<int64_t> previous;
    for (size_t i = 0; i < count(); ++i) {
        const auto latch = latchOf(i);
        if (!latch) continue;
        ++mLayer.latches;
        offsets.push_back(latch->timeNs - mCompositor.at(latch->vsync));
        if (previous && latch->vsync > *previous) cadences.push_back(latch->vsync - *previous);
        previous = latch->vsync;
    }
    mLayer.latchOffsetNs = medianOf(std::move(offsets), 0);
    mLayer.cadence = medianOf(std::move(cadences), 1);
}

// How long after its queueing each frame was passed over for the last time, though it was first in
// the queue: its GPU work had not ended by then.
std::vector<int64_t> LayerReader::passedOver() const {
    std::vector<int64_t> bounds;
    for (size_t i = 1; i < count(); ++i) {
        const auto previous = latchOf(i - 1);
        const auto own = latchOf(i);
        if (!previous || !own || !frame(i).queueNs || own->vsync <= previous->vsync + 1) continue;
        const int64_t lastPassed = latchTimeAt(own->vsync - 1);
        if (lastPassed >= *frame(i).queueNs) bounds.push_back(lastPassed - *frame(i).queueNs);
    }
    std::sort(bounds.begin(), bounds.end());
    return bounds;
}

// Plays the recorded queue times against the compositor's rule.
size_t LayerReader::explainedLatches(int64_t gpuNs) const {
    size_t explained = 0;
    int64_t nextVsync = std::numeric_limits<int64_t>::min();
    for (size_t i = 0; i < count(); ++i) {
        const auto recorded = latchOf(i);
        if (!recorded) break;
        int64_t vsync = recorded->vsync;
        if (frame(i).queueNs) {
            const int64_t readyNs = *frame(i).queueNs + gpuNs - mLayer.latchOffsetNs;
            vsync = std::max(nextVsync, mCompositor.firstFrom(readyNs));
        }
        if (vsync == recorded->vsync) ++explained;
        nextVsync = isSuperseded(i) ? vsync : vsync + 1;
    }
    return explained;
}

// One time for all frames of the layer: the smallest that explains most of the recorded latches.
// (A time for each frame would explain any recording, and so nothing.)
void LayerReader::readGpuTime() {
    const std::vector<int64_t> bounds = passedOver();
    size_t best = explainedLatches(0);
    const size_t candidates = std::min(bounds.size(), kMaxGpuCandidates);
    for (size_t k = 1; k <= candidates; ++k) {
        const int64_t gpuNs = bounds[bounds.size() * k / candidates - 1] + 1;
        const size_t explained = explainedLatches(gpuNs);
        if (explained <= best) continue;
        best = explained;
        mLayer.gpuNs = gpuNs;
    }
    mLayer.explainedLatches = best;
}

// What drives a producer shows in which of two delays varies less: from the vsync to the dequeueing
// of its buffer, or from the moment at which it could have dequeued it.
void LayerReader::readKind(const LayerOverride& known) {
    std::complex<double> phases = 0;
    std::vector<double> delays;  // in periods
    for (size_t i = 1; i < count(); ++i) {
        if (!frame(i).queueNs || !frame(i - 1).queueNs) continue;
        const int64_t startNs = frame(i).dequeueNs.value_or(*frame(i).queueNs);
        const int64_t delayNs = startNs - readyNs(i);
        if (delayNs > Workload::kIdleNs) continue;
        const int64_t vsync = mApplication.lastUntil(startNs);
        const auto periodNs = static_cast<double>(mApplication.periodAfter(vsync));
        const auto sinceVsync = static_cast<double>(startNs - mApplication.at(vsync));
        phases += std::polar(1.0, kTwoPi * sinceVsync / periodNs);
        delays.push_back(static_cast<double>(delayNs) / periodNs);
    }
    if (known.kind) {
        mLayer.kind = *known.kind;
        mLayer.reason = "the scenario says so";
        return;
    }
    if (delays.size() < kMinStarts) {
        mLayer.kind = ProducerKind::kVsyncDriven;
        mLayer.reason = "too few frames to tell";
        return;
    }
    // The deviation of an angle, from the length of the mean of the unit vectors.
    const double length = std::abs(phases) / static_cast<double>(delays.size());
    const double fromVsync =
            length > 0 ? std::sqrt(-2 * std::log(std::min(length, 1.0))) / kTwoPi : 1.0;
    const double fromReady = deviationOf(delays);
    mLayer.kind = fromVsync < kVsyncDrivenSpread && fromVsync <= fromReady
                          ? ProducerKind::kVsyncDriven
                          : ProducerKind::kFreeRunning;
    std::array<char, 128> text{};
    snprintf(text.data(), text.size(),
             "its starts deviate by %.2f vsync periods from a phase, by %.2f from when it could",
             fromVsync, fromReady);
    mLayer.reason = text.data();
}

// When the producer could begin frame i: its last queue call had returned, a buffer was free.
int64_t LayerReader::readyNs(size_t i) const {
    const RecordedFrame& before = frame(i - 1);
    const int64_t returnNs = std::max(before.returnNs.value_or(0), *before.queueNs);
    return std::min(*frame(i).queueNs, std::max(returnNs, bufferFreeNs(i)));
}

int64_t LayerReader::bufferFreeNs(size_t i) const {
    // One buffer is shown, the others of the queue wait or are drawn: frame i can have one once the
    // frame (buffers - 1) before it has been latched, which frees the one shown until then.
    const size_t others = static_cast<size_t>(mLayer.buffers - 1);
    if (i < others) return std::numeric_limits<int64_t>::min();
    const auto& latchNs = frame(i - others).latchNs;
    return latchNs ? *latchNs : std::numeric_limits<int64_t>::min();
}

// `previousStartNs` is when the frame before was begun; none for the first that the recording
// shows, of which nobody knows what it waited for.
FrameWork LayerReader::readFrame(size_t i, std::optional<int64_t> previousStartNs,
                                 int64_t* startNs) const {
    const int64_t queueNs = *frame(i).queueNs;
    const int64_t dequeueNs = std::min(frame(i).dequeueNs.value_or(queueNs), queueNs);
    const bool onVsync = mLayer.kind == ProducerKind::kVsyncDriven;
    FrameWork work;
    if (!previousStartNs) {
        work.startsOnVsync = onVsync;
        *startNs = onVsync ? mApplication.at(mApplication.lastUntil(dequeueNs)) : dequeueNs;
        work.notBeforeNs = *startNs;
        work.workNs = queueNs - *startNs;
        return work;
    }
    const int64_t couldNs = readyNs(i);
    *startNs = couldNs;
    if (onVsync) {
        const int64_t firstNs = mApplication.at(mApplication.firstFrom(couldNs));
        const int64_t begunNs = mApplication.at(mApplication.lastUntil(dequeueNs));
        // Begun before the vsync that it should have waited for: it makes up for lost time.
        work.startsOnVsync = begunNs >= firstNs;
        if (work.startsOnVsync) *startNs = begunNs;
        if (begunNs > firstNs) work.paceNs = *startNs - *previousStartNs;
    }
    if (queueNs - couldNs > Workload::kIdleNs) {
        // A free-running producer's start cannot be told from its idleness; its buffer's can.
        if (!onVsync) *startNs = dequeueNs;
        work.paceNs = 0;
        work.notBeforeNs = *startNs;
    }
    work.workNs = queueNs - *startNs;
    return work;
}

std::vector<FrameWork> LayerReader::readFrames() const {
    std::vector<FrameWork> works;
    works.reserve(count());
    std::optional<int64_t> previousStartNs;
    for (size_t i = 0; i < count(); ++i) {
        FrameWork work;
        if (frame(i).queueNs) {
            int64_t startNs = 0;
            work = readFrame(i, previousStartNs, &startNs);
            previousStartNs = startNs;
            work.callNs = std::max<int64_t>(0, frame(i).returnNs.value_or(0) - *frame(i).queueNs);
        }
        work.superseded = isSuperseded(i);
        works.push_back(work);
    }
    return works;
}

LayerWork LayerReader::read(const LayerOverride& known, const FurtherPasses& further) {
    readQueue(known);
    readLatches();
    readGpuTime();
    readKind(known);
    // The last pass but one is what they are like.
    mLayer.frames = further.times == 0 ? FrameWorks(readFrames())
                                       : FrameWorks(readFrames(), count() - 2 * further.frames,
                                                    further.frames, further.times, further.passNs);
    return std::move(mLayer);
}

bool hasDequeues(const RecordedLayer& layer) {
    return std::any_of(layer.frames.begin(), layer.frames.end(),
                       [](const RecordedFrame& frame) { return frame.dequeueNs.has_value(); });
}

// Those of a pass that is not the first: what was queued before the recording began is then of the
// pass before.
size_t framesPerPass(const RecordedLayer& layer) {
    return static_cast<size_t>(
            std::count_if(layer.frames.begin(), layer.frames.end(),
                          [](const RecordedFrame& frame) { return frame.queueNs.has_value(); }));
}

int passesToRead(const Recorded& recorded, int passes) {
    constexpr size_t kFirstMiddleAndLast = 3;
    size_t frames = 0;
    for (const RecordedLayer& layer : recorded.layers) frames += framesPerPass(layer);
    const size_t enough = Workload::kMinFramesRead / std::max<size_t>(frames, 1) + 1;
    return static_cast<int>(
            std::min(static_cast<size_t>(passes), std::max(enough, kFirstMiddleAndLast)));
}

}  // namespace

Workload takeApart(const Recorded& once, const std::vector<LayerOverride>& overrides, int passes) {
    const int64_t lengthNs = passNs(once);
    const bool ownVsyncs = !once.appVsyncs.empty();
    Workload workload{VsyncGrid(once.vsyncs, once.rates, passes, lengthNs),
                      VsyncGrid(ownVsyncs ? once.appVsyncs : once.vsyncs, once.rates, passes,
                                lengthNs),
                      {},
                      (passes - 1) * lengthNs + once.durationNs,
                      {}};
    if (!ownVsyncs) {
        workload.assumptions.push_back(
                "No vsyncs of the applications are recorded: they are taken to be the "
                "compositor's.");
    }
    const int read = passesToRead(once, passes);
    const Recorded recorded = repeated(once, read);
    for (size_t i = 0; i < recorded.layers.size(); ++i) {
        const RecordedLayer& layer = recorded.layers[i];
        if (!hasDequeues(layer)) {
            workload.assumptions.push_back(
                    "No dequeueBuffer is recorded for " + layer.name +
                    ": its frames are taken to begin as soon as they can, or, vsync-driven, at the "
                    "last vsync before they were queued.");
        }
        const auto known = std::find_if(overrides.begin(), overrides.end(),
                                        [i](const LayerOverride& o) { return o.layer == i; });
        const FurtherPasses further{framesPerPass(once.layers[i]),
                                    static_cast<size_t>(passes - read), lengthNs};
        workload.layers.push_back(
                LayerReader(layer, workload.compositor, workload.application)
                        .read(known != overrides.end() ? *known : LayerOverride{i, {}, {}},
                              further));
    }
    return workload;
}

}  // namespace corvane::model
