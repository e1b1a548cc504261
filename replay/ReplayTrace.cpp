// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/ReplayTrace.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <map>
#include <string_view>
#include <utility>

#include "replay/FtraceParser.h"
#include "replay/TextTable.h"

namespace corvane::replay {
namespace {

using Kind = TraceEvent::Kind;

// No process of the recording's or the replay's has this id: the kernel's own thread does.
constexpr int kCompositorPid = 2;
constexpr const char* kCompositor = "recorded";

// A row under the one of this index.
Track rowOf(size_t parent, std::string name) {
    Track row{std::move(name)};
    row.parent = parent;
    return row;
}

// Calls use(step, timeNs) for the steps of all passes that were played, and passBegins() before
// each pass.
template <typename PassBegins, typename Use>
void forEachStep(const ReportSource& source, PassBegins passBegins, Use use) {
    const Recording& recording = source.recording;
    const int64_t passNs = recording.durationNs + recording.vsyncPeriodNs;
    for (int pass = 0; pass < source.repeat; ++pass) {
        passBegins();
        for (const Step& step : recording.steps) {
            const int64_t sinceStartNs = pass * passNs + step.timeNs;
            if (sinceStartNs > source.played.durationNs) return;
            use(step, source.played.startNs + sinceStartNs);
        }
    }
}

// A feature that is on from a time is so until the next switch.
void addSwitches(const Spool<FeatureSwitch>& switches, const char* name, int64_t startNs,
                 int64_t endNs, Track& row) {
    for (size_t i = 0; i < switches.size(); ++i) {
        const FeatureSwitch change = switches[i];
        if (!change.on) continue;
        const int64_t untilNs = i + 1 < switches.size() ? startNs + switches[i + 1].atNs : endNs;
        std::string text = name;
        if (change.targetFps > 0.0) text += format(" %.3g fps", change.targetFps);
        row.slices.push_back({startNs + change.atNs, untilNs, text});
    }
}

// A boost lasts until the next request of its layer.
Track boostRow(size_t parent, const Spool<Boost>& boosts, int64_t startNs, int64_t endNs) {
    Track row = rowOf(parent, "boosts asked for");
    for (size_t i = 0; i < boosts.size(); ++i) {
        const Boost boost = boosts[i];
        if (boost.level == 0) continue;
        const int64_t untilNs = i + 1 < boosts.size() ? startNs + boosts[i + 1].atNs : endNs;
        row.slices.push_back(
                {startNs + boost.atNs, untilNs,
                 format("level %d, %d MHz, frame %zu", boost.level, boost.freqMHz, boost.frame)});
    }
    return row;
}

struct Headroom {
    std::vector<Track::Value> inForce;
    std::vector<Track::Value> current;  // what the buffer would have without being held
};

// By layer ids. The library traces both within the slice of a buffer's headroom, whose cookie is
// the layer's id.
std::map<int64_t, Headroom> headroomsIn(const LibraryTrace& trace) {
    constexpr std::string_view kTrack = "CPU headroom - ";
    std::map<int64_t, Headroom> headrooms;
    std::map<int, int64_t> layers;  // by thread
    trace.read([&](const TraceEvent& event) {
        if (event.kind == Kind::kAsyncBegin && event.name.substr(0, kTrack.size()) == kTrack) {
            layers[event.tid] = event.value;
        }
        int buffers = 0;
        long long current = 0, inForce = 0;
        const auto layer = layers.find(event.tid);
        if (event.kind != Kind::kBegin || layer == layers.end() ||
            std::sscanf(std::string(event.name).c_str(),
                        "bufferCount:%d, curHeadroom: %lld, mHeadroom: %lld", &buffers, &current,
                        &inForce) != 3) {
            return;
        }
        Headroom& headroom = headrooms[layer->second];
        headroom.current.push_back({event.timeNs, static_cast<double>(current)});
        headroom.inForce.push_back({event.timeNs, static_cast<double>(inForce)});
    });
    return headrooms;
}

class TrackBuilder {
  public:
    TrackBuilder(const ReportSource& source, const LibraryTrace& trace)
          : mSource(source),
            mStartNs(source.played.startNs),
            mEndNs(mStartNs + source.played.durationNs),
            mHeadrooms(headroomsIn(trace)) {}

    std::vector<Track> build() {
        addDisplay();
        for (size_t i = 0; i < mSource.recording.layers.size(); ++i) addLayer(i);
        addCalls();
        return std::move(mTracks);
    }

