// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <sched.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>

namespace corvane::host {

// Runs the process in simulated time, one thread at a time, in an order that a seed repeats.
//
// While an object lives, the thread that made it (the owner) and every thread that it or they start
// take part: exactly one of them runs, the others are parked. Every call that may block or let
// another go first is a scheduling point: threads' start, end and join, pthread mutexes and
// conditions, std::condition_variable and futures, sleeps, the guards of function-local statics,
// timerfd, eventfd, epoll, and read, write and close. The linker hands these calls over (host_wraps
// in CMake), in the library, the host platform, the replay and the tests alike.
//
// The monotonic clock moves only when no thread can run; then it jumps to the earliest deadline.
// Nothing can run and nothing is due is a deadlock: a report of every thread goes to
// Options::onStuck, or to stderr before abort().
//
// In a test:
//
//     Simulation mSimulation{kStart};          // first member: before anything starts a thread
//     ...
//     std::thread queue([&] { monitor.queueBuffer(...); });   // takes part
//     mSimulation.settle();                    // everyone ran until he waits; no time has passed
//     EXPECT_EQ(1u, held());
//     mSimulation.advanceTo(kStart + 4 * kMs); // what is due until then, then has happened
//     queue.join();
//
// No test waits for another thread in real time: after settle() or advance() there is nothing that
// could still come. But passing the turn on orders no memory accesses as far as ThreadSanitizer is
// concerned, so that it finds every lock that is missing: what a test and its threads share is
// atomic or under a lock as ever, unless a start or a join lies between. A blocking call of the
// owner (join, a condition, sleepFor) lets the others run and the clock move as well. The default
// schedule lets a thread run until it waits; the seeded ones take the turn from it at any
// scheduling point.
//
// Limits. Threads that were there before do not take part: their calls are the kernel's, and their
// signals are not seen, so create the simulation first, without a lock held. Timer descriptors must
// be created while it lives. Code that spins until the clock moves never ends, unless it yields.
// When the object goes, the other threads first run until they wait, and then stay parked for the
// life of the process: stop and join what must end before that. One object at a time; a second one
// after it starts with no threads but its owner.
class __attribute__((visibility("default"))) Simulation {
  public:
    // Which of the threads that can run goes next.
    enum class Policy {
        kFifo,    // each runs until it waits, then the one that could run first
        kRandom,  // any, drawn at every scheduling point
        kPct,     // the one of the highest random priority; `depth` - 1 times it is taken away
    };

    struct Range {
        int64_t minNs = 0;
        int64_t maxNs = 0;
    };

    // One thing that a thread did. The strings live on; pointers are identities only.
    struct Event {
        int64_t timeNs;
        uint32_t thread;     // 0 = the owner, then in the order of their starts
        const char* what;    // the call, or what became of it
        const void* object;  // the mutex, condition, ... or null
        const void* caller;  // the return address of the call
    };

    struct Options {
        int64_t startNs = 1'000'000'000;  // > 0
        Policy policy = Policy::kFifo;
        uint64_t seed = 0;
        uint32_t depth = 3;      // of kPct
        uint64_t steps = 1'000;  // of kPct: how many scheduling points a run has, about
        // Whether a condition wait may end without a signal, now and then.
        bool spuriousWakeups = false;
        // What time passes at each scheduling point, and between a thread's being woken and its
        // running: drawn evenly from the range.
        Range callCost{};
        Range wakeupCost{};
        // Whether the basic blocks of code compiled with -fsanitize-coverage=trace-pc are
        // scheduling points too.
        bool basicBlocks = false;
        // Keeps the process on one processor while the simulation lives: passing the turn is a few
        // times faster.
        bool onOneProcessor = true;
        // Longer than this in simulated time, or in scheduling points, counts as stuck too.
        int64_t maxNs = INT64_MAX;
        uint64_t maxSteps = UINT64_MAX;
        // Takes the report of a deadlock, on some thread; must not return.
        void (*onStuck)(const char* report) = nullptr;
        // Called at every event, on the thread that runs; must not block nor allocate.
        void (*onEvent)(const Event& event) = nullptr;
    };

    explicit Simulation(const Options& options);
    explicit Simulation(int64_t startNs);
    ~Simulation();
    Simulation(const Simulation&) = delete;
    Simulation& operator=(const Simulation&) = delete;

    // All below: on a thread that takes part.

    static int64_t now();

    // The clock reaches this time, and those who were due before or at it have started to run.
    static void sleepUntil(int64_t timeNs);
    static void sleepFor(int64_t durationNs);
    // Lets all others run until they wait. No time passes.
    static void settle();
    // sleepUntil() and settle(): all that is due by then has happened.
    static void advanceTo(int64_t timeNs);
    static void advance(int64_t durationNs);
    // Lets those go first that can run.
    static void yield();

    // The earliest time for which a thread sleeps or a timer descriptor is armed; -1 when none.
    static int64_t nextDeadline();
    // Scheduling points so far, or since the latest restartSchedule().
    static uint64_t steps();
    // What was so far was preparation: kPct draws all priorities and changes anew and counts
    // Options::steps from here.
    static void restartSchedule();
    // Threads that take part and have not ended, the owner among them.
    static size_t threads();

    // What the threads ask of the system's scheduling for themselves counts as done and is not:
    // taking turns, they gain nothing by it, and the machine would lose the processor to them.
    struct Scheduling {
        int nice = 0;
        int policy = SCHED_OTHER;
        int priority = 0;  // with SCHED_FIFO and SCHED_RR
    };
    // As asked for so far by the thread of this name that has not ended; unchanged for none.
    static Scheduling schedulingOf(const char* threadName);

    // All below: on any thread, simulated or not.

    static bool isOn();  // whether the calling thread takes part in one
    // What the host platform puts on record: gettid() and getpid(), or the same numbers in every
    // run of a simulation. (gettid() itself answers like this too.)
    static pid_t threadId();
    static pid_t processId();
    // The name that a thread of the simulation has or had, by its number in an Event.
    static const char* threadName(uint32_t thread);

    // While one lives, its thread keeps the turn except where it must wait.
    class __attribute__((visibility("default"))) Uninterrupted {
      public:
        Uninterrupted();
        ~Uninterrupted();
        Uninterrupted(const Uninterrupted&) = delete;
        Uninterrupted& operator=(const Uninterrupted&) = delete;
    };
};

}  // namespace corvane::host
