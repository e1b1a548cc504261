// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/Findings.h"

#include <algorithm>
#include <cstdio>
#include <string_view>
#include <unordered_map>

#include "replay/FtraceParser.h"
#include "replay/TextCursor.h"

namespace corvane::replay {
namespace {

constexpr int kGameRequest = 5633;  // the service's game classification and weight
constexpr int kIsGame = 2;          // its answer for a game
constexpr int kFrameRescueEvent = 4186;

class Collector {
  public:
    Collector(const Recording& recording, const PlayResult& played, Findings ofLog)
          : mRecording(recording),
            mPlayed(played),
            mFindings(std::move(ofLog)),
            mNextFrame(recording.layers.size()) {
        for (size_t i = 0; i < recording.layers.size(); ++i) mById[recording.layers[i].id] = i;
        for (const PlayedFrame frame : played.frames) {
            mFindings.layers[frame.layer].frames.push_back({frame.callNs, frame.returnNs});
        }
        std::vector<size_t> busyRuns(recording.layers.size());
        for (const PlayedLatch latch : played.latches) {
            size_t& run = busyRuns[latch.layer];
            run = latch.pending > 0 ? run + 1 : 0;
            auto& longest = mFindings.layers[latch.layer].longestBusyRun;
            longest = std::max(longest, run);
        }
        for (auto& found : mFindings.layers) {
            if (found.frames.size() < 2) continue;
            const int64_t spanNs = found.frames.back().queueNs - found.frames.front().queueNs;
            if (spanNs <= 0) continue;
            found.runFps = static_cast<double>(found.frames.size() - 1) * kNsPerSecond /
                           static_cast<double>(spanNs);
        }
    }

    void readCalls(std::vector<host::PerfCall> calls);
    void readTrace(const LibraryTrace& trace);
    void readBoosts(const Spool<host::BoostRequest>& requests);
    void readFences(size_t deadlines) {
        mFindings.fences.told = mPlayed.fences;
        mFindings.fences.sent = deadlines;
    }
    Findings take() { return std::move(mFindings); }

  private:
    // What a producer's thread is doing inside the queue hook.
    struct Queueing {
        int layerId = 0;
        int64_t sinceNs = 0;
        bool held = false;
        int64_t pacedSinceNs = -1;
    };

    // A held buffer for which no vsync has come since its release.
    struct Release {
        size_t layer;
        size_t held;  // its index there
        int64_t atNs;
    };

    std::optional<size_t> layer(int id) const {
        const auto entry = mById.find(id);
        return entry == mById.end() ? std::nullopt : std::optional(entry->second);
    }
    // The library's trace has microseconds; this much earlier than it was a time may be written.
    static constexpr int64_t kTraceGrainNs = 1'000;
    static constexpr double kNsPerSecond = 1e9;

    int64_t sinceStart(int64_t timeNs) const { return timeNs - mPlayed.startNs; }

    size_t framesUntil(size_t layer, int64_t FrameRecord::*time, int64_t untilNs);
    void addToFrame(size_t layer, int64_t traceTimeNs, int64_t FrameRecord::*part, int64_t partNs);
    void onBegin(const TraceEvent& event, Queueing& queueing);
    void addHeadroomInForce(int layerId, int64_t atNs, int64_t headroomNs);
    void addHeld(const Queueing& queueing, int64_t releaseNs);
    void addPaced(const Queueing& queueing, int64_t wokenNs);
    void onVsync(int64_t atNs);
    bool place(const Release& release, int64_t vsyncNs);
    int layerOfPackage(const std::string& package) const;
    void addBoost(int id, int64_t atNs, int level, int freqMHz);

