// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "features/GfrTunablesParser.h"

#include <android-base/stringprintf.h>

#include <cmath>
#include <cstdint>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace android {

namespace {

using base::StringPrintf;

using Error = std::optional<std::string>;
constexpr std::nullopt_t kNoError = std::nullopt;

constexpr char kEntrySeparator = '_';
constexpr char kListSeparator = ';';

constexpr int32_t kMaxFlag = 2;
constexpr size_t kMaxJankThresholds = 3;  // one per rescue level
constexpr size_t kMaxBaseFreqs = 3;       // one per rescue level
constexpr float kMinGolden = 0.2f;        // vsync periods
constexpr float kMaxGolden = 1.3f;        // vsync periods
constexpr float kMinKFactor = 0.5f;
constexpr float kMaxKFactor = 5.0f;

// Not-a-number is in no range.
bool inRange(float value, float min, float max) {
    return value >= min && value <= max;
}

// Removes the next part of `rest`, up to the separator or the end, and returns it.
std::string takePart(std::string_view* rest, char separator) {
    const size_t end = rest->find(separator);
    std::string part(rest->substr(0, end));
    rest->remove_prefix(end == std::string_view::npos ? rest->size() : end + 1);
    return part;
}

// The next part that is not empty; an empty one when there is none left.
std::string takeListItem(std::string_view* rest) {
    std::string item;
    while (item.empty() && !rest->empty()) {
        item = takePart(rest, kListSeparator);
    }
    return item;
}

enum class JankListFault { NONE, EMPTY, FIRST_TOO_LOW, NOT_INCREASING, INFINITE };

struct JankList {
    std::vector<float> thresholds;  // with a fault, the last one is at fault
    JankListFault fault = JankListFault::NONE;
};

// Reads at most kMaxJankThresholds; what follows them is ignored. Throws the conversion's
// exception.
JankList parseJankList(std::string_view text) {
    JankList list;
    while (list.thresholds.size() < kMaxJankThresholds) {
        const std::string item = takeListItem(&text);
        if (item.empty()) {
            break;
        }
        const bool first = list.thresholds.empty();
        const float floor = first ? 1.0f : list.thresholds.back();
        const float threshold = std::stof(item);
        list.thresholds.push_back(threshold);
        if (!(threshold > floor)) {
            list.fault = first ? JankListFault::FIRST_TOO_LOW : JankListFault::NOT_INCREASING;
            return list;
        }
        // It would never be reached, and poison the wake-up time's arithmetic.
        if (std::isinf(threshold)) {
            list.fault = JankListFault::INFINITE;
            return list;
        }
    }
    if (list.thresholds.empty()) {
        list.fault = JankListFault::EMPTY;
    }
    return list;
}

Error applyFlag(const std::string& value, GfrTunables* tunables) {
    const int flag = std::stoi(value);
    if (flag < 0 || flag > kMaxFlag) {
        return StringPrintf("parseGFRTunables: invalid flag=%d", flag);
    }
    tunables->flag = flag;
    return kNoError;
}

Error applyJank(const std::string& value, GfrTunables* tunables) {
    JankList list = parseJankList(value);
    switch (list.fault) {
        case JankListFault::EMPTY:
            return "parseGFRTunables: empty jank thresholds";
        case JankListFault::FIRST_TOO_LOW:
            return StringPrintf("parseGFRTunables: first jank threshold %.2f must be > 1.0",
                                list.thresholds.back());
        case JankListFault::NOT_INCREASING:
            return "parseGFRTunables: jank thresholds not strictly increasing";
        case JankListFault::INFINITE:
            return "parseGFRTunables: jank thresholds must be finite";
        case JankListFault::NONE:
            break;
    }
    tunables->jankThresholds = std::move(list.thresholds);
    return kNoError;
}

Error applyBaseFreq(const std::string& value, GfrTunables* tunables) {
    std::vector<int32_t> freqs;
    std::string_view rest = value;
    for (std::string item = takeListItem(&rest); !item.empty(); item = takeListItem(&rest)) {
        const int32_t freq = std::stoi(item);
        if (freq < 1) {
            return "parseGFRTunables: baseFreq value must be > 0";
        }
        freqs.push_back(freq);
    }
    if (freqs.empty() || freqs.size() > kMaxBaseFreqs) {
        return "parseGFRTunables: baseFreq must have 1 to 3 values";
    }
    tunables->baseFreq = std::move(freqs);
    return kNoError;
}

Error applyGolden(const std::string& value, GfrTunables* tunables) {
    const float golden = std::stof(value);
    if (!inRange(golden, kMinGolden, kMaxGolden)) {
        return StringPrintf("parseGFRTunables: golden=%.2fvsync out of range [0.2, 1.3]", golden);
    }
    tunables->golden = golden;
    return kNoError;
}

Error applyKFactor(const std::string& value, GfrTunables* tunables) {
    const float kFactor = std::stof(value);
    if (!inRange(kFactor, kMinKFactor, kMaxKFactor)) {
        return StringPrintf("parseGFRTunables: kFactor=%.2f out of range [0.5, 5.0]", kFactor);
    }
    tunables->kFactor = kFactor;
    return kNoError;
}

template <bool GfrTunables::*kMember>
Error applyBool(const std::string& value, GfrTunables* tunables) {
    tunables->*kMember = std::stoi(value) != 0;
    return kNoError;
}

struct Key {
    std::string_view name;
    // Checks the value and stores it. Throws the conversion's exception.
    Error (*apply)(const std::string& value, GfrTunables* tunables);
};

constexpr Key kKeys[] = {
        {"flag", applyFlag},
        {"jank", applyJank},
        {"baseFreq", applyBaseFreq},
        {"dynamic", applyBool<&GfrTunables::dynamic>},
        {"lowerBoost", applyBool<&GfrTunables::lowerBoost>},
        {"golden", applyGolden},
        {"kFactor", applyKFactor},
        {"histJank", applyBool<&GfrTunables::histJank>},
};

const Key* findKey(const std::string& name) {
    for (const Key& key : kKeys) {
        if (key.name == name) {
            return &key;
        }
    }
    return nullptr;
}

}  // namespace

