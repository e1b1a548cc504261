// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/Findings.h"

#include <android/log.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <map>
#include <unordered_map>

#include "replay/FtraceParser.h"

namespace corvane::replay {
namespace {

constexpr int kGameRequest = 5633;  // the service's game classification and weight
constexpr int kIsGame = 2;          // its answer for a game
constexpr int kFrameRescueEvent = 4186;
// Only a debug line to the library, but what a scenario's author has to know.
constexpr std::string_view kHeadroomSwitchedOff = "set PhrMinRate fail, Quick Touch disable!";

bool startsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

// The text behind the last `mark`. Layer names, which may hold anything, stand before it.
const char* behindLast(const std::string& text, std::string_view mark) {
    const size_t at = text.rfind(mark);
    return at == std::string::npos ? nullptr : text.c_str() + at + mark.size();
}

class Collector {
  public:
    Collector(const Recording& recording, const PlayResult& played)
          : mRecording(recording), mPlayed(played) {
        mFindings.layers.resize(recording.layers.size());
        for (size_t i = 0; i < recording.layers.size(); ++i) mById[recording.layers[i].id] = i;
        for (const auto& frame : played.frames) {
            mFindings.layers[frame.layer].frames.push_back({frame.callNs, frame.returnNs});
        }
        std::vector<size_t> busyRuns(recording.layers.size());
        for (const auto& latch : played.latches) {
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

    void readLog(const std::vector<host::LogLine>& log);
    void readCalls(const std::vector<host::PerfCall>& calls);
    void readTrace(const LibraryTrace& trace);
    void readBoosts(const std::vector<host::BoostRequest>& requests);
    void readFences(const std::vector<host::FenceDeadline>& deadlines) {
        mFindings.fences.told = mPlayed.fences;
        mFindings.fences.sent = deadlines.size();
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

    LayerFindings* layer(int id) {
        const auto entry = mById.find(id);
        return entry == mById.end() ? nullptr : &mFindings.layers[entry->second];
    }
    // The library's trace has microseconds; this much earlier than it was a time may be written.
    static constexpr int64_t kTraceGrainNs = 1'000;
    static constexpr double kNsPerSecond = 1e9;

    int64_t sinceStart(int64_t timeNs) const { return timeNs - mPlayed.startNs; }

    void readStartLine(const std::string& text);
    FrameRecord* frameAt(int layerId, int64_t traceTimeNs);
    void readRegistryLine(const std::string& text, int64_t atNs);
    void readFeatureLine(const std::string& text, int64_t atNs);
    void addSwitch(int id, FeatureKind kind, FeatureSwitch change);
    void onBegin(const TraceEvent& event, Queueing& queueing);
    void addHeadroomInForce(int layerId, int64_t atNs, int64_t headroomNs);
    void addHeld(const Queueing& queueing, int64_t releaseNs);
    void placeReleases();
    int layerOfPackage(const std::string& package) const;
    void addBoost(int id, int64_t atNs, int level, int freqMHz);

    const Recording& mRecording;
    const PlayResult& mPlayed;
    std::unordered_map<int, size_t> mById;
    int mHeadroomOffId = 0;  // the layer whose headroom control was switched off last
    std::vector<int64_t> mVsyncs;
    struct DeviceTrace {
        int level, freqMHz, id;
    };
    std::vector<DeviceTrace> mDeviceTrace;
    Findings mFindings;
};

void Collector::readLog(const std::vector<host::LogLine>& log) {
    std::map<std::string, size_t> index;
    for (const auto& line : log) {
        const int64_t atNs = sinceStart(line.timeNs);
        if (line.priority >= ANDROID_LOG_WARN || line.text == kHeadroomSwitchedOff) {
            const auto [entry, isNew] = index.emplace(line.text, mFindings.complaints.size());
            if (isNew) mFindings.complaints.emplace_back(line.text, 0);
            ++mFindings.complaints[entry->second].second;
        }
        if (startsWith(line.text, "[GPU JANK DETECTION] fence origin: ")) {
            mFindings.fences.origins.push_back(line.text);
        }
        mFindings.debugLog |= line.priority == ANDROID_LOG_DEBUG;
        readStartLine(line.text);
        readRegistryLine(line.text, atNs);
        readFeatureLine(line.text, atNs);
    }
}

void Collector::readStartLine(const std::string& text) {
    long long periodNs = 0;
    if (startsWith(text, "[TFPS:")) {
        mFindings.switchLine = text;
    } else if (std::sscanf(text.c_str(), "vsync: %lld", &periodNs) == 1 && periodNs > 0) {
        mFindings.displayHz.push_back(kNsPerSecond / static_cast<double>(periodNs));
    }
}

void Collector::readRegistryLine(const std::string& text, int64_t atNs) {
    int id = 0;
    int mode = 0;
    double fps = 0.0;
    if (std::sscanf(text.c_str(), "Add new candidate layer: %d [", &id) == 1) {
        auto* found = layer(id);
        if (found != nullptr && !found->candidateNs) found->candidateNs = atNs;
    } else if (startsWith(text, "Add new layer to full tracking: [")) {
        const char* rest = behindLast(text, "] layer ");
        auto* found = rest != nullptr && std::sscanf(rest, "%d", &id) == 1 ? layer(id) : nullptr;
        if (found != nullptr && !found->promotedNs) found->promotedNs = atNs;
    } else if (std::sscanf(text.c_str(), "Stable FPS shift detected for layer %d: %lf (mode -> %d)",
                           &id, &fps, &mode) == 3) {
        if (auto* found = layer(id)) found->modes.emplace_back(atNs, mode);
    } else if (std::sscanf(text.c_str(), "FPS:%lf[", &fps) == 1) {
        const char* rest = behindLast(text, "] layer ");
        if (rest == nullptr || std::sscanf(rest, "%d, (%*d, %*d) mode:%d", &id, &mode) != 2) return;
        if (auto* found = layer(id)) found->windows.push_back({atNs, fps, mode});
    }
}

void Collector::readFeatureLine(const std::string& text, int64_t atNs) {
    int id = 0;
    double fps = 0.0;
    char word[32] = {};
    char rest = 0;
    long long headroomNs = 0;
    if (std::sscanf(text.c_str(), "Layer %d set headroom: %lld", &id, &headroomNs) == 2) {
        if (auto* found = layer(id)) found->headroomNs = headroomNs;
    } else if (std::sscanf(text.c_str(), "Layer %d: enable target fps: %lf", &id, &fps) == 2) {
        addSwitch(id, FeatureKind::kTargetFps, {atNs, true, fps});
    } else if (std::sscanf(text.c_str(), "Layer %d: %31[a-z] target fp%c", &id, word, &rest) == 3) {
        addSwitch(id, FeatureKind::kTargetFps, {atNs, false});
    } else if (std::sscanf(text.c_str(), "Layer %d: %31[a-z] PH%c", &id, word, &rest) == 3) {
        addSwitch(id, FeatureKind::kHeadroom, {atNs, std::string_view(word) == "enable"});
    } else if (text == "Disable QuickTouch due to jank") {
        // Says no layer, but follows the switch that it explains.
        auto* found = layer(mHeadroomOffId);
        if (found == nullptr) return;
        found->switches[static_cast<size_t>(FeatureKind::kHeadroom)].back().becauseOfJank = true;
    } else if (std::sscanf(text.c_str(), "Layer %d %31[a-z] GF%c", &id, word, &rest) == 3) {
        addSwitch(id, FeatureKind::kFrameRescue, {atNs, std::string_view(word) == "enable"});
    }
}

// The library confirms switches that change nothing as well; only changes are told.
void Collector::addSwitch(int id, FeatureKind kind, FeatureSwitch change) {
    auto* found = layer(id);
    if (found == nullptr) return;
    auto& switches = found->switches[static_cast<size_t>(kind)];
    const bool wasOn = !switches.empty() && switches.back().on;
    const double wasTarget = switches.empty() ? 0.0 : switches.back().targetFps;
    if (change.on == wasOn && change.targetFps == wasTarget) return;
    switches.push_back(change);
    if (kind == FeatureKind::kHeadroom && !change.on) mHeadroomOffId = id;
}

void Collector::readCalls(const std::vector<host::PerfCall>& calls) {
    mFindings.calls = calls;
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
                if (queueing.pacedSinceNs < 0) break;
                if (auto* found = layer(queueing.layerId)) {
                    found->pacedNs.push_back(event.timeNs - queueing.pacedSinceNs);
                    if (auto* frame = frameAt(queueing.layerId, queueing.pacedSinceNs)) {
                        frame->pacedNs = found->pacedNs.back();
                    }
                }
                queueing.pacedSinceNs = -1;
                break;
            case TraceEvent::Kind::kCounter:
                break;
        }
    });
    placeReleases();
}

void Collector::onBegin(const TraceEvent& event, Queueing& queueing) {
    long long headroomNs = 0;
    if (event.name == "onVsync") {
        mVsyncs.push_back(event.timeNs);
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
    auto* found = layer(layerId);
    if (found == nullptr) return;
    auto& changes = found->headroomInForce;
    if (changes.empty() || changes.back().headroomNs != headroomNs) {
        changes.push_back({atNs, headroomNs});
    }
}

void Collector::addHeld(const Queueing& queueing, int64_t releaseNs) {
    auto* found = layer(queueing.layerId);
    if (found == nullptr) return;
    found->held.push_back(
            {sinceStart(queueing.sinceNs), releaseNs - queueing.sinceNs, std::nullopt});
    if (auto* frame = frameAt(queueing.layerId, queueing.sinceNs)) {
        frame->heldNs = found->held.back().heldNs;
    }
}

// The buffer within whose call the library traced something; null for none.
FrameRecord* Collector::frameAt(int layerId, int64_t traceTimeNs) {
    auto* found = layer(layerId);
    if (found == nullptr) return nullptr;
    const int64_t latestNs = sinceStart(traceTimeNs) + kTraceGrainNs;
    auto& frames = found->frames;
    const auto next = std::partition_point(frames.begin(), frames.end(), [&](const auto& frame) {
        return frame.queueNs <= latestNs;
    });
    if (next == frames.begin() || std::prev(next)->returnNs < sinceStart(traceTimeNs))
        return nullptr;
    return &*std::prev(next);
}

void Collector::placeReleases() {
    for (auto& found : mFindings.layers) {
        for (auto& frame : found.held) {
            const int64_t releaseNs = mPlayed.startNs + frame.atNs + frame.heldNs;
            const auto next = std::lower_bound(mVsyncs.begin(), mVsyncs.end(), releaseNs);
            if (next != mVsyncs.end()) frame.beforeVsyncNs = *next - releaseNs;
        }
    }
}

// The device is told the level and frequency alone; the trace, written right before each request,
// adds the layer.
void Collector::readBoosts(const std::vector<host::BoostRequest>& requests) {
    auto traced = mDeviceTrace.begin();
    for (const auto& request : requests) {
        const auto match = std::find_if(traced, mDeviceTrace.end(), [&](const DeviceTrace& t) {
            return t.level == request.level && t.freqMHz == request.freqMHz;
        });
        int id = 0;
        if (match != mDeviceTrace.end()) {
            id = match->id;
            traced = std::next(match);
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
    const auto entry = mById.find(id);
    if (entry == mById.end()) {
        mFindings.unclaimedBoosts.push_back(boost);
        return;
    }
    // A release comes from within the next buffer's call, a boost after the late buffer's.
    const auto& frames = mFindings.layers[entry->second].frames;
    const auto next = std::partition_point(frames.begin(), frames.end(), [&](const auto& frame) {
        return (level == 0 ? frame.queueNs : frame.returnNs) <= atNs;
    });
    if (next != frames.begin()) {
        boost.frame = static_cast<size_t>(next - frames.begin());
        boost.sinceQueueNs = atNs - std::prev(next)->queueNs;
    }
    mFindings.layers[entry->second].boosts.push_back(boost);
}

}  // namespace

Findings findingsOf(const Recording& recording, const PlayResult& played,
                    const Evidence& evidence) {
    Collector collector(recording, played);
    collector.readLog(evidence.log);
    collector.readCalls(evidence.calls);
    if (evidence.trace != nullptr) collector.readTrace(*evidence.trace);
    collector.readBoosts(evidence.boosts);
    collector.readFences(evidence.deadlines);
    return collector.take();
}

}  // namespace corvane::replay
