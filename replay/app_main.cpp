// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// The application of a replay: loads the library as an application process does, and calls its
// application hooks on the timeline that corvane-replay hands over.

#include <android-base/properties.h>
#include <dlfcn.h>
#include <sys/prctl.h>
#include <utils/Timers.h>

#include <atomic>
#include <csignal>
#include <cstdint>
#include <iostream>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "corvane/hooks.h"
#include "corvane/host/Binder.h"
#include "corvane/host/LogCapture.h"
#include "corvane/host/Simulation.h"
#include "replay/Application.h"
#include "replay/HookCosts.h"
#include "replay/PlanWalk.h"
#include "replay/Timeline.h"

namespace corvane::replay {
namespace {

constexpr const char* kLibrary = "libcorvane.so";
constexpr int kMoveActions[] = {2, 7};  // move, hover move
// A buffer of the platform's automatic timing, with the flag that the filter takes off.
constexpr uint32_t kBufferFlags = 0x20;

// The library's application hooks, looked up by name.
struct AppHooks {
    ACorvaneAppInitFn* appInit;
    ACorvaneSmartTouchActiveFn* smartTouchActive;
    ACorvaneQueueBufferFn* queueBuffer;
    ACorvaneSetTouchEventFn* setTouchEvent;
    ACorvaneSetVsyncTimeFn* setVsyncTime;
    ACorvaneFilterBufferFn* filterBuffer;
    ACorvaneConsumeInputNowFn* consumeInputNow;

    // Returns what is missing, or an empty text.
    std::string load() {
        void* library = dlopen(kLibrary, RTLD_NOW);
        if (library == nullptr) return dlerror();
        std::string missing;
        const auto find = [&](auto& hook, const char* name) {
            hook = reinterpret_cast<std::decay_t<decltype(hook)>>(dlsym(library, name));
            if (hook == nullptr && missing.empty())
                missing = std::string(kLibrary) + " lacks " + name;
        };
        find(appInit, "aCorvaneAppInit");
        find(smartTouchActive, "aCorvaneSmartTouchActive");
        find(queueBuffer, "aCorvaneQueueBuffer");
        find(setTouchEvent, "aCorvaneSetTouchEvent");
        find(setVsyncTime, "aCorvaneSetVsyncTime");
        find(filterBuffer, "aCorvaneFilterBuffer");
        find(consumeInputNow, "aCorvaneConsumeInputNow");
        return missing;
    }
};

// Set by a signal: the replay is stopped, and the result is what was done so far.
std::atomic<bool> sStopped{false};

// The terminal's interrupt reaches this process, too; the replay itself passes on a termination.
// Should the replay be killed, there is nobody left to play for.
void followTheReplay() {
    struct sigaction action {};
    action.sa_handler = [](int /*signal*/) { sStopped.store(true); };
    action.sa_flags = SA_RESTART;
    for (const int signal : {SIGINT, SIGTERM}) sigaction(signal, &action, nullptr);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
}

class Application {
  public:
    Application(const AppHooks& hooks, AppPlan plan) : mHooks(hooks), mPlan(std::move(plan)) {}

    // As the framework does when the process starts.
    void init() {
        mMainCosts.measure(Hook::kAppInit, mHooks.appInit);
        mMainCosts.measure(Hook::kAppSmartTouchActive, [&] { mHooks.smartTouchActive(); });
    }

    AppResult run(int64_t startNs) {
        mStartNs = startNs;
        std::thread render([this] { renderThread(); });
        std::thread main([this] { mainThread(); });
        if (mPlan.simulatedFromNs) followTheClock();
        main.join();
        render.join();
        mResult.powerBoosts = host::powerBoosts();
        mMainCosts.merge(mRenderCosts);
        for (size_t i = 0; i < static_cast<size_t>(Hook::kCount); ++i) {
            const Spread spread = mMainCosts.spread(static_cast<Hook>(i));
            if (spread.count > 0)
                mResult.hooks.emplace_back(hookName(static_cast<Hook>(i)), spread);
        }
        return mResult;
    }

  private:
    // The replay's clock tells, line by line, how far this process's may go.
    void followTheClock() {
        int64_t untilNs = 0;
        while (std::cin >> untilNs) {
            host::Simulation::advanceTo(untilNs);
            std::cout << "reached" << std::endl;
        }
        sStopped.store(true);  // what was not reached is not played
    }

