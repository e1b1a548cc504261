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
    static const Rect EMPTY_RECT;

    Rect() : Rect(0, 0, -1, -1) {}
    Rect(int32_t w, int32_t h) : Rect(0, 0, w, h) {}
    Rect(int32_t l, int32_t t, int32_t r, int32_t b) : ARect{l, t, r, b} {}

    bool isValid() const { return getWidth() >= 0 && getHeight() >= 0; }
    bool isEmpty() const { return getWidth() <= 0 || getHeight() <= 0; }

    // Coordinates come from applications: the difference wraps rather than traps.
    int32_t getWidth() const { return difference(right, left); }
    int32_t getHeight() const { return difference(bottom, top); }
    int32_t width() const { return getWidth(); }
    int32_t height() const { return getHeight(); }

    bool operator==(const Rect& rhs) const {
        return left == rhs.left && top == rhs.top && right == rhs.right && bottom == rhs.bottom;
    }
    bool operator!=(const Rect& rhs) const { return !(*this == rhs); }

  private:
    static int32_t difference(int32_t a, int32_t b) {
        return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
    }
};

}  // namespace android
