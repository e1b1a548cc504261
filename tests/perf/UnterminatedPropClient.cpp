// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// A client library of the service whose property records have no terminator, and no other entry.

#include <cstring>

struct PropValue {
    char value[92];
};

extern "C" __attribute__((visibility("default"))) PropValue perf_get_prop(const char*,
                                                                          const char*) {
    PropValue result;
    std::memset(result.value, 'v', sizeof(result.value));
    return result;
}
