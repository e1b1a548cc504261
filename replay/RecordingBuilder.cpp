// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/RecordingBuilder.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <optional>
#include <set>
#include <tuple>
#include <utility>

#include "replay/DisplayRate.h"
#include "replay/TextCursor.h"
#include "replay/TextTable.h"

namespace corvane::replay {
namespace {

// The compositor's counter of a layer's queued buffers is the layer's name, since Android 12 with
// this prefix. Both may be written for one layer; the prefixed one is the queue's.
constexpr std::string_view kBufferPrefix = "BufferTX - ";
// Counters that end in "#N" too but do not count a layer's buffers.
constexpr std::string_view kOtherPrefixes[] = {"TX - ", "QueuedBuffer - "};

// A buffer queue has 64 slots: a larger count is a damaged line.
constexpr int64_t kMaxDepth = 64;
// A step this far from its neighbours has a damaged time; nothing is recorded across such a pause.
constexpr int64_t kMaxPauseNs = 60'000'000'000;
constexpr uid_t kFirstUid = 10000;  // where Android's application uids begin
constexpr pid_t kFirstPid = 30001;  // of processes that the recording does not name

// The signals that wake the compositor and the applications, and the display's own while the
// compositor listens to it. The first of them that toggles is what the compositor saw.
constexpr std::string_view kAppVsync = "VSYNC-app";
constexpr std::string_view kVsyncs[] = {"VSYNC-sf", kAppVsync, "VSYNC-appSf"};
constexpr std::string_view kHardwareVsync = "HW_VSYNC_";
constexpr std::string_view kHardwareVsyncIsOn = "HW_VSYNC_ON";
// Slices of the compositor that tell when its frame is expected to show: "commit 7 vsyncIn 9.1ms".
constexpr std::string_view kExpectedIn = " vsyncIn ";

// Five million steps are hours of a phone's life.
constexpr size_t kMaxKept = 5'000'000;
constexpr size_t kCounterWeight = 8;  // what a counter takes beside its samples

constexpr const char* kNoName = "left out: a layer without a name";
constexpr const char* kOtherProcess = "left out: not of the compositor's process";
// What the counters that stand in for a layer's are called.
constexpr const char* kTimelinePrefix = "frame timeline: ";
constexpr const char* kTwice = "left out: the layer's BufferTX counter is used";
constexpr const char* kNoBuffer = "left out: queues no buffer";

constexpr int64_t kNsPerUs = 1'000;
constexpr double kNsPerMs = 1e6;
constexpr int64_t kNsPerSecond = 1'000'000'000;

// The N of "NAME#N"; 0 when it is none that can serve as an id, nothing when the name has not this
// form.
std::optional<int32_t> layerNumber(std::string_view name) {
    const size_t hash = name.rfind('#');
    if (hash == std::string_view::npos || hash == 0 || hash + 1 == name.size()) return std::nullopt;
    const std::string_view digits = name.substr(hash + 1);
    if (digits.find_first_not_of("0123456789") != std::string_view::npos) return std::nullopt;
    int32_t number = 0;
    const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return result.ec == std::errc() ? number : 0;
}

bool endsInDigits(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

// A layer whose name is empty: "#0".
bool isUnnamed(std::string_view name) {
    return name.size() > 1 && name.front() == '#' && endsInDigits(name.substr(1));
}

bool isVsync(std::string_view name) {
    if (std::find(std::begin(kVsyncs), std::end(kVsyncs), name) != std::end(kVsyncs)) return true;
    return startsWith(name, kHardwareVsync) && !startsWith(name, kHardwareVsyncIsOn);
}

enum class RateUnit { kNone, kPeriod, kHertz };

// Compositors, their vendors' parts and their versions name the counter of the display's rate
// differently: "VsyncPeriod", "VSP-period", "DispSync:Period", "ActiveModeFPS_HWC".
RateUnit rateUnitOf(std::string_view name) {
    constexpr size_t kMaxName = 64;  // which rules most counters out at once
    if (name.size() > kMaxName) return RateUnit::kNone;
    char plain[kMaxName];
    size_t length = 0;
    for (const char c : name) {
        if (c >= 'a' && c <= 'z') plain[length++] = c;
        if (c >= 'A' && c <= 'Z') plain[length++] = static_cast<char>(c - 'A' + 'a');
    }
    const std::string_view letters(plain, length);
    for (const std::string_view period : {"vsyncperiod", "vspperiod", "dispsyncperiod"}) {
        if (letters.find(period) != std::string_view::npos) return RateUnit::kPeriod;
    }
    for (const std::string_view rate : {"activemodefps", "activeconfigfps"}) {
        if (letters.find(rate) != std::string_view::npos) return RateUnit::kHertz;
    }
    return RateUnit::kNone;
}

// The period that a rate counter's value says, in nanoseconds.
int64_t periodOf(int64_t value, bool isPeriod) {
    constexpr int64_t kLeastNs = 100'000;  // a smaller period is one in microseconds
    if (value <= 0) return 0;
    if (!isPeriod) return kNsPerSecond / value;
    return value < kLeastNs ? value * kNsPerUs : value;
}

struct Depth {
    int64_t timeNs;
    int depth;
};

// How many of a layer's buffers were queued and not taken, at each change. A buffer is taken with
// the first one that is queued after it and taken.
std::vector<Depth> depthsOf(const LayerTimeline& layer) {
    const auto& frames = layer.frames;
    std::vector<std::pair<int64_t, size_t>> latches;  // with the buffers that are taken by then
    for (size_t i = 0; i < frames.size(); ++i) {
        if (frames[i].latchNs) latches.emplace_back(*frames[i].latchNs, i + 1);
    }
    std::sort(latches.begin(), latches.end());
    std::vector<Depth> depths;
    size_t queued = 0, taken = 0;
    const auto queueUntil = [&](int64_t timeNs) {
        for (; queued < frames.size() && frames[queued].queueNs <= timeNs; ++queued) {
            // More than a queue has slots: the oldest ones were dropped.
            if (queued - taken >= static_cast<size_t>(kMaxDepth)) {
                depths.push_back({frames[queued].queueNs, 0});
                taken = queued;
            }
            depths.push_back({frames[queued].queueNs, static_cast<int>(queued + 1 - taken)});
        }
    };
    for (const auto& [timeNs, count] : latches) {
        queueUntil(timeNs);
        if (count <= taken || count > queued) continue;
        taken = count;
        depths.push_back({timeNs, static_cast<int>(queued - taken)});
    }
    queueUntil(INT64_MAX);
    return depths;
}

template <typename Time>
void sortByTime(std::vector<Time>& times) {
    std::sort(times.begin(), times.end(), [](const Time& a, const Time& b) {
        return std::tie(a.timeNs, a.order) < std::tie(b.timeNs, b.order);
    });
}

}  // namespace

void RecordingBuilder::add(const TraceEvent& event) {
    ++mOrder;
    switch (event.kind) {
        case TraceEvent::Kind::kCounter:
            addCounter(event);
            break;
        case TraceEvent::Kind::kBegin:
            mQueueCalls.begin(event);
            addSlice(event);
            break;
        case TraceEvent::Kind::kEnd:
            mQueueCalls.end(event);
            break;
        case TraceEvent::Kind::kAsyncBegin:
        case TraceEvent::Kind::kAsyncEnd:
            break;
    }
}

bool RecordingBuilder::isFull() const {
    return mKept + mQueueCalls.kept() > kMaxKept;
}

void RecordingBuilder::addCounter(const TraceEvent& event) {
    if (addRate(event)) return;
    const size_t counters = mCounters.size() + mVsyncCounters.size();
    Counter* counter = isVsync(event.name) ? &counterOf(event, mVsyncIndex, mVsyncCounters)
                                           : layerCounter(event);
    if (counter == nullptr) return;
    mKept += 1 + kCounterWeight * (mCounters.size() + mVsyncCounters.size() - counters);
    if (event.value < 0 || event.value > kMaxDepth) {
        ++mDamaged;
        return;
    }
    counter->samples.push_back({event.timeNs, mOrder, static_cast<int>(event.value)});
}

bool RecordingBuilder::addRate(const TraceEvent& event) {
    const RateUnit unit = rateUnitOf(event.name);
    if (unit == RateUnit::kNone) return false;
    auto& names = mRateIndex[event.pid];
    auto entry = names.find(event.name);
    if (entry == names.end()) {
        entry = names.emplace(event.name, mRateCounters.size()).first;
        mRateCounters.push_back(
                {std::string(event.name), event.pid, unit == RateUnit::kPeriod, {}});
        mKept += kCounterWeight;
    }
    RateCounter& counter = mRateCounters[entry->second];
    counter.values.push_back({event.timeNs, periodOf(event.value, counter.isPeriod)});
    ++mKept;
    return true;
}

void RecordingBuilder::addSlice(const TraceEvent& event) {
    // "commit", and "onMessageInvalidate" as it was named before.
    if (event.name.empty() || (event.name.front() != 'c' && event.name.front() != 'o')) return;
    const size_t at = event.name.find(kExpectedIn);
    if (at == std::string_view::npos) return;
    const std::string_view text = event.name.substr(at + kExpectedIn.size());
    constexpr double kMaxMs = 1'000.0;
    double ms = 0.0;
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), ms);
    if (parsed.ec != std::errc() || !(ms >= 0.0 && ms <= kMaxMs)) return;
    const auto inNs = static_cast<int64_t>(ms * kNsPerMs);
    mWakes.push_back({event.timeNs, mOrder, static_cast<int>(mWakes.size() % 2)});
    mExpected.push_back(event.timeNs + inNs);
    mWakesPid = event.pid;
    ++mKept;
}

