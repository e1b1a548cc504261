// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Stands in for the platform's <utils/LightRefBase.h>: the same class, whose decrement acquires by
// itself. The platform's does so by a fence, which ThreadSanitizer does not know.

#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>

namespace android {

class ReferenceRenamer;

// The base of an object that counts its strong references; it has no weak ones.
template <class T>
class LightRefBase {
  public:
    LightRefBase() = default;

    void incStrong(const void* /*id*/) const { mCount.fetch_add(1, std::memory_order_relaxed); }
    void decStrong(const void* /*id*/) const {
        if (mCount.fetch_sub(1, std::memory_order_acq_rel) == 1) delete static_cast<const T*>(this);
    }

  protected:
    ~LightRefBase() = default;

  private:
    friend class ReferenceMover;
    static void renameRefs(size_t /*n*/, const ReferenceRenamer& /*renamer*/) {}
    static void renameRefId(T* /*ref*/, const void* /*oldId*/, const void* /*newId*/) {}

    mutable std::atomic<int32_t> mCount{0};
};

// A LightRefBase that one can derive from without naming oneself.
class VirtualLightRefBase : public LightRefBase<VirtualLightRefBase> {
  public:
    virtual ~VirtualLightRefBase() = default;
};

}  // namespace android
