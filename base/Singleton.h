// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <utils/Mutex.h>

#include <atomic>

namespace android {

// The body of a singleton's getInstance(): one load once the instance exists; before that, whoever
// comes first creates it and the others wait.
template <typename T>
T* instanceOnFirstUse(std::atomic<T*>& slot, T* (*create)()) {
    T* instance = slot.load(std::memory_order_acquire);
    if (instance != nullptr) return instance;

    // Never destroyed: hooks, binder and watcher threads come here even while the process exits.
    static Mutex& sLock = *new Mutex;
    Mutex::Autolock lock(sLock);
    instance = slot.load(std::memory_order_relaxed);  // written under this lock
    if (instance == nullptr) {
        instance = create();
        slot.store(instance, std::memory_order_release);
    }
    return instance;
}

}  // namespace android
