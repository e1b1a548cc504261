// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// What the model leaves out: threads at once, faults, and what outlives an entry.

#include <android/log.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "DescriptorLimit.h"
#include "RecordedPriorities.h"
#include "corvane/host/LogCapture.h"
#include "corvane/host/Simulation.h"
#include "timer/TimerQueue.h"
#include "timer/TimerThread.h"

namespace android {
namespace {

using corvane::host::Simulation;

constexpr nsecs_t kStart = 1'000'000'000;
constexpr nsecs_t kMinute = 60'000'000'000;

// Handlers that post and cancel while they run, and whose destruction posts: were any of it called
// with the queue's lock held, this would be a deadlock.
TEST(TimerQueueTest, HandlersMayUseTheQueue) {
    Simulation simulation(kStart);
    auto queue = sp<TimerQueue>::make();
    std::vector<char> seen;
    const auto seenAfter = [&](nsecs_t ns) {
        seen.clear();
        Simulation::advance(ns);
        queue->pollOnce(0);
        return seen;
    };
    const auto taskOwning = [&] {
        std::shared_ptr<void> postsWhenReleased(nullptr, [&](void*) {
            seen.push_back('-');
            queue->postTask(nullptr);
        });
        return [postsWhenReleased] {};
    };
    queue->cancelTask(queue->postTaskDelayed(10, taskOwning()));
    EXPECT_EQ(1u, seen.size()) << "a cancelled front is released at once";

    const uint64_t behind = queue->postTaskDelayed(20, taskOwning());
    queue->postTaskDelayed(15, [&] {
        queue->cancelTask(behind);
        queue->postTask([&] { seen.push_back('+'); });
    });
    EXPECT_EQ(std::vector<char>{'-'}, seenAfter(15));
    EXPECT_EQ(std::vector<char>{'+'}, seenAfter(0));

    // One collected for dispatch is not cancelled any more; one that is cancelled behind it goes.
    uint64_t collected = 0;
    queue->postTaskDelayed(5, [&] { queue->cancelTask(collected); });
    collected = queue->postTaskDelayed(6, [&] { seen.push_back('+'); });
    queue->cancelTask(queue->postTaskDelayed(7, taskOwning()));
    queue->postTaskDelayed(10, taskOwning());
    EXPECT_EQ((std::vector<char>{'+', '-', '-'}), seenAfter(10))
            << "released when collected, or run";

    // Ids count up from 1, for messages and tasks alike.
    const auto fresh = sp<TimerQueue>::make();
    EXPECT_EQ(1u, fresh->postTask(nullptr));
    EXPECT_EQ(2u, fresh->sendMessage(nullptr, Message(1)));
    fresh->cancelTask(2);
    EXPECT_EQ(3u, fresh->postTask(nullptr));

    // A queue that is being destroyed takes nothing, and still releases all that it had.
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

// The process of the display runs for months.
TEST(TimerQueueTest, KeepsNothingOfWhatIsGone) {
    const sp<TimerQueue> queue = sp<TimerQueue>::make();
    const auto postAndCancel = [&](int count) {
        for (int i = 0; i < count; ++i) {
            queue->cancelTask(queue->postTaskDelayed(kMinute + i % 7, nullptr));
            const uint64_t behind = queue->postTaskDelayed(kMinute, nullptr);
            queue->postTask(nullptr);
            queue->cancelTask(behind);
            queue->pollOnce(0);
        }
        return mallinfo2().uordblks;
    };
    const size_t before = postAndCancel(100);
    EXPECT_LT(postAndCancel(10'000), before + 10'000);
}

TEST(TimerQueueTest, ASignalEndsOnePoll) {
    const sp<TimerQueue> queue = sp<TimerQueue>::make();
    struct sigaction action {};
    action.sa_handler = [](int) {};  // without SA_RESTART
    ASSERT_EQ(0, sigaction(SIGUSR1, &action, nullptr));
    std::atomic<int> result{0};
    std::thread poller([&] { result = queue->pollOnce(-1); });
    // The signal may come before the wait begins, so repeat it until it has ended one.
    while (result == 0) {
        pthread_kill(poller.native_handle(), SIGUSR1);
        std::this_thread::yield();
    }
    EXPECT_EQ(TimerQueue::POLL_WAKE, result);
    poller.join();
    EXPECT_EQ(TimerQueue::POLL_TIMEOUT, queue->pollOnce(0));
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
        EXPECT_FALSE(queue->isInitialized());
        EXPECT_EQ(0u, queue->sendMessageDelayed(5, nullptr, Message(1)));
        EXPECT_EQ(0u, queue->postTask([] { FAIL(); }));
        queue->cancelTask(1);
        queue->removeMessages(nullptr, 1);
        queue->wake();
        EXPECT_EQ(TimerQueue::POLL_ERROR, queue->pollOnce(-1));
        queue = nullptr;
        EXPECT_EQ(next, nextDescriptor()) << "the descriptors opened before the failure stay open";
        ASSERT_EQ(1u, log.lines().size());
        EXPECT_EQ(kFailures[available], log.lines()[0].text);
        EXPECT_EQ("Corvane.TimerQueue", log.lines()[0].tag);
    }
}

// Threads post, cancel, remove and wake against the loop, in random orders: every task either ran
// once or was cancelled by the thread that posted it.
TEST(TimerThread, RunsEveryTaskOnceInAnyOrder) {
    constexpr int kThreads = 4;
    constexpr int kTasks = 40;
    for (uint64_t seed = 1; seed <= 10; ++seed) {
        Simulation::Options options;
        options.policy = Simulation::Policy::kRandom;
        options.seed = seed;
        Simulation simulation(options);
        const sp<TimerQueue> queue = sp<TimerQueue>::make();
        std::atomic<bool> running{true};
        std::thread consumer([&] { runTimerLoop(*queue, running, "Test"); });
        std::atomic<int> ran{0};
        std::vector<std::thread> posters;
        for (int t = 0; t < kThreads; ++t) {
            posters.emplace_back([&] {
                class Never : public MessageHandler {
                    void handleMessage(const Message&) override { ADD_FAILURE(); }
                };
                const sp<MessageHandler> removed = sp<Never>::make();
                for (int i = 0; i < kTasks; ++i) {
                    queue->postTaskDelayed(i % 3 * 1'000, [&] { ++ran; });
                    queue->cancelTask(queue->postTaskDelayed(kMinute, [] { ADD_FAILURE(); }));
                    if (i % 10 != 0) continue;
                    queue->sendMessageDelayed(kMinute, removed, Message(i));
                    queue->removeMessages(removed);
                    queue->wake();
                    Simulation::sleepFor(500);
                }
            });
        }
        for (std::thread& poster : posters) poster.join();
        Simulation::advance(2 * kMinute);
        EXPECT_EQ(kThreads * kTasks, ran) << seed;
        running = false;
        queue->wake();
        consumer.join();
        runTimerLoop(*queue, running, "Test");  // returns at once: stopped before it began
    }
}

std::atomic<bool> sPolls{true};

TEST(TimerThread, LoopGoesOnWhenPollingFails) {
    static std::vector<std::string> lines;
    __android_log_set_logger([](const __android_logger_data* data, const char* message) {
        lines.push_back(std::string(data->tag) + ": " + message);
        sPolls = lines.size() < 4;
    });
    const int epollFd = nextDescriptor();
    const sp<TimerQueue> queue = sp<TimerQueue>::make();
    close(epollFd);
    runTimerLoop(*queue, sPolls, "Owner");
    const std::string failure = "Corvane.TimerQueue: epoll_wait error: Bad file descriptor";
    EXPECT_EQ((std::vector<std::string>{failure, "Owner: TimerQueue error", failure,
                                        "Owner: TimerQueue error"}),
              lines);
}

TEST(TimerThread, RaisesTheCallingThread) {
    pthread_setname_np(pthread_self(), "raised");
    raiseFrameThreadPriority();
    EXPECT_EQ(RecordedPriorities::ofTheFramePath(), RecordedPriorities::of("raised"));
}

}  // namespace
}  // namespace android
