#!/usr/bin/env bash
# Copyright 2026 The libcorvane Authors
# SPDX-License-Identifier: Apache-2.0
#
# Runs every replay, sweep, convert, compare and record command that the docs show as a command of its
# own (indented by four), in a folder where the files have the names that the docs give a user's own.
# Fails when one fails with another status than the docs' (3, for a --fail-if) or says nothing.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
readonly ROOT=$PWD

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
ln -s "$ROOT/replay" "$folder/replay"
printf '#!/bin/sh\nexec "%s/corvane" "$@"\n' "$ROOT" >"$folder/corvane"
chmod +x "$folder/corvane"
cp replay/recordings/reader-60fps-stuffed.systrace.txt "$folder/mine.txt"
cd "$folder"
./corvane convert mine.txt mine.pftrace >convert.log 2>&1 || { cat convert.log >&2; exit 1; }
cp mine.pftrace mine.perfetto-trace
ran=0
while IFS= read -r command; do
    status=0
    bash -c "$command" </dev/null >output 2>errors || status=$?
    case "$command" in *--fail-if*) [ "$status" -eq 3 ] && status=0 ;; esac
    if [ "$status" -ne 0 ]; then
        echo "fails with status $status: $command" >&2
        tail -n 5 errors >&2
        exit 1
    fi
    ran=$((ran + 1))
done < <(cd "$ROOT" && grep -hoE '^    \./corvane (replay|sweep|convert|compare|record)\b[^#]*' \
    README.md docs/*.md replay/README.md | grep -v 'FILE' | sort -u)
[ "$ran" -gt 5 ] || { echo "only $ran commands found in the docs" >&2; exit 1; }
echo "The $ran commands that the docs show run."
