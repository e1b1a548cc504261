// Copyright 2026 The libcorvane Authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <csignal>
#include <iterator>

namespace corvane::replay {

class Playback;

// Until its end, the first interrupt or termination signal stops the player instead of ending the
// process, so that the report tells of what was played until then; the second ends the process at
// once. Signals that were ignored before, as in a shell's background, stay so. One at a time, made
// and ended by the thread that plays.
class Interruption {
  public:
    Interruption();
    ~Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    // Stops this player from now on, at once when the signal has come already. The player lives
    // until end().
    void setPlayer(Playback* player);
    // From now on signals do what they did before, such as ending a process that nobody reads from.
    void end();
    // The signal that came before the end, 0 for none.
    int signal() const;

  private:
    static constexpr int kSignals[] = {SIGINT, SIGTERM};

    bool mEnded = false;
    struct sigaction mBefore[std::size(kSignals)] = {};
};

}  // namespace corvane::replay
