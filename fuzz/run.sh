#!/usr/bin/env bash
# Copyright 2026 The libcorvane Authors
# SPDX-License-Identifier: Apache-2.0
#
# fuzz/run.sh SECONDS: builds the fuzz targets and runs each for that long, from its seeds and what
# earlier runs found. Fails on a crash; the input that causes it is kept in build-fuzz/crashes/.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

if ! [[ "${1:-}" =~ ^[1-9][0-9]*$ ]]; then
    echo "usage: fuzz/run.sh SECONDS" >&2
    exit 2
fi
readonly BUILD=build-fuzz
targets=$(ls fuzz/corpus)

[ -f "$BUILD/build.ninja" ] || cmake --preset fuzz
cmake --build "$BUILD" --target $targets

export UBSAN_OPTIONS=print_stacktrace=1
for target in $targets; do
    mkdir -p "$BUILD/corpus/$target" "$BUILD/crashes"
    echo "--- $target for $1 s"
    "$BUILD/fuzz/$target" -max_total_time="$1" -timeout=10 -max_len=4096 -verbosity=0 \
        -print_final_stats=1 -artifact_prefix="$BUILD/crashes/$target-" \
        "$BUILD/corpus/$target" "fuzz/corpus/$target"
done
echo "No fuzz target crashed."
