// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <android-base/properties.h>
#include <android/log.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "corvane/host/LogCapture.h"
#include "corvane/host/PerfService.h"
#include "features/FeatureManager.h"

namespace android {

using Strings = std::vector<std::string>;
using Properties = std::vector<std::pair<std::string, std::string>>;

// Every case runs in a process of its own, so the manager is built anew from these properties.
class FeatureTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(corvane::host::PerfService::install()); }

    static FeatureManager& start(const Properties& properties) {
        for (const auto& [name, value] : properties) {
            EXPECT_TRUE(base::SetProperty(name, value)) << name;
        }
        return *FeatureManager::getInstance();
    }

    // The texts logged under the manager's tag at this priority since the last call.
    Strings takeLog(int priority) {
        Strings texts;
        for (const corvane::host::LogLine& line : log.lines()) {
            if (line.tag == "Corvane.FeatureManager" && line.priority == priority) {
                texts.push_back(line.text);
            }
        }
        log.clear();
        return texts;
    }
    Strings takeErrors() { return takeLog(ANDROID_LOG_ERROR); }
    Strings takeDebugLines() { return takeLog(ANDROID_LOG_DEBUG); }

    corvane::host::LogCapture log;
};

}  // namespace android
