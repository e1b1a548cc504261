// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Stands in for the NDK's <android/binder_interface_utils.h>: the bases of generated interfaces.

#pragma once

#include <android/binder_auto_utils.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>

namespace ndk {

// An object owned by shared pointers alone, which can hand out further ones to itself.
class SharedRefBase {
  public:
    SharedRefBase() = default;
    virtual ~SharedRefBase() = default;
    SharedRefBase(const SharedRefBase&) = delete;
    SharedRefBase& operator=(const SharedRefBase&) = delete;

    template <class T, class... Args>
    static std::shared_ptr<T> make(Args&&... args) {
        std::shared_ptr<T> object(new T(std::forward<Args>(args)...));
        static_cast<SharedRefBase*>(object.get())->mThis = object;
        return object;
    }

    std::shared_ptr<SharedRefBase> ref() { return mThis.lock(); }

  protected:
    template <typename CHILD>
    std::shared_ptr<CHILD> ref() {
        return std::static_pointer_cast<CHILD>(ref());
    }

  private:
    std::weak_ptr<SharedRefBase> mThis;
};

// A binder interface, local or remote.
class ICInterface : public SharedRefBase {
  public:
    virtual SpAIBinder asBinder() = 0;
    virtual bool isRemote() = 0;
    virtual binder_status_t dump(int fd, const char** args, uint32_t numArgs);
};

// The local side of INTERFACE. Its binder object is made when first asked for.
template <typename INTERFACE>
class BnCInterface : public INTERFACE {
  public:
    SpAIBinder asBinder() final {
        const std::lock_guard<std::mutex> lock(mMutex);
        if (mBinder.get() == nullptr) mBinder = createBinder();
        return mBinder;
    }
    bool isRemote() override { return false; }

  protected:
    virtual SpAIBinder createBinder() = 0;

  private:
    std::mutex mMutex;
    SpAIBinder mBinder;
};

}  // namespace ndk
