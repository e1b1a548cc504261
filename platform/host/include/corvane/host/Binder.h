// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <sys/types.h>

#include <cstdint>
#include <vector>

namespace corvane::host {

// The binder caller that IPCThreadState::self() reports on this thread, while this object lives.
class ScopedBinderCaller {
  public:
    ScopedBinderCaller(pid_t pid, uid_t uid);
    ~ScopedBinderCaller();
    ScopedBinderCaller(const ScopedBinderCaller&) = delete;
    ScopedBinderCaller& operator=(const ScopedBinderCaller&) = delete;

  private:
    pid_t mPreviousPid;
    uid_t mPreviousUid;
};

// The boost ids given to SurfaceComposerClient::notifyPowerBoost so far, in order.
std::vector<int32_t> powerBoosts();
void clearPowerBoosts();

}  // namespace corvane::host
