// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "StuckReport.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

namespace corvane::host {
namespace {

// Appends to a text of fixed size, and cuts what does not fit.
class Text {
  public:
    void add(const char* format, ...) __attribute__((format(printf, 2, 3))) {
        va_list arguments;
        va_start(arguments, format);
        const int length = vsnprintf(mText + mLength, sizeof(mText) - mLength, format, arguments);
        va_end(arguments);
        if (length > 0)
            mLength = std::min(mLength + static_cast<size_t>(length), sizeof(mText) - 1);
    }
    const char* c_str() const { return mText; }

  private:
    char mText[16'384] = {};
    size_t mLength = 0;
};

const char* describe(Wait wait) {
    switch (wait) {
        case Wait::kNothing:
            return "nothing";
        case Wait::kMutex:
            return "a mutex";
        case Wait::kCondition:
            return "a condition";
        case Wait::kInitialisation:
            return "an initialisation";
        case Wait::kThreadEnd:
            return "the end of a thread";
        case Wait::kDescriptor:
            return "a descriptor";
        case Wait::kFuture:
            return "a future";
        case Wait::kSleep:
            return "the clock";
        case Wait::kWakeup:
            return "its wake-up";
    }
    return "?";
}

void addThread(Text& text, const SimThread& thread, const ThreadTable& threads,
               const Holders& holders) {
    text.add("  #%u %s: ", thread.id, threads.nameOf(thread.id));
    if (thread.state != ThreadState::kBlocked) {
        text.add("can run\n");
        return;
    }
    text.add("waits for %s", describe(thread.wait));
    if (thread.wait == Wait::kThreadEnd) {
        const auto& child = *static_cast<const SimThread*>(thread.object);
        text.add(", #%u %s,", child.id, threads.nameOf(child.id));
    }
    text.add(" since %lld ns", static_cast<long long>(thread.since));
    if (thread.deadline != kNever) {
        text.add(" until %lld ns", static_cast<long long>(thread.deadline));
    }
    if (const SimThread* holder = holders.of(thread.object)) {
        text.add(", held by #%u %s", holder->id, threads.nameOf(holder->id));
    }
    text.add("\n");
}

}  // namespace

const char* stuckReport(const char* why, int64_t now, uint64_t steps, const ThreadTable& threads,
                        const Holders& holders) {
    static Text text;
    text.add("simulation: %s, at %lld ns after %llu scheduling points\n", why,
             static_cast<long long>(now), static_cast<unsigned long long>(steps));
    for (const SimThread* thread : threads) {
        if (thread->state != ThreadState::kFinished) addThread(text, *thread, threads, holders);
    }
    return text.c_str();
}

}  // namespace corvane::host