RecordingBuilder::Counter& RecordingBuilder::counterOf(const TraceEvent& event, Index& index,
                                                       std::vector<Counter>& counters) {
    auto& names = index[event.pid];
    auto entry = names.find(event.name);
    if (entry == names.end()) {
        entry = names.emplace(event.name, counters.size()).first;
        Counter added{};
        added.pid = event.pid;
        added.fullName = entry->first;
        added.prefixed = startsWith(event.name, kBufferPrefix);
        added.name = added.fullName.substr(added.prefixed ? kBufferPrefix.size() : 0);
        if (isUnnamed(added.name)) added.unused = kNoName;
        counters.push_back(std::move(added));
    }
    return counters[entry->second];
}

// The counter of this process and name; null when the name is not that of a layer's buffers.
RecordingBuilder::Counter* RecordingBuilder::layerCounter(const TraceEvent& event) {
    const std::string_view name = event.name;
    if (name.size() < 2 || name.back() < '0' || name.back() > '9') return nullptr;
    for (const auto prefix : kOtherPrefixes) {
        if (startsWith(name, prefix)) return nullptr;
    }
    const std::string_view bare =
            name.substr(startsWith(name, kBufferPrefix) ? kBufferPrefix.size() : 0);
    if (!isUnnamed(bare) && !layerNumber(bare)) return nullptr;
    return &counterOf(event, mLayerIndex, mCounters);
}

