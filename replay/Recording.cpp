// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/Recording.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <set>
#include <tuple>
#include <utility>

#include "replay/FtraceParser.h"
#include "replay/QueueCalls.h"

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

struct Sample {
    int64_t timeNs;
    size_t order;  // position in the text
    int value;
};

struct Counter {
    std::string_view name;  // without kBufferPrefix
    int pid;
    bool prefixed;
    bool used = true;
    std::vector<Sample> samples;
};

bool startsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

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

// Collects the markers of one trace and makes the recording of them.
class Builder {
  public:
    void add(const TraceEvent& event);
    RecordingResult finish(const ParseStats& stats);

  private:
    void addCounter(const TraceEvent& event);
    Counter* layerCounter(const TraceEvent& event);
    bool chooseVsync();
    void chooseCounters();
    void dropFarTimes();
    void addVsyncs();
    void addLayer(const Counter& counter);
    void limitLayers();
    void assignIds();
    void assignProcesses();
    void measure();

    template <typename Use>
    void forEachSample(Use use);

    size_t mOrder = 0;
    size_t mDamaged = 0;
    std::map<std::pair<int, std::string_view>, size_t> mCounterIndex;
    std::vector<Counter> mCounters;
    Counter mSfVsync{}, mAppVsync{};
    Counter* mVsync = nullptr;

    QueueCalls mQueueCalls;
    std::vector<std::pair<Step, size_t>> mSteps;  // with their order in the text
    Recording mRecording;
};

void Builder::add(const TraceEvent& event) {
    ++mOrder;
    switch (event.kind) {
        case TraceEvent::Kind::kCounter:
            addCounter(event);
            break;
        case TraceEvent::Kind::kBegin:
            mQueueCalls.begin(event);
            break;
        case TraceEvent::Kind::kEnd:
            mQueueCalls.end(event);
            break;
        case TraceEvent::Kind::kAsyncBegin:
        case TraceEvent::Kind::kAsyncEnd:
            break;
    }
}

void Builder::addCounter(const TraceEvent& event) {
    Counter* counter = event.name == "VSYNC-sf"    ? &mSfVsync
                       : event.name == "VSYNC-app" ? &mAppVsync
                                                   : layerCounter(event);
    if (counter == nullptr) return;
    counter->pid = event.pid;
    if (event.value < 0 || event.value > kMaxDepth) {
        ++mDamaged;
        return;
    }
    counter->samples.push_back({event.timeNs, mOrder, static_cast<int>(event.value)});
}

// The counter of this process and name; null when the name is not that of a layer's buffers.
Counter* Builder::layerCounter(const TraceEvent& event) {
    if (!layerNumber(event.name)) return nullptr;
    for (const auto prefix : kOtherPrefixes) {
        if (startsWith(event.name, prefix)) return nullptr;
    }
    const auto [entry, isNew] =
            mCounterIndex.emplace(std::pair{event.pid, event.name}, mCounters.size());
    if (isNew) {
        Counter added{};
        added.prefixed = startsWith(event.name, kBufferPrefix);
        added.name = event.name.substr(added.prefixed ? kBufferPrefix.size() : 0);
        mCounters.push_back(std::move(added));
    }
    return &mCounters[entry->second];
}

// The compositor's own signal if it was recorded, else the applications'.
bool Builder::chooseVsync() {
    mVsync = mSfVsync.samples.size() >= 2 ? &mSfVsync : &mAppVsync;
    return mVsync->samples.size() >= 2;
}

// Of the counters with a layer's form, those of the process that writes the vsyncs; any, where a
// trace has none of that process. Of two for one layer, the prefixed one.
void Builder::chooseCounters() {
    const bool ofCompositor = std::any_of(mCounters.begin(), mCounters.end(),
                                          [&](const auto& c) { return c.pid == mVsync->pid; });
    std::set<std::pair<int, std::string_view>> prefixed;
    for (const auto& counter : mCounters) {
        if (counter.prefixed) prefixed.emplace(counter.pid, counter.name);
    }
    for (auto& counter : mCounters) {
        counter.used = (!ofCompositor || counter.pid == mVsync->pid) &&
                       (counter.prefixed || prefixed.count({counter.pid, counter.name}) == 0);
    }
}

template <typename Use>
void Builder::forEachSample(Use use) {
    use(mVsync->samples);
    for (auto& counter : mCounters) {
        if (counter.used) use(counter.samples);
    }
}

// Keeps the longest stretch of samples without an impossible pause, and puts each counter's samples
// in time's order.
void Builder::dropFarTimes() {
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
        std::sort(samples.begin(), samples.end(), [](const Sample& a, const Sample& b) {
            return std::tie(a.timeNs, a.order) < std::tie(b.timeNs, b.order);
        });
    });
}

// The signal is written at each toggle, so the first sample is a vsync as well.
void Builder::addVsyncs() {
    int previous = -1;
    for (const auto& sample : mVsync->samples) {
        if (sample.value == previous) continue;
        previous = sample.value;
        mSteps.push_back({{sample.timeNs, Step::Kind::kVsync, 0, 1}, sample.order});
        ++mRecording.vsyncs;
    }
}

void Builder::addLayer(const Counter& counter) {
    if (counter.samples.empty()) return;
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
        return;
    }
    mRecording.layers.push_back(std::move(layer));
}

