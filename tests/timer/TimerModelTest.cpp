// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// The queue against a plain list of what is pending, over random posts, cancellations and time.

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <set>
#include <string>
#include <vector>

#include "RandomSteps.h"
#include "corvane/host/LogCapture.h"
#include "corvane/host/Simulation.h"
#include "timer/TimerQueue.h"

namespace android {
namespace {

using corvane::host::Simulation;

constexpr nsecs_t kForever = std::numeric_limits<nsecs_t>::max();

struct Entry {
    nsecs_t when;
    uint64_t id;
    int handler;  // of a message; -1: a task
    int what;     // of a message
};

using Names = std::multiset<std::string>;  // entries of one time run in any order

struct Recorder : MessageHandler {
    Recorder(Names& names, int number) : ran(names), handler(number) {}
    void handleMessage(const Message& m) override { ran.insert(name(handler, m.what)); }
    static std::string name(int handler, int what) {
        return std::to_string(handler) + " got " + std::to_string(what);
    }
    Names& ran;
    const int handler;
};

int sTimerSettings = 0;  // how often the timer was set or disarmed

void followTheModel(RandomSteps& steps) {
    Simulation::Options options;
    options.onEvent = [](const Simulation::Event& event) {
        sTimerSettings += event.what == std::string("arm");
    };
    const Simulation simulation(options);
    const corvane::host::LogCapture log;
    const sp<TimerQueue> queue = sp<TimerQueue>::make();
    Names ran;
    const sp<MessageHandler> handlers[] = {sp<Recorder>::make(ran, 0), sp<Recorder>::make(ran, 1)};
    std::vector<Entry> pending;
    uint64_t lastId = 0;
    const auto earliest = [&pending] {
        nsecs_t when = kForever;
        for (const Entry& entry : pending) when = std::min(when, entry.when);
        return when;
    };
    const auto drop = [&pending](const auto& matches) {
        pending.erase(std::remove_if(pending.begin(), pending.end(), matches), pending.end());
    };
    while (steps.next()) {
        const nsecs_t now = Simulation::now();
        const nsecs_t before = earliest();
        // Which of those that are due first is in front is the heap's choice.
        const bool isTied = std::count_if(pending.begin(), pending.end(), [&](const Entry& entry) {
                                return entry.when == before;
                            }) > 1;
        const size_t count = pending.size();
        sTimerSettings = 0;
        const int handler = static_cast<int>(steps.below(3)) - 1;
        const int what = static_cast<int>(steps.below(3));
        const int64_t act = steps.below(8);
        if (act < 3) {
            const nsecs_t delays[] = {std::numeric_limits<nsecs_t>::min(),
                                      -1,
                                      0,
                                      kForever,
                                      steps.below(50),
                                      50 + steps.below(200),
                                      kForever / 2};
            const nsecs_t delay = steps.pick(delays);
            steps.tell("post", handler, what, delay);
            const nsecs_t most = kForever - now;
            pending.push_back(
                    {now + std::min(std::max<nsecs_t>(delay, 0), most), ++lastId, handler, what});
            const auto task = [&ran, id = lastId] { ran.insert(std::to_string(id)); };
            steps.expectEq(lastId,
                           handler < 0 ? queue->postTaskDelayed(delay, task)
                                       : queue->sendMessageDelayed(delay, handlers[handler],
                                                                   Message(what)),
                           "the id");
        } else if (act == 3) {
            const uint64_t id =
                    static_cast<uint64_t>(steps.below(static_cast<int64_t>(lastId) + 2));
            if (id > lastId) continue;  // cancelled before it is given, it would never run
            steps.tell("cancel", id);
            drop([id](const Entry& entry) { return entry.id == id; });
            queue->cancelTask(id);
        } else if (act == 4 && handler >= 0) {
            const bool all = steps.oneIn(3);
            steps.tell("remove", handler, what, all);
            drop([&](const Entry& e) { return e.handler == handler && (all || e.what == what); });
            if (all) queue->removeMessages(handlers[handler]);
            if (!all) queue->removeMessages(handlers[handler], what);
        } else if (act == 5) {
            steps.tell("wake");
            queue->wake();
            queue->wake();  // wakes do not add up
        } else {
            const nsecs_t toNext = before - now - steps.below(2);
            const nsecs_t by = before < kForever / 2 && steps.oneIn(2) ? toNext : steps.below(100);
            steps.tell("advance", by);
            Simulation::advance(std::max<nsecs_t>(by, 0));
        }
        const bool isNewFront = pending.size() > count && (earliest() < before || count == 0);
        const bool isDropped = pending.size() < count && (earliest() != before || pending.empty());
        if (!isTied) steps.expectEq(isNewFront || isDropped, sTimerSettings == 1, "sets the timer");

        Names due;
        for (const Entry& e : pending) {
            if (e.when > Simulation::now()) continue;
            due.insert(e.handler < 0 ? std::to_string(e.id) : Recorder::name(e.handler, e.what));
        }
        drop([](const Entry& entry) { return entry.when <= Simulation::now(); });
        ran.clear();
        const int result = queue->pollOnce(0);
        steps.expectEq(due, ran, "what runs");
        steps.expectEq(act == 5      ? TimerQueue::POLL_WAKE
                       : due.empty() ? TimerQueue::POLL_TIMEOUT
                                     : TimerQueue::POLL_CALLBACK,
                       result, "the poll's result");
        steps.expectEq(earliest() == kForever ? -1 : earliest(), Simulation::nextDeadline(),
                       "the timer's deadline");
        steps.expectEq(0u, log.lines().size(), "lines of failures");
    }
}

TEST(TimerModelTest, RunsWhatIsDueAndNothingElse) {
    RandomStepsRunner::run(/*sequences=*/60, /*steps=*/200, followTheModel);
}

}  // namespace
}  // namespace android
