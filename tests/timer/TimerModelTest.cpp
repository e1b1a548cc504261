// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// The queue against a plain list of what is pending, over random posts, cancellations and time.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <limits>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "RandomSteps.h"
#include "corvane/host/Simulation.h"
#include "timer/TimerQueue.h"

namespace android {
namespace {

using corvane::host::Simulation;

constexpr nsecs_t kStart = 1'000'000'000;
constexpr nsecs_t kForever = std::numeric_limits<nsecs_t>::max();

// How often the timer was set or disarmed.
std::atomic<int> sTimerSettings{0};

// A task may post another one or cancel one that was there before it.
struct Reaction {
    enum { NOTHING, POST, CANCEL } kind = NOTHING;
    nsecs_t delay = 0;
    int target = 0;
};

struct Entry {
    nsecs_t when = 0;
    int tag = 0;
    int handler = -1;  // of a message; -1: a task
    int what = 0;
    Reaction reaction{};

    std::string name() const {
        return handler < 0 ? "task " + std::to_string(tag)
                           : std::to_string(handler) + " gets " + std::to_string(what);
    }
};

constexpr int kChild = 1'000'000;  // the tag of what a task posts, after its own

class Model {
  public:
    void post(Entry entry, nsecs_t now, nsecs_t delay) {
        entry.when = delay > kForever - now ? kForever : now + std::max<nsecs_t>(delay, 0);
        if (pending.empty() || entry.when < earliest()) ++settings;
        pending.push_back(entry);
    }

    template <typename Predicate>
    void drop(Predicate matches) {
        const nsecs_t before = earliest();
        const auto first = [&](const Entry& entry) { return entry.when == before; };
        if (std::count_if(pending.begin(), pending.end(), first) > 1) isTied = true;
        pending.erase(std::remove_if(pending.begin(), pending.end(), matches), pending.end());
        if (earliest() != before) ++settings;
    }

    void cancel(int tag) {
        drop([tag](const Entry& entry) { return entry.handler < 0 && entry.tag == tag; });
    }

    // Each time by which something is due is one batch; what a batch posts comes after it.
    void runUntil(nsecs_t time) {
        while (earliest() <= time && !pending.empty()) {
            const nsecs_t now = earliest();
            std::vector<Entry> batch;
            for (size_t i = 0; i < pending.size();) {
                if (pending[i].when > now) {
                    ++i;
                    continue;
                }
                batch.push_back(pending[i]);
                pending.erase(pending.begin() + static_cast<long>(i));
            }
            ++settings;
            polls.push_back(TimerQueue::POLL_CALLBACK);
            for (const Entry& entry : batch) {
                ran.push_back(std::to_string(now) + ": " + entry.name());
                if (entry.reaction.kind == Reaction::CANCEL) cancel(entry.reaction.target);
                if (entry.reaction.kind != Reaction::POST) continue;
                Entry child;
                child.tag = entry.tag + kChild;
                post(child, now, entry.reaction.delay);
            }
            if (batch.size() > 1) isTied = true;
        }
    }

    nsecs_t earliest() const {
        nsecs_t when = kForever;
        for (const Entry& entry : pending) when = std::min(when, entry.when);
        return when;
    }

    std::vector<Entry> pending;
    std::vector<std::string> ran;
    std::vector<int> polls;
    int settings = 0;
    bool isTied = false;  // of entries of one time the heap chooses which comes first
};

// The queue with a thread that polls it, and what that thread saw.
class Polled {
  public:
    Polled() : mPoller([this] { poll(); }) {}
    ~Polled() {
        mIsRunning = false;
        queue->wake();
        mPoller.join();
    }

    uint64_t post(const Entry& entry, nsecs_t delay) {
        if (entry.handler >= 0) {
            return queue->sendMessageDelayed(delay, handlers[entry.handler], Message(entry.what));
        }
        const uint64_t id = queue->postTaskDelayed(delay, [this, entry] { run(entry); });
        const std::lock_guard<std::mutex> lock(mMutex);
        mIds[entry.tag] = id;
        return id;
    }

    void cancel(int tag) {
        uint64_t id = 0;
        {
            const std::lock_guard<std::mutex> lock(mMutex);
            id = mIds[tag];
        }
        queue->cancelTask(id);
    }

    std::vector<std::string> ran() const {
        const std::lock_guard<std::mutex> lock(mMutex);
        return mRan;
    }
    std::vector<int> polls() const {
        const std::lock_guard<std::mutex> lock(mMutex);
        return mPolls;
    }

  private:
    struct Handler : MessageHandler {
        Handler(Polled& owner, int number) : polled(owner), index(number) {}
        void handleMessage(const Message& message) override {
            Entry entry;
            entry.handler = index;
            entry.what = message.what;
            polled.note(entry);
        }
        Polled& polled;
        const int index;
    };

