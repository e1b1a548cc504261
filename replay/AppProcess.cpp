// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/AppProcess.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>

extern char** environ;

namespace corvane::replay {
namespace {

// The application's answer when its clock has reached what it was told.
constexpr const char* kReached = "reached";

}  // namespace

AppProcess::AppProcess(const std::string& program, AppPlan plan) : mPlan(std::move(plan)) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        mError = std::string("no socket for the application: ") + std::strerror(errno);
        return;
    }
    mSocket = ends[0];
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    std::string name = program;
    char* const argv[] = {name.data(), nullptr};
    const int error = posix_spawn(&mPid, program.c_str(), &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    if (error != 0) {
        mPid = -1;
        mError = "cannot start " + program + ": " + std::strerror(error);
        return;
    }
    if (!send(toJson(mPlan))) mError = "the application ended before it began";
    const std::string answer = receiveLine();
    if (mError.empty() && answer != "ready") {
        mError = answer.empty() ? "the application ended before it began" : answer;
    }
}

AppProcess::~AppProcess() {
    if (mSocket >= 0) close(mSocket);  // an application that still waits sees the end of its input
    if (mPid < 0) return;
    if (!mEnded) kill(mPid, SIGKILL);
    waitpid(mPid, nullptr, 0);
}

void AppProcess::begin(int64_t startNs) {
    if (mError.empty() && !send(std::to_string(startNs))) mError = "the application ended early";
}

void AppProcess::advanceTo(int64_t timeNs) {
    if (!mError.empty()) return;
    if (!send(std::to_string(timeNs)) || receiveLine() != kReached) {
        mError = "the application ended early";
    }
}

void AppProcess::stop() {
    if (mPid > 0) kill(mPid, SIGTERM);
}

AppResult AppProcess::result() {
    AppResult failed;
    if (mSocket >= 0) shutdown(mSocket, SHUT_WR);  // no more times will come
    if (mError.empty()) {
        if (auto result = appResultFrom(receiveLine())) {
            mEnded = true;
            return std::move(*result);
        }
        mError = "the application ended without a result";
    }
    failed.error = mError;
    return failed;
}

bool AppProcess::send(const std::string& line) const {
    std::string text = line + "\n";
    size_t sent = 0;
    while (sent < text.size()) {
        const ssize_t count = ::send(mSocket, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return false;
        sent += static_cast<size_t>(count);
    }
    return true;
}

std::string AppProcess::receiveLine() {
    for (;;) {
        const size_t end = mReceived.find('\n');
        if (end != std::string::npos) {
            const std::string line = mReceived.substr(0, end);
            mReceived.erase(0, end + 1);
            return line;
        }
        char buffer[4096];
        const ssize_t count = recv(mSocket, buffer, sizeof(buffer), 0);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return "";
        mReceived.append(buffer, static_cast<size_t>(count));
    }
}

}  // namespace corvane::replay
