// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <android-base/properties.h>
#include <corvane/hooks.h>
#include <cutils/trace.h>
#include <fcntl.h>
#include <unistd.h>
#include <utils/Timers.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <variant>
#include <vector>

#include "corvane/host/Devices.h"
#include "corvane/host/LogCapture.h"
#include "corvane/host/PerfService.h"
#include "corvane/host/Simulation.h"
#include "corvane/host/TraceCapture.h"
#include "replay/AppProcess.h"
#include "replay/Application.h"
#include "replay/Comparison.h"
#include "replay/Figure.h"
#include "replay/Findings.h"
#include "replay/HtmlReport.h"
#include "replay/InputFile.h"
#include "replay/Interruption.h"
#include "replay/LibraryHooks.h"
#include "replay/ListReport.h"
#include "replay/ModelPlayer.h"
#include "replay/NeverOn.h"
#include "replay/Options.h"
#include "replay/OutputFile.h"
#include "replay/Phone.h"
#include "replay/Player.h"
#include "replay/Recording.h"
#include "replay/ReplayTrace.h"
#include "replay/Report.h"
#include "replay/Scenario.h"
#include "replay/ScenarioNotes.h"
#include "replay/Stop.h"
#include "replay/Terminal.h"
#include "replay/TextTable.h"
#include "replay/Timeline.h"
#include "replay/TraceFileWriter.h"

namespace corvane::replay {
namespace {

std::string readFile(const std::string& path) {
    const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "rbe"), std::fclose);
    std::string text;
    char buffer[65536];
    while (file && !std::feof(file.get()) && !std::ferror(file.get())) {
        text.append(buffer, std::fread(buffer, 1, sizeof(buffer), file.get()));
    }
    if (file && !std::ferror(file.get())) return text;
    throw Stop{kUnusable, "cannot read " + path + ": " + std::strerror(errno)};
}

// The library's trace while it plays, which the findings are drawn from: a file without a name,
// which goes away with the process however that ends.
class TraceFile {
  public:
    TraceFile() : mFolder(std::filesystem::temp_directory_path()) {
        std::string name = mFolder / "corvane-replay-XXXXXX";
        mFd = mkostemp(name.data(), O_CLOEXEC);
        if (mFd < 0) throw Stop{kFailed, failure(errno)};
        unlink(name.c_str());
        if (!host::startTrace(path(), ATRACE_TAG_GRAPHICS)) throw Stop{kFailed, failure(errno)};
    }
    ~TraceFile() {
        host::stopTrace();
        close(mFd);
    }
    TraceFile(const TraceFile&) = delete;
    TraceFile& operator=(const TraceFile&) = delete;

    std::string finish() {
        // Findings of half a trace would look like findings.
        if (const int error = host::stopTrace()) throw Stop{kFailed, failure(error)};
        return readFile(path());
    }

  private:
    std::string path() const { return "/proc/self/fd/" + std::to_string(mFd); }
    std::string failure(int error) const {
        return "cannot write the library's trace in " + mFolder.string() + ": " +
               std::strerror(error);
    }

    const std::filesystem::path mFolder;
    int mFd = -1;
};

// The application that the scenario touches; null when it touches none.
std::unique_ptr<AppProcess> startApplication(const Scenario& scenario, const Recording& recording,
                                             const Playback& player, int repeat) {
    const bool touched = std::any_of(scenario.events.begin(), scenario.events.end(),
                                     [](const ScenarioEvent& event) {
                                         return std::holds_alternative<Touch>(event.what);
                                     });
    if (!touched) return nullptr;
    size_t layer = 0;
    if (!scenario.application.empty()) {
        layer = layerOf(recording, scenario.application);
    } else {
        while (recording.layers[layer].process != recording.focusedProcess()) ++layer;
    }
    const auto program =
            std::filesystem::read_symlink("/proc/self/exe").parent_path() / "corvane-replay-app";
    AppPlan plan = planOf(recording, layer, repeat, player.passNs(), scenario);
    if (host::Simulation::isOn()) plan.simulatedFromNs = host::Simulation::now();
    return std::make_unique<AppProcess>(program.string(), plan);
}

// The application's clock follows this process's from step to step.
std::vector<TimedAction> clockOf(AppProcess& application) {
    std::vector<TimedAction> actions;
    for (const int64_t atNs : application.times()) {
        actions.push_back({atNs, [&application](HookCosts&) {
                               application.advanceTo(systemTime(SYSTEM_TIME_MONOTONIC));
                           }});
    }
    return actions;
}

// What a compositor asks the library for itself.
void queryLibrary(HookCosts& costs) {
    costs.measure(Hook::kSmartTouchEnabled, [] { corvaneSmartTouchEnabled(); });
    costs.measure(Hook::kIsTargetFpsActive, [] { corvaneIsTargetFpsActive(); });
}

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

// Null for an empty path. A file whose name does not tell its format is text.
std::unique_ptr<TraceFileWriter> openTrace(const std::string& path) {
    if (path.empty()) return nullptr;
    return std::make_unique<TraceFileWriter>(path, formatOfName(path).value_or(TraceFormat::kText));
}

