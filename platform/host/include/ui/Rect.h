// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// Stands in for libui's <ui/Rect.h>: a rectangle of integer coordinates.

#pragma once

#include <cstdint>

typedef struct ARect {
    int32_t left;
    int32_t top;
    int32_t right;
    int32_t bottom;
} ARect;

namespace android {

// Right and bottom lie outside.
class Rect : public ARect {
  public:
    static const Rect INVALID_RECT;  // 0, 0, -1, -1

    Rect() : Rect(0, 0, -1, -1) {}
    Rect(int32_t w, int32_t h) : Rect(0, 0, w, h) {}
    Rect(int32_t l, int32_t t, int32_t r, int32_t b) : ARect{l, t, r, b} {}

    bool operator==(const Rect& rhs) const {
        return left == rhs.left && top == rhs.top && right == rhs.right && bottom == rhs.bottom;
    }
    bool operator!=(const Rect& rhs) const { return !(*this == rhs); }
};

}  // namespace android
