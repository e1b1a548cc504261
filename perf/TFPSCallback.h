// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <aidl/vendor/hxw/hardware/perf2/BnPerfCallback.h>

#include <cstdint>
#include <string>
#include <vector>

namespace aidl::vendor::hxw::hardware::perf2 {

// Receives the per-package configurations that the performance service pushes, on binder threads,
// and hands them to the feature manager. The service never sees a failure.
class TFPSCallback : public BnPerfCallback {
  public:
    ::ndk::ScopedAStatus notifyCallback(int32_t hintId, const std::string& pkgName, int32_t arg1,
                                        int32_t arg2, const std::vector<int32_t>& values) override;
};

}  // namespace aidl::vendor::hxw::hardware::perf2
