// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Binder callers, binder objects, and the small libgui and libui bodies.

#include "corvane/host/Binder.h"

#include <aidl/vendor/hxw/hardware/perf2/BnPerfCallback.h>
#include <binder/IPCThreadState.h>
#include <gui/SurfaceComposerClient.h>
#include <ui/Rect.h>
#include <unistd.h>

#include <atomic>
#include <mutex>

#include "corvane/host/Simulation.h"

// On the host a binder object is only an identity: nothing is ever sent through it.
struct AIBinder {
    std::atomic<int> strong{1};
};

void AIBinder_incStrong(AIBinder* binder) {
    if (binder != nullptr) binder->strong.fetch_add(1, std::memory_order_relaxed);
}

void AIBinder_decStrong(AIBinder* binder) {
    if (binder != nullptr && binder->strong.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        delete binder;
    }
}

namespace ndk {

binder_status_t ICInterface::dump(int /*fd*/, const char** /*args*/, uint32_t /*numArgs*/) {
    return STATUS_OK;
}

}  // namespace ndk

namespace aidl::vendor::hxw::hardware::perf2 {

const char* IPerfCallback::descriptor = "vendor.hxw.hardware.perf2.IPerfCallback";

BnPerfCallback::BnPerfCallback() = default;
BnPerfCallback::~BnPerfCallback() = default;

::ndk::ScopedAStatus BnPerfCallback::getInterfaceVersion(int32_t* interfaceVersion) {
    *interfaceVersion = IPerfCallback::version;
    return ::ndk::ScopedAStatus::ok();
}

::ndk::ScopedAStatus BnPerfCallback::getInterfaceHash(std::string* interfaceHash) {
    *interfaceHash = IPerfCallback::hash;
    return ::ndk::ScopedAStatus::ok();
}

::ndk::SpAIBinder BnPerfCallback::createBinder() {
    return ::ndk::SpAIBinder(new AIBinder);
}

}  // namespace aidl::vendor::hxw::hardware::perf2

namespace {

struct PowerBoosts {
    std::mutex mutex;
    std::vector<int32_t> ids;
};

// Never destroyed: the library's detached threads may call until the process ends.
PowerBoosts& powerBoostLog() {
    static auto* log = new PowerBoosts;
    return *log;
}

}  // namespace

namespace android {

IPCThreadState::IPCThreadState()
      : mCallingPid(corvane::host::Simulation::processId()), mCallingUid(getuid()) {}

IPCThreadState* IPCThreadState::self() {
    static thread_local IPCThreadState state;
    return &state;
}

status_t SurfaceComposerClient::notifyPowerBoost(int32_t boostId) {
    PowerBoosts& log = powerBoostLog();
    const std::lock_guard<std::mutex> lock(log.mutex);
    log.ids.push_back(boostId);
    return OK;
}

const Rect Rect::INVALID_RECT{0, 0, -1, -1};

}  // namespace android

namespace corvane::host {

using android::IPCThreadState;

ScopedBinderCaller::ScopedBinderCaller(pid_t pid, uid_t uid)
      : mPreviousPid(IPCThreadState::self()->getCallingPid()),
        mPreviousUid(IPCThreadState::self()->getCallingUid()) {
    IPCThreadState::self()->setCaller(pid, uid);
}

ScopedBinderCaller::~ScopedBinderCaller() {
    IPCThreadState::self()->setCaller(mPreviousPid, mPreviousUid);
}

std::vector<int32_t> powerBoosts() {
    PowerBoosts& log = powerBoostLog();
    const std::lock_guard<std::mutex> lock(log.mutex);
    return log.ids;
}

void clearPowerBoosts() {
    PowerBoosts& log = powerBoostLog();
    const std::lock_guard<std::mutex> lock(log.mutex);
    log.ids.clear();
}

}  // namespace corvane::host
