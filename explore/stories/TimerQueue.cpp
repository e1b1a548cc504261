// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "timer/TimerQueue.h"

#include <array>
#include <atomic>

#include "corvane/host/Simulation.h"
#include "explore/stories/Stories.h"
#include "timer/TimerThread.h"

namespace corvane::explore {
namespace {

using android::TimerQueue;
using host::Simulation;

// One entry of the queue and what became of it.
struct Entry {
    std::atomic<int64_t> due{0};
    std::atomic<int64_t> cancelled{-1};  // when the cancel returned
    std::atomic<int64_t> ran{-1};
};

constexpr size_t kEntries = 4;  // per thread
using Entries = std::array<Entry, kEntries>;

class Recorder : public android::MessageHandler {
  public:
    explicit Recorder(Entries& entries) : mEntries(entries) {}
    void handleMessage(const android::Message& message) override {
        Entry& entry = mEntries[static_cast<size_t>(message.what)];
        EXPLORE_CHECK(entry.ran < 0, "entry %d ran twice", message.what);
        EXPLORE_CHECK(entry.cancelled < 0 || entry.cancelled >= entry.due,
                      "entry %d ran although it had been cancelled", message.what);
        entry.ran = Simulation::now();
    }

  private:
    Entries& mEntries;
};

void check(const char* who, const Entries& entries, int64_t stopTime) {
    for (const Entry& entry : entries) {
        if (entry.cancelled >= 0 && entry.ran < 0) continue;
        if (entry.ran < 0 && entry.due >= stopTime) continue;
        EXPLORE_CHECK(entry.ran == entry.due, "%s: due at %lld, ran at %lld", who,
                      static_cast<long long>(entry.due.load()),
                      static_cast<long long>(entry.ran.load()));
    }
}

}  // namespace

// The queue's thread has nothing else to do: what is not cancelled runs at its very time.
void timerQueue() {
    android::sp<TimerQueue> queue = android::sp<TimerQueue>::make();
    std::atomic<bool> running{true};
    // The queue goes with its last reference: that of the poller or the one here.
    auto polling = [&running, queue]() mutable {
        android::runTimerLoop(*queue, running, "explore");
        queue = nullptr;
    };
    std::thread poller = start("poller", polling);

    Entries posted;
    Entries removed;
    Entries mixed;
    auto posting = [&] {
        const auto recorder = android::sp<Recorder>::make(posted);
        for (size_t i = 0; i < kEntries; ++i) {
            const int64_t delay = drawOne<int64_t>({0, kMs, 2 * kMs});
            posted[i].due = Simulation::now() + delay;
            queue->sendMessageDelayed(delay, recorder, android::Message(static_cast<int>(i)));
            if (i % 2 != 0) Simulation::sleepFor(kMs / 2);
        }
    };
    auto cancelling = [&] {
        const auto recorder = android::sp<Recorder>::make(mixed);
        for (size_t i = 0; i < kEntries; ++i) {
            const int64_t delay = drawOne<int64_t>({kMs, 3 * kMs});
            mixed[i].due = Simulation::now() + delay;
            const uint64_t id = queue->sendMessageDelayed(delay, recorder,
                                                          android::Message(static_cast<int>(i)));
            if (i % 2 == 0) continue;
            queue->cancelTask(id);
            mixed[i].cancelled = Simulation::now();
        }
        queue->wake();
    };
    auto removing = [&] {
        const auto recorder = android::sp<Recorder>::make(removed);
        for (size_t i = 0; i < kEntries; ++i) {
            removed[i].due = Simulation::now() + 2 * kMs;
            queue->sendMessageDelayed(2 * kMs, recorder, android::Message(static_cast<int>(i)));
        }
        // Ahead of time, or just when they are dispatched.
        Simulation::sleepFor(drawOne<int64_t>({kMs, 2 * kMs}));
        queue->removeMessages(recorder, 0);
        removed[0].cancelled = Simulation::now();
        queue->removeMessages(recorder);
        for (Entry& entry : removed) entry.cancelled = Simulation::now();
    };
    std::thread threads[] = {start("posts", posting), start("cancels", cancelling),
                             start("removes", removing)};
    for (std::thread& thread : threads) thread.join();
    const int64_t stopTime = Simulation::now() + drawOne<int64_t>({0, kMs, 5 * kMs});
    Simulation::sleepUntil(stopTime);
    running = false;
    queue->wake();
    queue = nullptr;
    poller.join();
    EXPLORE_CHECK(Simulation::now() == stopTime, "the wake was not heard");
    check("posts", posted, stopTime);
    check("cancels", mixed, stopTime);
    check("removes", removed, stopTime);
}

}  // namespace corvane::explore