std::optional<std::string> parseGfrTunables(const std::string& text, GfrTunables* tunables) {
    GfrTunables parsed = *tunables;
    bool applied = false;
    std::string_view rest = text;
    while (!rest.empty()) {
        const std::string entry = takePart(&rest, kEntrySeparator);
        const size_t equals = entry.find('=');
        if (equals == std::string::npos) {
            continue;
        }
        const std::string name = entry.substr(0, equals);
        const std::string value = entry.substr(equals + 1);
        if (value.empty()) {
            return StringPrintf("parseGFRTunables: empty value for key '%s'", name.c_str());
        }
        const Key* key = findKey(name);
        if (key == nullptr) {
            continue;
        }
        try {
            if (Error error = key->apply(value, &parsed)) {
                return error;
            }
        } catch (const std::logic_error& e) {  // std::invalid_argument, std::out_of_range
            return StringPrintf("parseGFRTunables: failed to parse '%s=%s': %s", name.c_str(),
                                value.c_str(), e.what());
        }
        applied = true;
    }
    if (!applied) {
        return StringPrintf("parseGFRTunables: no valid tunable found in '%s'", text.c_str());
    }
    *tunables = std::move(parsed);
    return kNoError;
}

std::optional<std::string> parseGlobalJankThresholds(const std::string& text,
                                                     std::vector<float>* thresholds) {
    JankList list{{}, JankListFault::EMPTY};
    try {
        list = parseJankList(text);
    } catch (const std::logic_error&) {
        // As unusable as no threshold at all.
    }
    switch (list.fault) {
        case JankListFault::EMPTY:
            return StringPrintf("Invalid parameters for GFR jank thresholds: %s", text.c_str());
        case JankListFault::FIRST_TOO_LOW:
            return StringPrintf("Invalid GFR jank thresholds: %s. Must be > 1 vsync.",
                                text.c_str());
        case JankListFault::NOT_INCREASING:
            return StringPrintf("Invalid GFR jank thresholds: %s. Must be strictly increasing.",
                                text.c_str());
        case JankListFault::INFINITE:
            return StringPrintf("Invalid GFR jank thresholds: %s. Must be finite.", text.c_str());
        case JankListFault::NONE:
            break;
    }
    *thresholds = std::move(list.thresholds);
    return kNoError;
}

}  // namespace android
