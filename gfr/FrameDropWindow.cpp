// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "gfr/FrameDropWindow.h"

#include <bitset>

namespace android {

bool FrameDropWindow::record(int drops) {
    if (drops >= kExtremeDrops) {
        mBits = 0;
        return false;
    }
    // One latch moves the window by one slot, however many frames it lost: several drops overlay
    // the slots before it, so that a burst weighs more than its single latch.
    mBits <<= 1;
    if (drops >= 1) mBits |= (uint64_t{1} << drops) - 1;
    return true;
}

int FrameDropWindow::dropsAmong(int slots) const {
    const uint64_t newest = ~uint64_t{0} >> (kSlots - slots);
    return static_cast<int>(std::bitset<kSlots>(mBits & newest).count());
}

}  // namespace android