void Builder::limitLayers() {
    auto& layers = mRecording.layers;
    if (layers.size() <= Recording::kMaxLayers) return;
    std::vector<size_t> order(layers.size());
    for (size_t i = 0; i < order.size(); ++i) order[i] = i;
    std::stable_sort(order.begin(), order.end(),
                     [&](size_t a, size_t b) { return layers[a].frames > layers[b].frames; });
    order.resize(Recording::kMaxLayers);
    std::sort(order.begin(), order.end());
    std::vector<size_t> newIndex(layers.size(), SIZE_MAX);
    std::vector<Layer> kept;
    for (const size_t old : order) {
        newIndex[old] = kept.size();
        kept.push_back(std::move(layers[old]));
    }
    mRecording.skippedLayers = layers.size() - kept.size();
    layers = std::move(kept);
    mSteps.erase(std::remove_if(mSteps.begin(), mSteps.end(),
                                [&](auto& entry) {
                                    Step& step = entry.first;
                                    if (step.kind == Step::Kind::kVsync) return false;
                                    step.layer = newIndex[step.layer];
                                    return step.layer == SIZE_MAX;
                                }),
                 mSteps.end());
}

// The recorded numbers are the compositor's layer ids, except where it wrote "#0" for every layer.
// An id that cannot serve, or is taken, is replaced by the smallest free one.
void Builder::assignIds() {
    std::set<int32_t> taken;
    for (auto& layer : mRecording.layers) {
        const int32_t number = *layerNumber(layer.name);
        if (number > 0 && taken.insert(number).second) layer.id = number;
    }
    int32_t next = 1;
    for (auto& layer : mRecording.layers) {
        if (layer.id != 0) continue;
        while (!taken.insert(next).second) ++next;
        layer.id = next;
    }
}

void Builder::assignProcesses() {
    auto& processes = mRecording.processes;
    std::map<int, size_t> byPid;
    pid_t freePid = kFirstPid;
    const std::vector<int> producers = mQueueCalls.producers(mRecording);
    for (size_t i = 0; i < producers.size(); ++i) {
        int pid = producers[i];
        if (pid == 0) {
            while (mQueueCalls.isOf(freePid)) ++freePid;
            pid = freePid++;
        }
        const auto [entry, isNew] = byPid.emplace(pid, processes.size());
        if (isNew) {
            const uid_t uid = kFirstUid + static_cast<uid_t>(processes.size());
            processes.push_back({pid, uid, mQueueCalls.dequeues(pid, mRecording.durationNs)});
        }
        mRecording.layers[i].process = entry->second;
    }
}

void Builder::measure() {
    std::sort(mSteps.begin(), mSteps.end(), [](const auto& a, const auto& b) {
        return std::tie(a.first.timeNs, a.second) < std::tie(b.first.timeNs, b.second);
    });
    const int64_t start = mSteps.front().first.timeNs;
    int64_t previousVsync = -1;
    std::vector<int64_t> intervals;
    mRecording.steps.reserve(mSteps.size());
    for (auto& [step, order] : mSteps) {
        step.timeNs -= start;
        mRecording.steps.push_back(step);
        if (step.kind == Step::Kind::kQueue) ++mRecording.frames;
        if (step.kind != Step::Kind::kVsync) continue;
        if (previousVsync >= 0) intervals.push_back(step.timeNs - previousVsync);
        previousVsync = step.timeNs;
    }
    mRecording.durationNs = mRecording.steps.back().timeNs;
    mQueueCalls.settle(start, mVsync->pid);
    const auto median = intervals.begin() + static_cast<std::ptrdiff_t>(intervals.size() / 2);
    std::nth_element(intervals.begin(), median, intervals.end());
    mRecording.vsyncPeriodNs = *median;
}

RecordingResult Builder::finish(const ParseStats& stats) {
    constexpr const char* kNoVsyncs =
            "holds no vsyncs: neither the counter VSYNC-sf nor VSYNC-app toggles in it";
    constexpr const char* kNoLayers =
            "holds no layers: no counter like NAME#N shows a buffer being queued";
    if (stats.ftrace == 0) return {std::nullopt, "is not a trace: it has no ftrace line"};
    if (!chooseVsync()) return {std::nullopt, kNoVsyncs};
    chooseCounters();
    dropFarTimes();
    addVsyncs();
    if (mRecording.vsyncs < 2) return {std::nullopt, kNoVsyncs};
    for (const auto& counter : mCounters) {
        if (counter.used) addLayer(counter);
    }
    if (mRecording.layers.empty()) return {std::nullopt, kNoLayers};
    limitLayers();
    assignIds();
    measure();
    assignProcesses();
    if (mRecording.vsyncPeriodNs < 1) return {std::nullopt, kNoVsyncs};
    mRecording.skippedLines = stats.damaged + mDamaged;
    return {std::move(mRecording), {}};
}

}  // namespace

std::optional<size_t> Recording::findLayer(std::string_view part) const {
    for (size_t i = 0; i < layers.size(); ++i) {
        if (layers[i].name.find(part) != std::string::npos) return i;
    }
    return std::nullopt;
}

size_t Recording::busiestProcess() const {
    std::vector<size_t> queued(processes.size());
    for (const auto& layer : layers) queued[layer.process] += layer.frames;
    return static_cast<size_t>(std::max_element(queued.begin(), queued.end()) - queued.begin());
}

RecordingResult parseRecording(std::string_view text) {
    Builder builder;
    const ParseStats stats =
            parseFtrace(text, [&builder](const TraceEvent& event) { builder.add(event); });
    return builder.finish(stats);
}

}  // namespace corvane::replay
