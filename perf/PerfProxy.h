// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <utils/Mutex.h>
#include <utils/RefBase.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/Relaxed.h"
#include "timer/TimerQueue.h"

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
//
// The first getInstance() loads the service's client library and resolves its entry points, once
// and for all: a service that is not there then stays away for the life of the process, and the
// calls below yield their fixed results. Entry points are written only by the constructor and read
// without a lock, so every method may be called from any thread.
//
// The boost worker is the thread "BP". It makes the service calls that must not block a frame path.
// All locks and their order: docs/architecture.md.
class PerfProxy {
  public:
    using PerfCallback = aidl::vendor::hxw::hardware::perf2::IPerfCallback;

    // Created on first use; lives until the process ends.
    static PerfProxy* getInstance();

    // Undoes all of the construction, so that the next getInstance() starts anew. Nobody else may
    // be using the object; in normal operation it is never destroyed.
    ~PerfProxy();
    PerfProxy(const PerfProxy&) = delete;
    PerfProxy& operator=(const PerfProxy&) = delete;

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
    int perfCallbackRegister(std::shared_ptr<PerfCallback> callback, int clientId);  // missing: -1

    // Trace and log wrappers. All do nothing unless debuggable; each is then one load and compare.
    // Formatted trace texts are cut to 255 characters.
    static void setDebuggable(bool debuggable, bool profileable);
    static bool isDebuggable() { return sDebuggable; }
    // False also while nothing is printed at all: then there is no need to put a line together.
    static bool isProfileable() { return sDebuggable && sProfileable; }
    static void VLOGD(const char* tag, const char* fmt, ...) __attribute__((format(printf, 2, 3)));
    static void VTRACE_BEGIN(const char* name);
    static void VTRACE_END();
    static void VTRACE_ASYNC_BEGIN(const char* name, int cookie);
    static void VTRACE_ASYNC_END(const char* name, int cookie);
    static void VTRACE_NAME(const char* name);
    static void VTRACE_FORMAT(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
    // Also writes the text to the log when profileable.
    static void VTRACE_PROFILE(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

    // Layer names and packages. Names are chosen by applications: any length, any bytes.
    static std::string getPackageName(const std::string& layerName);
    static std::string getLayerSceneTag(const std::string& pkgName, const std::string& layerName);
    bool isGameApp(const std::string& pkgName);      // asks the service: blocks
    bool isGameLayer(const std::string& layerName);  // ditto; for whoever has only a layer's name
    int getGameWeight(const std::string& pkgName);   // asks the service: blocks

    // The boost worker. Posting never blocks; it returns 0 with nothing posted when no worker runs.
    uint64_t postTask(std::function<void()> task) EXCLUDES(mQueueLock);
    uint64_t postTaskDelayed(long long delayNs, std::function<void()> task) EXCLUDES(mQueueLock);

    // perfEvent() on the worker: the service answers when it likes, and no frame path waits for it.
    // Made at once when there is no worker to make it.
    void postEvent(int event, std::string pkgName, std::vector<int> args);

    // Moves the one low-latency lock to this process, or drops it; on the worker.
    void setLowLatency(int pid, bool enable);

    // Requests boost level `bl` with headroom `hr` (ns) and frequency `bf` (MHz) for request `id`:
    // levels 0 to 3 from the boost device at once, all others, or all without that device, from the
    // service on the worker.
    void frameHint(int bl, int hr, int id, const std::string& pkgName, int bf);

    // Starting a running worker, or stopping a stopped one, does nothing. Only one thread at a time
    // may start and stop; posting goes on meanwhile. Tasks still queued when it stops are lost.
    void startBoostThread() EXCLUDES(mQueueLock);
    void stopBoostThread() EXCLUDES(mQueueLock);

    // Modes and the numeric-text test; pure.
    static int getFpsMode(float fps);
    static int setVsyncMode(long long periodNs);
    static bool isNumericString(const std::string& s);

  private:
    // Entry points of the client library.
    using GetProp = PerfPropValue(const char* name, const char* defaultValue);
    using GetFeedback = int(int request, const char* pkg);
    using GetFeedbackExtn = int(int request, const char* pkg, int numArgs, int* args);
    using Hint = int(int hint, const char* pkg, int duration, int type);
    using Event = void(int event, const char* pkg, int numArgs, int* args);
    using LockAcq = int(int handle, int duration, int* list, int numArgs);
    using LockRel = int(int handle);
    using GetHalVer = double();
    using CallbackRegister = int(std::shared_ptr<PerfCallback> callback, int clientId);

    PerfProxy();

    // False when the client library or a required entry point is missing.
    bool bindClientLibrary();

    template <typename EntryPoint>
    bool resolve(const char* symbol, EntryPoint*& entryPoint);
    template <typename EntryPoint>
    bool resolveRequired(const char* symbol, EntryPoint*& entryPoint);

    // Whether the service calls the package a game, with the log line; the empty one is none.
    bool classify(const std::string& pkgName);

    void threadMain();
    sp<TimerQueue> timerQueue() EXCLUDES(mQueueLock);
    void replaceTimerQueue(sp<TimerQueue> queue) EXCLUDES(mQueueLock);
    void frameHintImp(int bl, int hr, int id, const std::string& pkgName);

    // The boost device's descriptor, opened on the first call; negative when there is none.
    int boostFd() EXCLUDES(mBoostProbeLock);
    void requestBoost(int fd, int bl, int hr, int id, int bf);

    static std::atomic<PerfProxy*> sInstance;
    static Relaxed<bool> sDebuggable;
    static Relaxed<bool> sProfileable;

    double mPerfHalVersion = 2.2;    // until the service says otherwise
    int32_t mLowLatencyHandle = -1;  // -1: no lock held; touched only on the worker

    void* mLibHandle = nullptr;
    GetProp* mPerfGetProp = nullptr;
    GetFeedback* mPerfGetFeedback = nullptr;
    GetFeedbackExtn* mPerfGetFeedbackExtn = nullptr;
    Hint* mPerfHint = nullptr;
    Event* mPerfEvent = nullptr;
    LockAcq* mPerfLockAcq = nullptr;
    LockRel* mPerfLockRel = nullptr;
    GetHalVer* mGetPerfHalVer = nullptr;
    CallbackRegister* mPerfCallbackRegister = nullptr;

    Mutex mBoostProbeLock;  // makes the first probe happen once
    int32_t mBoostFd = -1;  // written by the probe, read only after mBoostDeviceProbed
    std::atomic<bool> mBoostDeviceProbed{false};

    Mutex mQueueLock;  // held only to copy or replace the pointer
    sp<TimerQueue> mTimerQueue GUARDED_BY(mQueueLock);
    std::thread mBoostThread;
    std::atomic<bool> mThreadRunning{false};
};

}  // namespace android