// The compositor's own signal if it was recorded, else the applications', else the frame
// timeline's, else the slices in which the compositor woke.
bool RecordingBuilder::chooseVsync() {
    for (const auto name : kVsyncs) {
        for (auto& counter : mVsyncCounters) {
            if (counter.fullName != name || counter.samples.size() < 2) continue;
            if (mVsync == nullptr || counter.samples.size() > mVsync->samples.size()) {
                mVsync = &counter;
            }
        }
        if (mVsync != nullptr) return true;
    }
    if (takeTimelineVsyncs()) return true;
    if (mWakes.size() < 2) return false;
    mWakesAsVsync.fullName = "vsyncIn";
    mWakesAsVsync.pid = mWakesPid;
    mWakesAsVsync.samples = std::move(mWakes);
    mVsync = &mWakesAsVsync;
    return true;
}

// The compositor is woken at a vsync for each of its frames, where the timeline tells when.
bool RecordingBuilder::takeTimelineVsyncs() {
    auto& samples = mTimelineAsVsync.samples;
    for (const DisplayFrame& frame : mTimeline.displays()) {
        const auto wokenNs = frame.vsyncNs ? frame.vsyncNs : frame.startNs;
        if (!wokenNs) continue;
        samples.push_back({*wokenNs, ++mOrder, 0});
        if (frame.expectedNs) mExpected.push_back(*frame.expectedNs);
    }
    sortByTime(samples);
    for (size_t i = 0; i < samples.size(); ++i) samples[i].value = static_cast<int>(i % 2);
    if (samples.size() < 2) return false;
    mTimelineAsVsync.fullName = "frame timeline";
    mTimelineAsVsync.pid = mTimeline.compositorPid();
    mVsync = &mTimelineAsVsync;
    return true;
}

