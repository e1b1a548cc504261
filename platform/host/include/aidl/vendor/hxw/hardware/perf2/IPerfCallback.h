// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Stands in for the AIDL compiler's <aidl/vendor/hxw/hardware/perf2/IPerfCallback.h>.

#pragma once

#include <android/binder_interface_utils.h>

#include <cstdint>
#include <string>
#include <vector>

namespace aidl::vendor::hxw::hardware::perf2 {

// Through which the performance service sends configurations to a client.
class IPerfCallback : public ::ndk::ICInterface {
  public:
    static const char* descriptor;
    static inline const int32_t version = 1;
    static inline const std::string hash = "notfrozen";

    virtual ::ndk::ScopedAStatus notifyCallback(int32_t hintId, const std::string& pkgName,
                                                int32_t arg1, int32_t arg2,
                                                const std::vector<int32_t>& values) = 0;
    virtual ::ndk::ScopedAStatus getInterfaceVersion(int32_t* interfaceVersion) = 0;
    virtual ::ndk::ScopedAStatus getInterfaceHash(std::string* interfaceHash) = 0;
};

}  // namespace aidl::vendor::hxw::hardware::perf2