  private:
    size_t addGroup(std::string name) {
        mTracks.push_back({std::move(name)});
        return mTracks.size() - 1;
    }

    void addRow(Track row) {
        if (row.slices.empty() && row.marks.empty() && row.values.empty()) return;
        mTracks.push_back(std::move(row));
    }

    void addDisplay() {
        const size_t group = addGroup("Display");
        Track vsyncs = rowOf(group, "vsync");
        const auto nothing = [] {};
        forEachStep(mSource, nothing, [&](const Step& step, int64_t timeNs) {
            if (step.kind == Step::Kind::kVsync) vsyncs.marks.push_back({timeNs, "vsync"});
        });
        addRow(std::move(vsyncs));
    }

    void addLayer(size_t index) {
        const LayerFindings& found = mSource.findings.layers[index];
        const size_t group = addGroup("Layer " + mSource.recording.layers[index].name);
        addRow(stateRow(group, found));
        Track fps = rowOf(group, "FPS");
        for (const auto& window : found.windows) {
            fps.values.push_back({mStartNs + window.atNs, window.fps});
        }
        addRow(std::move(fps));
        Track features = rowOf(group, "features on");
        addSwitches(found.of(FeatureKind::kHeadroom), "headroom control", mStartNs, mEndNs,
                    features);
        addSwitches(found.of(FeatureKind::kTargetFps), "target FPS", mStartNs, mEndNs, features);
        addSwitches(found.of(FeatureKind::kFrameRescue), "frame rescue", mStartNs, mEndNs,
                    features);
        addRow(std::move(features));
        addRow(waitingRow(group, index));
        addHeadroom(group, mSource.recording.layers[index].id);
        addFrames(group, found);
        addRow(boostRow(group, found.boosts, mStartNs, mEndNs));
        if (mSource.comparison == nullptr) return;
        if (mSource.comparison->library) addModel(group, index, *mSource.comparison->library);
        for (const auto& run : mSource.comparison->others) addModel(group, index, run);
    }

    // What became of each frame on the model's device, stage by stage.
    void addModel(size_t group, size_t layer, const PolicyRun& run) {
        const model::VsyncGrid& vsyncs = mSource.comparison->workload.compositor;
        const auto row = [&](const char* stage) {
            return rowOf(group, "model, policy " + run.name + ": " + stage);
        };
        Track drawing = row("drawing"), held = row("held"), waiting = row("waiting"),
              shown = row("shown");
        for (const auto& frame : run.frames) {
            if (frame.layer != layer || frame.queueNs == model::ModelFrame::kNever) continue;
            const std::string name = "frame " + std::to_string(frame.index + 1);
            const auto add = [&](Track& stage, int64_t beginNs, int64_t endNs) {
                if (beginNs < endNs) {
                    stage.slices.push_back({mStartNs + beginNs, mStartNs + endNs, name});
                }
            };
            add(drawing, frame.startNs, frame.queueNs);
            add(held, frame.queueNs, frame.letGoNs);
            if (!frame.latchVsync) continue;
            add(waiting, frame.letGoNs, vsyncs.at(*frame.latchVsync));
            if (frame.superseded) continue;
            // On the screen until the next one is.
            const int64_t shownNs = vsyncs.at(*frame.shownVsync());
            if (!shown.slices.empty()) shown.slices.back().endNs = mStartNs + shownNs;
            add(shown, shownNs, vsyncs.at(*frame.shownVsync() + 1));
        }
        for (Track* stage : {&drawing, &held, &waiting, &shown}) addRow(std::move(*stage));
    }

    Track stateRow(size_t group, const LayerFindings& found) const {
        Track row = rowOf(group, "state and mode");
        if (found.candidateNs) row.marks.push_back({mStartNs + *found.candidateNs, "candidate"});
        if (found.promotedNs) row.marks.push_back({mStartNs + *found.promotedNs, "promoted"});
        for (const auto& [atNs, mode] : found.modes) {
            row.marks.push_back({mStartNs + atNs, "mode " + std::to_string(mode)});
        }
        return row;
    }

