// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

// The performance service's client library, "libhxw-perfd-client_system.so".

#include <aidl/vendor/hxw/hardware/perf2/IPerfCallback.h>

#include <cstring>
#include <memory>
#include <utility>

#include "PerfServiceState.h"

using namespace corvane::host;
using aidl::vendor::hxw::hardware::perf2::IPerfCallback;

namespace {

constexpr int kGameRequest = 5633;
constexpr int kGame = 2;

struct PropValue {
    char value[92];
};

bool asksForWeight(int number, const std::vector<int>& args, const std::vector<int>& wanted) {
    return number == kGameRequest && args == wanted;
}

}  // namespace

extern "C" {

PropValue perf_get_prop(const char* name, const char* defaultValue) {
    PropValue result{};
    std::string value = perfProperty(name, defaultValue);
    value.copy(result.value, sizeof(result.value));  // nothing promises that a long text ends
    perfRecord("perf_get_prop", 0, name, {}, 0, std::move(value));
    return result;
}

int perf_get_feedback(int request, const char* pkg) {
    const bool isGame = request == kGameRequest && perfIsGame(pkg);
    return perfRecord("perf_get_feedback", request, pkg, {}, isGame ? kGame : 0);
}

int perf_get_feedback_extn(int request, const char* pkg, int numArgs, int* args) {
    std::vector<int> list = perfArgs(numArgs, args);
    const int result = asksForWeight(request, list, {1, 0}) ? perfWeight(pkg) : 0;
    return perfRecord("perf_get_feedback_extn", request, pkg, std::move(list), result);
}

int perf_hint(int hint, const char* pkg, int duration, int type) {
    std::vector<int> list{duration, type};
    const int result = asksForWeight(hint, list, {0, 1}) ? perfWeight(pkg) : 0;
    return perfRecord("perf_hint", hint, pkg, std::move(list), result);
}

void perf_event(int event, const char* pkg, int numArgs, int* args) {
    perfRecord("perf_event", event, pkg, perfArgs(numArgs, args), 0);
}

int perf_lock_acq(int handle, int duration, int* list, int numArgs) {
    std::vector<int> args = perfArgs(numArgs, list);
    args.insert(args.begin(), duration);
    return perfRecord("perf_lock_acq", handle, nullptr, std::move(args), perfAcquireLock(handle));
}

int perf_lock_rel(int handle) {
    return perfRecord("perf_lock_rel", handle, nullptr, {}, perfReleaseLock(handle) ? 0 : -1);
}

double get_perf_hal_ver() {
    perfRecord("get_perf_hal_ver", 0, nullptr, {}, static_cast<int>(PERFD_VERSION));
    return PERFD_VERSION;
}

int perf_callback_register(std::shared_ptr<IPerfCallback> callback, int clientId) {
    perfRegisterCallback(std::move(callback));
    return perfRecord("perf_callback_register", clientId, nullptr, {}, 0);
}

}  // extern "C"
