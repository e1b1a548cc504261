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
// All runs in simulated time, in an order of the threads that is drawn at every step.
// The library lives as long as the process, so each input finds the state that those before left.

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "corvane/host/Simulation.h"
#include "fuzz/Check.h"
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

void run(const Line& line) {
    std::vector<std::thread> threads;
    {
        // No call begins before both threads exist: one of them may refuse new threads.
        const host::Simulation::Uninterrupted both;
        for (const Calls& calls : line.calls) {
            threads.emplace_back([&calls] {
                for (const auto& [command, args] : calls) command->run(args);
            });
        }
    }
    for (std::thread& thread : threads) thread.join();
}

void play(std::string_view program) {
    beginHookSequence();
    // So that an input alone does what it did after others. It may race with the first line's
    // calls.
    std::string text = "i00";
    while (!program.empty()) {
        text += program.substr(0, program.find('\n'));
        program.remove_prefix(std::min(program.find('\n'), program.size() - 1) + 1);
        run(parse(text));
        text.clear();
    }
    checkHookEffects();
}

// The thread that owns the simulation. The fuzzer has clocks and threads of its own, which must
// stay real, so it hands its inputs over through pipes: real calls also on a thread that takes
// part.
class Phone {
  public:
    Phone() {
        FUZZ_CHECK(pipe(mInputs) == 0 && pipe(mAnswers) == 0);
        std::thread([this] { live(); }).detach();
        awaitAnswer();
    }

    void play(const std::string_view& program) {
        const std::string_view* input = &program;
        FUZZ_CHECK(write(mInputs[1], &input, sizeof(input)) == sizeof(input));
        awaitAnswer();
    }

  private:
    [[noreturn]] void live() {
        setUpHooks();
        for (;;) {
            answer();
            const std::string_view* input = nullptr;
            FUZZ_CHECK(TEMP_FAILURE_RETRY(read(mInputs[0], &input, sizeof(input))) ==
                       sizeof(input));
            fuzz::play(*input);
        }
    }
    void answer() { FUZZ_CHECK(write(mAnswers[1], "", 1) == 1); }
    // The fuzzer looks at its time limit by an alarm every few seconds, which interrupts a read.
    void awaitAnswer() {
        char done = 0;
        FUZZ_CHECK(TEMP_FAILURE_RETRY(read(mAnswers[0], &done, 1)) == 1);
    }

    int mInputs[2] = {};
    int mAnswers[2] = {};
};

// Never destroyed: the library's threads live on in it.
Phone& phone() {
    static auto* instance = new Phone;
    return *instance;
}

}  // namespace
}  // namespace corvane::fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    corvane::fuzz::phone();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    corvane::fuzz::phone().play({reinterpret_cast<const char*>(data), size});
    return 0;
}
