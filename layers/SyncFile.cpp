// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "layers/SyncFile.h"

#include <linux/sync_file.h>
#include <string.h>
#include <sys/ioctl.h>

// Came with Linux 6.4; a driver may know it although the headers are older.
#ifndef SYNC_IOC_SET_DEADLINE
struct sync_set_deadline {
    __u64 deadline_ns;
    __u64 pad;
};
#define SYNC_IOC_SET_DEADLINE _IOW(SYNC_IOC_MAGIC, 5, struct sync_set_deadline)
#endif

namespace android {

int getFenceName(int fenceFd, std::string* name) {
    sync_file_info info = {};  // no fences asked for: only name and status are filled in
    const int result = ioctl(fenceFd, SYNC_IOC_FILE_INFO, &info);
    if (result >= 0) name->assign(info.name, strnlen(info.name, sizeof(info.name)));
    return result;
}

int setFenceDueNow(int fenceFd) {
    sync_set_deadline deadline = {};  // a deadline of zero has always passed
    return ioctl(fenceFd, SYNC_IOC_SET_DEADLINE, &deadline);
}

}  // namespace android