    // Vsyncs, input and properties.
    void mainThread() {
        enterTimelineThread("main");
        PlanWalk walk(mPlan);
        while (const auto due = walk.next()) {
            const AppStep& step = *due->step;
            if (step.kind == AppStep::Kind::kDequeue || step.kind == AppStep::Kind::kQueue)
                continue;
            sleepUntil(mStartNs + due->atNs, sStopped);
            if (sStopped) return;
            switch (step.kind) {
                case AppStep::Kind::kVsync:
                    mMainCosts.measure(Hook::kAppSetVsyncTime, [&] {
                        mHooks.setVsyncTime(systemTime(SYSTEM_TIME_MONOTONIC));
                    });
                    break;
                case AppStep::Kind::kTouch:
                    touch(step.action);
                    break;
                case AppStep::Kind::kProperty:
                    android::base::SetProperty(step.property.name, step.property.value);
                    break;
                case AppStep::Kind::kDequeue:
                case AppStep::Kind::kQueue:
                    break;
            }
        }
    }

    void touch(int action) {
        mMainCosts.measure(Hook::kAppSetTouchEvent, [&] { mHooks.setTouchEvent(action); });
        if (action != kMoveActions[0] && action != kMoveActions[1]) return;
        // The platform takes input at once where the library does not answer.
        bool consumeNow = true;
        mMainCosts.measure(Hook::kAppConsumeInputNow, [&] { mHooks.consumeInputNow(&consumeNow); });
        ++(consumeNow ? mResult.inputConsumed : mResult.inputHeld);
    }

    // The buffer queue's calls: a buffer is free, and later queued.
    void renderThread() {
        enterTimelineThread("RenderThread");
        PlanWalk walk(mPlan);
        while (const auto due = walk.next()) {
            const AppStep& step = *due->step;
            if (step.kind != AppStep::Kind::kDequeue && step.kind != AppStep::Kind::kQueue)
                continue;
            sleepUntil(mStartNs + due->atNs, sStopped);
            if (sStopped) return;
            if (step.kind == AppStep::Kind::kDequeue) {
                mRenderCosts.measure(Hook::kAppQueueBuffer, [&] { mHooks.queueBuffer(true); });
            } else {
                mRenderCosts.measure(Hook::kAppQueueBuffer, [&] { mHooks.queueBuffer(false); });
                filter(due->atNs);
            }
        }
    }

    void filter(int64_t atNs) {
        bool isAutoTimestamp = true;
        int64_t desiredPresentTime = 0;
        uint32_t bufferFlags = kBufferFlags;
        mRenderCosts.measure(Hook::kAppFilterBuffer, [&] {
            mHooks.filterBuffer(&isAutoTimestamp, &desiredPresentTime, &bufferFlags);
        });
        ++mResult.frames;
        if (!isAutoTimestamp) mResult.instantNs.push_back(atNs);
    }

    const AppHooks& mHooks;
    const AppPlan mPlan;
    int64_t mStartNs = 0;
    HookCosts mMainCosts;
    HookCosts mRenderCosts;
    // The counts of input are the main thread's, those of frames the render thread's.
    AppResult mResult;
};

int run() {
    followTheReplay();
    std::string line;
    if (!std::getline(std::cin, line)) return 1;
    auto plan = appPlanFrom(line);
    if (!plan) return 1;
    std::optional<host::Simulation> simulation;
    if (plan->simulatedFromNs) simulation.emplace(*plan->simulatedFromNs);
    host::LogCapture quiet;
    quiet.setSink([](const host::LogLine&) {});
    for (const auto& property : plan->properties) {
        android::base::SetProperty(property.name, property.value);
    }
    AppHooks hooks{};
    const std::string missing = hooks.load();
    if (!missing.empty()) {
        std::cout << missing << std::endl;
        return 1;
    }
    Application application(hooks, std::move(*plan));
    application.init();
    std::cout << "ready" << std::endl;
    int64_t startNs = 0;
    if (!(std::cin >> startNs)) return 1;  // the replay ended before it began
    std::cout << toJson(application.run(startNs)) << std::endl;
    return 0;
}

}  // namespace
}  // namespace corvane::replay

int main() {
    return corvane::replay::run();
}
