// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

namespace corvane::host {

// The process's system property store, beside the platform's own calls on it
// (<android-base/properties.h>, <cutils/properties.h>).

// How often `name` has been read since the process began, through whichever interface;
// waits are no reads.
int propertyReads(const std::string& name);

}  // namespace corvane::host
