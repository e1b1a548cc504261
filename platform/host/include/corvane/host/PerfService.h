// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace corvane::host {

// The host's performance service. The state lives here; the client library
// "libhxw-perfd-client_system.so" is a separate shared object whose entry points use it.
// All functions may be called from any thread.

// One call that reached the service.
//
//   entry                              number     args                      result
//   perf_get_prop                      0          {}                        0
//   perf_get_feedback                  request    {}                        2 = game, else 0
//   perf_get_feedback_extn             request    the n integers            the game's weight, or 0
//   perf_hint                          hint       {duration, type}          the game's weight, or 0
//   perf_event                         event      the n integers            0
//   perf_lock_acq                      handle     {duration, list...}       the lock's handle, or 0
//   perf_lock_rel                      handle     {}                        0, -1 = no such lock
//   get_perf_hal_ver                   0          {}                        the version's integer
//   perf_callback_register             client id  {}                        0
//
// Weights are answered to perf_get_feedback_extn(5633, package, 2, {1, 0}) and to
// perf_hint(5633, package, 0, 1). Handles count up from 1.
struct PerfCall {
    std::string entry;      // the entry point's symbol
    int number;             // event, hint, request, lock handle or client id: its first integer
    bool hasPackage;        // false when the package was a null pointer or the entry takes none
    std::string package;    // of perf_get_prop: the property's name
    std::vector<int> args;  // the remaining integers, lists included
    int result;
    int64_t timeNs;           // systemTime at the call
    uint64_t threadId;        // gettid of the caller
    std::string thread;       // its name
    std::string answer = {};  // of perf_get_prop: the value, or the default that was offered
};

class PerfService {
  public:
    // Loads the client library so that a later dlopen of its bare name finds this build of it:
    // "full" (version 3.0); "missing-<symbol>" for each of the nine; "version-2.2", "version-2.3",
    // "version-none" (it cannot be asked). Replaces a build installed before that nobody has opened
    // yet. Without a call, a program outside build/ finds no client library. False when it cannot
    // load.
    static bool install(const std::string& variant = "full");

    static void addGame(const std::string& package, int weight);

    // From now on perf_lock_acq takes no lock and answers 0, or takes them again.
    static void refuseLocks(bool refuse);

    static std::vector<PerfCall> calls();
    static std::vector<PerfCall> calls(const std::string& entry, int number);
    static void clearCalls();

    static bool hasCallback();
    // Runs the registered callback's notifyCallback on the service's own thread and waits for it to
    // return. False when none is registered or it did not return success.
    static bool push(int hintId, const std::string& pkgName, int arg1, int arg2,
                     const std::vector<int>& values);
};

}  // namespace corvane::host
