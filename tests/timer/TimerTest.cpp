// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/timerfd.h>

#include <atomic>
#include <future>
#include <limits>
#include <memory>
#include <set>
#include <thread>
#include <tuple>
#include <vector>

#include "DescriptorLimit.h"
#include "corvane/host/Clock.h"
#include "corvane/host/LogCapture.h"
#include "timer/TimerQueue.h"
#include "timer/TimerThread.h"

namespace android {
namespace {

using Whats = std::vector<int>;

constexpr nsecs_t kStart = 1'000'000'000;
constexpr nsecs_t kMinute = 60'000'000'000;
constexpr nsecs_t kLongest = std::numeric_limits<nsecs_t>::max();

// Notes the `what` of each message it gets.
class Recorder : public MessageHandler {
  public:
    void handleMessage(const Message& message) override { seen.push_back(message.what); }
    Whats seen;
};

class TimerQueueTest : public ::testing::Test {
  protected:
    // Moves the clock and lets the queue run what is due by then.
    Whats seenAfter(nsecs_t deltaNs) {
        mRecorder->seen.clear();
        mClock.advance(deltaNs);
        mQueue->pollOnce(0);
        return mRecorder->seen;
    }

    uint64_t post(nsecs_t delayNs, int what) {
        return mQueue->sendMessageDelayed(delayNs, mRecorder, Message(what));
    }

    // When the kernel's timer will fire, from the start; -1 when it is disarmed.
    nsecs_t armedFor() const {
        const nsecs_t deadline = mClock.nextDeadline();
        return deadline < 0 ? -1 : deadline - kStart;
    }

    // Behind the queue's back, so that the next time it sets its timer shows.
    void disarm() {
        const itimerspec disarmed{};
        ASSERT_EQ(0, timerfd_settime(mTimerFd, 0, &disarmed, nullptr));
    }

