// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "explore/EventLog.h"

#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace corvane::explore {
namespace {

using Event = host::Simulation::Event;

// Earlier events than this many tell little about the failure.
constexpr size_t kPrinted = 400;

std::string programPath() {
    char path[PATH_MAX] = {};
    const ssize_t length = readlink("/proc/self/exe", path, sizeof(path) - 1);
    return length > 0 ? std::string(path, static_cast<size_t>(length)) : "";
}

// "PHRMonitor.cpp:120" from a line of addr2line; empty for a place in the system's headers.
std::string placeFrom(std::string line) {
    while (!line.empty() && (line.back() == '\n' || line.back() == ' ')) line.pop_back();
    const size_t note = line.find(" (discriminator");
    if (note != std::string::npos) line.resize(note);
    if (line.find("/usr/") != std::string::npos || line.find('?') != std::string::npos) return "";
    const size_t slash = line.rfind('/');
    return slash == std::string::npos ? "" : line.substr(slash + 1);
}

// Places in the sources for return addresses, asked of addr2line in one go per shared object.
std::map<const void*, std::string> placesOf(const std::vector<const void*>& callers) {
    std::map<std::string, std::map<const void*, uintptr_t>> byObject;
    for (const void* caller : callers) {
        Dl_info info{};
        link_map* object = nullptr;
        if (dladdr1(caller, &info, reinterpret_cast<void**>(&object), RTLD_DL_LINKMAP) == 0) {
            continue;
        }
        const std::string file =
                object->l_name[0] == '\0' ? programPath() : std::string(object->l_name);
        // The call itself is before the return address.
        byObject[file][caller] = reinterpret_cast<uintptr_t>(caller) - object->l_addr - 1;
    }
    std::map<const void*, std::string> places;
    for (const auto& [file, addresses] : byObject) {
        // After each address comes address 0, whose answer marks the end of its inlined frames.
        std::string command = "addr2line -i -e '" + file + "'";
        std::vector<const void*> order;
        for (const auto& [caller, address] : addresses) {
            char text[40];
            snprintf(text, sizeof(text), " 0x%lx 0x0", static_cast<unsigned long>(address));
            command += text;
            order.push_back(caller);
        }
        FILE* answers = popen((command + " 2>/dev/null").c_str(), "re");
        if (answers == nullptr) continue;
        char line[PATH_MAX];
        size_t index = 0;
        while (index < order.size() && fgets(line, sizeof(line), answers) != nullptr) {
            if (line[0] == '?') {
                ++index;
            } else if (places[order[index]].empty()) {
                places[order[index]] = placeFrom(line);
            }
        }
        pclose(answers);
    }
    return places;
}

}  // namespace

void EventLog::add(const Event& event) {
    if (mCount == 0) mStartNs = event.timeNs;
    mEvents[mCount++ % kMaxEvents] = event;
}

void EventLog::nameThreads() {
    for (uint32_t i = 0; i < kMaxThreads; ++i) {
        strncpy(mNames[i], host::Simulation::threadName(i), sizeof(mNames[i]) - 1);
    }
}

void EventLog::print(FILE* out) const {
    const size_t count = std::min({mCount, kPrinted, kMaxEvents});
    std::vector<Event> events;
    std::vector<const void*> callers;
    std::map<const void*, size_t> objects;  // in the order of their appearance
    std::map<uint32_t, size_t> columns;
    for (size_t i = mCount - count; i < mCount; ++i) {
        const Event& event = mEvents[i % kMaxEvents];
        events.push_back(event);
        callers.push_back(event.caller);
        if (event.object != nullptr) objects.emplace(event.object, objects.size() + 1);
        columns.emplace(event.thread, 0);
    }
    size_t next = 0;
    for (auto& [thread, column] : columns) column = next++;
    const auto places = placesOf(callers);

    std::vector<std::string> cells;
    size_t width = 20;
    for (const Event& event : events) {
        std::string cell = event.what;
        if (event.object != nullptr) cell += " @" + std::to_string(objects[event.object]);
        const auto place = places.find(event.caller);
        if (place != places.end() && !place->second.empty()) cell += " " + place->second;
        width = std::max(width, cell.size() + 1);
        cells.push_back(std::move(cell));
    }

    if (count < mCount) fprintf(out, "(%zu earlier events)\n", mCount - count);
    fprintf(out, "%16s", "time in us  ");
    for (const auto& [thread, column] : columns) {
        const char* name = thread < kMaxThreads ? mNames[thread] : "";
        fprintf(out, "#%-2u %-*s", thread, static_cast<int>(width) - 4, name);
    }
    fputc('\n', out);
    for (size_t i = 0; i < events.size(); ++i) {
        const int64_t ns = events[i].timeNs - mStartNs;
        fprintf(out, "%10lld.%03lld  %*s%s\n", static_cast<long long>(ns / 1'000),
                static_cast<long long>(ns % 1'000),
                static_cast<int>(columns[events[i].thread] * width), "", cells[i].c_str());
    }
}

}  // namespace corvane::explore
