// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <string>

#include "replay/Recording.h"

namespace corvane::replay {

// What the player calls: the library's compositor hooks, or those of a test. The calls come from
// the threads that the compositor would use: vsync and latch from one, queueing from one per
// process.
class Hooks {
  public:
    virtual ~Hooks() = default;

    virtual void setVsyncPeriod(int64_t periodNs) = 0;
    virtual void trackVsyncSignal() = 0;
    // On the producer's thread, which acts as the compositor's binder thread for that process.
    virtual void trackBufferIncrement(const Layer& layer, const Process& process) = 0;
    // `pendingCount` buffers stay queued behind the one that is latched.
    virtual void trackBufferDecrement(const Layer& layer, int pendingCount, bool focused) = 0;
    // The fence of a layer's frame is unsignalled at latch: told at once, or recorded until the
    // flush. The descriptor stays the player's.
    virtual int createFence(const std::string& timeline) = 0;
    virtual void notifyGpuFenceUnsignaled(int fd, const Layer& layer) = 0;
    virtual void trackLatchUnsignaledGpuFence(int fd, const Layer& layer) = 0;
    virtual void flushLatchUnsignaledGpuFences() = 0;
};

}  // namespace corvane::replay
