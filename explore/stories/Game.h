// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>

#include "explore/Story.h"

namespace corvane::explore {

// A game with a deep queue as the compositor's hooks see it, under headroom control.
namespace game {

constexpr char kPackage[] = "com.example.game";
constexpr char kLayerName[] = "com.example.game/Main#1";
constexpr int kLayer = 1;
constexpr int64_t kPeriod = 16'666'667;

struct Call {
    int64_t begin;
    int64_t end;
};

// The calling thread queues a buffer, and is held back as long as the library wants.
Call queueFrame();

// A vsync and its latch, behind which so many buffers wait.
void composite(int pending);

// Starts the library and draws alone until headroom control is on, and rescue too.
void warmUp();

// Stops the library, which takes no time.
void stop();

}  // namespace game
}  // namespace corvane::explore