// Layers whose buffers no counter counts get one, of what the timeline says.
void RecordingBuilder::addTimelineLayers() {
    std::set<std::string_view> counted;
    for (const auto& counter : mCounters) {
        if (counter.unused == nullptr && !counter.samples.empty()) counted.insert(counter.name);
    }
    mTimelineNames.reserve(mTimeline.layers().size());
    for (const auto& layer : mTimeline.layers()) {
        if (layer.frames.empty() || counted.count(layer.name) > 0) continue;
        Counter counter{};
        counter.fullName = mTimelineNames.emplace_back(kTimelinePrefix + layer.name);
        counter.name = counter.fullName.substr(std::string_view(kTimelinePrefix).size());
        counter.pid = mVsync->pid;
        if (counter.name.empty() || isUnnamed(counter.name)) counter.unused = kNoName;
        for (const auto& [timeNs, depth] : depthsOf(layer)) {
            counter.samples.push_back({timeNs, ++mOrder, depth});
        }
        mCounters.push_back(std::move(counter));
    }
}

const LayerTimeline* RecordingBuilder::timelineOf(std::string_view name) const {
    for (const auto& layer : mTimeline.layers()) {
        if (layer.name == name) return &layer;
    }
    return nullptr;
}

void RecordingBuilder::takeTimelineShown(int64_t startNs) {
    for (Layer& layer : mRecording.layers) {
        const LayerTimeline* const timeline = timelineOf(layer.name);
        if (timeline == nullptr) continue;
        for (const LayerFrame& frame : timeline->frames) {
            if (!frame.shownNs || !frame.latchNs) continue;
            const int64_t latchNs = *frame.latchNs - startNs;
            if (latchNs < 0 || latchNs > mRecording.durationNs) continue;
            layer.shown.push_back({latchNs, *frame.shownNs - startNs});
        }
        std::sort(layer.shown.begin(), layer.shown.end(),
                  [](const auto& a, const auto& b) { return a.latchNs < b.latchNs; });
    }
}

// The begin of a frame stands for getting its buffer, where no slice tells that.
void RecordingBuilder::takeTimelineProcess(const LayerTimeline& layer, Process& process) const {
    for (const LayerFrame& frame : layer.frames) {
        const int64_t timeNs = frame.startNs - mStartNs;
        if (timeNs >= 0 && timeNs <= mRecording.durationNs) process.dequeues.push_back(timeNs);
    }
    std::sort(process.dequeues.begin(), process.dequeues.end());
}

// Of the counters with a layer's form, those of the process that writes the vsyncs; any, where a
// trace has none of that process. Of two for one layer, the prefixed one.
void RecordingBuilder::chooseCounters() {
    const bool ofCompositor = std::any_of(mCounters.begin(), mCounters.end(),
                                          [&](const auto& c) { return c.pid == mVsync->pid; });
    std::set<std::pair<int, std::string_view>> prefixed;
    for (const auto& counter : mCounters) {
        if (counter.prefixed) prefixed.emplace(counter.pid, counter.name);
    }
    for (auto& counter : mCounters) {
        if (counter.unused != nullptr) continue;
        if (ofCompositor && counter.pid != mVsync->pid)
            counter.unused = kOtherProcess;
        else if (!counter.prefixed && prefixed.count({counter.pid, counter.name}) > 0)
            counter.unused = kTwice;
    }
}

template <typename Use>
void RecordingBuilder::forEachSample(Use use) {
    use(mVsync->samples);
    for (auto& counter : mCounters) {
        if (counter.unused == nullptr) use(counter.samples);
    }
}

