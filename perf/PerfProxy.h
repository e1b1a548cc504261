// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace aidl::vendor::hxw::hardware::perf2 {
class IPerfCallback;
}

namespace android {

// A property's text as the service's client library returns it.
struct PerfPropValue {
    static constexpr size_t kSize = 92;  // the platform's PROP_VALUE_MAX: 91 characters and the NUL
    char value[kSize];
};

// The library's only gateway to the performance service, and the owner of the boost worker.
class PerfProxy {
  public:
    static PerfProxy* getInstance();

    // Service calls. Each hands its arguments on unchanged; a missing entry point yields the result
    // named here. They block for as long as the service takes.
    PerfPropValue perfGetProp(const char* name, const char* defaultValue);  // missing: the default
    int perfGetFeedback(int request, const char* pkg);                      // missing: -1
    int perfGetFeedbackExtn(int request, const char* pkg, int numArgs, int* args);  // missing: -1
    int perfHint(int hint, const char* pkg, int duration, int type);                // missing: -1
    void perfEvent(int event, const char* pkg, int numArgs, int* args);  // missing: does nothing
    int perfLockAcq(int handle, int duration, int* list, int numArgs);   // missing: -1
    int perfLockRel(int handle);                                         // missing: -1
    double getPerfHalVer();                                              // missing: -1.0
    int perfCallbackRegister(
            std::shared_ptr<aidl::vendor::hxw::hardware::perf2::IPerfCallback> callback,
            int clientId);  // missing: -1

    // Trace and log wrappers. All do nothing unless debuggable; each is then one load and compare.
    static void setDebuggable(bool debuggable, bool profileable);
    static bool isProfileable();
    static void VLOGD(const char* tag, const char* fmt, ...) __attribute__((format(printf, 2, 3)));
    static void VTRACE_BEGIN(const char* name);
    static void VTRACE_END();
    static void VTRACE_ASYNC_BEGIN(const char* name, int cookie);
    static void VTRACE_ASYNC_END(const char* name, int cookie);
    static void VTRACE_NAME(const char* name);
    static void VTRACE_FORMAT(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
    static void VTRACE_PROFILE(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

    // Layer names and packages. Names are chosen by applications: any length, any bytes.
    static std::string getPackageName(const std::string& layerName);
    static std::string getLayerSceneTag(const std::string& pkgName, const std::string& layerName);
    bool isGameApp(const std::string& pkgName);      // asks the service: blocks
    bool isGameLayer(const std::string& layerName);  // asks the service: blocks
    int getGameWeight(const std::string& pkgName);   // asks the service: blocks

    // The boost worker. Posting never blocks; it returns 0 with nothing posted when no worker runs.
    uint64_t postTask(std::function<void()> task);
    uint64_t postTaskDelayed(long long delayNs, std::function<void()> task);
    void setLowLatency(int pid, bool enable);
    void frameHint(int bl, int hr, int id, const std::string& pkgName, int bf);

    // Rate modes and the numeric-text test; pure.
    static int getFpsMode(float fps);
    static int setVsyncMode(long long periodNs);
    static bool isNumericString(const std::string& s);

  private:
    PerfProxy();
};

}  // namespace android
