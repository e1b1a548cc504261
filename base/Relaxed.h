// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <atomic>

namespace android {

// A value that threads share without a lock. Each access is whole, and none orders anything else:
// for switches and times of which a slightly older one does no harm.
template <typename T>
class Relaxed {
  public:
    constexpr Relaxed(T value) : mValue(value) {}
    Relaxed(const Relaxed&) = delete;
    Relaxed& operator=(const Relaxed&) = delete;

    operator T() const { return mValue.load(std::memory_order_relaxed); }
    T operator=(T value) {
        mValue.store(value, std::memory_order_relaxed);
        return value;
    }
    T exchange(T value) { return mValue.exchange(value, std::memory_order_relaxed); }

  private:
    std::atomic<T> mValue;
};

}  // namespace android
