// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <android-base/properties.h>
#include <corvane/hooks.h>
#include <cutils/trace.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <variant>
#include <vector>

#include "corvane/host/Devices.h"
#include "corvane/host/LogCapture.h"
#include "corvane/host/PerfService.h"
#include "corvane/host/TraceCapture.h"
#include "replay/AppProcess.h"
#include "replay/Application.h"
#include "replay/Findings.h"
#include "replay/LibraryHooks.h"
#include "replay/Options.h"
#include "replay/Player.h"
#include "replay/Recording.h"
#include "replay/Report.h"
#include "replay/Scenario.h"

namespace corvane::replay {
namespace {

constexpr int kPlayed = 0;
constexpr int kFailed = 1;
constexpr int kUnusable = 2;

// Ends the program with one sentence.
struct Stop {
    int status;
    std::string sentence;
};

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

// The library's trace, which the findings are drawn from: the user's file, or one without a name,
// which goes away with the process however that ends.
class TraceFile {
  public:
    explicit TraceFile(std::string path) : mPath(std::move(path)) {
        if (mPath.empty()) {
            std::string name = std::filesystem::temp_directory_path() / "corvane-replay-XXXXXX";
            mFd = mkostemp(name.data(), O_CLOEXEC);
            if (mFd >= 0) unlink(name.c_str());
            mPath = "/proc/self/fd/" + std::to_string(mFd);
        }
        if (!host::startTrace(mPath, ATRACE_TAG_GRAPHICS)) {
            throw Stop{kUnusable, "cannot write the trace " + mPath + ": " + std::strerror(errno)};
        }
    }
    ~TraceFile() {
        host::stopTrace();
        if (mFd >= 0) close(mFd);
    }
    TraceFile(const TraceFile&) = delete;
    TraceFile& operator=(const TraceFile&) = delete;

    std::string finish() {
        host::stopTrace();
        return readFile(mPath);
    }

