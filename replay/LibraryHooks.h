// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include "replay/Hooks.h"

namespace corvane::replay {

// The exported hooks of libcorvane.so.
class LibraryHooks : public Hooks {
  public:
    void setVsyncPeriod(int64_t periodNs) override;
    void trackVsyncSignal() override;
    void trackBufferIncrement(const Layer& layer, const Process& process) override;
    void trackBufferDecrement(const Layer& layer, int pendingCount, bool focused) override;
    int createFence(const std::string& timeline) override;
    void notifyGpuFenceUnsignaled(int fd, const Layer& layer) override;
    void trackLatchUnsignaledGpuFence(int fd, const Layer& layer) override;
    void flushLatchUnsignaledGpuFences() override;
};

}  // namespace corvane::replay
