// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "hooks/GameTracker.h"

#include <atomic>
#include <new>

namespace android {
namespace {

// A tracker that was published. It is never freed: the hooks, which take no lock, may be measuring
// with one that has just been replaced. An application starts over once or twice.
struct PublishedTracker final : InGameTracker {
    const PublishedTracker* previous = nullptr;  // keeps it findable for whoever looks for leaks
};

std::atomic<PublishedTracker*> sInGameTracker{nullptr};

PublishedTracker* newTracker() {
    auto* created = new (std::nothrow) PublishedTracker;
    // The process's reference, never given back.
    if (created != nullptr) created->incStrong(&sInGameTracker);
    return created;
}

}  // namespace

InGameTracker* inGameTracker() {
    return sInGameTracker.load(std::memory_order_acquire);
}

void createInGameTracker() {
    if (inGameTracker() != nullptr) return;
    PublishedTracker* created = newTracker();
    if (created == nullptr) return;
    PublishedTracker* expected = nullptr;
    if (!sInGameTracker.compare_exchange_strong(expected, created, std::memory_order_release,
                                                std::memory_order_relaxed)) {
        delete created;  // another thread was first
    }
}

void replaceInGameTracker() {
    PublishedTracker* created = newTracker();
    const PublishedTracker* previous = sInGameTracker.exchange(created, std::memory_order_acq_rel);
    if (created != nullptr) created->previous = previous;
}

}  // namespace android
