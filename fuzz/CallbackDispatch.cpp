// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Sequences of the performance service's callbacks: each input is a list of calls with any hint,
// text, integers and vector. What is stored must always be what the readers were promised.

#include <android-base/properties.h>
#include <android/log.h>
#include <fuzzer/FuzzedDataProvider.h>

#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "corvane/host/PerfService.h"
#include "features/FeatureManager.h"
#include "fuzz/Check.h"
#include "perf/PerfProxy.h"

using android::FeatureManager;

namespace {

constexpr int kHints[] = {4171, 4187, 4189, 4192};
constexpr int kHintTargetFps = 4171;
constexpr size_t kMaxValues = 8;

// Packages whose configurations one input may have left.
using Packages = std::set<std::string>;

int anyHint(FuzzedDataProvider& input) {
    const size_t index = input.ConsumeIntegralInRange<uint8_t>(0, std::size(kHints));
    return index < std::size(kHints) ? kHints[index] : input.ConsumeIntegral<int>();
}

void call(FeatureManager& manager, FuzzedDataProvider& input, Packages& packages) {
    const int hint = anyHint(input);
    const int arg1 = input.ConsumeIntegral<int>();
    const int arg2 = input.ConsumeIntegral<int>();
    std::vector<int> values(input.ConsumeIntegralInRange<uint8_t>(0, kMaxValues));
    for (int& value : values) value = input.ConsumeIntegral<int>();
    const std::string text = input.ConsumeRandomLengthString();
    try {
        manager.setCallbackHintValue(hint, text, arg1, arg2, values);
    } catch (const std::out_of_range&) {
        // The one exception that the callback has to expect.
        FUZZ_CHECK(hint == kHintTargetFps && android::PerfProxy::isNumericString(text));
    }
    packages.insert(text);
    packages.insert(text.substr(0, text.find(':')));
}

void checkStored(const FeatureManager& manager, const Packages& packages) {
    size_t rates = 0, headrooms = 0, tunables = 0;
    for (const std::string& package : packages) {
        if (const auto config = manager.getTfpsConfig(package, false)) {
            ++rates;
            FUZZ_CHECK(config->targetFps > 0.0f && config->targetFps <= 240.0f);
        }
        if (const auto config = manager.getPhrConfig(package, false)) {
            ++headrooms;
            FUZZ_CHECK(config->phrMinRate > 0.0f || config->highFpsPhrMinRate > 0.0f);
        }
        if (const auto config = manager.getGFRTunables(package, false)) {
            ++tunables;
            corvane::fuzz::checkTunables(*config);
        }
    }
    constexpr size_t kMaxPackages = 4;
    FUZZ_CHECK(rates <= kMaxPackages && headrooms <= kMaxPackages && tunables <= kMaxPackages);
    FUZZ_CHECK(manager.isTfpsConfigured() == (rates > 0));
}

// Setting the global configuration clears a map, and removing it leaves the map empty.
void clearStored(FeatureManager& manager) {
    manager.setTargetFps("", 0.0f);
    manager.setPhrMinRate("", {});
    manager.setGFRProp("", {0});
    manager.processAliveAppCheck("");
    corvane::host::PerfService::clearCalls();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    __android_log_set_logger([](const __android_logger_data*, const char*) {});
    FUZZ_CHECK(corvane::host::PerfService::install());
    // Debug mode, so that the log lines are formatted too.
    for (const char* name :
         {"vendor.perf.corvane.debug", "vendor.perf.phr.enable", "vendor.rdxe.enable.target_fps"}) {
        FUZZ_CHECK(android::base::SetProperty(name, "1"));
    }
    FUZZ_CHECK(FeatureManager::getInstance()->isFeatureEnabled(android::TARGET_FPS));
    FUZZ_CHECK(FeatureManager::getInstance()->isFeatureEnabled(android::QUICK_TOUCH));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FeatureManager& manager = *FeatureManager::getInstance();
    FuzzedDataProvider input(data, size);
    Packages packages{""};
    while (input.remaining_bytes() > 0) {
        call(manager, input, packages);
        checkStored(manager, packages);
    }
    manager.processAliveAppCheck(input.ConsumeRandomLengthString());
    clearStored(manager);
    FUZZ_CHECK(!manager.isTfpsConfigured());
    return 0;
}
