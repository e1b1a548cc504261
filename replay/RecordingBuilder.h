// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "replay/FrameMark.h"
#include "replay/FrameTimeline.h"
#include "replay/FtraceParser.h"
#include "replay/QueueCalls.h"
#include "replay/Recording.h"

namespace corvane::replay {

// Collects the markers of one trace, whatever its format, and makes the recording of them. Used
// from one thread.
class RecordingBuilder {
  public:
    void add(const TraceEvent& event);
    void add(const FrameMark& mark) { mTimeline.add(mark); }
    // More has been collected than a recording that is to be played can need.
    bool isFull() const;
    // To be called once, when all has been added.
    RecordingResult finish(const ParseStats& stats);

  private:
    struct Sample {
        int64_t timeNs;
        size_t order;  // position in the text
        int value;
    };
    struct Counter {
        std::string_view name;  // without the prefix of buffer counters; the index holds the text
        std::string_view fullName;
        int pid;
        bool prefixed;
        const char* unused = nullptr;  // why it is none of a layer to be played
        std::vector<Sample> samples;
    };
    struct RateCounter {
        std::string name;
        int pid;
        bool isPeriod;  // else a rate
        std::vector<Rate> values;
    };
    // The names of one process's counters, with their places in a list.
    using Index = std::map<int, std::map<std::string, size_t, std::less<>>>;

    void addCounter(const TraceEvent& event);
    void addSlice(const TraceEvent& event);
    bool addRate(const TraceEvent& event);
    Counter* vsyncCounter(const TraceEvent& event);
    Counter* layerCounter(const TraceEvent& event);
    static Counter& counterOf(const TraceEvent& event, Index& index,
                              std::vector<Counter>& counters);

    bool chooseVsync();
    bool takeTimelineVsyncs();
    void addTimelineLayers();
    void takeTimelineShown(int64_t startNs);
    void takeTimelineProcess(const LayerTimeline& layer, Process& process) const;
    const LayerTimeline* timelineOf(std::string_view name) const;
    void chooseCounters();
    void dropFarTimes();
    void addVsyncs();
    void addLayer(Counter& counter);
    void limitLayers();
    void assignIds();
    void assignProcesses();
    void measure();
    void findRate(int64_t startNs);
    void listCounters();
    void takeNotes(const ParseStats& stats);
    int64_t medianVsyncNs() const;

    template <typename Use>
    void forEachSample(Use use);

    size_t mOrder = 0;
    size_t mKept = 0;  // pieces that grow with the trace
    size_t mDamaged = 0;
    Index mLayerIndex;
    std::vector<Counter> mCounters;  // of layers, by their form
    Index mVsyncIndex;
    std::vector<Counter> mVsyncCounters;
    Index mRateIndex;
    std::vector<RateCounter> mRateCounters;
    // When the compositor woke for a frame, and when it expected that to show.
    std::vector<Sample> mWakes;
    std::vector<int64_t> mExpected;
    int mWakesPid = 0;
    Counter mWakesAsVsync{};
    // What the frame timeline says stands in for counters that the trace lacks.
    FrameTimeline mTimeline;
    Counter mTimelineAsVsync{};
    std::vector<std::string> mTimelineNames;  // what its layers' counters are called
    Counter* mVsync = nullptr;
    int64_t mStartNs = 0;

    QueueCalls mQueueCalls;
    std::vector<std::pair<Step, size_t>> mSteps;  // with their order in the text
    Recording mRecording;
};

}  // namespace corvane::replay
