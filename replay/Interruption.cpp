// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#include "replay/Interruption.h"

#include <atomic>
#include <cstddef>
#include <utility>

#include "replay/Playback.h"

namespace corvane::replay {
namespace {

// Of the handler, on any thread.
std::atomic<Playback*> sPlayer{nullptr};
std::atomic<int> sSignal{0};
static_assert(std::atomic<Playback*>::is_always_lock_free && std::atomic<int>::is_always_lock_free);

void onSignal(int signal) {
    sSignal.store(signal);
    if (Playback* player = sPlayer.load()) player->stop();
}

}  // namespace

Interruption::Interruption() {
    sSignal.store(0);
    struct sigaction action {};
    action.sa_handler = onSignal;
    // Back to the default after the first; calls that were waiting go on.
    action.sa_flags = static_cast<int>(SA_RESETHAND) | SA_RESTART;
    for (size_t i = 0; i < std::size(kSignals); ++i) {
        sigaction(kSignals[i], nullptr, &mBefore[i]);
        if (mBefore[i].sa_handler != SIG_IGN) sigaction(kSignals[i], &action, nullptr);
    }
}

Interruption::~Interruption() {
    end();
}

void Interruption::end() {
    if (std::exchange(mEnded, true)) return;
    for (size_t i = 0; i < std::size(kSignals); ++i) sigaction(kSignals[i], &mBefore[i], nullptr);
    sPlayer.store(nullptr);
}

void Interruption::setPlayer(Playback* player) {
    sPlayer.store(player);
    if (signal() != 0) player->stop();
}

int Interruption::signal() const {
    return sSignal.load();
}

}  // namespace corvane::replay
