// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// The boost worker and what is asked of it, and the boost device.

#include <android/log.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "perf/BoostDevice.h"
#include "perf/PerfLog.h"
#include "perf/PerfProxy.h"
#include "perf/TraceSection.h"
#include "timer/TimerThread.h"

namespace android {

namespace {

constexpr char kWorkerName[] = "BP";
constexpr int kLowLatencyResource = 0x40CD0000;
constexpr int kFrameHintEvent = 4186;

}  // namespace

void PerfProxy::startBoostThread() {
    if (mThreadRunning.exchange(true)) return;

    sp<TimerQueue> queue = sp<TimerQueue>::make();
    if (!queue->isInitialized()) {
        mThreadRunning = false;
        replaceTimerQueue(nullptr);
        return;
    }
    replaceTimerQueue(std::move(queue));
    try {
        mBoostThread = std::thread(&PerfProxy::threadMain, this);
    } catch (const std::system_error&) {
        __android_log_print(ANDROID_LOG_ERROR, kPerfLogTag, "BoostThread Creation Failed");
        mThreadRunning = false;
        replaceTimerQueue(nullptr);
        return;
    }
    pthread_setname_np(mBoostThread.native_handle(), kWorkerName);
}

void PerfProxy::stopBoostThread() {
    if (!mThreadRunning.exchange(false)) return;
    if (const sp<TimerQueue> queue = timerQueue(); queue != nullptr) queue->wake();
    if (mBoostThread.joinable()) mBoostThread.join();
}

void PerfProxy::threadMain() {
    raiseFrameThreadPriority();
    const sp<TimerQueue> queue = timerQueue();
    runTimerLoop(*queue, mThreadRunning, kPerfLogTag);
}

sp<TimerQueue> PerfProxy::timerQueue() {
    Mutex::Autolock lock(mQueueLock);
    return mTimerQueue;
}

void PerfProxy::replaceTimerQueue(sp<TimerQueue> queue) {
    // The old queue leaves with `queue`, after the lock: it may destroy tasks.
    Mutex::Autolock lock(mQueueLock);
    std::swap(mTimerQueue, queue);
}

uint64_t PerfProxy::postTask(std::function<void()> task) {
    return postTaskDelayed(0, std::move(task));
}

uint64_t PerfProxy::postTaskDelayed(long long delayNs, std::function<void()> task) {
    // Relaxed: the flag only saves work; the queue itself is read under its lock.
    if (!mThreadRunning.load(std::memory_order_relaxed)) return 0;
    const sp<TimerQueue> queue = timerQueue();
    return queue != nullptr ? queue->postTaskDelayed(delayNs, std::move(task)) : 0;
}

void PerfProxy::postEvent(int event, std::string pkgName, std::vector<int> args) {
    std::function<void()> task = [this, event, pkgName = std::move(pkgName),
                                  args = std::move(args)]() mutable {
        perfEvent(event, pkgName.c_str(), static_cast<int>(args.size()),
                  args.empty() ? nullptr : args.data());
    };
    if (postTask(task) == 0) task();
}

void PerfProxy::setLowLatency(int pid, bool enable) {
    postTask([this, pid, enable] {
        if (mLowLatencyHandle >= 1) perfLockRel(mLowLatencyHandle);
        mLowLatencyHandle = -1;
        if (enable) {
            int list[] = {kLowLatencyResource, pid};
            mLowLatencyHandle =
                    perfLockAcq(/*handle: a new lock*/ 0, /*duration: until released*/ 0, list, 2);
        }
    });
}

void PerfProxy::frameHint(int bl, int hr, int id, const std::string& pkgName, int bf) {
    const int fd = boostFd();
    if (fd >= 0 && bl >= 0 && bl <= kMaxDeviceBoostLevel) {
        requestBoost(fd, bl, hr, id, bf);
        return;
    }
    // Tested here too, so that a dropped hint does not copy the name.
    if (!mThreadRunning.load(std::memory_order_relaxed)) return;
    postTask([this, bl, hr, id, pkgName] { frameHintImp(bl, hr, id, pkgName); });
}

void PerfProxy::frameHintImp(int bl, int hr, int id, const std::string& pkgName) {
    const TraceSection section("frame hint");
    if (bl != 0) VTRACE_PROFILE("Boost hint: %d, [id: %d]", bl, id);
    int args[] = {bl, hr};
    perfEvent(kFrameHintEvent, pkgName.empty() ? nullptr : pkgName.c_str(), 2, args);
}

int PerfProxy::boostFd() {
    // Acquire: who sees the flag sees the descriptor that was stored before it.
    if (mBoostDeviceProbed.load(std::memory_order_acquire)) return mBoostFd;

    Mutex::Autolock lock(mBoostProbeLock);
    if (mBoostDeviceProbed.load(std::memory_order_relaxed)) return mBoostFd;
    mBoostFd = open(kBoostDevicePath, O_RDONLY);
    if (mBoostFd >= 0) {
        VLOGD(kPerfLogTag, "[GFR_BOOST] Successfully opened %s, zufta is available\n",
              kBoostDevicePath);
    } else {
        const int error = errno;
        __android_log_print(ANDROID_LOG_ERROR, kPerfLogTag,
                            "[GFR_BOOST] Failed to open %s, zufta not available, errno=%d (%s)\n",
                            kBoostDevicePath, error, strerror(error));
    }
    mBoostDeviceProbed.store(true, std::memory_order_release);
    return mBoostFd;
}

void PerfProxy::requestBoost(int fd, int bl, int hr, int id, int bf) {
    GfrIoctlData request{bl, hr, bf};  // the caller's own: hints come from several threads
    VTRACE_FORMAT("[GFR_BOOST] GFR_IOCTL bl=%d hr=%d bf=%d, [id: %d]", bl, hr, bf, id);
    const int result = ioctl(fd, kGfrIoctlRequest, &request);
    if (result < 0) {
        __android_log_print(ANDROID_LOG_ERROR, kPerfLogTag,
                            "[GFR_BOOST] GFR ioctl failed, ret=%d, ioctl_fd=%d errno=%d", result,
                            fd, errno);
    }
}

}  // namespace android
