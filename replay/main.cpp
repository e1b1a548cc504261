// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <new>
#include <string>
#include <system_error>

#include "replay/ListReport.h"
#include "replay/Options.h"
#include "replay/OutputFile.h"
#include "replay/Replay.h"
#include "replay/ReplayInput.h"
#include "replay/Stop.h"
#include "replay/Terminal.h"

namespace corvane::replay {
namespace {

void print(const std::string& text) {
    const std::string failure = OutputFile(kStandardStream).finish(text);
    if (!failure.empty()) throw Stop{kFailed, failure};
}

// Returns the exit status.
int run(const Options& options) {
    if (options.help) {
        print(kUsage);
        return kPlayed;
    }
    const ReplayInput input = loadInput(options);
    if (!options.list) return replay(options, input);
    print(listReport(input.recording, input.file, terminalOf(STDOUT_FILENO).width));
    return kPlayed;
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
        return run(*parsed.options);
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
}
