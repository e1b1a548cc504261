#!/usr/bin/env bash
# Copyright 2026 The libcorvane Authors
# SPDX-License-Identifier: Apache-2.0
#
# Runs the whole suite on one core while every thread but a test's first comes 5 ms late to each of its
# locks: no result may depend on how fast a thread is. Takes some minutes, most of them asleep.
# usage: tools/check-delays.sh
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

readonly dir=build
readonly at_once=8        # what sleeps leaves the core to others
readonly time_limit=1800  # s; thousands of locks, 5 ms each
# Takes some hundred thousand locks: half an hour asleep, for what its sister takes from the same seeds.
readonly left_out=HookSequencesTest.VariedSeeds

tools/install-packages.sh build
[ -f "$dir/build.ninja" ] || cmake --preset release
cmake --build "$dir"
# Every program is started once to list its tests, before they are slow.
ctest --test-dir "$dir" --show-only >/dev/null
# Of the models' sequences a tenth: what a delay can change is the same in all.
CORVANE_TRY_EVERY=10 LD_PRELOAD="$PWD/$dir/tests/libdelayed_locks.so" taskset -c 0 \
    ctest --test-dir "$dir" --output-on-failure --no-tests=error --timeout "$time_limit" -j "$at_once" \
    --exclude-regex "$left_out"