// Keeps the longest stretch of samples without an impossible pause, and puts each counter's samples
// in time's order.
void RecordingBuilder::dropFarTimes() {
    std::vector<int64_t> times;
    forEachSample([&](std::vector<Sample>& samples) {
        for (const auto& sample : samples) times.push_back(sample.timeNs);
    });
    std::sort(times.begin(), times.end());
    size_t bestBegin = 0, bestEnd = 0;
    for (size_t begin = 0; begin < times.size();) {
        size_t end = begin + 1;
        while (end < times.size() && times[end] - times[end - 1] <= kMaxPauseNs) ++end;
        if (end - begin > bestEnd - bestBegin) {
            bestBegin = begin;
            bestEnd = end;
        }
        begin = end;
    }
    const int64_t first = times[bestBegin];
    const int64_t last = times[bestEnd - 1];
    mDamaged += times.size() - (bestEnd - bestBegin);
    forEachSample([&](std::vector<Sample>& samples) {
        samples.erase(std::remove_if(samples.begin(), samples.end(),
                                     [&](const Sample& s) {
                                         return s.timeNs < first || s.timeNs > last;
                                     }),
                      samples.end());
        sortByTime(samples);
    });
}

// The signal is written at each toggle, so the first sample is a vsync as well.
void RecordingBuilder::addVsyncs() {
    int previous = -1;
    for (const auto& sample : mVsync->samples) {
        if (sample.value == previous) continue;
        previous = sample.value;
        mSteps.push_back({{sample.timeNs, Step::Kind::kVsync, 0, 1}, sample.order});
        ++mRecording.vsyncs;
    }
}

void RecordingBuilder::addLayer(Counter& counter) {
    if (counter.samples.empty()) {
        counter.unused = kNoBuffer;
        return;
    }
    Layer layer;
    layer.name = std::string(counter.name);
    // What the first sample changed is not recorded. A count of zero can only be a latch; any other
    // is taken for the queueing of one buffer.
    const int first = counter.samples.front().value;
    layer.initialDepth = first == 0 ? 1 : first - 1;
    int depth = layer.initialDepth;
    const size_t index = mRecording.layers.size();
    const size_t stepsBefore = mSteps.size();
    for (const auto& sample : counter.samples) {
        for (int i = depth; i < sample.value; ++i) {
            mSteps.push_back({{sample.timeNs, Step::Kind::kQueue, index, 1}, sample.order});
            ++layer.frames;
        }
        if (sample.value < depth) {
            mSteps.push_back({{sample.timeNs, Step::Kind::kLatch, index, depth - sample.value},
                              sample.order});
        }
        depth = sample.value;
    }
    layer.finalDepth = depth;
    if (layer.frames == 0) {
        mSteps.resize(stepsBefore);
        counter.unused = kNoBuffer;
        return;
    }
    mRecording.layers.push_back(std::move(layer));
}

void RecordingBuilder::limitLayers() {
    const auto& layers = mRecording.layers;
    if (layers.size() <= Recording::kMaxLayers) return;
    std::vector<size_t> order(layers.size());
    for (size_t i = 0; i < order.size(); ++i) order[i] = i;
    std::stable_sort(order.begin(), order.end(),
                     [&](size_t a, size_t b) { return layers[a].frames > layers[b].frames; });
    std::vector<bool> kept(layers.size());
    for (size_t i = 0; i < Recording::kMaxLayers; ++i) kept[order[i]] = true;
    mRecording.skippedLayers = layers.size() - Recording::kMaxLayers;
    mRecording.keepLayers(kept);
}

// The recorded numbers are the compositor's layer ids, except where it wrote "#0" for every layer.
// An id that cannot serve, or is taken, is replaced by the smallest free one.
void RecordingBuilder::assignIds() {
    std::set<int32_t> taken;
    for (auto& layer : mRecording.layers) {
        const int32_t number = layerNumber(layer.name).value_or(0);
        if (number > 0 && taken.insert(number).second) layer.id = number;
    }
    int32_t next = 1;
    for (auto& layer : mRecording.layers) {
        if (layer.id != 0) continue;
        while (!taken.insert(next).second) ++next;
        layer.id = next;
    }
}

