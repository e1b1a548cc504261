// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "corvane/host/Devices.h"
#include "corvane/host/PerfService.h"
#include "replay/HookCosts.h"
#include "replay/LibraryTrace.h"
#include "replay/Player.h"
#include "replay/Recording.h"
#include "replay/Spool.h"

namespace corvane::replay {

// What the library did in a replay, told from what it gave away itself: its log, its trace, its
// calls into the performance service and its requests to the boost device. Times count from the
// start of the replay.

struct FpsWindow {
    int64_t atNs;
    double fps;
    int mode;  // accepted by then; -1 for none
};

// A mode that was accepted.
struct ModeChange {
    int64_t atNs;
    int mode;
};

enum class FeatureKind : size_t { kHeadroom, kTargetFps, kFrameRescue, kCount };

struct FeatureSwitch {
    int64_t atNs;
    bool on;
    double targetFps = 0.0;      // of kTargetFps switched on
    bool becauseOfJank = false;  // of kHeadroom switched off
};

// One buffer that went through the library.
struct FrameRecord {
    int64_t queueNs;  // the call of its hook, and that call's return
    int64_t returnNs;
    int64_t heldNs = 0;   // for its headroom
    int64_t pacedNs = 0;  // for the target FPS
};

// The headroom that the library took from a time on.
struct HeadroomInForce {
    int64_t atNs;
    int64_t headroomNs;
};

// One buffer that the library held back.
struct HeldFrame {
    int64_t atNs;
    int64_t heldNs;
    std::optional<int64_t> beforeVsyncNs;  // from its release to the next vsync, if one followed
};

// How long buffers were held, and how long before the next vsync they were released.
struct HeldSpreads {
    Spread held;
    Spread beforeVsync;
};
HeldSpreads spreadsOf(const Spool<HeldFrame>& frames);

// One frame-rescue request; level 0 releases an earlier one.
struct Boost {
    int64_t atNs;
    int level;
    int freqMHz;
    size_t frame;          // the buffer that asked for it, counted from 1; 0 for none
    int64_t sinceQueueNs;  // from that buffer's call
};

struct LayerFindings {
    std::optional<int64_t> candidateNs;
    std::optional<int64_t> promotedNs;
    std::string package;  // as the library told it to the service
    std::optional<bool> game;
    std::optional<int> weight;
    Spool<FpsWindow> windows;
    Spool<ModeChange> modes;
    std::array<Spool<FeatureSwitch>, static_cast<size_t>(FeatureKind::kCount)> switches;
    std::optional<int64_t> headroomNs;       // as configured, when last set
    Spool<HeadroomInForce> headroomInForce;  // its changes, as frames met them
    Spool<HeldFrame> held;
    model::CountedValues pacedNs;  // how long target-FPS pacing let the producer sleep
    Spool<Boost> boosts;           // the device's in the order of their times, then the service's
    Spool<FrameRecord> frames;     // all that were played, in order
    size_t longestBusyRun = 0;     // of latches in a row, each of which left a buffer waiting
    // Of the whole run, from the first buffer to the last; none for fewer than two.
    std::optional<double> runFps;

    const Spool<FeatureSwitch>& of(FeatureKind kind) const {
        return switches[static_cast<size_t>(kind)];
    }
};

// GPU fences that were told as unsignalled.
struct FenceFindings {
    size_t told = 0;
    size_t sent = 0;                   // deadlines that reached a sync file
    size_t filtered = 0;               // the frame's GPU work had begun too recently
    std::vector<std::string> origins;  // the library's lines on where fences come from

    // Of another origin, replaced by a later one, or of a layer that is not tracked.
    size_t skipped() const { return told - std::min(told, sent + filtered); }
};

struct Findings {
    bool debugLog = false;              // without the library's debug lines much is not known
    std::string switchLine;             // how the library found its switches, in its words
    std::vector<double> displayHz;      // the rates of the display that the library took
    std::vector<LayerFindings> layers;  // one for each of the recording's
    size_t unblocked = 0;               // held buffers that the compositor's smart touch let go
    std::vector<host::PerfCall> calls;  // with times from the start of the replay
    FenceFindings fences;
    Spool<Boost> unclaimedBoosts;  // whose layer the trace does not tell
    // Warnings and errors that the library logged, with how often.
    std::vector<std::pair<std::string, size_t>> complaints;
};

// The raw material, with times as systemTime gave them.
struct Evidence {
    Findings ofLog;  // what the log tells, with a place for each layer
    std::vector<host::PerfCall> calls;
    Spool<host::BoostRequest> boosts;
    size_t deadlines = 0;                 // sent to sync files
    const LibraryTrace* trace = nullptr;  // none: nothing was traced
};

// Throws Stop when something of it cannot be kept or read.
Findings findingsOf(const Recording& recording, const PlayResult& played, Evidence evidence);

}  // namespace corvane::replay
