// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// corvane-explore: searches the orders of the library's threads for one that breaks it.

#include <android-base/properties.h>
#include <android/log.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "corvane/host/Devices.h"
#include "corvane/host/PerfService.h"
#include "explore/Explorer.h"

namespace {

using namespace corvane::explore;
using corvane::host::Simulation;

constexpr char kUsage[] =
        "usage: ./corvane explore [STORY] [OPTIONS]\n"
        "\n"
        "Runs small stories on the library's classes in many orders of their threads, in "
        "simulated\n"
        "time, until one breaks what must hold in every order.\n"
        "\n"
        "  --schedules N    how many orders per story (1000)\n"
        "  --seed S         of the first order; the next ones count up (1)\n"
        "  --policy POLICY  fifo, random or pct:DEPTH; without it a mixture, by the seed\n"
        "  --events         print what the threads did in the first order, failed or not\n"
        "  --list           the stories\n";

[[noreturn]] void usageError(const std::string& what) {
    fprintf(stderr, "corvane-explore: %s\n%s", what.c_str(), kUsage);
    exit(2);
}

bool parse(const char* text, uint64_t& value) {
    char* end = nullptr;
    errno = 0;
    value = strtoull(text, &end, 10);
    return *text >= '0' && *text <= '9' && *end == '\0' && errno == 0;
}

bool parsePolicy(const std::string& text, Order& order) {
    if (text == "fifo" || text == "random") {
        order.policy = text == "fifo" ? Simulation::Policy::kFifo : Simulation::Policy::kRandom;
        return true;
    }
    uint64_t depth = 0;
    if (text.compare(0, 4, "pct:") != 0 || !parse(text.c_str() + 4, depth)) return false;
    order.policy = Simulation::Policy::kPct;
    order.depth = static_cast<uint32_t>(depth);
    return depth >= 1 && depth <= 32;
}

struct Arguments {
    std::string story;  // empty: all
    Search search;
    bool printsEvents = false;
};

Arguments parseArguments(int argc, char** argv) {
    Arguments arguments;
    Order policy;
    for (int i = 1; i < argc; ++i) {
        const std::string name = argv[i];
        if (name == "--help") {
            fputs(kUsage, stdout);
            exit(0);
        }
        if (name == "--list") {
            for (const Story& story : stories()) printf("%-18s %s\n", story.name, story.what);
            exit(0);
        }
        if (name == "--events") {
            arguments.printsEvents = true;
            continue;
        }
        if (name[0] != '-' && arguments.story.empty()) {
            arguments.story = name;
            continue;
        }
        const char* value = i + 1 < argc ? argv[++i] : "";
        if (name == "--schedules") {
            if (!parse(value, arguments.search.schedules) || arguments.search.schedules == 0) {
                usageError("--schedules takes a number from 1");
            }
        } else if (name == "--seed") {
            if (!parse(value, arguments.search.seed)) usageError("--seed takes a number");
        } else if (name == "--policy") {
            if (!parsePolicy(value, policy)) usageError("--policy takes fifo, random or pct:DEPTH");
            arguments.search.policy = policy;
        } else {
            usageError("unknown option '" + name + "'");
        }
    }
    arguments.search.workers = std::max(1u, std::thread::hardware_concurrency());
    return arguments;
}

// What every story finds: a service, a boost device, and nobody who reads the log.
void prepare() {
    corvane::host::PerfService::install();
    corvane::host::BoostDevice::enable();
    __android_log_set_logger([](const __android_logger_data*, const char*) {});
}

bool search(const Story& story, const Arguments& arguments) {
    const Outcome outcome = explore(story, arguments.search);
    printf("%-18s %8llu schedules, up to %6llu scheduling points, %6.1f s: ", story.name,
           static_cast<unsigned long long>(outcome.schedules),
           static_cast<unsigned long long>(outcome.points), outcome.seconds);
    if (!outcome.finding) {
        printf("nothing found\n");
        fflush(stdout);
        if (arguments.printsEvents) {
            Order order = arguments.search.policy.value_or(Order{});
            order.seed = arguments.search.seed;
            printInterleaving(story, order);
        }
        return true;
    }
    const Finding& finding = *outcome.finding;
    printf("schedule %llu fails\n\n%s\n\n", static_cast<unsigned long long>(finding.schedule),
           finding.what.c_str());
    fflush(stdout);
    printInterleaving(story, finding.order);
    printf("\nTo repeat it: ./corvane explore %s --schedules 1 %s\n", story.name,
           toText(finding.order).c_str());
    return false;
}

}  // namespace

// Under ThreadSanitizer a schedule ends at the first data race, and at its end does not wait a
// second for others, which no parked thread can bring.
extern "C" const char* __tsan_default_options() {
    return "halt_on_error=1:atexit_sleep_ms=0";
}

int main(int argc, char** argv) {
    const Arguments arguments = parseArguments(argc, argv);
    prepare();
    bool isKnown = false;
    for (const Story& story : stories()) {
        if (!arguments.story.empty() && arguments.story != story.name) continue;
        isKnown = true;
        if (!search(story, arguments)) return 1;
    }
    if (!isKnown) usageError("no story '" + arguments.story + "'");
    return 0;
}