void RecordingBuilder::assignProcesses() {
    auto& processes = mRecording.processes;
    std::map<int, size_t> byPid;
    pid_t freePid = kFirstPid;
    const std::vector<int> producers = mQueueCalls.producers(mRecording);
    for (size_t i = 0; i < producers.size(); ++i) {
        int pid = producers[i];
        const LayerTimeline* const timeline = timelineOf(mRecording.layers[i].name);
        const bool isByTimeline = pid == 0 && timeline != nullptr && timeline->pid > 0;
        if (isByTimeline) pid = timeline->pid;
        if (pid == 0) {
            while (mQueueCalls.isOf(freePid)) ++freePid;
            pid = freePid++;
        }
        const auto [entry, isNew] = byPid.emplace(pid, processes.size());
        if (isNew) {
            const uid_t uid = kFirstUid + static_cast<uid_t>(processes.size());
            processes.push_back({pid, uid, mQueueCalls.dequeues(pid, mRecording.durationNs),
                                 mQueueCalls.returns(pid, mRecording.durationNs)});
            if (isByTimeline && processes.back().dequeues.empty()) {
                takeTimelineProcess(*timeline, processes.back());
            }
        }
        mRecording.layers[i].process = entry->second;
    }
}

void RecordingBuilder::measure() {
    std::sort(mSteps.begin(), mSteps.end(), [](const auto& a, const auto& b) {
        return std::tie(a.first.timeNs, a.second) < std::tie(b.first.timeNs, b.second);
    });
    const int64_t start = mSteps.front().first.timeNs;
    mRecording.steps.reserve(mSteps.size());
    for (auto& [step, order] : mSteps) {
        step.timeNs -= start;
        mRecording.steps.push_back(step);
        if (step.kind == Step::Kind::kQueue) ++mRecording.frames;
    }
    mSteps = {};
    mRecording.durationNs = mRecording.steps.back().timeNs;
    mStartNs = start;
    takeTimelineShown(start);
    mQueueCalls.settle(start, mVsync->pid);
    findRate(start);
}

int64_t RecordingBuilder::medianVsyncNs() const {
    std::vector<int64_t> intervals;
    int64_t previous = -1;
    for (const auto& step : mRecording.steps) {
        if (step.kind != Step::Kind::kVsync) continue;
        if (previous >= 0) intervals.push_back(step.timeNs - previous);
        previous = step.timeNs;
    }
    const auto median = intervals.begin() + static_cast<std::ptrdiff_t>(intervals.size() / 2);
    std::nth_element(intervals.begin(), median, intervals.end());
    return *median;
}

void RecordingBuilder::findRate(int64_t startNs) {
    const auto isWithin = [&](int64_t timeNs) {
        return timeNs >= 0 && timeNs <= mRecording.durationNs;
    };
    RateEvidence evidence;
    evidence.fallbackPeriodNs = medianVsyncNs();

    // A counter of the compositor rather than another's, a period rather than a rate, and the one
    // that says most.
    const RateCounter* best = nullptr;
    const auto rank = [&](const RateCounter& counter) {
        return std::tuple(counter.pid == mVsync->pid, counter.isPeriod, counter.values.size());
    };
    for (const auto& counter : mRateCounters) {
        if (best == nullptr || rank(counter) > rank(*best)) best = &counter;
    }
    if (best != nullptr) {
        evidence.counter = best->name;
        for (const auto& [atNs, periodNs] : best->values) {
            if (isWithin(atNs - startNs)) evidence.counted.push_back({atNs - startNs, periodNs});
        }
        std::stable_sort(evidence.counted.begin(), evidence.counted.end(),
                         [](const Rate& a, const Rate& b) { return a.atNs < b.atNs; });
    }
    for (auto& counter : mVsyncCounters) {
        if (counter.pid != mVsync->pid) continue;
        sortByTime(counter.samples);
        std::vector<int64_t> times;
        int previous = -1;
        for (const auto& sample : counter.samples) {
            if (sample.value == previous || !isWithin(sample.timeNs - startNs)) continue;
            previous = sample.value;
            times.push_back(sample.timeNs - startNs);
        }
        if (times.size() < 2) continue;
        if (counter.fullName == kAppVsync) mRecording.appVsyncs = times;
        evidence.signals.emplace_back(counter.fullName);
        evidence.vsyncs.push_back(std::move(times));
    }
    for (const int64_t timeNs : mExpected) {
        if (isWithin(timeNs - startNs)) evidence.expected.push_back(timeNs - startNs);
    }
    std::sort(evidence.expected.begin(), evidence.expected.end());

    RateFindings found = displayRate(evidence);
    overruleRates(mRecording, found.rates, found.source);
    if (!found.caution.empty()) mRecording.notes.push_back(std::move(found.caution));
}

