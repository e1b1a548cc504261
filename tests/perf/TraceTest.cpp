// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <android/log.h>
#include <cutils/trace.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "corvane/host/LogCapture.h"
#include "corvane/host/TraceCapture.h"
#include "perf/PerfLog.h"
#include "perf/PerfProxy.h"

namespace android {
namespace {

using corvane::host::LogCapture;

class TraceTest : public ::testing::Test {
  protected:
    void SetUp() override { startTrace(ATRACE_TAG_GRAPHICS); }
    void TearDown() override {
        corvane::host::stopTrace();
        unlink(mPath.c_str());
    }

    void startTrace(uint64_t tags) {
        corvane::host::stopTrace();
        ASSERT_TRUE(corvane::host::startTrace(mPath, tags));
    }

    // The events traced so far in short: "B|text", "E", "S|text|cookie", "F|text|cookie".
    std::vector<std::string> events() {
        corvane::host::stopTrace();
        const std::string mark = "tracing_mark_write: ";
        const std::string pid = "|" + std::to_string(getpid());
        std::vector<std::string> events;
        std::ifstream file(mPath);
        for (std::string line; std::getline(file, line);) {
            const size_t at = line.find(mark);
            if (at == std::string::npos) continue;
            std::string event = line.substr(at + mark.size());
            if (const size_t pidAt = event.find(pid); pidAt == 1) event.erase(1, pid.size());
            events.push_back(event);
        }
        return events;
    }

    void callAll() {
        PerfProxy::VLOGD("Tag", "line %d", 1);
        PerfProxy::VTRACE_BEGIN("begin");
        PerfProxy::VTRACE_END();
        PerfProxy::VTRACE_ASYNC_BEGIN("async", 7);
        PerfProxy::VTRACE_ASYNC_END("async", 7);
        PerfProxy::VTRACE_NAME("name");
        PerfProxy::VTRACE_FORMAT("format %s", "x");
        PerfProxy::VTRACE_PROFILE("profile %s", "y");
    }

    const std::string mPath =
            ::testing::TempDir() + "corvane_trace_" + std::to_string(getpid()) + ".txt";
    LogCapture mLog;
};

const std::vector<std::string> kAllEvents = {"B|begin",     "E", "S|async|7",  "F|async|7",
                                             "B|name",      "E", "B|format x", "E",
                                             "B|profile y", "E"};

TEST_F(TraceTest, SilentUnlessDebuggable) {
    callAll();
    PerfProxy::setDebuggable(false, true);
    EXPECT_TRUE(PerfProxy::isProfileable());
    callAll();
    EXPECT_EQ(std::vector<std::string>{}, events());
    EXPECT_TRUE(mLog.lines().empty());
}

TEST_F(TraceTest, DebuggableTracesAndLogs) {
    PerfProxy::setDebuggable(true, false);
    callAll();
    EXPECT_EQ(kAllEvents, events());
    ASSERT_EQ(1u, mLog.lines().size()) << "no profile line without profiling";
    EXPECT_EQ(ANDROID_LOG_DEBUG, mLog.lines()[0].priority);
    EXPECT_EQ("Tag", mLog.lines()[0].tag);
    EXPECT_EQ("line 1", mLog.lines()[0].text);
}

TEST_F(TraceTest, ProfileableAlsoLogsProfileSlices) {
    PerfProxy::setDebuggable(true, true);
    PerfProxy::VTRACE_PROFILE("[%s] 100%% of %%%% %s", "com.a%n", "%s");
    EXPECT_EQ((std::vector<std::string>{"B|[com.a%n] 100% of %% %s", "E"}), events());
    ASSERT_EQ(1u, mLog.lines().size());
    EXPECT_EQ(ANDROID_LOG_DEBUG, mLog.lines()[0].priority);
    EXPECT_EQ("Corvane", mLog.lines()[0].tag);
    EXPECT_EQ("[com.a%n] 100% of % %s", mLog.lines()[0].text);
}

TEST_F(TraceTest, OtherTagsTraceNothing) {
    startTrace(ATRACE_TAG_VIEW);
    PerfProxy::setDebuggable(true, true);
    callAll();
    EXPECT_EQ(std::vector<std::string>{}, events());
    EXPECT_EQ(1u, mLog.count("profile y")) << "the log does not depend on the trace";
}

TEST_F(TraceTest, FormattedTextsAreCut) {
    PerfProxy::setDebuggable(true, true);
    const std::string text(300, 'x');
    PerfProxy::VTRACE_FORMAT("%s", text.c_str());
    PerfProxy::VTRACE_PROFILE("%s", text.c_str());
    const std::string slice = "B|" + text.substr(0, 255);
    EXPECT_EQ((std::vector<std::string>{slice, "E", slice, "E"}), events());
    EXPECT_EQ(text.substr(0, 255), mLog.lines().at(0).text);
}

TEST(PerfLog, DoubledPercentsCollapse) {
    const std::vector<std::pair<std::string, std::string>> kCases = {{"", ""},
                                                                     {"plain", "plain"},
                                                                     {"%", "%"},
                                                                     {"%%", "%"},
                                                                     {"%%%", "%%"},
                                                                     {"%%%%", "%%"},
                                                                     {"50%% done", "50% done"},
                                                                     {"%d", "%d"},
                                                                     {"%%d", "%d"},
                                                                     {"%%%d", "%%d"},
                                                                     {"%s%%%n", "%s%%n"},
                                                                     {"end%", "end%"},
                                                                     {"% %", "% %"}};
    for (const auto& [text, printed] : kCases) {
        std::string buffer = text;
        collapseDoubledPercents(buffer.data());
        EXPECT_EQ(printed, std::string(buffer.c_str())) << text;
    }
}

}  // namespace
}  // namespace android
