// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/perfetto/PrintSorter.h"

#include <algorithm>
#include <tuple>

namespace corvane::replay {

void PrintSorter::add(const Print& print) {
    if (print.text.empty()) return;  // also keeps the offsets apart
    if (print.timeNs < mHandedOnNs) ++mLate;
    mEntries.push_back({print.timeNs, print.tid, static_cast<uint32_t>(mText.size()),
                        static_cast<uint32_t>(print.text.size())});
    mText += print.text;
    if (mText.size() >= kMaxText || mEntries.size() >= kMaxPrints) handOn(mEntries.size() / 2 + 1);
}

// Hands on the earliest ones.
void PrintSorter::handOn(size_t count) {
    std::sort(mEntries.begin(), mEntries.end(), [](const Entry& a, const Entry& b) {
        return std::tie(a.timeNs, a.offset) < std::tie(b.timeNs, b.offset);
    });
    const auto rest = mEntries.begin() + static_cast<std::ptrdiff_t>(count);
    for (auto entry = mEntries.begin(); entry != rest; ++entry) {
        mHandedOnNs = std::max(mHandedOnNs, entry->timeNs);
        mSink({entry->timeNs, entry->tid,
               std::string_view(mText).substr(entry->offset, entry->length)});
    }
    mEntries.erase(mEntries.begin(), rest);
    std::string text;
    for (auto& entry : mEntries) {
        const size_t offset = entry.offset;
        entry.offset = static_cast<uint32_t>(text.size());
        text.append(mText, offset, entry.length);
    }
    mText = std::move(text);
}

}  // namespace corvane::replay