  private:
    std::string mPath;
    int mFd = -1;
};

void deliver(const ServiceCallback& callback) {
    host::PerfService::push(callback.hint, callback.package, callback.arg1, callback.arg2,
                            callback.values);
}

void write(const PropertyWrite& property) {
    if (!android::base::SetProperty(property.name, property.value)) {
        throw Stop{kUnusable, "the scenario's property " + property.name + " cannot be set"};
    }
}

// The phone around the library: what must stand before it starts.
void setUpPhone(const Scenario& scenario) {
    // The report is drawn from the debug log and the trace; a scenario may switch them off.
    write({"vendor.perf.corvane.debug", "1"});
    for (const auto& property : scenario.properties) write(property);
    if (!host::PerfService::install()) {
        throw Stop{kFailed, "the host's performance service cannot be loaded"};
    }
    for (const auto& game : scenario.games) {
        host::PerfService::addGame(game.package, game.weight);
    }
    host::BoostDevice::enable();
}

std::vector<TimedAction> actionsOf(const Scenario& scenario) {
    std::vector<TimedAction> actions;
    for (const auto& event : scenario.events) {
        const auto& what = event.what;
        if (const auto* callback = std::get_if<ServiceCallback>(&what)) {
            actions.push_back({event.atNs, [callback](HookCosts&) { deliver(*callback); }});
        } else if (const auto* property = std::get_if<PropertyWrite>(&what)) {
            actions.push_back({event.atNs, [property](HookCosts&) {
                                   android::base::SetProperty(property->name, property->value);
                               }});
        } else if (std::holds_alternative<Unblock>(what)) {
            actions.push_back({event.atNs, [](HookCosts& costs) {
                                   costs.measure(Hook::kUnblockPendingBuffer,
                                                 [] { corvaneUnblockPendingBuffer(); });
                               }});
        }
    }
    return actions;
}

size_t layerOf(const Recording& recording, const std::string& part) {
    const auto layer = recording.findLayer(part);
    if (!layer) throw Stop{kUnusable, "no layer of the recording is named like '" + part + "'"};
    return *layer;
}

std::vector<UnsignaledFences> fencesOf(const Scenario& scenario, const Recording& recording) {
    std::vector<UnsignaledFences> fences;
    for (const auto& mark : scenario.fences) {
        fences.push_back({layerOf(recording, mark.layer), mark.first, mark.last, mark.every,
                          mark.timeline, mark.immediate});
    }
    return fences;
}

// The application that the scenario touches; null when it touches none.
std::unique_ptr<AppProcess> startApplication(const Scenario& scenario, const Recording& recording,
                                             const Player& player, int repeat) {
    const bool touched = std::any_of(scenario.events.begin(), scenario.events.end(),
                                     [](const ScenarioEvent& event) {
                                         return std::holds_alternative<Touch>(event.what);
                                     });
    if (!touched) return nullptr;
    size_t layer = 0;
    if (!scenario.application.empty()) {
        layer = layerOf(recording, scenario.application);
    } else {
        while (recording.layers[layer].process != recording.busiestProcess()) ++layer;
    }
    const auto program =
            std::filesystem::read_symlink("/proc/self/exe").parent_path() / "corvane-replay-app";
    return std::make_unique<AppProcess>(program.string(), planOf(recording, layer, repeat,
                                                                 player.passNs(), scenario));
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
    if (isatty(STDERR_FILENO)) std::fputs("\r\x1b[K", stderr);
}

// The player that an interrupt stops, so that the report tells of what was played until then.
std::atomic<Player*> sInterruptible{nullptr};

void onInterrupt(int /*signal*/) {
    if (Player* player = sInterruptible.load()) player->stop();
}

PlayResult play(Player& player) {
    sInterruptible = &player;
    std::signal(SIGINT, onInterrupt);
    PlayResult played = player.play(showProgress);
    std::signal(SIGINT, SIG_DFL);
    sInterruptible = nullptr;
    return played;
}

Scenario loadScenario(const Options& options) {
    if (options.scenario.empty()) return {};
    auto result = parseScenario(readFile(options.scenario), options.scenario);
    if (!result.scenario) throw Stop{kUnusable, result.error};
    return std::move(*result.scenario);
}

void run(const Options& options) {
    const Scenario scenario = loadScenario(options);
    const std::string file = options.recording.empty() ? scenario.recording : options.recording;
    if (file.empty()) {
        throw Stop{kUnusable, "no recording given, and " + options.scenario + " names none"};
    }
    const auto parsed = parseRecording(readFile(file));
    if (!parsed.recording) throw Stop{kUnusable, file + " " + parsed.error};
    const Recording& recording = *parsed.recording;
    const int repeat = options.repeat > 0 ? options.repeat : std::max(1, scenario.repeat);

    std::ofstream json;
    if (!options.json.empty()) {
        json.open(options.json, std::ios::binary);
        if (!json) {
            throw Stop{kUnusable, "cannot write " + options.json + ": " + std::strerror(errno)};
        }
    }
    const host::LogCapture log;
    TraceFile trace(options.trace);
    setUpPhone(scenario);
    HookCosts startCosts;
    bool enabled = false;
    startCosts.measure(Hook::kInit, [&] { enabled = corvaneInit(0, 0); });
    for (const auto& game : scenario.games) {
        for (const auto& callback : game.configuration) deliver(callback);
    }

    LibraryHooks hooks;
    Player player(recording, hooks, repeat);
    player.setActions(actionsOf(scenario));
    player.setFences(fencesOf(scenario, recording));
    const auto application = startApplication(scenario, recording, player, repeat);
    if (application) {
        player.setOnStart([&](int64_t startNs) { application->begin(startNs); });
    }
    queryLibrary(startCosts);
    PlayResult played = play(player);
    endProgress();
    queryLibrary(startCosts);
    played.costs.merge(startCosts);

    const Evidence evidence{log.lines(), host::PerfService::calls(), host::BoostDevice::requests(),
                            host::SyncFiles::deadlines(), trace.finish()};
    const Findings findings = findingsOf(recording, played, evidence);
    ReportSource source{file,   options.scenario, scenario.description, repeat, recording,
                        played, findings};
    if (application) source.application = application->result();
    source.terminal = isatty(STDOUT_FILENO);
    std::fputs(textReport(source).c_str(), stdout);
    if (!enabled) std::puts("The library is switched off (vendor.perf.corvane.enable).");
    if (json.is_open() && !(json << jsonReport(source)).flush()) {
        throw Stop{kFailed, "cannot write " + options.json + ": " + std::strerror(errno)};
    }
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
    if (parsed.options->help) {
        std::fputs(kUsage, stdout);
        return kPlayed;
    }
    try {
        run(*parsed.options);
    } catch (const Stop& stop) {
        std::fprintf(stderr, "corvane-replay: %s\n", stop.sentence.c_str());
        return stop.status;
    } catch (const std::system_error& error) {
        std::fprintf(stderr, "corvane-replay: the system refuses: %s\n", error.what());
        return kFailed;
    }
    return kPlayed;
}