    // Of buffers that the library let go, until the compositor took them.
    Track waitingRow(size_t group, size_t index) const {
        std::vector<std::pair<int64_t, int>> changes;
        for (const auto& frame : mSource.played.frames) {
            if (frame.layer == index) changes.emplace_back(frame.returnNs, 1);
        }
        for (const auto& latch : mSource.played.latches) {
            if (latch.layer == index) changes.emplace_back(latch.atNs, -latch.count);
        }
        std::stable_sort(changes.begin(), changes.end(),
                         [](const auto& a, const auto& b) { return a.first < b.first; });
        Track row = rowOf(group, "buffers waiting");
        row.unit = Track::Unit::kCount;
        int waiting = mSource.recording.layers[index].initialDepth;
        for (const auto& [atNs, change] : changes) {
            waiting = std::max(0, waiting + change);
            row.values.push_back({mStartNs + atNs, static_cast<double>(waiting)});
        }
        return row;
    }

    void addHeadroom(size_t group, int32_t layerId) {
        const auto found = mHeadrooms.find(layerId);
        if (found == mHeadrooms.end()) return;
        const auto add = [&](const char* name, std::vector<Track::Value>& values) {
            Track row = rowOf(group, name);
            row.unit = Track::Unit::kNs;
            row.values = std::move(values);
            addRow(std::move(row));
        };
        add("headroom in force", found->second.inForce);
        add("headroom without holding", found->second.current);
    }

    void addFrames(size_t group, const LayerFindings& found) {
        Track queued = rowOf(group, "queue calls");
        Track held = rowOf(group, "held for headroom");
        Track paced = rowOf(group, "held for target FPS");
        for (size_t i = 0; i < found.frames.size(); ++i) {
            const FrameRecord frame = found.frames[i];
            const std::string name = "frame " + std::to_string(i + 1);
            const int64_t queueNs = mStartNs + frame.queueNs;
            const int64_t returnNs = mStartNs + frame.returnNs;
            queued.slices.push_back({queueNs, returnNs, name});
            if (frame.pacedNs > 0) paced.slices.push_back({queueNs, queueNs + frame.pacedNs, name});
        }
        for (const auto& frame : found.held) {
            const int64_t atNs = mStartNs + frame.atNs;
            held.slices.push_back({atNs, atNs + frame.heldNs, "held"});
        }
        addRow(std::move(queued));
        addRow(std::move(held));
        addRow(std::move(paced));
    }

    void addCalls() {
        const size_t group = addGroup("Library");
        Track calls = rowOf(group, "calls to the service");
        for (const auto& call : mSource.findings.calls) {
            std::string text = call.entry + " " + std::to_string(call.number);
            if (call.hasPackage) text += " " + call.package;
            for (const int argument : call.args) text += " " + std::to_string(argument);
            calls.marks.push_back({mStartNs + call.timeNs, std::move(text)});
        }
        addRow(std::move(calls));
        addRow(boostRow(group, mSource.findings.unclaimedBoosts, mStartNs, mEndNs));
    }

    const ReportSource& mSource;
    const int64_t mStartNs;
    const int64_t mEndNs;
    std::map<int64_t, Headroom> mHeadrooms;
    std::vector<Track> mTracks;
};

}  // namespace

std::vector<StoredEvent> replayEvents(const ReportSource& source, const LibraryTrace& trace) {
    std::vector<StoredEvent> events;
    trace.read([&](const TraceEvent& event) { events.emplace_back(event); });
    std::vector<int> waiting;
    const auto passBegins = [&] {
        waiting.clear();
        for (const Layer& layer : source.recording.layers) waiting.push_back(layer.initialDepth);
    };
    int vsyncs = 0;
    forEachStep(source, passBegins, [&](const Step& step, int64_t timeNs) {
        const auto counter = [&](const std::string& name, int value) {
            events.emplace_back(TraceEvent{Kind::kCounter, timeNs, kCompositorPid, kCompositorPid,
                                           name, value, kCompositor});
        };
        switch (step.kind) {
            case Step::Kind::kVsync:
                counter("VSYNC-sf", ++vsyncs % 2);
                break;
            case Step::Kind::kQueue:
            case Step::Kind::kLatch:
                waiting[step.layer] += step.kind == Step::Kind::kQueue ? 1 : -step.count;
                counter("BufferTX - " + source.recording.layers[step.layer].name,
                        waiting[step.layer]);
                break;
        }
    });
    return events;
}

std::vector<Track> replayTracks(const ReportSource& source, const LibraryTrace& trace) {
    return TrackBuilder(source, trace).build();
}

}  // namespace corvane::replay
