// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <linux/ioctl.h>

#include <cstdint>

namespace android {

// The kernel's boost device and the one record it takes.
inline constexpr char kBoostDevicePath[] = "/dev/zufta";

// The ioctl's argument: a kernel wire format in native byte order.
struct GfrIoctlData {
    int32_t bl;  // boost level; 0 releases the boost
    int32_t hr;  // headroom in ns
    int32_t bf;  // boost frequency in MHz; 0 for a release or when none is wanted
};
static_assert(sizeof(GfrIoctlData) == 12);

inline constexpr unsigned int kGfrIoctlRequest = _IOW('g', 1, GfrIoctlData);
static_assert(kGfrIoctlRequest == 0x400C6701);

// The highest level that the device takes; the service takes those above.
inline constexpr int kMaxDeviceBoostLevel = 3;

}  // namespace android
