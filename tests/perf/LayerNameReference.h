// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <optional>
#include <regex>
#include <string>

namespace android {

// The analysis of layer names by the expressions that define it. Only for names of some hundred
// characters: on longer ones the matcher can take minutes, or the whole stack.
class LayerNameReference {
  public:
    static std::optional<std::string> surfaceView(const std::string& name) {
        static const std::regex expression(R"((?:\w*\s*SurfaceView\[)([^/]+).*#\d+)");
        std::smatch match;
        if (!std::regex_match(name, match, expression)) return std::nullopt;
        return match[1].str();
    }
    static bool isInputMethod(const std::string& name) {
        static const std::regex expression(R"(InputMethod#\d+)");
        return std::regex_match(name, expression);
    }
    static std::string package(std::string name) {
        if (name.rfind("VRI-", 0) == 0) name.erase(0, 4);
        if (const auto package = surfaceView(name)) return *package;
        const size_t slash = name.find('/');
        if (slash != name.npos) return name.substr(0, slash);
        return isInputMethod(name) ? "UnknownKeyboard" : "";
    }
};

}  // namespace android
