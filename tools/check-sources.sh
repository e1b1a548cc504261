#!/usr/bin/env bash
# Copyright 2026 The libcorvane Authors
# SPDX-License-Identifier: Apache-2.0
#
# Fails when Android.bp is not as bpfmt writes it, or lists other sources than CMake compiles.
# usage: tools/check-sources.sh BUILD_DIR
set -euo pipefail
build=${1:?usage: tools/check-sources.sh BUILD_DIR}
cd "$(dirname "${BASH_SOURCE[0]}")/.."

if ! diff=$(bpfmt -d Android.bp 2>&1) || [ -n "$diff" ]; then
    printf 'Android.bp is not as bpfmt writes it:\n%s\n' "$diff" >&2
    exit 1
fi
bp_sources() { sed -n '/^    srcs: \[/,/^    \]/s/^ *"\(.*\)",$/\1/p' Android.bp | sort; }
if ! diff <(bp_sources) <(sort "$build/library-sources.txt") >&2; then
    echo "Android.bp ('<') and CMake ('>') compile different sources" >&2
    exit 1
fi
echo "Android.bp is well formed and lists the $(bp_sources | wc -l) sources that CMake compiles."
