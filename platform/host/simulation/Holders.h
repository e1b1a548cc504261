// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstddef>

#include "SimThread.h"

namespace corvane::host {

// Who holds what others may wait for: mutexes, and initialisations that have begun. For the thread
// whose turn it is.
class Holders {
  public:
    constexpr Holders() = default;

    void clear() { mCount = 0; }

    // Null when nobody holds it.
    SimThread* of(const void* object) const {
        for (size_t i = 0; i < mCount; ++i) {
            if (mHeld[i].object == object) return mHeld[i].holder;
        }
        return nullptr;
    }

    // One that holds it already holds it twice. False when there is no room.
    bool add(const void* object, SimThread& holder) {
        if (mCount == kMaxHeld) return false;
        mHeld[mCount++] = {object, &holder};
        return true;
    }

    void remove(const void* object) {
        for (size_t i = mCount; i-- > 0;) {
            if (mHeld[i].object != object) continue;
            mHeld[i] = mHeld[--mCount];
            return;
        }
    }

  private:
    static constexpr size_t kMaxHeld = 4'096;

    struct Held {
        const void* object = nullptr;
        SimThread* holder = nullptr;
    };
    Held mHeld[kMaxHeld] = {};
    size_t mCount = 0;
};

}  // namespace corvane::host
