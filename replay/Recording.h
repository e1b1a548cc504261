// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "replay/DisplayRate.h"

namespace corvane::replay {

// A process that queues buffers. Recordings do not tell user ids, so each process gets one of its
// own; a layer whose producer cannot be told gets a process of its own.
struct Process {
    pid_t pid;
    uid_t uid;
    std::vector<int64_t> dequeues = {};  // when it got a free buffer, where that is recorded
    std::vector<int64_t> returns = {};   // when its calls to queue one ended, ditto
};

// When the screen was updated with the buffers of a layer that one frame of the compositor took.
struct ShownFrame {
    int64_t latchNs;  // when that frame began
    int64_t shownNs;
};

// Where a layer is on the display, in pixels.
struct Bounds {
    int32_t left;
    int32_t top;
    int32_t right;
    int32_t bottom;
};

struct Layer {
    std::string name;  // as the compositor's counter gives it, without the counter's own prefix
    int32_t id = 0;
    size_t process = 0;    // index into Recording::processes
    int initialDepth = 0;  // buffers queued and not latched when the recording begins
    int finalDepth = 0;    // and when it ends
    size_t frames = 0;     // buffers queued
    // Where a frame timeline tells; in time's order, and counted like the steps' times.
    std::vector<ShownFrame> shown;

    // No trace tells these: a layer fills a usual phone's screen, and has the focus where most
    // frames come from, unless a scenario knows better.
    Bounds bounds{0, 0, 1080, 2400};
    bool visible = true;
    std::optional<bool> focused;
};

// One step of the recorded timeline; times count from the recording's first step.
struct Step {
    enum class Kind { kVsync, kQueue, kLatch };

    int64_t timeNs;
    Kind kind;
    size_t layer;  // index into Recording::layers; unused for a vsync
    int count;     // buffers taken by a latch; 1 for a queue, unused for a vsync
};

// One of the trace's counters that a recording can be made of, and what became of it.
struct SeenCounter {
    std::string name;
    int pid;
    size_t samples;
    std::string use;
};

// What a compositor did while a phone was recorded: its vsyncs, and when each layer's buffers were
// queued and latched.
struct Recording {
    std::vector<Process> processes;
    std::vector<Layer> layers;
    std::vector<Step> steps;         // in time's order; of one time, in the recording's
    std::vector<int64_t> appVsyncs;  // the signals by which applications draw; empty: unrecorded
    int64_t durationNs = 0;
    int64_t vsyncPeriodNs = 0;      // the display's, at the beginning
    std::vector<Rate> rateChanges;  // later ones, in time's order
    std::string rateSource;         // what told them, as a phrase
    size_t vsyncs = 0;
    size_t frames = 0;
    size_t skippedLines = 0;   // damaged, or of a time far from all others
    size_t skippedLayers = 0;  // beyond kMaxLayers, those with the fewest frames

    std::vector<SeenCounter> counters;
    std::vector<std::string> notes;  // what a reader of the report should know, a sentence each

    // More layers than any phone shows at once; each may need a thread.
    static constexpr size_t kMaxLayers = 128;

    // The first layer whose name contains `part`.
    std::optional<size_t> findLayer(std::string_view part) const;
    // Leaves only these of the layers, with their steps and processes, and counts anew.
    void keepLayers(const std::vector<bool>& kept);
    // Of the layer that is said to have the focus, else the process that queues most frames.
    size_t focusedProcess() const;
};

// Without a recording `error` says why, as the end of a sentence that begins with the file's name.
struct RecordingResult {
    std::optional<Recording> recording;
    std::string error;
};

// Reads a recording from a file of any format that TraceReader knows; "-" is the standard input.
// The trace passes through: only what the recording is made of is kept.
RecordingResult readRecording(const std::string& path);

// The same from an ftrace text that is there as a whole.
RecordingResult parseRecording(std::string_view text);

// The package that the library takes this layer for, by its name; empty for none.
std::string packageOf(const Layer& layer);

// A part of a recording.
struct Selection {
    std::optional<int64_t> fromNs;  // from its first step
    std::optional<int64_t> toNs;
    std::string layer;  // only layers whose names contain it; empty: all
};

// Cuts the recording to the part. Returns what the part lacks to be played, as the end of a
// sentence that begins with the file's name, or an empty text.
std::string select(Recording& recording, const Selection& selection);

// What is too much of it to be played so many times, as the end of a sentence that begins with the
// file's name; empty when it can be played.
std::string excess(const Recording& recording, int repeat);

// Takes the rates of a display that is known better than the recording tells.
void overruleRates(Recording& recording, const std::vector<Rate>& rates, const std::string& source);

}  // namespace corvane::replay
