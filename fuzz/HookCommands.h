// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace corvane::fuzz {

constexpr size_t kMaxHookArgs = 4;
using HookArgs = std::array<uint8_t, kMaxHookArgs>;

// One instruction of a hook sequence: a letter and as many argument bytes. Each byte chooses from a
// table, modulo the table's size, so that every byte means something. HookCommands.cpp has the
// list.
struct HookCommand {
    char letter;  // lower case
    size_t argCount;
    void (*run)(const HookArgs& args);
};

// Null for a letter that means nothing.
const HookCommand* findHookCommand(char letter);

// Once per process, before the first command: every feature on, devices and service emulated, the
// process in simulated time.
void setUpHooks();

// Between two sequences: faults and tracing off, and a new allowance of frames and time. What the
// library knows of layers and packages stays.
void beginHookSequence();

// After each: what reached the service and the boost device is checked and forgotten.
void checkHookEffects();

}  // namespace corvane::fuzz
