// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Stands in for bionic's <sys/system_properties.h>, of which <cutils/properties.h> needs the
// limits.

#pragma once

#define PROP_NAME_MAX 32
#define PROP_VALUE_MAX 92  // 91 characters and the terminator
