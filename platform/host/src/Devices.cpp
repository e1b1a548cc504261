// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// The emulated boost device and sync files. An emulated file is a memory file of its own, so that a
// descriptor that was closed and given out again is not mistaken for it: the boost device's are
// known by their inodes, sync files by the memory file's name, and what these hold is the fence's.
// Nothing else is kept of a sync file: there may be one for each frame.

#include "corvane/host/Devices.h"

#include <fcntl.h>
#include <linux/sync_file.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utils/Timers.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <mutex>
#include <optional>
#include <set>
#include <utility>

namespace corvane::host {
namespace {

constexpr char kBoostPath[] = "/dev/zufta";

// The boost driver's request and record.
struct BoostRecord {
    int32_t level;
    int32_t headroomNs;
    int32_t freqMHz;
};
constexpr unsigned long kBoostRequest = _IOW('g', 1, BoostRecord);
static_assert(kBoostRequest == 0x400C6701);

// Newer than the kernel headers of the host.
struct SyncDeadline {
    uint64_t deadlineNs;
    uint64_t reserved;
};
constexpr unsigned long kSyncSetDeadline = _IOW('>', 5, SyncDeadline);
static_assert(kSyncSetDeadline == 0x40103E05);
static_assert(SYNC_IOC_FILE_INFO == 0xC0383E04);

using FileId = std::pair<dev_t, ino_t>;

std::optional<FileId> idOf(int fd) {
    struct stat status {};
    if (fstat(fd, &status) != 0) return std::nullopt;
    return FileId{status.st_dev, status.st_ino};
}

// Records that are kept until there is a sink for them.
template <typename T>
struct Records {
    std::vector<T> kept;
    std::function<void(const T&)> sink;

    void add(const T& record) {
        if (sink) {
            sink(record);
        } else {
            kept.push_back(record);
        }
    }
    void setSink(std::function<void(const T&)> newSink) {
        sink = std::move(newSink);
        if (!sink) return;
        for (const T& record : std::exchange(kept, {})) sink(record);
    }
};

constexpr char kSyncFile[] = "sync_file";

// Nothing when `fd` is no emulated sync file.
std::optional<std::string> fenceNameOf(int fd) {
    const std::string expected = std::string("/memfd:") + kSyncFile + " (deleted)";
    std::string text(expected.size() + 1, '\0');
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    const ssize_t length = readlink(link.c_str(), text.data(), text.size());
    if (length < 0 || text.compare(0, static_cast<size_t>(length), expected) != 0) {
        return std::nullopt;
    }
    std::string name(sizeof(sync_file_info::name), '\0');
    const ssize_t size = pread(fd, name.data(), name.size(), 0);
    name.resize(static_cast<size_t>(std::max<ssize_t>(0, size)));
    return name;
}

struct Devices {
    std::mutex mutex;

    std::set<FileId> boostFiles;
    int boostOpenErrno = 0;
    int boostIoctlErrno = 0;
    int boostOpens = 0;
    Records<BoostRequest> boostRequests;
    std::function<void(const BoostRequest&)> boostListener;

