// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>

#include <string>

#include "TraceText.h"
#include "replay/AppProcess.h"
#include "replay/Application.h"

namespace corvane::replay {
namespace {

TEST(Application, FollowsItsPlanOrIsReported) {
    TraceText text;
    text.vsyncs(0, 10.0, 2).counter(3.5, "a/b#1", 1).counter(6.0, "c/d#2", 1);
    text.bufferCall(1000, "dequeueBuffer", 1.0, 1.5).bufferCall(1000, "queueBuffer", 3.0, 4.0);
    Scenario scenario;
    scenario.properties = {{"p", "v"}};
    scenario.events = {{5'000'000, Touch{2}},
                       {2'000'000, PropertyWrite{"q", "w"}},
                       {7'000'000, Unblock{}},
                       {90'000'000, Touch{1}}};
    const AppPlan plan =
            planOf(parseRecording(text.str()).recording.value(), 0, 2, 20'000'000, scenario);
    std::string order;
    for (const auto& step : plan.steps) {
        order += "vdqtp"[static_cast<int>(step.kind)] + std::to_string(step.atNs / 1'000) + " ";
    }
    EXPECT_EQ(order, "v0 d1500 p2000 q3500 t5000 v10000 v20000 d21500 q23500 v30000 ");

    const auto copy = appPlanFrom(toJson(plan));
    ASSERT_TRUE(copy);
    EXPECT_EQ(toJson(*copy), toJson(plan));
    EXPECT_EQ(copy->steps[4].action, 2);
    EXPECT_FALSE(appPlanFrom("no plan"));
    for (const char* program : {"/nonexistent/program", "/bin/false", "/bin/cat"}) {
        AppProcess process(program, *copy);
        process.begin(1);
        EXPECT_NE(process.result().error, "") << program;
    }
}

}  // namespace
}  // namespace corvane::replay
