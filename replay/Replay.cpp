// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/Replay.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "corvane/host/Simulation.h"
#include "replay/Comparison.h"
#include "replay/Interruption.h"
#include "replay/LibraryHooks.h"
#include "replay/LimitCheck.h"
#include "replay/ModelPlayer.h"
#include "replay/NeverOn.h"
#include "replay/ObservedLibrary.h"
#include "replay/Phone.h"
#include "replay/Player.h"
#include "replay/ReplayOutputs.h"
#include "replay/ScenarioNotes.h"
#include "replay/Stop.h"
#include "replay/Timeline.h"
#include "replay/TouchedApplication.h"

namespace corvane::replay {
namespace {

void showProgress(int64_t doneNs, int64_t totalNs) {
    if (!isatty(STDERR_FILENO)) return;
    std::fprintf(stderr, "\rplaying %.1f s of %.1f s ", static_cast<double>(doneNs) / 1e9,
                 static_cast<double>(totalNs) / 1e9);
}

void endProgress() {
    constexpr int kProgressColumns = 40;  // at most; blanks clear it on a dumb terminal, too
    if (isatty(STDERR_FILENO)) std::fprintf(stderr, "\r%*s\r", kProgressColumns, "");
}

PlayResult play(Playback& player, AppProcess* application, Interruption& interruption) {
    const auto end = [](Interruption* started) { started->end(); };  // thrown out of it, too
    const std::unique_ptr<Interruption, decltype(end)> guard(&interruption, end);
    interruption.setPlayer(&player);
    PlayResult played = player.play(showProgress);
    if (played.stopped && application != nullptr) application->stop();
    endProgress();
    return played;
}

// The default order of what is due at one instant is the same for everyone; a seed draws another.
host::Simulation::Options simulationOptions(const std::optional<uint64_t>& seed) {
    host::Simulation::Options options;
    if (seed) {
        options.policy = host::Simulation::Policy::kRandom;
        options.seed = *seed;
    }
    return options;
}

std::unique_ptr<Playback> makePlayer(const Recording& recording, Hooks& hooks, int repeat,
                                     const Scenario& scenario,
                                     const std::optional<Comparison>& comparison,
                                     std::optional<PolicyRunMaker>& libraryRun) {
    if (!comparison) return std::make_unique<Player>(recording, hooks, repeat);
    return std::make_unique<ModelPlayer>(recording, hooks, repeat, comparison->workload,
                                         comparison->gpuShares, boostedLayer(scenario, recording),
                                         *libraryRun);
}

// What a reader of the report should know.
std::vector<std::string> notesOn(const ReplayInput& input, const Playback& player,
                                 const PlayResult& played, const Findings& findings,
                                 bool isLibraryOn) {
    std::vector<std::string> notes = input.recording.notes;
    const auto add = [&notes](std::vector<std::string> more) {
        std::move(more.begin(), more.end(), std::back_inserter(notes));
    };
    add(scenarioNotes(input.scenario, input.recording, player.passNs() * input.repeat));
    if (isLibraryOn) {
        add(neverOn(input.scenario, input.recording, findings, played.durationNs));
    } else {
        notes.emplace_back("the library is switched off (vendor.perf.corvane.enable)");
    }
    if (isRealTimeRefused()) {
        notes.emplace_back(
                "real-time priority was refused, as to any user but root: times are less exact");
    }
    return notes;
}

// The library's run, told from the model's events, beside those of the policies asked for.
void addRuns(Comparison& comparison, PolicyRun library, const std::vector<std::string>& against) {
    comparison.library = std::move(library);
    for (const std::string& policy : against) addPolicy(comparison, policy);
}

}  // namespace

int replay(const Options& options, const ReplayInput& input) {
    const Scenario& scenario = input.scenario;
    const Recording& recording = input.recording;
    const std::string tooMuch = excess(recording, input.repeat);
    if (!tooMuch.empty()) throw Stop{kUnusable, input.file + " " + tooMuch};
    refuseClashes({input.file, options.scenario},
                  {options.json, options.report, options.trace,
                   ReplayOutputs::isTextApart(options) ? "" : kStandardStream});

    Interruption interruption;
    ReplayOutputs outputs(options);
    std::optional<host::Simulation> simulation;
    if (!options.realtime) simulation.emplace(simulationOptions(options.seed));
    ObservedLibrary library(scenario, recording);
    LibraryHooks hooks;
    std::optional<Comparison> comparison;
    std::optional<PolicyRunMaker> libraryRun;
    if (!options.openLoop) {
        comparison = prepareComparison(recording, input.repeat, scenario, outputs.hasDocuments());
        libraryRun.emplace(*comparison);
    }
    const auto player =
            makePlayer(recording, hooks, input.repeat, scenario, comparison, libraryRun);
    player->addScript("scenario", actionsOf(scenario));
    player->setFences(fencesOf(scenario, recording));
    const auto application = startApplication(input, *player);
    player->setOnStart([&](int64_t startNs) {
        library.begin(startNs, !options.realtime);
        if (application) application->begin(startNs);
    });
    if (application && !options.realtime) player->addScript("application", clockOf(*application));
    library.query();
    PlayResult played = play(*player, application.get(), interruption);
    library.query();
    played.costs.merge(library.costs());

    const Findings findings = findingsOf(recording, played, library.takeEvidence());
    if (comparison) {
        PolicyRun run =
                libraryRun->take("library", static_cast<ModelPlayer&>(*player).modelEndNs());
        run.serviceCalls = findings.calls.size();
        for (const auto& layer : run.figures) played.droppedFrames += layer.dropped;
        addRuns(*comparison, std::move(run), options.against);
    }
    ReportSource source{input.file, options.scenario, scenario.description, input.repeat, recording,
                        played,     findings};
    if (application) source.application = application->result();
    source.terminal = terminalOf(outputs.isTextApart() ? STDERR_FILENO : STDOUT_FILENO);
    source.notes = notesOn(input, *player, played, findings, library.isEnabled());
    source.isRealtime = options.realtime;
    if (comparison) source.comparison = &*comparison;
    source.scenario = &scenario;
    if (options.scenario.empty() && scenario.games.empty()) {
        source.suggestion = gameSuggestion(recording, input.file);
    }
    outputs.write(source, library.trace());
    if (comparison && exceedsLimits(*comparison, findings, options.limits)) return kLimitExceeded;
    return interruption.signal() == 0 ? kPlayed : kSignalled + interruption.signal();
}

}  // namespace corvane::replay
