// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// The queue against a plain list of what is pending, over random posts, cancellations and time; and
// what that leaves out: threads at once, faults, and what stays in memory.

#include <android/log.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <sys/time.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "DescriptorLimit.h"
#include "RandomSteps.h"
#include "corvane/host/LogCapture.h"
#include "corvane/host/Simulation.h"
#include "timer/TimerQueue.h"
#include "timer/TimerThread.h"

static int sWatchesLeft = -1;  // that succeed; -1: all

extern "C" int epoll_ctl(int epoll, int operation, int fd, epoll_event* event) noexcept {
    if (sWatchesLeft == 0) errno = ENOSPC;
    if (sWatchesLeft-- == 0) return -1;
    return static_cast<int>(syscall(SYS_epoll_ctl, epoll, operation, fd, event));
}

namespace android {
namespace {

using corvane::host::Simulation;

constexpr nsecs_t kForever = INT64_MAX;

struct Entry {
    int64_t id;
    int handler;   // of a message; -1: a task
    int64_t what;  // of a message; of a task its id
};

using Ran = std::multiset<std::pair<int, int64_t>>;  // entries of one time run in any order
using OnRun = std::function<void(int handler, int64_t what)>;

struct Handler : MessageHandler {
    Handler(const OnRun& action, int own) : onRun(action), number(own) {}
    void handleMessage(const Message& message) override { onRun(number, message.what); }
    const OnRun& onRun;
    const int number;
};

int sTimerSettings = 0;  // how often the timer was set or disarmed

void followTheModel(RandomSteps& steps) {
    Simulation::Options options;
    options.onEvent = [](const Simulation::Event& event) {
        sTimerSettings += event.what == std::string("arm");
        // As if another thread had set the timer anew since the poll: nothing is left to read.
        if (event.what != std::string("read")) return;
        uint64_t count;
        const auto fd = static_cast<int>(reinterpret_cast<intptr_t>(event.object));
        if (syscall(SYS_read, fd, &count, sizeof(count)) < 0) abort();
    };
    const Simulation simulation(options);
    const corvane::host::LogCapture log;
    close(STDIN_FILENO);  // 0 is a descriptor like any other
    const size_t descriptors = openDescriptors();
    sp<TimerQueue> owner = sp<TimerQueue>::make();
    TimerQueue* const queue = owner.get();
    Ran ran;
    int64_t cancelledMeanwhile = 0;
    bool isClosing = false;
    // Were one run or released under the queue's lock, it would be a deadlock.
    const OnRun onRun = [&](int handler, int64_t what) {
        ran.insert({handler, what});
        queue->cancelTask(static_cast<uint64_t>(cancelledMeanwhile));
    };
    const auto onRelease = [&](void*) {
        queue->removeMessages(nullptr);
        if (isClosing) steps.expectEq(0u, queue->postTask(nullptr), "a late post");
    };
    const sp<MessageHandler> handlers[] = {sp<Handler>::make(onRun, 0),
                                           sp<Handler>::make(onRun, 1)};
    std::multimap<nsecs_t, Entry> pending;  // by when they are due
    int64_t lastId = 0;
    const auto earliest = [&] { return pending.empty() ? -1 : pending.begin()->first; };
    const auto drop = [&pending](const auto& matches) {
        for (auto at = pending.begin(); at != pending.end();) {
            at = matches(at->second) ? pending.erase(at) : std::next(at);
        }
    };
    while (steps.next()) {
        const nsecs_t now = Simulation::now();
        const nsecs_t before = earliest();
        const bool isTied = pending.count(before) > 1;  // which is in front is the heap's choice
        sTimerSettings = 0;
        const int handler = static_cast<int>(steps.below(3)) - 1;
        const int what = static_cast<int>(steps.below(3));
        const bool wakes = steps.oneIn(6);
        for (int i = wakes ? 2 : 0; i > 0; --i) queue->wake();  // wakes do not add up
        const int64_t act = steps.below(8);
        // An id that is not given yet would never run if it were cancelled now.
        const int64_t anId = steps.below(lastId + 1);
        if (act < 3) {
            const nsecs_t delays[] = {-kForever - 1,   -1,           0,
                                      steps.below(99), kForever / 2, kForever};
            const nsecs_t delay = steps.pick(delays);
            steps.tell("post", handler, what, delay, wakes);
            const nsecs_t when = now + std::min(std::max<nsecs_t>(delay, 0), kForever - now);
            pending.insert({when, {++lastId, handler, handler < 0 ? lastId : what}});
            uint64_t id;
            if (handler < 0) {
                const std::shared_ptr<void> content(nullptr, onRelease);
                const auto task = [&onRun, content, id = lastId] { onRun(-1, id); };
                id = delay == 0 ? queue->postTask(task) : queue->postTaskDelayed(delay, task);
            } else {
                const auto& to = handlers[handler];
                id = delay == 0 ? queue->sendMessage(to, Message(what))
                                : queue->sendMessageDelayed(delay, to, Message(what));
            }
            steps.expectEq(lastId, static_cast<int64_t>(id), "the id");
        } else if (act == 3) {
            steps.tell("cancel", anId, wakes);
            drop([anId](const Entry& entry) { return entry.id == anId; });
            queue->cancelTask(static_cast<uint64_t>(anId));
        } else if (act == 4 && handler >= 0) {
            const bool all = steps.oneIn(3);
            steps.tell("remove", handler, what, all, wakes);
            drop([&](const Entry& e) { return e.handler == handler && (all || e.what == what); });
            if (all) queue->removeMessages(handlers[handler]);
            if (!all) queue->removeMessages(handlers[handler], what);
        } else {
            const nsecs_t toNext = before - now - steps.below(2);
            const nsecs_t by = before < kForever / 2 && steps.oneIn(2) ? toNext : steps.below(100);
            steps.tell("advance", by, wakes);
            Simulation::advance(std::max<nsecs_t>(by, 0));
        }
        if (!isTied) steps.expectEq(before != earliest(), sTimerSettings == 1, "sets the timer");

        const auto later = pending.upper_bound(Simulation::now());
        Ran due;
        for (auto at = pending.begin(); at != later; at = pending.erase(at)) {
            due.insert({at->second.handler, at->second.what});
        }
        // All that is due has been collected by then.
        cancelledMeanwhile = anId;
        if (!due.empty()) drop([anId](const Entry& entry) { return entry.id == anId; });
        ran.clear();
        const int result = queue->pollOnce(0);
        steps.expectEq(due, ran, "what runs");
        const int expected = !due.empty() ? -2 : wakes ? -1 : -3;
        // Of two descriptors that are ready, the kernel says which comes last.
        if (!wakes || result != -1) steps.expectEq(expected, result, "the result");
        steps.expectEq(-3, queue->pollOnce(0), "the next result");
        steps.expectEq(earliest() == kForever ? -1 : earliest(), Simulation::nextDeadline(),
                       "the timer's deadline");
    }
    isClosing = true;
    owner = nullptr;
    steps.expectEq(descriptors, openDescriptors(), "the descriptors");
    steps.expectEq(0u, log.lines().size(), "lines of failures");
}

TEST(TimerModelTest, RunsWhatIsDueAndNothingElse) {
    RandomStepsRunner::run(/*sequences=*/60, /*steps=*/200, followTheModel);
}

// The process of the display runs for months.
TEST(TimerQueueTest, KeepsNothingOfWhatIsGone) {
    const Simulation simulation(Simulation::Options{});
    const sp<TimerQueue> queue = sp<TimerQueue>::make();
    const auto postAndCancel = [&](int count) {
        for (int i = 0; i < count; ++i) {
            queue->cancelTask(queue->postTaskDelayed(kForever / 2 + i % 7, nullptr));
            const uint64_t behind = queue->postTaskDelayed(kForever / 2, nullptr);
            queue->postTask(nullptr);
            queue->cancelTask(behind);
            queue->pollOnce(0);
        }
        return mallinfo2().uordblks;
    };
    const size_t before = postAndCancel(100);
    EXPECT_LT(postAndCancel(10'000), before + 10'000);
}

TEST(TimerQueueFaults, IsInertWithoutDescriptors) {
    sp<TimerQueue> queue = sp<TimerQueue>::make();
    queue = nullptr;
    const int next = nextDescriptor();
    for (const auto& [descriptors, watches, failure] :
         {std::tuple(0, -1, "epoll_create1 failed: Too many open files"),
          {1, -1, "timerfd_create failed: Too many open files"},
          {2, -1, "eventfd failed: Too many open files"},
          {3, 0, "epoll_ctl(timerfd) failed: No space left on device"},
          {3, 1, "epoll_ctl(eventfd) failed: No space left on device"}}) {
        const corvane::host::LogCapture log;
        {
            const ScopedDescriptorLimit limit(descriptors);
            sWatchesLeft = watches;
            queue = sp<TimerQueue>::make();
        }
        EXPECT_FALSE(queue->isInitialized());
        EXPECT_EQ(0u, queue->sendMessageDelayed(5, nullptr, Message(1)));
        EXPECT_EQ(0u, queue->postTask([] { FAIL(); }));
        queue->cancelTask(1);
        queue->removeMessages(nullptr, 1);
        queue->wake();
        EXPECT_EQ(-4, queue->pollOnce(-1));
        queue = nullptr;
        EXPECT_EQ(next, nextDescriptor()) << "what was opened before stays open: " << failure;
        EXPECT_EQ(1u, log.lines().size());
        EXPECT_EQ(1u, log.count(failure)) << failure;
    }
}

std::vector<std::string> sLines;
std::atomic<bool> sRunning{true};

// Its descriptors go bad one by one: each failure is told, and the queue goes on as it can.
TEST(TimerQueueFaults, EachIsToldAndTheLoopGoesOn) {
    __android_log_set_logger([](const __android_logger_data* data, const char* message) {
        sLines.push_back(std::string(data->tag).substr(8) + ": " + message);
        sRunning = sLines.size() < 8;
    });
    const int epoll = nextDescriptor(), timer = epoll + 1, event = epoll + 2;
    const sp<TimerQueue> queue = sp<TimerQueue>::make();
    signal(SIGALRM, [](int) {});
    for (const int us : {1'000, 0}) {  // then over and over, since one may come before the wait
        const itimerval alarms{{0, us}, {0, us}};
        setitimer(ITIMER_REAL, &alarms, nullptr);
        EXPECT_EQ(us > 0 ? TimerQueue::POLL_WAKE : TimerQueue::POLL_TIMEOUT,
                  queue->pollOnce(us > 0 ? -1 : 0));
    }
    eventfd_write(event, UINT64_MAX - 1);
    queue->wake();  // the counter is full: awake it is
    EXPECT_EQ(TimerQueue::POLL_WAKE, queue->pollOnce(-1));
    EXPECT_TRUE(sLines.empty());

    // A folder can be neither read nor written, while the poll still watches what was there before.
    const int folder = open("/", O_RDONLY | O_CLOEXEC);
    const int watchedTimer = dup(timer);
    const int watchedEvent = dup(event);
    queue->postTask([] { sLines.push_back("ran"); });
    dup2(folder, timer);
    EXPECT_EQ(TimerQueue::POLL_CALLBACK, queue->pollOnce(-1));
    queue->postTask(nullptr);
    close(watchedTimer);
    dup2(folder, event);
    queue->wake();
    eventfd_write(watchedEvent, 1);
    EXPECT_EQ(TimerQueue::POLL_WAKE, queue->pollOnce(-1));
    close(epoll);
    runTimerLoop(*queue, sRunning, "Corvane.Owner");
    EXPECT_EQ((std::vector<std::string>{"TimerQueue: read(timerfd) failed: Is a directory",
                                        "TimerQueue: Failed to disarm timerfd", "ran",
                                        "TimerQueue: Failed to set timerfd Invalid argument (22)",
                                        "TimerQueue: write(eventfd) failed: Bad file descriptor",
                                        "TimerQueue: read(eventfd) failed: Is a directory",
                                        "TimerQueue: epoll_wait error: Bad file descriptor",
                                        "Owner: TimerQueue error"}),
              sLines);
}

}  // namespace
}  // namespace android
