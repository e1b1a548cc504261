// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/ShellText.h"

namespace corvane::replay {

std::string shellQuoted(const std::string& word) {
    constexpr const char* kHarmless =
            "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_./-+=,:@%";
    if (!word.empty() && word.find_first_not_of(kHarmless) == std::string::npos) return word;
    std::string text = "'";
    for (const char c : word) {
        if (c == '\'') {
            text += "'\\''";
        } else {
            text += c;
        }
    }
    return text + "'";
}

}  // namespace corvane::replay
