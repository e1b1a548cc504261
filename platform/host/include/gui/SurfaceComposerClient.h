// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Stands in for libgui's <gui/SurfaceComposerClient.h>: a client's calls to the compositor.

#pragma once

#include <utils/Errors.h>
#include <utils/RefBase.h>

#include <cstdint>

namespace android {

class SurfaceComposerClient : public RefBase {
  public:
    // Recorded; see corvane::host::powerBoosts().
    static status_t notifyPowerBoost(int32_t boostId);
};

}  // namespace android
