// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/LibraryHooks.h"

#include <corvane/hooks.h>
#include <ui/Rect.h>

#include "corvane/host/Binder.h"
#include "corvane/host/Devices.h"

namespace corvane::replay {
void LibraryHooks::setVsyncPeriod(int64_t periodNs) {
    corvaneSetVsyncPeriod(periodNs);
}

void LibraryHooks::trackVsyncSignal() {
    corvaneTrackVsyncSignal();
}

void LibraryHooks::trackBufferIncrement(const Layer& layer, const Process& process) {
    const host::ScopedBinderCaller caller(process.pid, process.uid);
    // True is an ordinary buffer: the library takes it for one to be shown at once when it is
    // false.
    constexpr bool kOrdinary = true;
    corvaneTrackBufferIncrement(layer.name.c_str(), layer.id, kOrdinary, 0, 0);
}

void LibraryHooks::trackBufferDecrement(const Layer& layer, int pendingCount, bool focused) {
    const auto& [left, top, right, bottom] = layer.bounds;
    const android::Rect bounds(left, top, right, bottom);
    corvaneTrackBufferDecrement(layer.name.c_str(), layer.id, pendingCount, &bounds, focused,
                                layer.visible);
}

int LibraryHooks::createFence(const std::string& timeline) {
    return host::SyncFiles::create(timeline);
}

void LibraryHooks::notifyGpuFenceUnsignaled(int fd, const Layer& layer) {
    corvaneNotifyGpuFenceUnsignaled(fd, layer.id);
}

void LibraryHooks::trackLatchUnsignaledGpuFence(int fd, const Layer& layer) {
    corvaneTrackLatchUnsignaledGpuFence(fd, layer.id);
}

void LibraryHooks::flushLatchUnsignaledGpuFences() {
    corvaneFlushLatchUnsignaledGpuFences();
}

}  // namespace corvane::replay
