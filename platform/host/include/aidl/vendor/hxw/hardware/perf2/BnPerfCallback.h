// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Stands in for the AIDL compiler's <aidl/vendor/hxw/hardware/perf2/BnPerfCallback.h>.

#pragma once

#include <aidl/vendor/hxw/hardware/perf2/IPerfCallback.h>

namespace aidl::vendor::hxw::hardware::perf2 {

// The base of an implementation of IPerfCallback.
class BnPerfCallback : public ::ndk::BnCInterface<IPerfCallback> {
  public:
    BnPerfCallback();
    ~BnPerfCallback() override;
    ::ndk::ScopedAStatus getInterfaceVersion(int32_t* interfaceVersion) final;
    ::ndk::ScopedAStatus getInterfaceHash(std::string* interfaceHash) final;

  protected:
    ::ndk::SpAIBinder createBinder() override;
};

}  // namespace aidl::vendor::hxw::hardware::perf2
