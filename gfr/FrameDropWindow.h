// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>

namespace android {

// Which of a layer's latest frame slots were dropped, newest in bit 0.
class FrameDropWindow {
  public:
    static constexpr int kSlots = 64;

    // From this many drops at once the layer paused rather than janked: its history says nothing
    // about the frames to come.
    static constexpr int kExtremeDrops = 10;

    // Records one latched frame and the frames dropped before it. An extreme drop empties the
    // window instead and returns false.
    bool record(int drops);

    // Dropped slots among the newest `slots`, 1 to kSlots.
    int dropsAmong(int slots) const;

  private:
    uint64_t mBits = 0;
};

}  // namespace android
