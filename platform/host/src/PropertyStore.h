// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>

namespace corvane::host {

// The system properties of the process. Any thread.
class PropertyStore {
  public:
    // Never destroyed: detached threads wait on it while the process ends.
    static PropertyStore& get();

    struct Property {
        std::string value;
        uint64_t serial = 0;  // grows with every write; 0 = was never set
    };

    Property read(const std::string& name);
    bool set(const std::string& name, const std::string& value);
    int reads(const std::string& name) const;

    // Blocks until `wanted` holds for the property; false when the time-out came first.
    bool wait(const std::string& name, std::chrono::milliseconds timeout,
              const std::function<bool(const Property&)>& wanted) const;

  private:
    mutable std::mutex mMutex;
    mutable std::condition_variable mChanged;
    std::map<std::string, Property> mProperties;
    std::map<std::string, int> mReads;
    uint64_t mLastSerial = 0;
};

}  // namespace corvane::host
