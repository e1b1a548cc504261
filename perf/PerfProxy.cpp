// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Loading the service's client library, and the calls through it.

#include "perf/PerfProxy.h"

#include <android/log.h>
#include <dlfcn.h>
#include <unistd.h>

#include <cstring>
#include <utility>

#include "base/Singleton.h"
#include "perf/PerfLog.h"

namespace android {

namespace {

constexpr char kClientLibrary[] = "libhxw-perfd-client_system.so";

// glibc refuses a flags word of 0, which bionic takes for its default.
#ifdef __GLIBC__
constexpr int kDlopenFlags = RTLD_NOW;
#else
constexpr int kDlopenFlags = 0;
#endif

// A service above this version answers the extended feedback request.
constexpr double kLastVersionWithoutExtn = 2.2;

constexpr int kGameRequest = 5633;  // classification and weight of a package
constexpr int kGameFeedback = 2;    // its answer for a game

}  // namespace

std::atomic<PerfProxy*> PerfProxy::sInstance{nullptr};

PerfProxy* PerfProxy::getInstance() {
    return instanceOnFirstUse<PerfProxy>(sInstance, [] { return new PerfProxy(); });
}

PerfProxy::PerfProxy() {
    if (bindClientLibrary()) startBoostThread();
}

PerfProxy::~PerfProxy() {
    stopBoostThread();
    if (mLibHandle != nullptr) dlclose(mLibHandle);
    if (mBoostFd >= 0) close(mBoostFd);
    mBoostDeviceProbed.store(false, std::memory_order_relaxed);
    mBoostFd = -1;
    sInstance.store(nullptr, std::memory_order_release);
    replaceTimerQueue(nullptr);
}

bool PerfProxy::bindClientLibrary() {
    mLibHandle = dlopen(kClientLibrary, kDlopenFlags);
    if (mLibHandle == nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, kPerfLogTag, "Unable to open %s: %s\n.",
                            kClientLibrary, dlerror());
        return false;
    }

    const bool found = resolveRequired("perf_get_prop", mPerfGetProp) &&
                       resolveRequired("perf_get_feedback", mPerfGetFeedback) &&
                       resolveRequired("perf_hint", mPerfHint) &&
                       resolveRequired("perf_event", mPerfEvent) &&
                       resolveRequired("perf_lock_acq", mPerfLockAcq) &&
                       resolveRequired("perf_lock_rel", mPerfLockRel);
    if (!found) return false;

    if (resolve("get_perf_hal_ver", mGetPerfHalVer)) {
        mPerfHalVersion = mGetPerfHalVer();
        if (mPerfHalVersion > kLastVersionWithoutExtn) {
            resolve("perf_get_feedback_extn", mPerfGetFeedbackExtn);
        }
    } else {
        VLOGD(kPerfLogTag, "Unable to find get_perf_hal_ver function.\n");
    }

    if (!resolve("perf_callback_register", mPerfCallbackRegister)) {
        __android_log_print(ANDROID_LOG_ERROR, kPerfLogTag,
                            "Unable to find perf_callback_register function. Err = %s", dlerror());
        return false;
    }
    return true;
}

template <typename EntryPoint>
bool PerfProxy::resolve(const char* symbol, EntryPoint*& entryPoint) {
    entryPoint = reinterpret_cast<EntryPoint*>(dlsym(mLibHandle, symbol));
    return entryPoint != nullptr;
}

template <typename EntryPoint>
bool PerfProxy::resolveRequired(const char* symbol, EntryPoint*& entryPoint) {
    if (resolve(symbol, entryPoint)) return true;
    __android_log_print(ANDROID_LOG_ERROR, kPerfLogTag, "Unable to find %s function.\n", symbol);
    return false;
}

PerfPropValue PerfProxy::perfGetProp(const char* name, const char* defaultValue) {
    const auto terminated = [](const char* text) {
        PerfPropValue result{};
        memcpy(result.value, text, strnlen(text, PerfPropValue::kSize - 1));
        return result;
    };
    // The service's record is its own: nothing says that its text ends.
    if (mPerfGetProp != nullptr) return terminated(mPerfGetProp(name, defaultValue).value);
    return terminated(defaultValue);
}

int PerfProxy::perfGetFeedback(int request, const char* pkg) {
    return mPerfGetFeedback != nullptr ? mPerfGetFeedback(request, pkg) : -1;
}

int PerfProxy::perfGetFeedbackExtn(int request, const char* pkg, int numArgs, int* args) {
    return mPerfGetFeedbackExtn != nullptr ? mPerfGetFeedbackExtn(request, pkg, numArgs, args) : -1;
}

int PerfProxy::perfHint(int hint, const char* pkg, int duration, int type) {
    return mPerfHint != nullptr ? mPerfHint(hint, pkg, duration, type) : -1;
}

void PerfProxy::perfEvent(int event, const char* pkg, int numArgs, int* args) {
    if (mPerfEvent != nullptr) mPerfEvent(event, pkg, numArgs, args);
}

int PerfProxy::perfLockAcq(int handle, int duration, int* list, int numArgs) {
    return mPerfLockAcq != nullptr ? mPerfLockAcq(handle, duration, list, numArgs) : -1;
}

int PerfProxy::perfLockRel(int handle) {
    return mPerfLockRel != nullptr ? mPerfLockRel(handle) : -1;
}

double PerfProxy::getPerfHalVer() {
    return mGetPerfHalVer != nullptr ? mGetPerfHalVer() : -1.0;
}

int PerfProxy::perfCallbackRegister(std::shared_ptr<PerfCallback> callback, int clientId) {
    return mPerfCallbackRegister != nullptr ? mPerfCallbackRegister(std::move(callback), clientId)
                                            : -1;
}

bool PerfProxy::classify(const std::string& pkgName) {
    const bool isGame =
            !pkgName.empty() && perfGetFeedback(kGameRequest, pkgName.c_str()) == kGameFeedback;
    VLOGD(kPerfLogTag, "isGameApp:%d [%s]", isGame, pkgName.c_str());
    return isGame;
}

bool PerfProxy::isGameApp(const std::string& pkgName) {
    return !pkgName.empty() && classify(pkgName);
}

bool PerfProxy::isGameLayer(const std::string& layerName) {
    const bool isGame = classify(getPackageName(layerName));
    VLOGD(kPerfLogTag, "isGameLayer:%d [%s]", isGame, layerName.c_str());
    return isGame;
}

int PerfProxy::getGameWeight(const std::string& pkgName) {
    int weight = -1;
    if (!pkgName.empty()) {
        if (mPerfHalVersion > kLastVersionWithoutExtn) {
            int args[] = {1, 0};
            weight = perfGetFeedbackExtn(kGameRequest, pkgName.c_str(), 2, args);
        } else {
            // Older services answer the weight query through the hint entry point.
            weight = perfHint(kGameRequest, pkgName.c_str(), 0, 1);
        }
    }
    VLOGD(kPerfLogTag, "GameWeight:%d [%s]", weight, pkgName.c_str());
    return weight;
}

}  // namespace android
