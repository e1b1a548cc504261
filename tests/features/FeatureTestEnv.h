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
#include "corvane/host/Simulation.h"
#include "features/FeatureManager.h"

namespace android {

using corvane::host::Simulation;
using Strings = std::vector<std::string>;
using Properties = std::vector<std::pair<std::string, std::string>>;

// In the place of the layer registry: notes what it is told, as "feature package", and logs it.
class Notifications final : public ConfigObserver {
  public:
    void onFeatureConfigChanged(Feature feature, const std::string& pkgName) override {
        std::string text = std::to_string(feature) + " " + pkgName;
        if (feature == ACTV_NON_GAME_RESUME) {
            text += ", awaited " + FeatureManager::getInstance()->getCheckingAliveApp();
        }
        __android_log_write(ANDROID_LOG_INFO, "Notifications", ("told: " + text).c_str());
        Mutex::Autolock lock(mLock);
        mTexts.push_back(std::move(text));
    }
    Strings take() {
        Mutex::Autolock lock(mLock);
        return std::exchange(mTexts, {});
    }

  private:
    Mutex mLock;
    Strings mTexts GUARDED_BY(mLock);
};

// Every case runs in a process of its own, so the manager is built anew from these properties.
class FeatureTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(corvane::host::PerfService::install()); }

    // A watcher may have notified of what it found at its start before the observer is set.
    FeatureManager& start(const Properties& properties) {
        for (const auto& [name, value] : properties) {
            EXPECT_TRUE(base::SetProperty(name, value)) << name;
        }
        FeatureManager::getInstance()->setConfigObserver(&notifications);
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

    Simulation simulation{1'000'000'000};
    corvane::host::LogCapture log;
    Notifications& notifications = *new Notifications;  // the watchers outlive the test
};

}  // namespace android
