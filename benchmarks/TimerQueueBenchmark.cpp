// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include <benchmark/benchmark.h>

#include "timer/TimerQueue.h"

namespace android {
namespace {

constexpr nsecs_t kSecond = 1'000'000'000;

class NoHandler : public MessageHandler {
    void handleMessage(const Message&) override {}
};

// What every frame of a rescued layer costs: its check is posted, and cancelled when the next frame
// begins in time. The argument is the number of other entries pending.
void postAndCancel(benchmark::State& state) {
    const auto queue = sp<TimerQueue>::make();
    const sp<MessageHandler> handler = sp<NoHandler>::make();
    for (int64_t i = 0; i < state.range(0); ++i) {
        queue->sendMessageDelayed((3600 + i) * kSecond, handler, Message());
    }
    for (auto _ : state) {
        const uint64_t id = queue->sendMessageDelayed(60 * kSecond, handler, Message());
        queue->cancelTask(id);
    }
}
BENCHMARK(postAndCancel)->Name("TimerQueue/postAndCancel")->Arg(0)->Arg(10)->Arg(1000);

// The same behind an entry that is due earlier, as another layer's check is: the timer stays as it
// is set. Given, since a cancelled entry stays in the heap until it would be due.
constexpr int kRoundsBehindFront = 100'000;

void postAndCancelBehindFront(benchmark::State& state) {
    const auto queue = sp<TimerQueue>::make();
    const sp<MessageHandler> handler = sp<NoHandler>::make();
    queue->sendMessageDelayed(30 * kSecond, handler, Message());
    for (auto _ : state) {
        const uint64_t id = queue->sendMessageDelayed(60 * kSecond, handler, Message());
        queue->cancelTask(id);
    }
}
BENCHMARK(postAndCancelBehindFront)
        ->Name("TimerQueue/postAndCancelBehindFront")
        ->Iterations(kRoundsBehindFront);

// A task that is due at once, up to its run.
void postAndRun(benchmark::State& state) {
    const auto queue = sp<TimerQueue>::make();
    int ran = 0;
    for (auto _ : state) {
        queue->postTask([&ran] { ++ran; });
        queue->pollOnce(-1);
    }
    if (ran != static_cast<int>(state.iterations())) state.SkipWithError("tasks were lost");
}
BENCHMARK(postAndRun)->Name("TimerQueue/postAndRun");

}  // namespace
}  // namespace android
