// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Tunables texts as the performance service sends them: the input is the text.

#include <cstdint>
#include <string>

#include "features/GfrTunablesParser.h"
#include "fuzz/Check.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);

    const android::GfrTunables base;
    android::GfrTunables tunables;
    if (const auto error = android::parseGfrTunables(text, &tunables)) {
        FUZZ_CHECK(!error->empty());
        FUZZ_CHECK(tunables.flag == base.flag && tunables.jankThresholds == base.jankThresholds &&
                   tunables.baseFreq == base.baseFreq && tunables.dynamic == base.dynamic &&
                   tunables.lowerBoost == base.lowerBoost && tunables.golden == base.golden &&
                   tunables.kFactor == base.kFactor && tunables.histJank == base.histJank);
    } else {
        FUZZ_CHECK(text.find('=') != std::string::npos);
    }
    corvane::fuzz::checkTunables(tunables);
    FUZZ_CHECK(tunables.updateTime == base.updateTime);

    tunables = base;
    if (android::parseGlobalJankThresholds(text, &tunables.jankThresholds)) {
        FUZZ_CHECK(tunables.jankThresholds == base.jankThresholds);
    }
    corvane::fuzz::checkTunables(tunables);
    return 0;
}
