// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Sequences of the hooks on two threads at once.
//
// An input is a program in text. On each line, what lower-case letters call runs on one thread and
// what upper-case letters call on another, both at the same time and each in order; the next line
// begins when both have ended. HookCommands.cpp tells the letters and their arguments.
//
//     i00 v0        both on one thread: initialise, then set the display's period
//     d0000 Hu040   draw frames while the service configures the layer
//
// Nothing sleeps for real: while a hook waits, the clock moves on to whatever is waited for.
// The library lives as long as the process, so each input finds the state that those before left.

#include <algorithm>
#include <cctype>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "fuzz/HookCommands.h"

namespace corvane::fuzz {
namespace {

using Calls = std::vector<std::pair<const HookCommand*, HookArgs>>;

// The calls of one line, per thread.
struct Line {
    Calls calls[2];
};

Line parse(std::string_view text) {
    Line line;
    while (!text.empty()) {
        const auto letter = static_cast<unsigned char>(text.front());
        text.remove_prefix(1);
        const HookCommand* command = findHookCommand(static_cast<char>(tolower(letter)));
        if (command == nullptr) continue;
        HookArgs args{};
        for (size_t i = 0; i < command->argCount && !text.empty(); ++i) {
            args[i] = static_cast<uint8_t>(text.front());
            text.remove_prefix(1);
        }
        line.calls[isupper(letter) != 0 ? 1 : 0].emplace_back(command, args);
    }
    return line;
}

// Runs the calls of each line while this thread drives the clock for those that wait.
class Runner {
  public:
    void run(const Line& line) {
        std::vector<std::thread> threads;
        mRunning = 0;
        for (const Calls& calls : line.calls) {
            if (!calls.empty()) ++mRunning;
        }
        {
            // No call begins before both threads exist: one of them may refuse new threads.
            const std::lock_guard<std::mutex> gate(mMutex);
            for (const Calls& calls : line.calls) {
                if (!calls.empty()) threads.emplace_back([this, &calls] { runThread(calls); });
            }
        }
        driveClock();
        for (std::thread& thread : threads) thread.join();
    }

  private:
    void runThread(const Calls& calls) {
        { const std::lock_guard<std::mutex> gate(mMutex); }
        for (const auto& [command, args] : calls) command->run(args);
        const std::lock_guard<std::mutex> lock(mMutex);
        if (--mRunning == 0) mEnded.notify_one();
    }

    void driveClock() {
        // Long enough for the other thread to come between a wait's begin and its end.
        constexpr auto kLookInterval = std::chrono::microseconds(50);
        host::DrivenClock& clock = drivenClock();
        std::unique_lock<std::mutex> lock(mMutex);
        while (!mEnded.wait_for(lock, kLookInterval, [this] { return mRunning == 0; })) {
            lock.unlock();
            if (clock.sleepers() > 0) clock.advanceTo(clock.nextDeadline());
            lock.lock();
        }
    }

    std::mutex mMutex;
    std::condition_variable mEnded;
    int mRunning = 0;
};

}  // namespace
}  // namespace corvane::fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    corvane::fuzz::setUpHooks();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace corvane::fuzz;
    std::string_view program(reinterpret_cast<const char*>(data), size);
    beginHookSequence();
    Runner runner;
    // So that an input alone does what it did after others. It may race with the first line's
    // calls.
    std::string text = "i00";
    while (!program.empty()) {
        text += program.substr(0, program.find('\n'));
        program.remove_prefix(std::min(program.find('\n'), program.size() - 1) + 1);
        runner.run(parse(text));
        text.clear();
    }
    checkHookEffects();
    return 0;
}