void RecordingBuilder::listCounters() {
    auto& list = mRecording.counters;
    for (const auto& counter : mVsyncCounters) {
        const bool isPlayed = &counter == mVsync;
        list.push_back({std::string(counter.fullName), counter.pid, counter.samples.size(),
                        isPlayed ? "the vsyncs that are played" : "vsyncs"});
    }
    if (mVsync == &mTimelineAsVsync) {
        list.push_back({"frame timeline", mVsync->pid, mVsync->samples.size(),
                        "the vsyncs that are played"});
    }
    for (const auto& counter : mRateCounters) {
        list.push_back({counter.name, counter.pid, counter.values.size(), "the display's rate"});
    }
    for (const auto& counter : mCounters) {
        list.push_back({std::string(counter.fullName), counter.pid, counter.samples.size(),
                        counter.unused != nullptr ? counter.unused : "a layer's buffers"});
    }
}

void RecordingBuilder::takeNotes(const ParseStats& stats) {
    auto& notes = mRecording.notes;
    if (stats.lostEvents > 0) {
        notes.push_back(
                format("the phone lost %zu events while it recorded: its trace buffer was "
                       "too small, and frames may be missing",
                       stats.lostEvents));
    }
    if (mTimeline.unusable() > 0) {
        notes.push_back(plural(mTimeline.unusable(), "slice") +
                        " of the frame timeline left out: begun or ended outside of the recording, "
                        "or beyond an hour's");
    }
    constexpr size_t kMaxListed = 5;
    std::string unnamed;
    size_t count = 0;
    for (const auto& counter : mCounters) {
        if (counter.unused != kNoName) continue;
        if (++count <= kMaxListed) {
            unnamed += (unnamed.empty() ? "" : ", ") + std::string(counter.fullName);
        }
    }
    if (count > 0) {
        notes.push_back(plural(count, "layer") + " without a name left out (" + unnamed +
                        (count > kMaxListed ? ", ..." : "") +
                        "): the library cannot tell whose they are");
    }
}

RecordingResult RecordingBuilder::finish(const ParseStats& stats) {
    constexpr const char* kNoVsyncs =
            "holds no vsyncs: neither the counter VSYNC-sf nor VSYNC-app toggles in it";
    constexpr const char* kTooFast =
            "holds no vsyncs of a display: they come less than a millisecond apart";
    constexpr const char* kNoLayers =
            "holds no layers: no counter like NAME#N shows a buffer being queued";
    if (stats.ftrace == 0) return {std::nullopt, "is not a trace: it has no ftrace line"};
    mTimeline.finish();
    if (!chooseVsync()) return {std::nullopt, kNoVsyncs};
    chooseCounters();
    addTimelineLayers();
    dropFarTimes();
    addVsyncs();
    if (mRecording.vsyncs < 2) return {std::nullopt, kNoVsyncs};
    for (auto& counter : mCounters) {
        if (counter.unused == nullptr) addLayer(counter);
    }
    if (mRecording.layers.empty()) return {std::nullopt, kNoLayers};
    measure();
    if (mRecording.vsyncPeriodNs < kShortestPeriodNs) return {std::nullopt, kTooFast};
    limitLayers();
    assignIds();
    assignProcesses();
    listCounters();
    takeNotes(stats);
    mRecording.skippedLines = stats.damaged + mDamaged;
    return {std::move(mRecording), {}};
}

}  // namespace corvane::replay
