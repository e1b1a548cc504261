// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

namespace android {

// The two requests of the kernel's sync files that GPU-jank detection makes. Both return what
// ioctl() returned and leave its errno.

// On success `name` is the fence's name, which begins with that of its timeline.
int getFenceName(int fenceFd, std::string* name);

// Tells the fence's driver that it is due at once.
int setFenceDueNow(int fenceFd);

}  // namespace android