    corvane::host::DrivenClock mClock{kStart};
    const int mTimerFd = nextDescriptor() + 1;  // the queue opens it second
    const sp<TimerQueue> mQueue = sp<TimerQueue>::make();
    const sp<Recorder> mRecorder = sp<Recorder>::make();
};

TEST_F(TimerQueueTest, RunsWhatIsDueInOrderOfDeadline) {
    uint64_t id = 0;
    for (const auto& [delayNs, what, armed] : {std::tuple(kLongest, 9, kLongest - kStart),
                                               {nsecs_t{300}, 3, nsecs_t{300}},
                                               {nsecs_t{500}, 5, nsecs_t{300}},
                                               {nsecs_t{100}, 1, nsecs_t{100}}}) {
        EXPECT_EQ(++id, post(delayNs, what));
        EXPECT_EQ(armed, armedFor()) << "only an earlier entry may set the timer";
    }
    EXPECT_EQ(5u, mQueue->postTaskDelayed(200, [this] { mRecorder->seen.push_back(2); }))
            << "messages and tasks share one sequence of ids";
    for (int i = 0; i < 50; ++i) post(600, i);

    EXPECT_EQ(TimerQueue::POLL_TIMEOUT, mQueue->pollOnce(0));
    EXPECT_EQ(Whats{}, seenAfter(99));
    EXPECT_EQ(Whats{1}, seenAfter(1)) << "due at its deadline, not after it";
    EXPECT_EQ((Whats{2, 3}), seenAfter(250));
    EXPECT_EQ(500, armedFor());
    EXPECT_EQ(Whats{5}, seenAfter(150));
    const Whats ofOneDeadline = seenAfter(1'000'000'000'000);
    EXPECT_EQ(50u, std::set<int>(ofOneDeadline.begin(), ofOneDeadline.end()).size());
    EXPECT_EQ(50u, ofOneDeadline.size());
    EXPECT_EQ(kLongest - kStart, armedFor());

    // Without a delay, or with a negative one, an entry is due at once.
    mRecorder->seen.clear();
    for (const nsecs_t delay : {nsecs_t{0}, nsecs_t{-1}, std::numeric_limits<nsecs_t>::min()}) {
        post(delay, 7);
        EXPECT_EQ(TimerQueue::POLL_CALLBACK, mQueue->pollOnce(-1)) << delay;
    }
    mQueue->sendMessage(mRecorder, Message(7));
    mQueue->postTask([this] { mRecorder->seen.push_back(7); });
    mQueue->postTask(nullptr);
    EXPECT_EQ(TimerQueue::POLL_CALLBACK, mQueue->pollOnce(-1));
    EXPECT_EQ((Whats{7, 7, 7, 7, 7}), mRecorder->seen);
}

TEST_F(TimerQueueTest, CancelledAndRemovedEntriesNeverRun) {
    const uint64_t first = post(100, 1);
    const uint64_t second = post(200, 2);
    const uint64_t third = post(300, 3);
    mQueue->cancelTask(0);
    EXPECT_EQ(100, armedFor());
    mQueue->cancelTask(second);
    EXPECT_EQ(100, armedFor());
    disarm();
    mQueue->cancelTask(post(400, 4));
    mQueue->removeMessages(mRecorder, 4);
    EXPECT_EQ(-1, armedFor()) << "nothing behind the front may set the timer";
    mQueue->cancelTask(first);
    EXPECT_EQ(300, armedFor()) << "past both cancelled entries";
    EXPECT_EQ(Whats{}, seenAfter(250));
    mQueue->cancelTask(third);
    EXPECT_EQ(-1, armedFor());
    EXPECT_EQ(Whats{}, seenAfter(750));

    // Cancelling what is gone already, or never was, does no harm to later entries.
    mQueue->cancelTask(third);
    mQueue->cancelTask(1'000'000);
    const sp<Recorder> other = sp<Recorder>::make();
    for (const int what : {1, 2, 1, 3}) post(100 + what, what);
    mQueue->sendMessageDelayed(50, other, Message(1));
    mQueue->removeMessages(mRecorder, 1);
    mQueue->removeMessages(mRecorder, 9);
    EXPECT_EQ(Whats{2}, seenAfter(102));
    EXPECT_EQ(Whats{1}, other->seen);

    mQueue->sendMessageDelayed(50, other, Message(4));
    mQueue->removeMessages(mRecorder);
    EXPECT_EQ(1'102 + 50, armedFor());
    EXPECT_EQ(Whats{}, seenAfter(1'000));
    EXPECT_EQ((Whats{1, 4}), other->seen);
}

// Handlers that post and cancel while they run, and whose destruction posts: were any of it called
// with the queue's lock held, this would hang.
TEST_F(TimerQueueTest, HandlersMayUseTheQueue) {
    const auto taskOwning = [this] {
        std::shared_ptr<void> postsWhenReleased(nullptr, [this](void*) {
            mRecorder->seen.push_back(0);
            mQueue->postTask(nullptr);
        });
        return [postsWhenReleased] {};
    };
    mQueue->cancelTask(mQueue->postTaskDelayed(10, taskOwning()));
    EXPECT_EQ(1u, mRecorder->seen.size()) << "a cancelled front is released at once";

    const uint64_t behind = mQueue->postTaskDelayed(20, taskOwning());
    mQueue->postTaskDelayed(15, [this, behind] {
        mQueue->cancelTask(behind);
        post(0, 5);
    });
    EXPECT_EQ(Whats{0}, seenAfter(15));
    EXPECT_EQ(Whats{5}, seenAfter(0));

    uint64_t collected = 0;
    mQueue->postTaskDelayed(5, [&] { mQueue->cancelTask(collected); });
    collected = post(6, 6);
    mQueue->cancelTask(mQueue->postTaskDelayed(7, taskOwning()));
    mQueue->postTaskDelayed(10, taskOwning());
    EXPECT_EQ((Whats{6, 0, 0}), seenAfter(10)) << "released when collected, or run";

    // A queue that is being destroyed takes nothing, and still releases all that it had.
    auto queue = sp<TimerQueue>::make();
    TimerQueue* const dying = queue.get();
    int released = 0;
    for (int i = 0; i < 10; ++i) {
        std::shared_ptr<void> last(nullptr, [&released, dying](void*) {
            ++released;
            dying->cancelTask(1);
            EXPECT_EQ(0u, dying->postTask([] {}));
        });
        queue->postTaskDelayed(kMinute, [last = std::move(last)] {});
    }
    queue = nullptr;
    EXPECT_EQ(10, released);
}

TEST_F(TimerQueueTest, WakesAndSignalsEndOnePoll) {
    mQueue->wake();
    mQueue->wake();
    EXPECT_EQ(TimerQueue::POLL_WAKE, mQueue->pollOnce(-1));
    EXPECT_EQ(TimerQueue::POLL_TIMEOUT, mQueue->pollOnce(0)) << "wakes do not add up";

    struct sigaction action {};
    action.sa_handler = [](int) {};  // without SA_RESTART
    ASSERT_EQ(0, sigaction(SIGUSR1, &action, nullptr));
    std::atomic<int> result{0};
    std::thread poller([&] { result = mQueue->pollOnce(-1); });
    // The signal may come before the wait begins, so repeat it until it has ended one.
    while (result == 0) {
        pthread_kill(poller.native_handle(), SIGUSR1);
        std::this_thread::yield();
    }
    EXPECT_EQ(TimerQueue::POLL_WAKE, result);
    poller.join();
}

TEST(TimerQueueFaults, IsInertWithoutDescriptors) {
    const char* const kFailures[] = {"epoll_create1 failed: Too many open files",
                                     "timerfd_create failed: Too many open files",
                                     "eventfd failed: Too many open files"};
    sp<TimerQueue> queue = sp<TimerQueue>::make();
    queue = nullptr;
    const int next = nextDescriptor();
    for (int available = 0; available < 3; ++available) {
        SCOPED_TRACE(available);
        corvane::host::LogCapture log;
        {
            const ScopedDescriptorLimit limit(available);
            queue = sp<TimerQueue>::make();
        }
        const sp<Recorder> recorder = sp<Recorder>::make();
        EXPECT_FALSE(queue->isInitialized());
        EXPECT_EQ(0u, queue->sendMessageDelayed(5, recorder, Message(1)));
        EXPECT_EQ(0u, queue->postTask([&] { recorder->seen.push_back(1); }));
        queue->cancelTask(1);
        queue->removeMessages(recorder, 1);
        queue->wake();
        EXPECT_EQ(TimerQueue::POLL_ERROR, queue->pollOnce(-1));
        EXPECT_EQ(Whats{}, recorder->seen);
        queue = nullptr;
        EXPECT_EQ(next, nextDescriptor()) << "the descriptors opened before the failure stay open";
        ASSERT_EQ(1u, log.lines().size());
        EXPECT_EQ(kFailures[available], log.lines()[0].text);
        EXPECT_EQ("Corvane.TimerQueue", log.lines()[0].tag);
    }
}

// Eight threads post, cancel, remove and wake against the loop: every task either ran once or was
// cancelled by the thread that posted it.
TEST(TimerThread, RunsEveryTaskOnceUnderContention) {
    constexpr int kThreads = 8;
    constexpr int kTasks = 2'000;
    const sp<TimerQueue> queue = sp<TimerQueue>::make();
    std::atomic<bool> running{true};
    std::thread consumer([&] { runTimerLoop(*queue, running, "Test"); });

    std::atomic<int> ran{0};
    std::vector<std::thread> posters;
    for (int t = 0; t < kThreads; ++t) {
        posters.emplace_back([&] {
            const sp<Recorder> removed = sp<Recorder>::make();
            for (int i = 0; i < kTasks; ++i) {
                queue->postTaskDelayed(i % 3 * 1'000, [&] { ++ran; });
                queue->cancelTask(queue->postTaskDelayed(kMinute, [&] { ++ran; }));
                if (i % 100 == 0) {
                    queue->sendMessageDelayed(kMinute, removed, Message(i));
                    queue->removeMessages(removed);
                    queue->wake();
                }
            }
        });
    }
    for (std::thread& poster : posters) poster.join();

    std::promise<void> done;
    queue->postTaskDelayed(10'000, [&] { done.set_value(); });
    done.get_future().wait();
    running = false;
    queue->wake();
    consumer.join();
    EXPECT_EQ(kThreads * kTasks, ran);
    runTimerLoop(*queue, running, "Test");  // returns at once: stopped before it began
}

TEST(TimerThread, LoopGoesOnWhenPollingFails) {
    corvane::host::LogCapture log;
    const int epollFd = nextDescriptor();
    const sp<TimerQueue> queue = sp<TimerQueue>::make();
    close(epollFd);
    std::atomic<bool> running{true};
    std::thread thread([&] { runTimerLoop(*queue, running, "Owner"); });
    EXPECT_TRUE(log.waitFor("TimerQueue error", 2));
    running = false;
    thread.join();
    EXPECT_EQ("Owner", log.matching("TimerQueue error")[0].tag);
    EXPECT_EQ("epoll_wait error: Bad file descriptor", log.lines()[0].text);
}

// As far as the process may: an ordinary user's may raise nothing, and that is no error.
TEST(TimerThread, RaisesTheCallingThreadAlone) {
    const auto scheduling = [] {
        sched_param param{};
        sched_getparam(0, &param);
        const int nice = getpriority(PRIO_PROCESS, 0);
        return std::tuple(nice, sched_getscheduler(0), param.sched_priority);
    };
    const auto before = scheduling();
    auto allowed = before;  // what the system lets a thread have
    std::thread([&] {
        const sched_param one{1};
        setpriority(PRIO_PROCESS, 0, -8);
        sched_setscheduler(0, SCHED_FIFO, &one);
        allowed = scheduling();
    }).join();
    std::thread([&] {
        raiseFrameThreadPriority();
        EXPECT_EQ(allowed, scheduling());
    }).join();
    EXPECT_EQ(before, scheduling());
}

}  // namespace
}  // namespace android
