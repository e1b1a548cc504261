// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <csignal>
#include <cstdio>
#include <new>

#include "replay/Conversion.h"
#include "replay/OutputFile.h"
#include "replay/Stop.h"

int main(int argc, char** argv) {
    using namespace corvane::replay;
    auto parsed = parseConversionOptions(argc, argv);
    if (!parsed.options) {
        std::fprintf(stderr, "corvane-convert: %s\n", parsed.error.c_str());
        return kUnusable;
    }
    // A limit on the size of files and a pipe that nobody reads are told like a full disk.
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
    try {
        if (parsed.options->help) {
            const std::string failure = OutputFile(kStandardStream).finish(kConversionUsage);
            if (!failure.empty()) throw Stop{kFailed, failure};
            return kPlayed;
        }
        for (const auto& note : convert(std::move(*parsed.options))) {
            std::fprintf(stderr, "corvane-convert: %s\n", note.c_str());
        }
    } catch (const Stop& stop) {
        std::fprintf(stderr, "corvane-convert: %s\n", stop.sentence.c_str());
        return stop.status;
    } catch (const std::bad_alloc&) {
        std::fputs("corvane-convert: there is not enough memory\n", stderr);
        return kFailed;
    }
    return kPlayed;
}
