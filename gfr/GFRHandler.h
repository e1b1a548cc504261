// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <utils/Looper.h>

#include <cstdint>

#include "gfr/GFRMonitor.h"

namespace android {

// One scheduled check of one frame, run on the "BLT" thread when it falls due.
//
// Holds a plain pointer to its monitor: the handler lives in the monitor's queue or on its thread,
// and the monitor ends both before itself. The layer is looked up by id because it may be gone by
// then.
class GFRMonitor::GFRHandler : public MessageHandler {
  public:
    GFRHandler(GFRMonitor* monitor, int32_t layerId, int32_t level, nsecs_t frameIdentity)
          : mMonitor(monitor), mLayerId(layerId), mLevel(level), mFrameIdentity(frameIdentity) {}

    // The queue's id of this check, known only once it is posted. Called by the monitor with its
    // lock held, which the analysis cannot tell to be mMonitor's.
    void setCheckIdLocked(uint64_t checkId) NO_THREAD_SAFETY_ANALYSIS { mCheckId = checkId; }

    void handleMessage(const Message& message) override;

  private:
    GFRMonitor* const mMonitor;
    const int32_t mLayerId;
    const int32_t mLevel;
    const nsecs_t mFrameIdentity;
    uint64_t mCheckId GUARDED_BY(mMonitor->mLock) = 0;
};

}  // namespace android
