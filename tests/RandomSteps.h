// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <random>
#include <string>
#include <vector>

namespace android {

// What printf() would print.
template <typename... Args>
std::string formatted(const char* format, Args... args) {
    char buffer[512];
    // The 0 prints nothing: clang wants an argument where the format is no literal.
    snprintf(buffer, sizeof(buffer), format, args..., 0);
    return buffer;
}

// A random sequence of steps, as a scenario draws it. Each step has a seed of its own, so that the
// others stay what they were when some are left out.
class RandomSteps {
  public:
    // Whether another step is to be taken; false for good after a difference.
    bool next() {
        if (mFailed || mNext == mSeeds.size()) return false;
        mRandom.seed(mSeeds[mNext++]);
        return true;
    }

    // What this step draws: from 0 up to but excluding `limit`, which is positive.
    int64_t below(int64_t limit) {
        return std::uniform_int_distribution<int64_t>(0, limit - 1)(mRandom);
    }
    bool oneIn(int64_t count) { return below(count) == 0; }
    template <typename Values>
    auto pick(const Values& values) {
        return *std::next(std::begin(values), below(static_cast<int64_t>(std::size(values))));
    }

    // Says in words what the step does, for the one who reads a failing sequence.
    template <typename... Args>
    void tell(const char* what, const Args&... args) {
        std::string line = what;
        ((line += " " + testing::PrintToString(args)), ...);
        say(line + "\n");
    }

    // Compares what was to happen with what did.
    template <typename Expected, typename Actual>
    void expectEq(const Expected& expected, const Actual& actual, const char* what) {
        if (mFailed || expected == actual) return;
        mFailed = true;
        say(std::string("  ") + what + " should be " + testing::PrintToString(expected) +
            "\n  but is " + testing::PrintToString(actual) + "\n");
    }

  private:
    friend class RandomStepsRunner;
    RandomSteps(std::vector<uint32_t> seeds, int report)
          : mSeeds(std::move(seeds)), mReport(report) {}

    void say(const std::string& text) const {
        if (write(mReport, text.data(), text.size()) < 0) abort();
    }

    const std::vector<uint32_t> mSeeds;
    const int mReport;  // a pipe
    size_t mNext = 0;
    bool mFailed = false;
    std::minstd_rand mRandom;
};

// Runs a scenario over many sequences, each in a process of its own: singletons are new each time,
// and a sequence that crashes, hangs or deadlocks is a failing one like any other. A failing one is
// shortened as long as it still fails, then told.
class RandomStepsRunner {
  public:
    using Scenario = std::function<void(RandomSteps&)>;

    static void run(int sequences, size_t steps, const Scenario& scenario) {
        // Where each step is slow, under a sanitizer say, the environment asks for a share of them.
        const char* every = getenv("CORVANE_TRY_EVERY");
        const int stride = every ? std::max(1, atoi(every)) : 1;
        for (int seed = 1; seed <= sequences; seed += stride) {
            std::minstd_rand random(static_cast<uint32_t>(seed));
            std::vector<uint32_t> seeds(steps);
            for (uint32_t& step : seeds) step = static_cast<uint32_t>(random());
            std::string report;
            if (holds(seeds, scenario, report)) continue;
            // One that hangs would do so again and again.
            if (report.find(kHung) == std::string::npos) {
                shorten(seeds, scenario);
                holds(seeds, scenario, report);
            }
            ADD_FAILURE() << "sequence " << seed << " in " << seeds.size() << " steps:\n" << report;
            return;
        }
    }

  private:
    static constexpr unsigned kLimitSeconds = 60;  // none takes more than a few
    static constexpr char kHung[] = "  did not end";

    static bool holds(const std::vector<uint32_t>& seeds, const Scenario& scenario,
                      std::string& report, bool isQuiet = false) {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) abort();
        const pid_t child = fork();
        if (child < 0) abort();
        if (child == 0) {
            alarm(kLimitSeconds);
            if (isQuiet) dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDERR_FILENO);
            RandomSteps steps(seeds, ends[1]);
            scenario(steps);
            exit(steps.mFailed || testing::Test::HasFailure() ? 1 : 0);
        }
        close(ends[1]);
        report.clear();
        char text[4096];
        for (ssize_t got; (got = read(ends[0], text, sizeof(text))) > 0;) {
            report.append(text, static_cast<size_t>(got));
        }
        close(ends[0]);
        int status = 0;
        if (waitpid(child, &status, 0) != child) abort();
        if (WIFSIGNALED(status)) {
            const int signal = WTERMSIG(status);
            report += signal == SIGALRM ? kHung : "  ended by signal " + std::to_string(signal);
        }
        return status == 0;
    }

    // Leaves out ever smaller parts without which the sequence fails all the same.
    static void shorten(std::vector<uint32_t>& seeds, const Scenario& scenario) {
        std::string ignored;
        for (size_t part = seeds.size() / 2; part > 0; part /= 2) {
            for (size_t at = 0; at < seeds.size();) {
                std::vector<uint32_t> shorter = seeds;
                const auto from = shorter.begin() + static_cast<long>(at);
                shorter.erase(from, from + static_cast<long>(std::min(part, seeds.size() - at)));
                if (holds(shorter, scenario, ignored, /*isQuiet=*/true)) {
                    at += part;
                } else {
                    seeds = shorter;
                }
            }
        }
    }
};

}  // namespace android
