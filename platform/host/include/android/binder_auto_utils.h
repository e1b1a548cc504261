// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Stands in for the NDK's <android/binder_auto_utils.h>: the owning binder and status types.

#pragma once

#include <android/binder_status.h>

#include <cstddef>
#include <string>
#include <utility>

struct AIBinder;
extern "C" {
void AIBinder_incStrong(AIBinder* binder);
void AIBinder_decStrong(AIBinder* binder);
}

namespace ndk {

// Strong reference to a binder object.
class SpAIBinder {
  public:
    SpAIBinder() = default;
    explicit SpAIBinder(AIBinder* binder) : mBinder(binder) {}  // takes the caller's reference
    SpAIBinder(std::nullptr_t) {}                               // NOLINT(implicit)
    SpAIBinder(const SpAIBinder& other) : mBinder(other.mBinder) { AIBinder_incStrong(mBinder); }
    SpAIBinder(SpAIBinder&& other) noexcept : mBinder(std::exchange(other.mBinder, nullptr)) {}
    ~SpAIBinder() { AIBinder_decStrong(mBinder); }
    SpAIBinder& operator=(SpAIBinder other) noexcept {
        std::swap(mBinder, other.mBinder);
        return *this;
    }

    AIBinder* get() const { return mBinder; }
    bool operator==(const SpAIBinder& other) const { return mBinder == other.mBinder; }
    bool operator!=(const SpAIBinder& other) const { return mBinder != other.mBinder; }

  private:
    AIBinder* mBinder = nullptr;
};

// The outcome of a binder transaction. The default-constructed one is empty, not a success.
class [[nodiscard]] ScopedAStatus {
  public:
    ScopedAStatus() = default;
    ScopedAStatus(ScopedAStatus&& other) noexcept
          : mSet(std::exchange(other.mSet, false)),
            mException(other.mException),
            mMessage(std::move(other.mMessage)) {}
    ScopedAStatus& operator=(ScopedAStatus&& other) noexcept {
        mSet = std::exchange(other.mSet, false);
        mException = other.mException;
        mMessage = std::move(other.mMessage);
        return *this;
    }
    ScopedAStatus(const ScopedAStatus&) = delete;
    ScopedAStatus& operator=(const ScopedAStatus&) = delete;

    static ScopedAStatus ok() { return ScopedAStatus(EX_NONE, ""); }
    static ScopedAStatus fromExceptionCode(binder_exception_t exception) {
        return ScopedAStatus(exception, "");
    }
    static ScopedAStatus fromExceptionCodeWithMessage(binder_exception_t exception,
                                                      const char* message) {
        return ScopedAStatus(exception, message);
    }

    bool isOk() const { return mSet && mException == EX_NONE; }
    binder_exception_t getExceptionCode() const { return mException; }
    const char* getMessage() const { return mMessage.c_str(); }

  private:
    ScopedAStatus(binder_exception_t exception, const char* message)
          : mSet(true), mException(exception), mMessage(message) {}

    bool mSet = false;
    binder_exception_t mException = EX_NONE;
    std::string mMessage;
};

}  // namespace ndk
