// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <memory>
#include <string>
#include <vector>

#include "corvane/host/PerfService.h"

namespace aidl::vendor::hxw::hardware::perf2 {
class IPerfCallback;
}

namespace corvane::host {

// What the client library's entry points ask of the service.

// A list of integers as the entry points take it; empty when there is none.
std::vector<int> perfArgs(int numArgs, const int* args);

std::string perfProperty(const char* name, const char* defaultValue);
bool perfIsGame(const char* package);
int perfWeight(const char* package);
int perfAcquireLock(int handle);
bool perfReleaseLock(int handle);
void perfRegisterCallback(
        std::shared_ptr<aidl::vendor::hxw::hardware::perf2::IPerfCallback> callback);

// Puts the call on record and returns its result.
int perfRecord(const char* entry, int number, const char* package, std::vector<int> args,
               int result, std::string answer = {});

}  // namespace corvane::host
