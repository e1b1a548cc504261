// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "RandomSteps.h"
#include "replay/AppProcess.h"
#include "replay/Application.h"
#include "replay/PlanWalk.h"

namespace corvane::replay {
namespace {

using Steps = std::vector<std::pair<int64_t, std::string>>;

// What a scenario does and what is recorded, drawn bit by bit. After each, the plan that came
// through the pipe walks as what was drawn is sorted: of one time, the recorded steps of the
// touched layer, then its dequeues, then the scenario's events.
TEST(Application, WalksAllPassesAndTheScenarioInTimesOrder) {
    android::RandomStepsRunner::run(10, 20, [](android::RandomSteps& steps) {
        constexpr int64_t kPassNs = 10;  // so short that much is due at one time
        Recording recording;
        recording.processes.resize(2);
        recording.layers.resize(2);
        recording.layers[0].process = 1;
        Scenario scenario;
        std::multimap<int64_t, std::string> recorded, dequeued, scripted;
        while (steps.next()) {
            const int64_t atNs = steps.below(kPassNs), eventNs = steps.below(5 * kPassNs);
            const auto layer = static_cast<size_t>(steps.below(2));
            const int passes = static_cast<int>(1 + steps.below(4));
            const std::string number = std::to_string(atNs);
            recording.steps.push_back({eventNs % kPassNs, Step::Kind::kVsync, 0, 1});
            recording.steps.push_back({atNs, Step::Kind::kQueue, layer, 1});
            recording.processes[recording.layers[layer].process].dequeues.push_back(atNs);
            scenario.events.push_back({eventNs, Touch{static_cast<int>(atNs)}});
            scenario.events.push_back({eventNs, PropertyWrite{"n", number}});
            recorded.emplace(eventNs % kPassNs, "v0");
            if (layer == 0) recorded.emplace(atNs, "q0");
            if (layer == 0) dequeued.emplace(atNs, "d0");
            scripted.emplace(eventNs, "t" + number);
            scripted.emplace(eventNs, "p0n" + number);
            std::multimap<int64_t, std::string> expected;  // keeps the order of one time
            for (int pass = 0; pass < passes; ++pass) {
                for (auto& [ns, text] : recorded) expected.emplace(pass * kPassNs + ns, text);
                for (auto& [ns, text] : dequeued) expected.emplace(pass * kPassNs + ns, text);
            }
            expected.insert(scripted.begin(), scripted.upper_bound(passes * kPassNs));
            const auto plan = appPlanFrom(toJson(planOf(recording, 0, passes, kPassNs, scenario)));
            PlanWalk walk(plan.value());
            Steps walked;
            while (const auto due = walk.next()) {
                const AppStep& step = *due->step;
                walked.emplace_back(due->atNs, "vdqtp"[static_cast<int>(step.kind)] +
                                                       std::to_string(step.action) +
                                                       step.property.name + step.property.value);
            }
            steps.expectEq(Steps(expected.begin(), expected.end()), walked, "the walk");
        }
    });
}

TEST(Application, IsReportedWhenItCannotRun) {
    EXPECT_FALSE(appPlanFrom("no plan"));
    for (const char* program : {"/nonexistent/program", "/bin/false", "/bin/cat"}) {
        AppProcess process(program, {});
        process.begin(1);
        EXPECT_NE(process.result().error, "") << program;
    }
}

}  // namespace
}  // namespace corvane::replay
