// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "hooks/GameTracker.h"

#include <atomic>
#include <new>

namespace android {
namespace {

// Published once and kept: the hooks, which take no lock, could otherwise hold on to one that a
// watcher has just replaced.
std::atomic<InGameTracker*> sInGameTracker{nullptr};

}  // namespace

InGameTracker* inGameTracker() {
    return sInGameTracker.load(std::memory_order_acquire);
}

void createInGameTracker() {
    if (inGameTracker() != nullptr) return;
    auto* created = new (std::nothrow) InGameTracker;
    if (created == nullptr) return;
    created->incStrong(&sInGameTracker);  // the process's reference, never given back
    InGameTracker* expected = nullptr;
    if (!sInGameTracker.compare_exchange_strong(expected, created, std::memory_order_release,
                                                std::memory_order_relaxed)) {
        created->decStrong(&sInGameTracker);  // another thread was first
    }
}

}  // namespace android