// Where the report goes; each is opened before the recording is played.
struct Outputs {
    explicit Outputs(const Options& options)
          : json(options.json),
            page(options.report),
            trace(openTrace(options.trace)),
            text(kStandardStream),
            textIsApart(isTextApart(options)) {}

    // A document takes standard output whole.
    static bool isTextApart(const Options& options) {
        return options.json == kStandardStream || options.report == kStandardStream ||
               options.trace == kStandardStream;
    }

    OutputFile json;
    OutputFile page;
    const std::unique_ptr<TraceFileWriter> trace;  // null: none is kept
    OutputFile text;
    const bool textIsApart;  // on standard error
};

// Every output is tried, whatever became of the ones before.
void writeOutputs(const ReportSource& source, const std::string& trace, Outputs& outputs) {
    std::string failures;
    const auto note = [&](const std::string& failure) {
        if (!failure.empty()) failures += (failures.empty() ? "" : "; ") + failure;
    };
    const auto finish = [&](OutputFile& file, std::string_view text) { note(file.finish(text)); };
    if (outputs.trace) {
        try {
            outputs.trace->write(replayEvents(source, trace), replayTracks(source, trace));
            outputs.trace->finish();
        } catch (const Stop& stop) {
            note(stop.sentence);
        }
    }
    if (outputs.json.isOpen() || outputs.page.isOpen()) {
        const Json::Value document = reportDocument(source);
        if (outputs.json.isOpen()) finish(outputs.json, jsonReport(document));
        if (outputs.page.isOpen()) finish(outputs.page, htmlReport(document));
    }
    if (outputs.textIsApart) {
        std::fputs(textReport(source).c_str(), stderr);
    } else {
        finish(outputs.text, textReport(source));
    }
    if (!failures.empty()) throw Stop{kFailed, failures};
}

Scenario loadScenario(const Options& options) {
    Scenario scenario;
    if (!options.scenario.empty()) {
        const auto file = readText(options.scenario);
        if (!file.error.empty()) throw Stop{kUnusable, options.scenario + " " + file.error};
        auto result = parseScenario(file.text, options.scenario);
        if (!result.scenario) throw Stop{kUnusable, result.error};
        scenario = std::move(*result.scenario);
    }
    if (options.isDefaultScenario && !options.additions.games.empty()) {
        // Who names a game wants that one's features, on the recording that is there.
        const std::string recording = scenario.recording;
        scenario = {};
        scenario.recording = recording;
    }
    add(scenario, options.additions);
    return scenario;
}

Recording loadRecording(const std::string& file, const Options& options, const Scenario& scenario) {
    auto parsed = readRecording(file);
    if (!parsed.recording) throw Stop{kUnusable, file + " " + parsed.error};
    Recording& recording = *parsed.recording;
    if (!scenario.refreshRates.empty()) {
        overruleRates(recording, scenario.refreshRates,
                      options.additions.refreshRates.empty() ? "the scenario" : "--refresh-rate");
    }
    const std::string lacks = select(recording, options.part);
    if (!lacks.empty()) throw Stop{kUnusable, file + " " + lacks};
    placeLayers(recording, scenario);
    return std::move(recording);
}

int list(const std::string& file, const Recording& recording) {
    OutputFile output(kStandardStream);
    const std::string failure =
            output.finish(listReport(recording, file, terminalOf(STDOUT_FILENO).width));
    if (!failure.empty()) throw Stop{kFailed, failure};
    return kPlayed;
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
                                     const std::optional<Comparison>& comparison) {
    if (!comparison) return std::make_unique<Player>(recording, hooks, repeat);
    return std::make_unique<ModelPlayer>(recording, hooks, repeat, comparison->workload,
                                         comparison->gpuShares, boostedLayer(scenario, recording));
}

// Names each limit that does not hold on standard error. Where the service knows a game, its layers
// count alone.
bool exceedsLimits(const Comparison& comparison, const Findings& findings,
                   const std::vector<Limit>& limits) {
    const auto isGame = [](const LayerFindings& layer) { return layer.game.value_or(false); };
    const bool anyGame = std::any_of(findings.layers.begin(), findings.layers.end(), isGame);
    bool exceeds = false;
    for (size_t i = 0; i < findings.layers.size(); ++i) {
        if (anyGame ? !isGame(findings.layers[i]) : !comparison.isWorthATable(i)) continue;
        for (const Limit& limit : limits) {
            const double value = limit.figure->get(comparison.library->figures[i]);
            if (limit.above ? value <= limit.value : value >= limit.value) continue;
            exceeds = true;
            std::fprintf(stderr, "corvane-replay: %s: %s is %s for %s\n", limit.text.c_str(),
                         limit.figure->label, valueText(*limit.figure, value).c_str(),
                         shown(comparison.recorded.layers[i].name).c_str());
        }
    }
    return exceeds;
}

