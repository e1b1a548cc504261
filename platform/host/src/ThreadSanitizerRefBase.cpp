// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Built for ThreadSanitizer only. libutils counts references in code that is not instrumented, so
// the sanitizer does not see that a thread's last use of an object comes before the destruction by
// another thread that drops the last reference. Tell it: each drop releases, and the callback that
// precedes the destruction acquires. Nothing else is hidden by that.

#include <dlfcn.h>
#include <sanitizer/tsan_interface.h>
#include <utils/RefBase.h>

namespace android {

void RefBase::decStrong(const void* id) const {
    using DecStrong = void(const RefBase*, const void*);
    static auto* const decStrongOfLibutils =
            reinterpret_cast<DecStrong*>(dlsym(RTLD_NEXT, "_ZNK7android7RefBase9decStrongEPKv"));
    __tsan_release(const_cast<RefBase*>(this));
    decStrongOfLibutils(this, id);
}

void RefBase::onLastStrongRef(const void* /*id*/) {
    __tsan_acquire(this);
}

}  // namespace android
