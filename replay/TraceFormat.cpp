// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/TraceFormat.h"

#include <algorithm>

#include "replay/InputFile.h"
#include "replay/ShellText.h"

namespace corvane::replay {
namespace {

constexpr std::string_view kZip = "PK\x03\x04";
constexpr std::string_view kUtf16[] = {"\xff\xfe", "\xfe\xff"};
constexpr std::string_view kAtraceData = "TRACE:\n";  // what `atrace -z` writes before its data

// A zlib stream's two first bytes: deflate with a 32 kB window, and a check sum of both.
bool isZlib(std::string_view text) {
    constexpr unsigned char kMethodAndWindow = 0x78;
    constexpr int kCheck = 31;
    if (text.size() < 2) return false;
    const auto first = static_cast<unsigned char>(text[0]);
    const auto second = static_cast<unsigned char>(text[1]);
    return first == kMethodAndWindow && (first * 256 + second) % kCheck == 0;
}

bool isPackedAtrace(std::string_view head) {
    const size_t data = head.find(kAtraceData);
    return data != std::string_view::npos && isZlib(head.substr(data + kAtraceData.size()));
}

}  // namespace

// One message whose first field is packets: the tag of a packet, its length, and in it again a tag
// of a known wire type. A text may begin with an empty line, but holds no control characters.
bool isPerfetto(std::string_view head) {
    constexpr char kPacketTag = 0x0a;
    constexpr unsigned kGroupTypes = 0b1101'1000;  // wire types 3, 4, 6 and 7 are not in use
    if (head.size() < 3 || head[0] != kPacketTag) return false;
    size_t at = 1;
    while (at < head.size() && (head[at] & 0x80) != 0) ++at;
    if (at + 1 >= head.size()) return false;
    const auto tag = static_cast<unsigned char>(head[at + 1]);
    if ((kGroupTypes >> (tag & 7U) & 1U) != 0 || tag >> 3U == 0) return false;
    return std::any_of(head.begin(), head.end(),
                       [](char c) { return c >= 0 && c < ' ' && (c < '\t' || c > '\r'); });
}

std::string conversionOf(std::string_view head, const std::string& path) {
    const std::string file = path == InputFile::kStandardInput ? "FILE" : shellQuoted(path);
    if (head.substr(0, kZip.size()) == kZip) {
        return "is a zip archive; unpack it first: unzip -p " + file + " > trace.txt";
    }
    for (const auto mark : kUtf16) {
        if (head.substr(0, mark.size()) == mark) {
            return "is UTF-16 text, as PowerShell writes it; convert it first: iconv -f UTF-16 "
                   "-t UTF-8 " +
                   file + " > trace.txt";
        }
    }
    if (isPackedAtrace(head)) {
        return "is compressed by atrace -z; unpack it first: python3 -c 'import sys, zlib; "
               "sys.stdout.buffer.write(zlib.decompress("
               "sys.stdin.buffer.read().split(b\"TRACE:\\n\", 1)[1]))' < " +
               file + " > trace.txt";
    }
    return "";
}

}  // namespace corvane::replay