// Returns the exit status.
int run(const Options& options) {
    const Scenario scenario = loadScenario(options);
    const std::string file = options.recording.empty() ? scenario.recording : options.recording;
    if (file.empty()) {
        throw Stop{kUnusable, "no recording given, and " + options.scenario + " names none"};
    }
    const Recording recording = loadRecording(file, options, scenario);
    if (options.list) return list(file, recording);
    const int repeat = options.repeat > 0 ? options.repeat : std::max(1, scenario.repeat);
    const std::string tooMuch = excess(recording, repeat);
    if (!tooMuch.empty()) throw Stop{kUnusable, file + " " + tooMuch};

    refuseClashes({file, options.scenario}, {options.json, options.report, options.trace,
                                             Outputs::isTextApart(options) ? "" : kStandardStream});
    Interruption interruption;
    Outputs outputs(options);
    std::optional<host::Simulation> simulation;
    if (!options.realtime) simulation.emplace(simulationOptions(options.seed));
    const host::LogCapture log;
    TraceFile trace;
    setUpPhone(scenario);
    HookCosts startCosts;
    bool enabled = false;
    startCosts.measure(Hook::kInit, [&] { enabled = corvaneInit(0, 0); });
    for (const auto& game : scenario.games) {
        for (const auto& callback : game.configuration) deliver(callback);
    }

    LibraryHooks hooks;
    std::optional<Comparison> comparison;
    if (!options.openLoop) comparison = prepareComparison(recording, repeat, scenario);
    const auto player = makePlayer(recording, hooks, repeat, scenario, comparison);
    player->addScript("scenario", actionsOf(scenario));
    player->setFences(fencesOf(scenario, recording));
    const auto application = startApplication(scenario, recording, *player, repeat);
    if (application) {
        player->setOnStart([&](int64_t startNs) { application->begin(startNs); });
        if (!options.realtime) player->addScript("application", clockOf(*application));
    }
    queryLibrary(startCosts);
    PlayResult played = play(*player, application.get(), interruption);
    queryLibrary(startCosts);
    played.costs.merge(startCosts);

    const Evidence evidence{log.lines(), host::PerfService::calls(), host::BoostDevice::requests(),
                            host::SyncFiles::deadlines(), trace.finish()};
    const Findings findings = findingsOf(recording, played, evidence);
    ReportSource source{file,   options.scenario, scenario.description, repeat, recording,
                        played, findings};
    if (application) source.application = application->result();
    source.terminal = terminalOf(outputs.textIsApart ? STDERR_FILENO : STDOUT_FILENO);
    source.notes = recording.notes;
    for (auto& note : scenarioNotes(scenario, recording, player->passNs() * repeat)) {
        source.notes.push_back(std::move(note));
    }
    if (options.scenario.empty() && scenario.games.empty()) {
        source.suggestion = gameSuggestion(recording, file);
    }
    if (!enabled) {
        source.notes.emplace_back("the library is switched off (vendor.perf.corvane.enable)");
    } else {
        for (auto& note : neverOn(scenario, recording, findings, played.durationNs)) {
            source.notes.push_back(std::move(note));
        }
    }
    if (isRealTimeRefused()) {
        source.notes.emplace_back(
                "real-time priority was refused, as to any user but root: times are less exact");
    }
    source.scenario = &scenario;
    source.isRealtime = options.realtime;
    if (comparison) {
        comparison->library =
                policyRun(*comparison, "library", static_cast<ModelPlayer&>(*player).takeRun());
        comparison->library->serviceCalls = evidence.calls.size();
        for (const std::string& policy : options.against) addPolicy(*comparison, policy);
        source.comparison = &*comparison;
    }
    writeOutputs(source, evidence.trace, outputs);
    if (comparison && exceedsLimits(*comparison, findings, options.limits)) return kLimitExceeded;
    return interruption.signal() == 0 ? kPlayed : kSignalled + interruption.signal();
}

}  // namespace
}  // namespace corvane::replay

int main(int argc, char** argv) {
    using namespace corvane::replay;
    const auto parsed = parseOptions(argc, argv);
    if (!parsed.options) {
        std::fprintf(stderr, "corvane-replay: %s\n", parsed.error.c_str());
        return kUnusable;
    }
    // A limit on the size of files is told like a full disk.
    std::signal(SIGXFSZ, SIG_IGN);
    try {
        if (!parsed.options->help) return run(*parsed.options);
        const std::string failure = OutputFile(kStandardStream).finish(kUsage);
        if (!failure.empty()) throw Stop{kFailed, failure};
    } catch (const Stop& stop) {
        std::fprintf(stderr, "corvane-replay: %s\n", stop.sentence.c_str());
        return stop.status;
    } catch (const std::bad_alloc&) {
        std::fputs("corvane-replay: the system has not enough memory for this\n", stderr);
        return kFailed;
    } catch (const std::system_error& error) {
        std::fprintf(stderr, "corvane-replay: the system refuses: %s\n", error.what());
        return kFailed;
    }
    return kPlayed;
}