    int syncInfoErrno = 0;
    int syncDeadlineErrno = 0;
    int syncInfos = 0;
    Records<FenceDeadline> syncDeadlines;
};

// Never destroyed: the library's threads may call until the process ends.
Devices& devices() {
    static auto* instance = new Devices;
    return *instance;
}

std::atomic<bool> sBoostEnabled{false};
std::atomic<bool> sHasFiles{false};  // whether any emulated file was ever made

int fail(int errnoValue) {
    errno = errnoValue;
    return -1;
}

// 0 or -1 with errno set, for a request that was told to fail with `errnoValue`, or not (0).
int outcome(int errnoValue) {
    return errnoValue == 0 ? 0 : fail(errnoValue);
}

int openBoostDevice(int flags) {
    Devices& d = devices();
    const std::lock_guard<std::mutex> lock(d.mutex);
    ++d.boostOpens;
    if (d.boostOpenErrno != 0) return fail(d.boostOpenErrno);
    const int fd = memfd_create("zufta", (flags & O_CLOEXEC) != 0 ? MFD_CLOEXEC : 0);
    if (fd < 0) return fd;
    d.boostFiles.insert(*idOf(fd));
    sHasFiles.store(true, std::memory_order_relaxed);
    return fd;
}

int boostIoctl(Devices& d, unsigned long request, const void* argument) {
    if (request != kBoostRequest) return fail(ENOTTY);
    BoostRecord record;
    memcpy(&record, argument, sizeof(record));
    const BoostRequest made{record.level, record.headroomNs, record.freqMHz,
                            systemTime(SYSTEM_TIME_MONOTONIC), static_cast<uint64_t>(gettid())};
    d.boostRequests.add(made);
    if (d.boostListener) d.boostListener(made);
    return outcome(d.boostIoctlErrno);
}

int syncIoctl(Devices& d, int fd, const std::string& fenceName, unsigned long request,
              void* argument) {
    if (request == SYNC_IOC_FILE_INFO) {
        ++d.syncInfos;
        if (d.syncInfoErrno != 0) return fail(d.syncInfoErrno);
        auto* info = static_cast<sync_file_info*>(argument);
        memset(info->name, 0, sizeof(info->name));
        fenceName.copy(info->name, sizeof(info->name) - 1);
        info->status = 0;  // not signalled
        info->num_fences = 1;
        return 0;
    }
    if (request == kSyncSetDeadline) {
        SyncDeadline deadline;
        memcpy(&deadline, argument, sizeof(deadline));
        d.syncDeadlines.add({fd, deadline.deadlineNs, systemTime(SYSTEM_TIME_MONOTONIC)});
        return outcome(d.syncDeadlineErrno);
    }
    return fail(ENOTTY);
}

// Nothing when `fd` is no emulated file.
std::optional<int> emulatedIoctl(int fd, unsigned long request, void* argument) {
    const std::optional<FileId> id = idOf(fd);
    if (!id) return std::nullopt;
    Devices& d = devices();
    const std::lock_guard<std::mutex> lock(d.mutex);
    if (d.boostFiles.count(*id) != 0) return boostIoctl(d, request, argument);
    const std::optional<std::string> fence = fenceNameOf(fd);
    if (fence) return syncIoctl(d, fd, *fence, request, argument);
    return std::nullopt;
}

template <typename Field, typename Value>
void store(Field Devices::*field, const Value& value) {
    Devices& d = devices();
    const std::lock_guard<std::mutex> lock(d.mutex);
    d.*field = value;
}

template <typename Field>
Field load(Field Devices::*field) {
    Devices& d = devices();
    const std::lock_guard<std::mutex> lock(d.mutex);
    return d.*field;
}

}  // namespace

void BoostDevice::enable() {
    sBoostEnabled.store(true, std::memory_order_relaxed);
}

void BoostDevice::disable() {
    sBoostEnabled.store(false, std::memory_order_relaxed);
}

void BoostDevice::failOpen(int errnoValue) {
    store(&Devices::boostOpenErrno, errnoValue);
}

void BoostDevice::failIoctl(int errnoValue) {
    store(&Devices::boostIoctlErrno, errnoValue);
}

int BoostDevice::openCount() {
    return load(&Devices::boostOpens);
}

std::vector<BoostRequest> BoostDevice::requests() {
    return load(&Devices::boostRequests).kept;
}

void BoostDevice::setListener(std::function<void(const BoostRequest&)> listener) {
    store(&Devices::boostListener, std::move(listener));
}

void BoostDevice::setSink(std::function<void(const BoostRequest&)> sink) {
    Devices& d = devices();
    const std::lock_guard<std::mutex> lock(d.mutex);
    d.boostRequests.setSink(std::move(sink));
}

void BoostDevice::clear() {
    Devices& d = devices();
    const std::lock_guard<std::mutex> lock(d.mutex);
    d.boostOpens = 0;
    d.boostRequests.kept.clear();
}

int SyncFiles::create(const std::string& fenceName) {
    const int fd = memfd_create(kSyncFile, MFD_CLOEXEC);
    if (fd < 0) return fd;
    if (pwrite(fd, fenceName.data(), fenceName.size(), 0) < 0) {
        close(fd);
        return -1;
    }
    sHasFiles.store(true, std::memory_order_relaxed);
    return fd;
}

void SyncFiles::failInfo(int errnoValue) {
    store(&Devices::syncInfoErrno, errnoValue);
}

void SyncFiles::failDeadline(int errnoValue) {
    store(&Devices::syncDeadlineErrno, errnoValue);
}

int SyncFiles::infoCount() {
    return load(&Devices::syncInfos);
}

std::vector<FenceDeadline> SyncFiles::deadlines() {
    return load(&Devices::syncDeadlines).kept;
}

void SyncFiles::setSink(std::function<void(const FenceDeadline&)> sink) {
    Devices& d = devices();
    const std::lock_guard<std::mutex> lock(d.mutex);
    d.syncDeadlines.setSink(std::move(sink));
}

void SyncFiles::clear() {
    Devices& d = devices();
    const std::lock_guard<std::mutex> lock(d.mutex);
    d.syncInfos = 0;
    d.syncDeadlines.kept.clear();
}

}  // namespace corvane::host

using namespace corvane::host;

extern "C" {

int __wrap_open(const char* path, int flags, ...) {
    if (sBoostEnabled.load(std::memory_order_relaxed) && strcmp(path, kBoostPath) == 0) {
        return openBoostDevice(flags);
    }
    if ((flags & (O_CREAT | __O_TMPFILE)) == 0) return open(path, flags);
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = va_arg(arguments, mode_t);
    va_end(arguments);
    return open(path, flags, mode);
}

int __wrap_ioctl(int fd, unsigned long request, ...) {
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    if (sHasFiles.load(std::memory_order_relaxed)) {
        if (const std::optional<int> result = emulatedIoctl(fd, request, argument)) return *result;
    }
    return ioctl(fd, request, argument);
}

}  // extern "C"
