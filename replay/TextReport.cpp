// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <map>
#include <utility>
#include <vector>

#include "replay/Report.h"
#include "replay/TextTable.h"

namespace corvane::replay {
namespace {

constexpr double kNsPerSecond = 1e9;

constexpr const char* kIndent = "  ";

// Lists are cut to what fits a screen; the JSON report has them whole.
constexpr size_t kMaxEvents = 6;
constexpr size_t kMaxSwitches = 6;
constexpr size_t kMaxComplaints = 4;
constexpr size_t kMaxFrames = 2;
constexpr size_t kDetailColumn = 45;   // where the details of service calls begin
constexpr size_t kMaxSceneText = 260;  // the library sends at most 256 characters

constexpr int kSceneEvent = 4194;
constexpr int kModeEvent = 4196;

// Stands out on a terminal; no blank lines, so that a report fits its screen.
std::string heading(const ReportSource& source, const std::string& text) {
    return source.terminal.styled ? "\x1b[1m" + text + "\x1b[0m\n" : text + "\n";
}

std::string notesPart(const ReportSource& source) {
    std::string text;
    for (const auto& note : source.notes) text += wrapped(note, "  Note: ", source.terminal.width);
    return text;
}

// What to type next stays one line, so that it can be copied.
std::string suggestionPart(const ReportSource& source) {
    if (source.suggestion.empty()) return "";
    return heading(source, "To switch features on for a package of this recording") + "  " +
           shown(source.suggestion) + "\n";
}

// What told the display's rate, and when it changed.
std::string rateText(const Recording& recording) {
    std::string text = "the rate is told by " + recording.rateSource;
    const auto& changes = recording.rateChanges;
    for (size_t i = 0; i < std::min(changes.size(), kMaxSwitches); ++i) {
        const double hz = kNsPerSecond / static_cast<double>(changes[i].periodNs);
        text += format(i == 0 ? "; %.1f Hz from " : ", %.1f Hz from ", hz) +
                seconds(changes[i].atNs);
    }
    return text + (changes.size() > kMaxSwitches ? ", ..." : "");
}

std::string recordingPart(const ReportSource& source) {
    const Recording& recording = source.recording;
    const PlayResult& played = source.played;
    const double hz = kNsPerSecond / static_cast<double>(recording.vsyncPeriodNs);
    const auto fileName = [&](const std::string& path) {
        return shown(std::filesystem::path(path).filename().string(), source.terminal.width - 11);
    };
    const auto line = [&](const std::string& sentence) {
        return wrapped(sentence, kIndent, source.terminal.width);
    };
    std::string text = heading(source, "Recording  " + fileName(source.recordingFile));
    text += line(seconds(recording.durationNs) + ", vsync period " +
                 millis(recording.vsyncPeriodNs) + format(" (%.1f Hz), ", hz) +
                 plural(recording.layers.size(), "layer") + ", " +
                 plural(recording.frames, "frame") + ", " + plural(recording.skippedLines, "line") +
                 " skipped");
    text += line(rateText(recording));
    if (recording.skippedLayers > 0) {
        text += line(plural(recording.skippedLayers, "layer") + " with the fewest frames left out");
    }
    const std::string times = source.repeat == 1 ? "once" : format("%d times", source.repeat);
    std::string howPlayed = "played " + (played.stopped ? "until stopped" : times) + " in " +
                            seconds(played.durationNs);
    if (source.isRealtime) {
        howPlayed += "; vsyncs late by " + cost(played.lateness.p50) + " p50, " +
                     cost(played.lateness.p99) + " p99, " + cost(played.lateness.max) + " max";
    } else {
        howPlayed += source.comparison != nullptr ? " of simulated time, on the device model"
                                                  : " of simulated time, at the recorded times";
    }
    text += line(howPlayed);
    if (source.comparison == nullptr && (played.droppedFrames > 0 || played.missedLatches > 0)) {
        text += line(plural(played.droppedFrames, "frame") +
                     " not drawn while their producer was held; " +
                     plural(played.missedLatches, "buffer") + " not there at the recorded latch");
    }
    if (!source.scenarioFile.empty()) {
        text += heading(source, "Scenario   " + fileName(source.scenarioFile));
        if (!source.scenarioDescription.empty()) {
            text += "  " + shown(source.scenarioDescription, source.terminal.width - 2) + "\n";
        }
    }
    return text + notesPart(source);
}

std::string layersPart(const ReportSource& source) {
    // Where the terminal is narrow, names give way to packages.
    constexpr size_t kOtherColumns = 62;
    const size_t packageWidth = std::min<size_t>(28, source.terminal.width - kOtherColumns);
    TextTable table("rllrrrrrrl");
    table.add({"id", "package", "game", "frames", "candidate", "promoted", "FPS", "all", "mode",
               "name"});
    for (size_t i = 0; i < source.recording.layers.size(); ++i) {
        const Layer& layer = source.recording.layers[i];
        const LayerFindings& found = source.findings.layers[i];
        std::string fps = "-";
        std::string mode = "-";
        if (!found.windows.empty()) {
            fps = format("%.1f", found.windows.back().fps);
            if (found.windows.back().mode >= 0) mode = std::to_string(found.windows.back().mode);
        }
        table.add({std::to_string(layer.id),
                   found.package.empty() ? "-" : shown(found.package, packageWidth),
                   !found.game   ? "-"
                   : *found.game ? "yes"
                                 : "no",
                   std::to_string(layer.frames),
                   found.candidateNs ? seconds(*found.candidateNs) : "never",
                   found.promotedNs ? seconds(*found.promotedNs) : "never", fps,
                   found.runFps ? format("%.1f", *found.runFps) : "-", mode, layer.name});
    }
    std::string text = heading(source, "Layers") + table.text(source.terminal.width);
    for (size_t i = 0; i < source.recording.layers.size(); ++i) {
        const LayerFindings& found = source.findings.layers[i];
        if (found.modes.empty()) continue;
        std::string modes = format("layer %d:", source.recording.layers[i].id);
        for (size_t m = 0; m < std::min(found.modes.size(), kMaxSwitches); ++m) {
            modes += format("%s mode %d at ", m == 0 ? "" : ",", found.modes[m].mode) +
                     seconds(found.modes[m].atNs);
        }
        if (found.modes.size() > kMaxSwitches) modes += ", ...";
        text += wrapped(modes, kIndent, source.terminal.width);
    }
    return text;
}

std::string switchesText(const Spool<FeatureSwitch>& switches) {
    std::string text;
    for (size_t i = 0; i < switches.size(); ++i) {
        if (i == kMaxSwitches) return text + format(", ... (%zu changes)", switches.size());
        if (i > 0) text += ", ";
        const FeatureSwitch change = switches[i];
        text += (change.on ? "on " : "off ") + seconds(change.atNs);
        if (change.targetFps > 0.0) text += format(" (%.0f fps)", change.targetFps);
        if (change.becauseOfJank) text += " (jank)";
    }
    return text;
}

std::string spreadText(const Spread& spread) {
    return millis(spread.p50) + " p50, " + millis(spread.p99) + " p99, " + millis(spread.max) +
           " max";
}

void addHeadroom(TextTable& table, const LayerFindings& found, size_t unblocked) {
    const std::string set = found.headroomNs ? "set to " + millis(*found.headroomNs) + "; " : "";
    table.add({"headroom", set + switchesText(found.of(FeatureKind::kHeadroom))});
    if (found.held.empty()) return;
    const auto [held, before] = spreadsOf(found.held);
    table.add({"", plural(held.count, "frame") + " held back for " + spreadText(held)});
    table.add({"", "released before the next vsync by " + spreadText(before)});
    if (unblocked > 0) table.add({"", plural(unblocked, "buffer") + " let go early by touch"});
}

void addTargetFps(TextTable& table, const LayerFindings& found) {
    table.add({"target FPS", switchesText(found.of(FeatureKind::kTargetFps))});
    if (found.pacedNs.count() == 0) return;
    const Spread paced = spreadOf(found.pacedNs);
    table.add({"", plural(paced.count, "frame") + " paced, asleep for " + spreadText(paced)});
}

// What the boosts of one level come to.
struct LevelBoosts {
    Boost first;
    int lowestMHz;
    int highestMHz;
    size_t count = 0;
    model::CountedValues delaysNs = {};  // of those whose frame is known

