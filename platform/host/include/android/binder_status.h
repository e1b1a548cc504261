// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Stands in for the NDK's <android/binder_status.h>: the codes of a binder transaction.

#pragma once

#include <cstdint>

typedef int32_t binder_status_t;
typedef int32_t binder_exception_t;

enum : binder_status_t {
    STATUS_OK = 0,
};

enum : binder_exception_t {
    EX_NONE = 0,
    EX_ILLEGAL_ARGUMENT = -3,
    EX_NULL_POINTER = -4,
    EX_ILLEGAL_STATE = -5,
    EX_UNSUPPORTED_OPERATION = -7,
    EX_SERVICE_SPECIFIC = -8,
    EX_TRANSACTION_FAILED = -129,
};
