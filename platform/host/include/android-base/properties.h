// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Stands in for libbase's <android-base/properties.h>: Debian's declares no waits and no
// CachedProperty outside bionic.

#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace android::base {

// The property's value, or `default_value` when it is empty or does not exist.
std::string GetProperty(const std::string& key, const std::string& default_value);

// The property as a boolean by ParseBool(), or `default_value` when it is none.
bool GetBoolProperty(const std::string& key, bool default_value);

// False when the name is not one, the value is too long, or a "ro." property is set again.
bool SetProperty(const std::string& key, const std::string& value);

// Blocks until the property has this value; false when the time-out came first.
bool WaitForProperty(const std::string& key, const std::string& expected_value,
                     std::chrono::milliseconds relative_timeout = std::chrono::milliseconds::max());

// A property that is read many times. For one thread.
class CachedProperty {
  public:
    explicit CachedProperty(std::string property_name);
    explicit CachedProperty(const char* property_name);

    // The present value, valid until the next call. *changed tells whether it was set since.
    const char* Get(bool* changed = nullptr);

    // Blocks until the property is set again after the last look at it, to whatever value, and
    // returns its value; nullptr when the time-out came first. As on a device, the first wait for a
    // property that exists but was never looked at returns at once.
    const char* WaitForChange(
            std::chrono::milliseconds relative_timeout = std::chrono::milliseconds::max());

  private:
    std::string mName;
    std::string mValue;
    uint64_t mSerial = 0;  // of the value last read; 0 while the property has not been found
};

}  // namespace android::base