    explicit LevelBoosts(const Boost& boost)
          : first(boost), lowestMHz(boost.freqMHz), highestMHz(boost.freqMHz) {}
    void add(const Boost& boost) {
        lowestMHz = std::min(lowestMHz, boost.freqMHz);
        highestMHz = std::max(highestMHz, boost.freqMHz);
        ++count;
        if (boost.frame > 0) delaysNs.add(boost.sinceQueueNs);
    }
};

std::string boostsOfLevel(int level, const LevelBoosts& boosts) {
    std::string text = format("level %d: %zux", level, boosts.count);
    // The service is not told a frequency.
    if (boosts.highestMHz > 0) {
        text += format(boosts.lowestMHz == boosts.highestMHz ? " %d" : " %d-%d", boosts.lowestMHz,
                       boosts.highestMHz) +
                " MHz";
    }
    if (boosts.delaysNs.count() == 0) return text;
    return text + ", " + millis(boosts.delaysNs.percentile(50)) + " p50 after queueing" +
           format(", first frame %zu at ", boosts.first.frame) + seconds(boosts.first.atNs);
}

// The boosts that a frame asked for, in their order; frame by frame, from the first on. Those of
// the service are behind all of the device's, and both may be of one frame.
template <typename Use>
void forEachFrame(const Spool<Boost>& boosts, Use use) {
    struct Run {
        size_t next, end;
    };
    size_t ofDevice = 0;
    for (int64_t atNs = INT64_MIN; ofDevice < boosts.size(); ++ofDevice) {
        const int64_t nextNs = boosts[ofDevice].atNs;
        if (nextNs < std::exchange(atNs, nextNs)) break;
    }
    Run runs[] = {{0, ofDevice}, {ofDevice, boosts.size()}};
    const auto isStage = [](const Boost& boost) { return boost.level != 0 && boost.frame != 0; };
    for (;;) {
        size_t frame = SIZE_MAX;
        for (Run& run : runs) {
            while (run.next < run.end && !isStage(boosts[run.next])) ++run.next;
            if (run.next < run.end) frame = std::min(frame, boosts[run.next].frame);
        }
        if (frame == SIZE_MAX) return;
        std::vector<Boost> stages;
        for (Run& run : runs) {
            for (; run.next < run.end; ++run.next) {
                const Boost boost = boosts[run.next];
                if (!isStage(boost)) continue;
                if (boost.frame != frame) break;
                stages.push_back(boost);
            }
        }
        use(frame, stages);
    }
}

// The frames whose rescue went furthest, with the frequency of each stage.
std::string furthestFrames(const Spool<Boost>& boosts) {
    std::string text;
    size_t furthest = 0;
    size_t count = 0;
    forEachFrame(boosts, [&](size_t frame, const std::vector<Boost>& stages) {
        if (stages.size() < furthest) return;
        if (stages.size() > furthest) {
            furthest = stages.size();
            count = 0;
            text.clear();
        }
        if (++count > kMaxFrames) return;
        text += (count == 1 ? "furthest: " : "; ") + format("frame %zu: ", frame);
        for (size_t i = 0; i < stages.size(); ++i) {
            text += (i == 0 ? "" : ", ") + std::to_string(stages[i].freqMHz);
        }
        text += " MHz";
    });
    if (count > kMaxFrames) text += format("; %zu more", count - kMaxFrames);
    return text;
}

void addBoosts(TextTable& table, const Spool<Boost>& boosts) {
    std::map<int, LevelBoosts> levels;
    size_t releases = 0;
    for (const Boost boost : boosts) {
        if (boost.level == 0) {
            ++releases;
        } else {
            levels.try_emplace(boost.level, boost).first->second.add(boost);
        }
    }
    for (const auto& [level, ofLevel] : levels) {
        table.add({"", boostsOfLevel(level, ofLevel)});
    }
    const std::string furthest = furthestFrames(boosts);
    if (!furthest.empty()) table.add({"", furthest});
    if (!boosts.empty()) table.add({"", plural(releases, "release")});
}

std::string featuresPart(const ReportSource& source) {
    std::string text;
    for (size_t i = 0; i < source.recording.layers.size(); ++i) {
        const LayerFindings& found = source.findings.layers[i];
        TextTable table("ll");
        if (!found.of(FeatureKind::kHeadroom).empty())
            addHeadroom(table, found, source.findings.unblocked);
        if (!found.of(FeatureKind::kTargetFps).empty()) addTargetFps(table, found);
        if (!found.of(FeatureKind::kFrameRescue).empty() || !found.boosts.empty()) {
            table.add({"frame rescue", switchesText(found.of(FeatureKind::kFrameRescue))});
            addBoosts(table, found.boosts);
        }
        const std::string rows = table.text(source.terminal.width);
        if (rows.empty()) continue;
        text += heading(source, format("Features of layer %d, ", source.recording.layers[i].id) +
                                        shown(found.package, source.terminal.width / 2)) +
                rows;
    }
    if (!source.findings.unclaimedBoosts.empty()) {
        TextTable table("ll");
        addBoosts(table, source.findings.unclaimedBoosts);
        text += heading(source, "Frame rescue of no known layer") +
                table.text(source.terminal.width);
    }
    return text;
}

std::string fencesPart(const ReportSource& source) {
    const FenceFindings& fences = source.findings.fences;
    if (fences.told == 0) return "";
    std::string text = heading(source, "GPU fences");
    text += wrapped(format("%zu unsignalled at latch: %s sent, %zu filtered (GPU work too recent), "
                           "%zu skipped",
                           fences.told, plural(fences.sent, "deadline").c_str(), fences.filtered,
                           fences.skipped()),
                    kIndent, source.terminal.width);
    for (size_t i = 0; i < std::min(fences.origins.size(), kMaxEvents); ++i) {
        text += "  " + shown(fences.origins[i], source.terminal.width - 2) + "\n";
    }
    return text;
}

std::string scenesPart(const ReportSource& source) {
    std::vector<const host::PerfCall*> reports;
    for (const auto& call : source.findings.calls) {
        if (call.entry == "perf_event" && call.number == kSceneEvent) reports.push_back(&call);
    }
    if (reports.empty()) return "";
    // Whole, and longer than a narrow terminal's line: one copies them.
    std::string text = heading(source, "Scene reports");
    for (size_t i = 0; i < std::min(reports.size(), kMaxEvents); ++i) {
        std::string json = reports[i]->package;
        json.erase(json.find_last_not_of('\n') + 1);
        text += "  " + seconds(reports[i]->timeNs) + "  " + shown(json, kMaxSceneText) + "\n";
    }
    if (reports.size() > kMaxEvents)
        text += format("  and %zu more\n", reports.size() - kMaxEvents);
    return text;
}

std::string applicationPart(const ReportSource& source) {
    if (!source.application) return "";
    const AppResult& app = *source.application;
    std::string text = heading(source, "Touched application, in a process of its own");
    if (!app.error.empty())
        return text + "  failed: " + shown(app.error, source.terminal.width - 10) + "\n";
    std::string frames =
            plural(app.frames, "frame") + format(", %zu made instant", app.instantNs.size());
    for (size_t i = 0; i < std::min(app.instantNs.size(), kMaxEvents); ++i) {
        frames += (i == 0 ? " at " : ", ") + seconds(app.instantNs[i]);
    }
    if (app.instantNs.size() > kMaxEvents) frames += ", ...";
    const std::string input = format("%s requested; moves: %zu consumed at once, %zu held",
                                     plural(app.powerBoosts.size(), "power boost").c_str(),
                                     app.inputConsumed, app.inputHeld);
    return text + wrapped(frames, kIndent, source.terminal.width) +
           wrapped(input, kIndent, source.terminal.width);
}

const char* meaningOf(const host::PerfCall& call) {
    static const std::map<std::pair<std::string, int>, const char*> kMeanings = {
            {{"perf_event", 4099}, "application resumes"},
            {{"perf_event", 4186}, "frame rescue"},
            {{"perf_event", kSceneEvent}, "scene report"},
            {{"perf_event", kModeEvent}, "mode"},
            {{"perf_get_feedback", 5633}, "is it a game"},
            {{"perf_get_feedback_extn", 5633}, "game weight"},
            {{"perf_hint", 5633}, "game weight"},
    };
    const auto entry = kMeanings.find({call.entry, call.number});
    if (entry != kMeanings.end()) return entry->second;
    if (call.entry == "perf_lock_acq") return "low latency on";
    if (call.entry == "perf_lock_rel") return "low latency off";
    return "";
}

// `previous`, if any, is the call that the report tells of right before.
std::string detailOf(const host::PerfCall& call, const host::PerfCall* previous) {
    constexpr size_t kPackageWidth = 60;
    const std::string package = shown(call.package, kPackageWidth);
    if (call.entry == "perf_event" && call.number == kModeEvent && call.args.size() == 2) {
        const bool known = previous != nullptr && previous->package == call.package;
        return format("mode %d ", call.args[1]) + (known ? "" : "for " + package + " ") + "at " +
               seconds(call.timeNs);
    }
    if (call.entry == "perf_event" && call.number != kSceneEvent) {
        return package + " at " + seconds(call.timeNs);
    }
    if (call.entry == "perf_lock_acq" && !call.args.empty()) {
        return format("process %d at ", call.args.back()) + seconds(call.timeNs);
    }
    if (call.package.empty() || call.entry == "perf_event") return "at " + seconds(call.timeNs);
    return package + format(": %d", call.result);
}

// What an engineer looks for: events, questions about applications and locks. The reading of
// properties and the registration are in the JSON report.
bool isOfInterest(const host::PerfCall& call) {
    return call.entry != "perf_get_prop" && call.entry != "get_perf_hal_ver" &&
           call.entry != "perf_callback_register";
}

std::string servicePart(const ReportSource& source) {
    std::map<std::pair<std::string, int>, std::vector<const host::PerfCall*>> groups;
    for (const auto& call : source.findings.calls) {
        if (!isOfInterest(call)) continue;
        // A lock's number is its handle, which says nothing.
        const bool lock = call.entry == "perf_lock_acq" || call.entry == "perf_lock_rel";
        groups[{call.entry, lock ? 0 : call.number}].push_back(&call);
    }
    TextTable table("lrlrl");
    for (const auto& [key, calls] : groups) {
        const std::string number = key.second == 0 ? "" : std::to_string(key.second);
        std::string detail = detailOf(*calls.front(), nullptr);
        for (size_t i = 1; i < calls.size(); ++i) {
            const std::string next = detailOf(*calls[i], calls[i - 1]);
            if (i == kMaxEvents ||
                columnsOf(detail) + columnsOf(next) > source.terminal.width - kDetailColumn) {
                detail += ", ...";
                break;
            }
            detail += ", " + next;
        }
        table.add({key.first, number, meaningOf(*calls.front()), std::to_string(calls.size()) + "x",
                   detail});
    }
    const std::string rows = table.text(source.terminal.width);
    return heading(source, "Calls that reached the performance service") +
           (rows.empty() ? "  none\n" : rows);
}

// Simulated time costs nothing: only the calls are worth telling.
std::string hookCallsPart(const ReportSource& source) {
    std::string calls;
    const auto add = [&calls](const std::string& name, size_t count) {
        if (count > 0) calls += (calls.empty() ? "" : ", ") + name + format(" %zux", count);
    };
    for (size_t i = 0; i < static_cast<size_t>(Hook::kCount); ++i) {
        const auto hook = static_cast<Hook>(i);
        add(hookName(hook), source.played.costs.spread(hook).count);
    }
    if (source.application) {
        for (const auto& [name, spread] : source.application->hooks) add(name, spread.count);
    }
    return heading(source, "Hooks called") + wrapped(calls, kIndent, source.terminal.width);
}

std::string hooksPart(const ReportSource& source) {
    if (!source.isRealtime) return hookCallsPart(source);
    TextTable table("lrrrr");
    table.add({"", "calls", "cost p50", "p99", "max"});
    for (size_t i = 0; i < static_cast<size_t>(Hook::kCount); ++i) {
        const auto hook = static_cast<Hook>(i);
        const Spread spread = source.played.costs.spread(hook);
        if (spread.count == 0) continue;
        table.add({hookName(hook), std::to_string(spread.count), cost(spread.p50), cost(spread.p99),
                   cost(spread.max)});
    }
    if (source.application) {
        for (const auto& [name, spread] : source.application->hooks) {
            table.add({name, std::to_string(spread.count), cost(spread.p50), cost(spread.p99),
                       cost(spread.max)});
        }
    }
    return heading(source, "Hooks (with debug log and trace on; time held back counts)") +
           table.text(source.terminal.width);
}

std::string complaintsPart(const ReportSource& source) {
    const auto& complaints = source.findings.complaints;
    if (complaints.empty()) return "";
    std::string text = heading(source, "Warnings and errors of the library");
    for (size_t i = 0; i < std::min(complaints.size(), kMaxComplaints); ++i) {
        const auto& [line, count] = complaints[i];
        text += format("  %zux  ", count) + shown(line, source.terminal.width - 10) + "\n";
    }
    if (complaints.size() > kMaxComplaints) {
        text += format("  and %zu more\n", complaints.size() - kMaxComplaints);
    }
    return text;
}

}  // namespace

std::string textReport(const ReportSource& source) {
    return recordingPart(source) + layersPart(source) + featuresPart(source) + fencesPart(source) +
           scenesPart(source) + applicationPart(source) + servicePart(source) + hooksPart(source) +
           complaintsPart(source) +
           (source.comparison != nullptr ? comparisonText(*source.comparison, source.terminal)
                                         : "") +
           suggestionPart(source);
}

}  // namespace corvane::replay
