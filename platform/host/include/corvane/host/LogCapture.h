// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace corvane::host {

// One line given to the platform log.
struct LogLine {
    int priority;  // android_LogPriority
    std::string tag;
    std::string text;
    int64_t timeNs;  // systemTime at the call
};

// Collects every platform log line of the process, at all priorities, while it lives. One at a
// time.
class LogCapture {
  public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    // Hands `sink` the lines kept so far and every later one, and keeps them no longer: on the
    // thread that logs, with the log's locks held, so that it must neither log nor throw. Null:
    // later lines are kept again, and the sink before is not called once this returns.
    void setSink(std::function<void(const LogLine&)> sink);

    std::vector<LogLine> lines() const;
    // Lines whose text contains `text`, in order.
    std::vector<LogLine> matching(const std::string& text) const;
    size_t count(const std::string& text) const { return matching(text).size(); }
    void clear();
};

}  // namespace corvane::host
