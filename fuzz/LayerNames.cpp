// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Layer names as applications choose them: the input is the name. What the library's scans find is
// compared with the expressions.

#include <algorithm>
#include <cstdint>
#include <string>

#include "fuzz/Check.h"
#include "perf/LayerName.h"
#include "perf/PerfProxy.h"
#include "tests/perf/LayerNameReference.h"

// Beyond this the matcher of the expressions is too slow for as many runs as a fuzzer needs.
constexpr size_t kMaxCompared = 96;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using android::LayerNameReference;
    const std::string name(reinterpret_cast<const char*>(data), size);
    const std::string package = android::PerfProxy::getPackageName(name);
    FUZZ_CHECK(package.size() <= std::max(name.size(), std::string("UnknownKeyboard").size()));
    if (size > kMaxCompared) return 0;

    FUZZ_CHECK(package == LayerNameReference::package(name));
    const auto scanned = android::scanSurfaceViewName(name);
    const auto matched = LayerNameReference::surfaceView(name);
    FUZZ_CHECK(scanned.has_value() == matched.has_value());
    FUZZ_CHECK(!scanned || *scanned == *matched);
    FUZZ_CHECK(android::scanInputMethodName(name) == LayerNameReference::isInputMethod(name));
    return 0;
}
