// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "replay/Application.h"

namespace corvane::replay {

// The running application, as the replay sees it. Used from one thread.
class AppProcess {
  public:
    // Starts `program` and hands it the plan; returns when it has loaded the library and waits for
    // the replay, or has failed.
    AppProcess(const std::string& program, AppPlan plan);
    ~AppProcess();
    AppProcess(const AppProcess&) = delete;
    AppProcess& operator=(const AppProcess&) = delete;

    // Tells it when the replay's first step is due.
    void begin(int64_t startNs);
    // In simulated time: lets its clock follow this one's to the time, and what is due there
    // happen. For one thread.
    void advanceTo(int64_t timeNs);
    // What it does.
    const AppPlan& plan() const { return mPlan; }
    // Lets it end early, with the result so far.
    void stop();
    // Waits for its end.
    AppResult result();

  private:
    bool send(const std::string& line) const;
    std::string receiveLine();

    const AppPlan mPlan;
    pid_t mPid = -1;
    int mSocket = -1;
    bool mEnded = false;  // it has sent its result and ends by itself
    std::string mReceived;
    std::string mError;
};

}  // namespace corvane::replay
