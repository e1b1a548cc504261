// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "explore/Explorer.h"

#include <dirent.h>
#include <pthread.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

#include "explore/EventLog.h"

namespace corvane::explore {
namespace {

using host::Simulation;

constexpr int64_t kStartNs = 1'000'000'000'000;
// Far beyond what any story takes. A story that is not over by then has lost a wake-up and lives on
// somebody's timer, or runs in circles.
constexpr int64_t kMaxNs = kStartNs + 600'000'000'000;
constexpr uint64_t kMaxSteps = 20'000'000;
constexpr unsigned kMaxRealSeconds = 60;  // and then it waits outside the simulation

// What a process that runs a schedule tells the one that waits for it.
struct Report {
    bool failed;
    uint64_t steps;
    char what[16'384];
};

// What a worker tells the process that waits for all.
struct Progress {
    std::atomic<uint64_t> done{0};
    std::atomic<bool> failed{false};
    uint64_t schedule = 0;
    char what[sizeof(Report::what)] = {};
};

template <typename T>
T& shared() {
    void* memory =
            mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        perror("mmap");
        exit(1);
    }
    return *new (memory) T();
}

Report* sReport = nullptr;    // of the schedule that this process runs
EventLog* sEvents = nullptr;  // null unless they are to be printed
std::atomic<uint64_t> sDrawState{0};

uint64_t mix(uint64_t value) {
    value += 0x9E3779B97F4A7C15;
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EB;
    return value ^ (value >> 31);
}

size_t openDescriptors() {
    DIR* directory = opendir("/proc/self/fd");
    size_t count = 0;
    while (directory != nullptr && readdir(directory) != nullptr) ++count;
    if (directory != nullptr) closedir(directory);
    return count;
}

[[noreturn]] void end(const char* failure) {
    if (failure != nullptr) {
        sReport->failed = true;
        strncpy(sReport->what, failure, sizeof(sReport->what) - 1);
    }
    if (Simulation::isOn()) sReport->steps = Simulation::steps();
    if (sEvents != nullptr) sEvents->nameThreads();
    _exit(0);
}

// How many scheduling points a run has, with basic blocks among them and without.
struct Lengths {
    uint64_t calls = 1;
    uint64_t blocks = 1;
};

Simulation::Options optionsFor(const Order& order, const Lengths& lengths) {
    Simulation::Options options;
    options.startNs = kStartNs;
    options.maxNs = kMaxNs;
    options.maxSteps = kMaxSteps;
    options.policy = order.policy;
    options.depth = order.depth;
    options.seed = order.seed;
    options.onStuck = [](const char* report) { end(report); };
    if (order.policy == Simulation::Policy::kFifo) return options;
    const uint64_t bits = mix(order.seed);
    options.basicBlocks = bits % 4 != 0;
    options.spuriousWakeups = bits / 4 % 4 == 0;
    options.steps = options.basicBlocks ? lengths.blocks : lengths.calls;
    return options;
}

// In the process of one schedule.
[[noreturn]] void runHere(const Story& story, Simulation::Options options) {
    options.callCost = {story.callCostNs, story.callCostNs};
    alarm(kMaxRealSeconds);
    sDrawState = mix(options.seed ^ 0x5709);
    const size_t before = openDescriptors();
    {
        Simulation simulation(options);
        story.run();
        Simulation::settle();
        const size_t threads = Simulation::threads() - 1;
        if (threads != story.watchers) {
            fail("%zu threads are left and not %zu", threads, story.watchers);
        }
        sReport->steps = Simulation::steps();
        const size_t after = openDescriptors();
        if (after != before) fail("%zu descriptors are open and not %zu", after, before);
    }
    end(nullptr);
}

// Runs one schedule in a process of its own, and returns when that has ended.
void runApart(const Story& story, const Simulation::Options& options, Report& report) {
    report.failed = false;
    report.steps = 0;  // as of a run that ends in exit()
    report.what[0] = '\0';
    const pid_t child = fork();
    if (child == 0) {
        sReport = &report;
        runHere(story, options);
    }
    if (child < 0) {
        perror("fork");
        exit(1);
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFSIGNALED(status) || WEXITSTATUS(status) != 0) {
        report.failed = true;
        snprintf(report.what, sizeof(report.what), "the process ended by %s",
                 WIFSIGNALED(status) ? strsignal(WTERMSIG(status)) : "itself");
    }
}

// The longest of some drawn runs: what a story draws makes it longer or shorter, and beyond the
// length that it counts on, kPct changes no priority. One that fails may run in circles and tells
// nothing.
Lengths measure(const Story& story, Report& report) {
    constexpr uint64_t kMeasured = 32;
    Lengths lengths;
    Order order;
    order.policy = Simulation::Policy::kRandom;
    for (order.seed = 1; order.seed <= kMeasured; ++order.seed) {
        const Simulation::Options options = optionsFor(order, lengths);
        runApart(story, options, report);
        uint64_t& longest = options.basicBlocks ? lengths.blocks : lengths.calls;
        if (!report.failed) longest = std::max(longest, report.steps);
    }
    return lengths;
}

Order orderOf(const Search& search, uint64_t schedule) {
    Order order = search.policy.value_or(Order{});
    order.seed = search.seed + schedule - 1;
    if (search.policy) return order;
    // One half random, the other with the priorities of depths 2 to 4.
    constexpr uint64_t kKinds = 6;
    const uint64_t kind = mix(order.seed ^ 0x0DE5) % kKinds;
    order.policy = kind < kKinds / 2 ? Simulation::Policy::kRandom : Simulation::Policy::kPct;
    order.depth = 2 + static_cast<uint32_t>(kind % 3);
    return order;
}

// On one of the processors that the process may use, the same for each worker: threads that pass
// turns on are faster there.
void stayOnOneProcessor(unsigned worker) {
    cpu_set_t allowed;
    if (sched_getaffinity(0, sizeof(allowed), &allowed) != 0) return;
    auto left = static_cast<int>(worker) % std::max(1, CPU_COUNT(&allowed));
    for (int processor = 0; processor < CPU_SETSIZE; ++processor) {
        if (!CPU_ISSET(processor, &allowed) || left-- > 0) continue;
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(processor, &one);
        sched_setaffinity(0, sizeof(one), &one);
        return;
    }
}

void work(const Story& story, const Search& search, const Lengths& lengths, unsigned worker,
          Progress& progress, std::atomic<uint64_t>& last) {
    stayOnOneProcessor(worker);
    Report& report = shared<Report>();
    for (uint64_t i = worker + 1; i <= last.load(); i += search.workers) {
        runApart(story, optionsFor(orderOf(search, i), lengths), report);
        ++progress.done;
        if (!report.failed) continue;
        progress.schedule = i;
        memcpy(progress.what, report.what, sizeof(progress.what));
        progress.failed = true;
        // Those before it are still run, so that the first is the same however fast who works.
        uint64_t before = last.load();
        while (i < before && !last.compare_exchange_weak(before, i)) {
        }
        break;
    }
}

}  // namespace

void fail(const char* format, ...) {
    char text[1'024];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    end(text);
}

uint64_t draw(uint64_t bound) {
    return mix(++sDrawState) % bound;
}

std::thread startNamed(const char* name, void (*run)(void*), void* argument) {
    return std::thread([name, run, argument] {
        pthread_setname_np(pthread_self(), name);
        run(argument);
    });
}

std::string toText(const Order& order) {
    std::string text = "--policy ";
    switch (order.policy) {
        case Simulation::Policy::kFifo:
            text += "fifo";
            break;
        case Simulation::Policy::kRandom:
            text += "random";
            break;
        case Simulation::Policy::kPct:
            text += "pct:" + std::to_string(order.depth);
            break;
    }
    return text + " --seed " + std::to_string(order.seed);
}

Outcome explore(const Story& story, const Search& search) {
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    Outcome outcome;
    Report& report = shared<Report>();
    const Lengths lengths = measure(story, report);
    outcome.points = lengths.blocks;

    std::atomic<uint64_t>& last = shared<std::atomic<uint64_t>>();
    last = search.schedules;
    std::vector<Progress*> all;
    std::vector<pid_t> children;
    for (unsigned worker = 0; worker < search.workers; ++worker) {
        Progress& progress = *all.emplace_back(&shared<Progress>());
        const pid_t child = fork();
        if (child == 0) {
            work(story, search, lengths, worker, progress, last);
            _exit(0);
        }
        children.push_back(child);
    }
    const auto done = [&all] {
        uint64_t sum = 0;
        for (const Progress* progress : all) sum += progress->done;
        return sum;
    };
    constexpr auto kInterval = std::chrono::milliseconds(200);
    const bool showsProgress = isatty(STDERR_FILENO) != 0;
    for (size_t i = 0; i < children.size();) {
        if (waitpid(children[i], nullptr, WNOHANG) != 0) {
            ++i;
            continue;
        }
        if (showsProgress) {
            fprintf(stderr, "\r%s: %llu of %llu", story.name,
                    static_cast<unsigned long long>(done()),
                    static_cast<unsigned long long>(search.schedules));
        }
        std::this_thread::sleep_for(kInterval / 10);
    }
    if (showsProgress) fputs("\r\033[K", stderr);

    outcome.schedules = done();
    for (Progress* progress : all) {
        if (progress->failed &&
            (!outcome.finding || progress->schedule < outcome.finding->schedule)) {
            outcome.finding = Finding{progress->schedule, orderOf(search, progress->schedule),
                                      progress->what};
        }
        munmap(progress, sizeof(*progress));
    }
    munmap(&report, sizeof(report));
    outcome.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    return outcome;
}

void printInterleaving(const Story& story, const Order& order) {
    Report& report = shared<Report>();
    const Lengths lengths = measure(story, report);
    sEvents = &shared<EventLog>();
    Simulation::Options options = optionsFor(order, lengths);
    options.onEvent = [](const Simulation::Event& event) { sEvents->add(event); };
    runApart(story, options, report);
    sEvents->print(stdout);
    printf("%s\n", report.failed ? report.what : "This order fails no more.");
    munmap(sEvents, sizeof(*sEvents));
    munmap(&report, sizeof(report));
    sEvents = nullptr;
}

}  // namespace corvane::explore