    void note(const Entry& entry) {
        const std::lock_guard<std::mutex> lock(mMutex);
        mRan.push_back(std::to_string(Simulation::now()) + ": " + entry.name());
    }

    void run(const Entry& entry) {
        note(entry);
        if (entry.reaction.kind == Reaction::CANCEL) cancel(entry.reaction.target);
        if (entry.reaction.kind != Reaction::POST) return;
        Entry child;
        child.tag = entry.tag + kChild;
        post(child, entry.reaction.delay);
    }

    void poll() {
        while (mIsRunning) {
            const int result = queue->pollOnce(-1);
            const std::lock_guard<std::mutex> lock(mMutex);
            mPolls.push_back(result);
        }
    }

    mutable std::mutex mMutex;
    std::map<int, uint64_t> mIds;  // by tag
    std::vector<std::string> mRan;
    std::vector<int> mPolls;
    std::atomic<bool> mIsRunning{true};

  public:
    const sp<TimerQueue> queue = sp<TimerQueue>::make();
    const sp<MessageHandler> handlers[2] = {sp<Handler>::make(*this, 0),
                                            sp<Handler>::make(*this, 1)};

  private:
    std::thread mPoller;
};

void followTheModel(RandomSteps& steps) {
    Simulation::Options options;
    options.startNs = kStart;
    options.onEvent = [](const Simulation::Event& event) {
        if (event.what == std::string("arm")) ++sTimerSettings;
    };
    Simulation simulation(options);
    Polled real;
    Model model;
    int tag = 0;
    simulation.settle();
    while (steps.next()) {
        const auto oneOfTheTags = [&] {
            return static_cast<int>(steps.below(tag + 1)) + (steps.oneIn(4) ? kChild : 0);
        };
        const nsecs_t delays[] = {-1,
                                  0,
                                  steps.below(50),
                                  50 + steps.below(200),
                                  kForever,
                                  kForever / 2,
                                  std::numeric_limits<nsecs_t>::min(),
                                  1 + steps.below(300)};
        const nsecs_t delay = steps.pick(delays);
        const int64_t act = steps.below(12);
        if (act < 5) {
            Entry entry;
            entry.tag = ++tag;
            if (act < 2) {
                entry.handler = static_cast<int>(steps.below(2));
                entry.what = static_cast<int>(steps.below(3));
            } else if (act == 2) {
                entry.reaction = {Reaction::POST, steps.below(60) - 10, 0};
            } else if (act == 3 && tag > 1) {
                entry.reaction = {Reaction::CANCEL, 0, static_cast<int>(steps.below(tag - 1)) + 1};
            }
            steps.tell("post", entry.tag, delay, entry.name(), entry.reaction.kind);
            model.post(entry, Simulation::now(), delay);
            const uint64_t id = real.post(entry, delay);
            steps.expectEq(true, id != 0, "accepted");
        } else if (act < 7) {
            const int target = oneOfTheTags();
            steps.tell("cancel", target);
            model.cancel(target);
            real.cancel(target);
        } else if (act == 7) {
            const int handler = static_cast<int>(steps.below(2));
            const bool all = steps.oneIn(3);
            const int what = static_cast<int>(steps.below(3));
            steps.tell("remove", handler, what, all);
            model.drop([&](const Entry& e) {
                return e.handler == handler && (all || e.what == what);
            });
            if (all) real.queue->removeMessages(real.handlers[handler]);
            if (!all) real.queue->removeMessages(real.handlers[handler], what);
        } else if (act == 8) {
            steps.tell("wake");
            model.polls.push_back(TimerQueue::POLL_WAKE);
            real.queue->wake();
            real.queue->wake();  // wakes do not add up
        } else {
            const nsecs_t by = steps.oneIn(3) && model.earliest() < kForever
                                       ? model.earliest() - Simulation::now() - steps.below(2)
                                       : steps.below(100);
            steps.tell("advance", by);
            Simulation::advance(std::max<nsecs_t>(by, 0));
        }
        model.runUntil(Simulation::now());
        simulation.settle();
        auto ran = real.ran();
        std::sort(model.ran.begin(), model.ran.end());
        std::sort(ran.begin(), ran.end());
        steps.expectEq(model.ran, ran, "what ran");
        steps.expectEq(model.polls, real.polls(), "results of polls");
        steps.expectEq(model.earliest() == kForever ? -1 : model.earliest(),
                       Simulation::nextDeadline(), "the timer's deadline");
        if (!model.isTied && model.earliest() < kForever)
            steps.expectEq(model.settings, sTimerSettings.load(), "timer settings");
        model.isTied = false;
        model.settings = sTimerSettings;
    }
}

TEST(TimerModelTest, RunsWhatIsDueAndNothingElse) {
    RandomStepsRunner::run(/*sequences=*/60, /*steps=*/200, followTheModel);
}

}  // namespace
}  // namespace android
