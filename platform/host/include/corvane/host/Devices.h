// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace corvane::host {

// Emulation of the boost device and of sync files. Until enabled, the library's open() and ioctl()
// go through to the kernel. Requests that were told to fail are on record too. All functions may be
// called from any thread.

// One request to the emulated boost device.
struct BoostRequest {
    int32_t level;
    int32_t headroomNs;
    int32_t freqMHz;
    int64_t timeNs;     // systemTime at the request
    uint64_t threadId;  // gettid of the caller
};

class BoostDevice {
  public:
    // Makes "/dev/zufta" exist from now on.
    static void enable();
    static void disable();
    // From now on open() fails with this errno; 0 lets it succeed again.
    static void failOpen(int errnoValue);
    // From now on ioctl() fails with this errno; 0 lets it succeed again.
    static void failIoctl(int errnoValue);
    static int openCount();  // opens tried, failed ones included
    static std::vector<BoostRequest> requests();
    // Called for every request on the thread that makes it, with the device's lock held; null: no
    // more.
    static void setListener(std::function<void(const BoostRequest&)> listener);
    // Hands `sink` the requests kept so far and every later one, and keeps them no longer: on the
    // thread that makes it, with the device's lock held. Null: later ones are kept again, and the
    // sink before is not called once this returns.
    static void setSink(std::function<void(const BoostRequest&)> sink);
    static void clear();
};

// One deadline sent to an emulated sync file.
struct FenceDeadline {
    int fd;
    uint64_t deadlineNs;
    int64_t timeNs;
};

class SyncFiles {
  public:
    // Creates a sync file with this fence name and returns its descriptor, a real one that the
    // caller closes with close(). Any other descriptor goes through to the kernel.
    static int create(const std::string& fenceName);
    static void failInfo(int errnoValue);
    static void failDeadline(int errnoValue);
    static int infoCount();  // SYNC_IOC_FILE_INFO requests tried
    static std::vector<FenceDeadline> deadlines();
    // As BoostDevice's.
    static void setSink(std::function<void(const FenceDeadline&)> sink);
    static void clear();
};

}  // namespace corvane::host