    const Recording& mRecording;
    const PlayResult& mPlayed;
    std::unordered_map<int, size_t> mById;
    int64_t mLastVsyncNs = INT64_MIN;  // of those in the trace
    std::vector<Release> mReleases;
    struct DeviceTrace {
        int level, freqMHz, id;
    };
    Spool<DeviceTrace> mDeviceTrace;
    Findings mFindings;
    std::vector<size_t> mNextFrame;  // by layers: one behind what was looked for last
};

void Collector::readCalls(std::vector<host::PerfCall> calls) {
    mFindings.calls = std::move(calls);
    for (auto& call : mFindings.calls) {
        call.timeNs = sinceStart(call.timeNs);
        if (call.number != kGameRequest || call.package.empty()) continue;
        // The library asks about a layer's package once the layer is promoted, and took the package
        // out of the layer's name.
        for (size_t i = 0; i < mFindings.layers.size(); ++i) {
            auto& found = mFindings.layers[i];
            if (!found.promotedNs || call.package.size() < found.package.size() ||
                mRecording.layers[i].name.find(call.package) == std::string::npos) {
                continue;
            }
            found.package = call.package;
            if (call.entry == "perf_get_feedback") {
                found.game = call.result == kIsGame;
            } else {
                found.weight = call.result;
            }
        }
    }
}

void Collector::readTrace(const LibraryTrace& trace) {
    constexpr std::string_view kHeadroomTrack = "CPU headroom - ";
    std::unordered_map<int, Queueing> threads;
    trace.read([&](const TraceEvent& event) {
        Queueing& queueing = threads[event.tid];
        switch (event.kind) {
            case TraceEvent::Kind::kAsyncBegin:
                if (startsWith(event.name, kHeadroomTrack)) {
                    queueing = {static_cast<int>(event.value), event.timeNs};
                }
                break;
            case TraceEvent::Kind::kAsyncEnd:
                if (startsWith(event.name, kHeadroomTrack)) {
                    if (queueing.held) addHeld(queueing, event.timeNs);
                    queueing = {};
                }
                break;
            case TraceEvent::Kind::kBegin:
                onBegin(event, queueing);
                break;
            case TraceEvent::Kind::kEnd:
                // Nothing is traced within the sleep, so this is its end.
                if (queueing.pacedSinceNs >= 0) addPaced(queueing, event.timeNs);
                queueing.pacedSinceNs = -1;
                break;
            case TraceEvent::Kind::kCounter:
                break;
        }
    });
}

void Collector::onBegin(const TraceEvent& event, Queueing& queueing) {
    long long headroomNs = 0;
    if (event.name == "onVsync") {
        onVsync(event.timeNs);
    } else if (event.name == "delay finish" || event.name == "additional delay") {
        queueing.held = true;
    } else if (event.name == "unblockBuffer") {
        ++mFindings.unblocked;
    } else if (event.name == "Pending for target fps") {
        queueing.pacedSinceNs = event.timeNs;
    } else if (std::sscanf(std::string(event.name).c_str(),
                           "bufferCount:%*d, curHeadroom: %*d, mHeadroom: %lld",
                           &headroomNs) == 1) {
        addHeadroomInForce(queueing.layerId, sinceStart(event.timeNs), headroomNs);
    } else if (startsWith(event.name, "[GPU JANK DETECTION] skip IOCTL")) {
        ++mFindings.fences.filtered;
    } else if (startsWith(event.name, "[GFR_BOOST] GFR_IOCTL ")) {
        DeviceTrace request{};
        int headroom = 0;
        if (std::sscanf(std::string(event.name).c_str(),
                        "[GFR_BOOST] GFR_IOCTL bl=%d hr=%d bf=%d, [id: %d]", &request.level,
                        &headroom, &request.freqMHz, &request.id) == 4) {
            mDeviceTrace.push_back(request);
        }
    }
}

void Collector::addHeadroomInForce(int layerId, int64_t atNs, int64_t headroomNs) {
    const auto index = layer(layerId);
    if (!index) return;
    auto& changes = mFindings.layers[*index].headroomInForce;
    if (changes.empty() || changes.back().headroomNs != headroomNs) {
        changes.push_back({atNs, headroomNs});
    }
}

void Collector::addHeld(const Queueing& queueing, int64_t releaseNs) {
    const auto index = layer(queueing.layerId);
    if (!index) return;
    auto& held = mFindings.layers[*index].held;
    const int64_t heldNs = releaseNs - queueing.sinceNs;
    held.push_back({sinceStart(queueing.sinceNs), heldNs, std::nullopt});
    addToFrame(*index, queueing.sinceNs, &FrameRecord::heldNs, heldNs);
    const Release release{*index, held.size() - 1, releaseNs};
    // A vsync of the same microsecond may have been written before.
    if (!place(release, mLastVsyncNs)) mReleases.push_back(release);
}

void Collector::addPaced(const Queueing& queueing, int64_t wokenNs) {
    const auto index = layer(queueing.layerId);
    if (!index) return;
    const int64_t pacedNs = wokenNs - queueing.pacedSinceNs;
    mFindings.layers[*index].pacedNs.add(pacedNs);
    addToFrame(*index, queueing.pacedSinceNs, &FrameRecord::pacedNs, pacedNs);
}

void Collector::onVsync(int64_t atNs) {
    mLastVsyncNs = atNs;
    mReleases.erase(std::remove_if(mReleases.begin(), mReleases.end(),
                                   [&](const Release& release) { return place(release, atNs); }),
                    mReleases.end());
}

// Whether the vsync came after the release, which is then told of the held buffer.
bool Collector::place(const Release& release, int64_t vsyncNs) {
    if (vsyncNs < release.atNs) return false;
    auto& held = mFindings.layers[release.layer].held;
    HeldFrame frame = held[release.held];
    frame.beforeVsyncNs = vsyncNs - release.atNs;
    held.set(release.held, frame);
    return true;
}

// How many of the layer's buffers have this time up to `untilNs`. They are in its order, and what
// is looked for mostly goes forward.
size_t Collector::framesUntil(size_t layer, int64_t FrameRecord::*time, int64_t untilNs) {
    const auto& frames = mFindings.layers[layer].frames;
    size_t& next = mNextFrame[layer];
    while (next < frames.size() && frames[next].*time <= untilNs) ++next;
    while (next > 0 && frames[next - 1].*time > untilNs) --next;
    return next;
}

// To the buffer within whose call the library traced something, if there is one.
void Collector::addToFrame(size_t layer, int64_t traceTimeNs, int64_t FrameRecord::*part,
                           int64_t partNs) {
    const int64_t atNs = sinceStart(traceTimeNs);
    const size_t next = framesUntil(layer, &FrameRecord::queueNs, atNs + kTraceGrainNs);
    if (next == 0) return;
    auto& frames = mFindings.layers[layer].frames;
    FrameRecord frame = frames[next - 1];
    if (frame.returnNs < atNs) return;
    frame.*part = partNs;
    frames.set(next - 1, frame);
}

// The device is told the level and frequency alone; the trace, written right before each request,
// adds the layer.
void Collector::readBoosts(const Spool<host::BoostRequest>& requests) {
    size_t traced = 0;
    for (const host::BoostRequest request : requests) {
        int id = 0;
        for (size_t i = traced; i < mDeviceTrace.size(); ++i) {
            const DeviceTrace written = mDeviceTrace[i];
            if (written.level != request.level || written.freqMHz != request.freqMHz) continue;
            id = written.id;
            traced = i + 1;
            break;
        }
        addBoost(id, sinceStart(request.timeNs), request.level, request.freqMHz);
    }
    // Without the device, and above its levels, the service gets them.
    for (const auto& call : mFindings.calls) {
        if (call.entry != "perf_event" || call.number != kFrameRescueEvent || call.args.empty()) {
            continue;
        }
        addBoost(layerOfPackage(call.package), call.timeNs, call.args[0], 0);
    }
}

// The id of the tracked layer of a package; 0 when there is none.
int Collector::layerOfPackage(const std::string& package) const {
    for (size_t i = 0; i < mFindings.layers.size(); ++i) {
        if (mFindings.layers[i].package == package && !package.empty()) {
            return mRecording.layers[i].id;
        }
    }
    return 0;
}

void Collector::addBoost(int id, int64_t atNs, int level, int freqMHz) {
    Boost boost{atNs, level, freqMHz, 0, 0};
    const auto index = layer(id);
    if (!index) {
        mFindings.unclaimedBoosts.push_back(boost);
        return;
    }
    auto& found = mFindings.layers[*index];
    // A release comes from within the next buffer's call, a boost after the late buffer's.
    boost.frame =
            framesUntil(*index, level == 0 ? &FrameRecord::queueNs : &FrameRecord::returnNs, atNs);
    if (boost.frame > 0) boost.sinceQueueNs = atNs - found.frames[boost.frame - 1].queueNs;
    found.boosts.push_back(boost);
}

}  // namespace

HeldSpreads spreadsOf(const Spool<HeldFrame>& frames) {
    model::CountedValues held, beforeVsync;
    for (const HeldFrame frame : frames) {
        held.add(frame.heldNs);
        if (frame.beforeVsyncNs) beforeVsync.add(*frame.beforeVsyncNs);
    }
    return {spreadOf(held), spreadOf(beforeVsync)};
}

Findings findingsOf(const Recording& recording, const PlayResult& played, Evidence evidence) {
    Collector collector(recording, played, std::move(evidence.ofLog));
    collector.readCalls(std::move(evidence.calls));
    if (evidence.trace != nullptr) collector.readTrace(*evidence.trace);
    collector.readBoosts(evidence.boosts);
    collector.readFences(evidence.deadlines);
    SpoolFile::check();  // before a report is begun
    return collector.take();
}

}  // namespace corvane::replay
