// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "PerfServiceState.h"

#include <aidl/vendor/hxw/hardware/perf2/IPerfCallback.h>
#include <android-base/properties.h>
#include <dlfcn.h>
#include <pthread.h>
#include <unistd.h>
#include <utils/Timers.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <mutex>
#include <set>
#include <thread>
#include <utility>

namespace corvane::host {
namespace {

using aidl::vendor::hxw::hardware::perf2::IPerfCallback;

constexpr char kClientLibrary[] = "libhxw-perfd-client_system.so";

struct State {
    std::mutex mutex;
    std::vector<PerfCall> calls;
    std::map<std::string, int> games;  // and their weights
    std::set<int> locks;
    bool refusesLocks = false;
    int lastLock = 0;
    std::shared_ptr<IPerfCallback> callback;
    void* clientLibrary = nullptr;
};

// Never destroyed: the library's threads may call until the process ends.
State& state() {
    static auto* instance = new State;
    return *instance;
}

bool isSuch(const PerfCall& call, const std::string& entry, int number) {
    return call.entry == entry && call.number == number;
}

std::string threadName() {
    char name[16] = {};  // the kernel's limit
    pthread_getname_np(pthread_self(), name, sizeof(name));
    return name;
}

// The folder of the shared object that this code is in.
std::string ownFolder() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&perfArgs), &info) == 0) return ".";
    const std::string path = info.dli_fname;
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash);
}

}  // namespace

std::vector<int> perfArgs(int numArgs, const int* args) {
    if (numArgs <= 0 || args == nullptr) return {};
    return {args, args + numArgs};
}

std::string perfProperty(const char* name, const char* defaultValue) {
    return android::base::GetProperty(name, defaultValue == nullptr ? "" : defaultValue);
}

bool perfIsGame(const char* package) {
    State& s = state();
    const std::lock_guard<std::mutex> lock(s.mutex);
    return package != nullptr && s.games.count(package) != 0;
}

int perfWeight(const char* package) {
    State& s = state();
    const std::lock_guard<std::mutex> lock(s.mutex);
    const auto game = package == nullptr ? s.games.end() : s.games.find(package);
    return game == s.games.end() ? 0 : game->second;
}

int perfAcquireLock(int handle) {
    State& s = state();
    const std::lock_guard<std::mutex> lock(s.mutex);
    if (s.refusesLocks) return 0;
    if (s.locks.count(handle) != 0) return handle;  // renewed
    s.locks.insert(++s.lastLock);
    return s.lastLock;
}

bool perfReleaseLock(int handle) {
    State& s = state();
    const std::lock_guard<std::mutex> lock(s.mutex);
    return s.locks.erase(handle) != 0;
}

void perfRegisterCallback(std::shared_ptr<IPerfCallback> callback) {
    State& s = state();
    const std::lock_guard<std::mutex> lock(s.mutex);
    s.callback.swap(callback);
}

int perfRecord(const char* entry, int number, const char* package, std::vector<int> args,
               int result, std::string answer) {
    PerfCall call{entry,
                  number,
                  package != nullptr,
                  package == nullptr ? "" : package,
                  std::move(args),
                  result,
                  systemTime(SYSTEM_TIME_MONOTONIC),
                  static_cast<uint64_t>(gettid()),
                  threadName(),
                  std::move(answer)};
    State& s = state();
    const std::lock_guard<std::mutex> lock(s.mutex);
    s.calls.push_back(std::move(call));
    return result;
}

bool PerfService::install(const std::string& variant) {
    const std::string folder = ownFolder() + "/perfd/" + (variant == "full" ? "" : variant + "/");
    State& s = state();
    const std::lock_guard<std::mutex> lock(s.mutex);
    if (s.clientLibrary != nullptr) dlclose(s.clientLibrary);
    s.clientLibrary = dlopen((folder + kClientLibrary).c_str(), RTLD_NOW | RTLD_LOCAL);
    return s.clientLibrary != nullptr;
}

void PerfService::addGame(const std::string& package, int weight) {
    State& s = state();
    const std::lock_guard<std::mutex> lock(s.mutex);
    s.games[package] = weight;
}

void PerfService::refuseLocks(bool refuse) {
    State& s = state();
    const std::lock_guard<std::mutex> lock(s.mutex);
    s.refusesLocks = refuse;
}

std::vector<PerfCall> PerfService::calls() {
    State& s = state();
    const std::lock_guard<std::mutex> lock(s.mutex);
    return s.calls;
}

std::vector<PerfCall> PerfService::calls(const std::string& entry, int number) {
    State& s = state();
    const std::lock_guard<std::mutex> lock(s.mutex);
    std::vector<PerfCall> result;
    std::copy_if(s.calls.begin(), s.calls.end(), std::back_inserter(result),
                 [&](const PerfCall& call) { return isSuch(call, entry, number); });
    return result;
}

void PerfService::clearCalls() {
    State& s = state();
    const std::lock_guard<std::mutex> lock(s.mutex);
    s.calls.clear();
}

bool PerfService::hasCallback() {
    State& s = state();
    const std::lock_guard<std::mutex> lock(s.mutex);
    return s.callback != nullptr;
}

bool PerfService::push(int hintId, const std::string& pkgName, int arg1, int arg2,
                       const std::vector<int>& values) {
    std::shared_ptr<IPerfCallback> callback;
    {
        State& s = state();
        const std::lock_guard<std::mutex> lock(s.mutex);
        callback = s.callback;
    }
    if (callback == nullptr) return false;
    bool isOk = false;
    std::thread binderThread([&] {
        pthread_setname_np(pthread_self(), "binder:perfd");
        isOk = callback->notifyCallback(hintId, pkgName, arg1, arg2, values).isOk();
    });
    binderThread.join();
    return isOk;
}

}  // namespace corvane::host
