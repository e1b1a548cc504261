// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Stands in for libbinder's <binder/IPCThreadState.h>: who made the call that this thread serves.

#pragma once

#include <sys/types.h>

namespace android {

class IPCThreadState {
  public:
    static IPCThreadState* self();  // of the calling thread

    // The process itself while the thread serves nobody; see corvane::host::ScopedBinderCaller.
    [[nodiscard]] pid_t getCallingPid() const { return mCallingPid; }
    [[nodiscard]] uid_t getCallingUid() const { return mCallingUid; }

    // Host only.
    void setCaller(pid_t pid, uid_t uid) {
        mCallingPid = pid;
        mCallingUid = uid;
    }

  private:
    IPCThreadState();

    pid_t mCallingPid;
    uid_t mCallingUid;
};

}  // namespace android
