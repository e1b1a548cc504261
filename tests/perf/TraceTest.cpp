// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <android/log.h>
#include <cutils/trace.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "corvane/host/Devices.h"
#include "corvane/host/LogCapture.h"
#include "corvane/host/PerfService.h"
#include "corvane/host/Simulation.h"
#include "corvane/host/TraceCapture.h"
#include "perf/PerfLog.h"
#include "perf/TraceSection.h"

namespace android {
namespace {

using corvane::host::Simulation;
using Strings = std::vector<std::string>;

class TraceTest : public ::testing::Test {
  protected:
    const Simulation mSimulation{1'000};

    void SetUp() override { startTrace(ATRACE_TAG_GRAPHICS); }
    void TearDown() override { unlink(mPath.c_str()); }

    void startTrace(uint64_t tags) { ASSERT_TRUE(corvane::host::startTrace(mPath, tags)); }

    // The events traced so far in short: "B|text", "E", "S|text|cookie", "F|text|cookie".
    Strings stopTrace() {
        corvane::host::stopTrace();
        const std::string mark = "tracing_mark_write: ";
        const std::string pid = "|" + std::to_string(Simulation::processId());
        Strings events;
        std::ifstream file(mPath);
        for (std::string line; std::getline(file, line);) {
            const size_t at = line.find(mark);
            if (at == std::string::npos) continue;
            events.push_back(line.substr(at + mark.size()).erase(1, pid.size()));
        }
        return events;
    }

    // The lines logged since the last call, which must all be debug lines, as "tag: text".
    Strings takeLog() {
        Strings lines;
        for (const auto& line : mLog.lines()) {
            EXPECT_EQ(ANDROID_LOG_DEBUG, line.priority);
            lines.push_back(line.tag + ": " + line.text);
        }
        mLog.clear();
        return lines;
    }

    const std::string mPath =
            ::testing::TempDir() + "corvane_trace_" + std::to_string(getpid()) + ".txt";
    corvane::host::LogCapture mLog;
};

TEST_F(TraceTest, TracesAndLogsAsFarAsItIsAllowedTo) {
    const Strings kAll = {"B|begin",    "E", "S|async|7",   "F|async|7", "B|name",      "E",
                          "B|format x", "E", "B|profile y", "E",         "B|section z", "E"};
    const struct {
        bool debuggable;
        bool profileable;
        uint64_t tags;
        Strings events;
        Strings lines;
    } kCases[] = {
            {false, false, ATRACE_TAG_GRAPHICS, {}, {}},
            {false, true, ATRACE_TAG_GRAPHICS, {}, {}},
            {true, false, ATRACE_TAG_GRAPHICS, kAll, {"Tag: line 1"}},
            {true, true, ATRACE_TAG_GRAPHICS, kAll, {"Tag: line 1", "Corvane: profile y"}},
            {true, true, ATRACE_TAG_VIEW, {}, {"Tag: line 1", "Corvane: profile y"}},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(::testing::Message() << c.debuggable << c.profileable << " " << c.tags);
        PerfProxy::setDebuggable(c.debuggable, c.profileable);
        startTrace(c.tags);
        PerfProxy::VLOGD("Tag", "line %d", 1);
        PerfProxy::VTRACE_BEGIN("begin");
        PerfProxy::VTRACE_END();
        PerfProxy::VTRACE_ASYNC_BEGIN("async", 7);
        PerfProxy::VTRACE_ASYNC_END("async", 7);
        PerfProxy::VTRACE_NAME("name");
        PerfProxy::VTRACE_FORMAT("format %s", "x");
        PerfProxy::VTRACE_PROFILE("profile %s", "y");
        TraceSection::formatted("section %s", "z");
        EXPECT_EQ(PerfProxy::isProfileable(), c.debuggable && c.profileable);
        EXPECT_EQ(c.events, stopTrace());
        EXPECT_EQ(c.lines, takeLog());
    }
}

TEST_F(TraceTest, TextsAreCutAndHostileOnesHarmless) {
    PerfProxy::setDebuggable(true, true);
    const std::string text(300, 'x');
    PerfProxy::VTRACE_FORMAT("%s", text.c_str());
    PerfProxy::VTRACE_PROFILE("%s", text.c_str());
    TraceSection::formatted("%s", text.c_str());
    PerfProxy::VTRACE_PROFILE("[%s] 100%% of %%%% %s", "com.a%n", "%s");
    const std::string cut = text.substr(0, 255);
    EXPECT_EQ((Strings{"B|" + cut, "E", "B|" + cut, "E", "B|" + cut, "E",
                       "B|[com.a%n] 100% of %% %s", "E"}),
              stopTrace());
    EXPECT_EQ((Strings{"Corvane: " + cut, "Corvane: [com.a%n] 100% of % %s"}), takeLog());

    const std::pair<const char*, const char*> kCases[] = {{"", ""},        {"%", "%"},
                                                          {"%%", "%"},     {"%%%", "%%"},
                                                          {"%%%%", "%%"},  {"50%% %d", "50% %d"},
                                                          {"%%%d", "%%d"}, {"%s%%%n", "%s%%n"},
                                                          {"% %", "% %"}};
    for (const auto& [in, printed] : kCases) {
        std::string buffer = in;
        collapseDoubledPercents(buffer.data());
        EXPECT_STREQ(printed, buffer.c_str()) << in;
    }
}

TEST_F(TraceTest, HintsAreTraced) {
    using corvane::host::BoostDevice;
    ASSERT_TRUE(corvane::host::PerfService::install());
    PerfProxy* const proxy = PerfProxy::getInstance();
    PerfProxy::setDebuggable(true, true);
    BoostDevice::enable();
    proxy->frameHint(5, 7, 9, "pkg", 0);
    Simulation::settle();
    proxy->frameHint(2, 7, 9, "pkg", 690);
    EXPECT_EQ((Strings{"B|frame hint", "B|Boost hint: 5, [id: 9]", "E", "E",
                       "B|[GFR_BOOST] GFR_IOCTL bl=2 hr=7 bf=690, [id: 9]", "E"}),
              stopTrace());
    EXPECT_EQ((Strings{"Corvane: [GFR_BOOST] Successfully opened /dev/zufta, zufta is available\n",
                       "Corvane: Boost hint: 5, [id: 9]"}),
              takeLog());
}

}  // namespace
}  // namespace android
