#!/usr/bin/env bash
# Copyright 2026 The libcorvane Authors
# SPDX-License-Identifier: Apache-2.0
#
# Runs every replay, sweep, convert, compare and record command that the docs show as a command of its
# own (indented by four), those that read their reports, and the sweeps in parts, in a folder where the
# files have the names that the docs give a user's own. Fails when one fails with another status than the
# docs' (3, for a --fail-if), and when a row of the headroom table says something else than the replay.
# Needs jq and jsonschema.
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
done < <(cd "$ROOT" && grep -hoE '^    (\./corvane (replay|sweep|convert|compare|record)|jq|jsonschema)\b[^#]*' \
    README.md docs/*.md replay/README.md | grep -v 'FILE' |
    awk '!seen[$0]++ { print ($2 == "replay" ? 0 : 1) "\t" $0 }' | sort -s -k1,1 | cut -f2)
[ "$ran" -gt 5 ] || { echo "only $ran commands found in the docs" >&2; exit 1; }
echo "The $ran commands that the docs show run."

# The sweeps in parts, each part on its own; the last of them ranks what all have left.
cp mine.txt game.txt
echo '{"games": [{"package": "com.example.reader", "weight": 2}]}' >game.json
export SLURM_ARRAY_TASK_ID=1
part() { bash -c "$1" </dev/null >output 2>errors || { echo "fails: $1" >&2; cat errors >&2; exit 1; }; }
parts=0
while IFS= read -r command; do
    case "$command" in
        "parallel "*" ::: "*)
            job=${command#parallel }
            for number in ${command##* ::: }; do
                part "$(sed "s@{}@$number@" <<<"${job% ::: *}")"
                parts=$((parts + 1))
            done
            grep -q '^Best: ' output || { echo "the last part does not rank: $command" >&2; exit 1; }
            ;;
        *) part "${command//\/shared/$folder/shared}"; parts=$((parts + 1)) ;;
    esac
done < <(awk '/^```/ { inside = $0 == "```sh"; next } inside && !/^#/' "$ROOT/docs/tuning.md" |
    sed -e ':join' -e '/\\$/ { N; s/\\\n */ /; b join' -e '}')
[ "$parts" -gt 2 ] || { echo "only $parts parts of sweeps found in the docs" >&2; exit 1; }
echo "The $parts parts of sweeps that the docs show run."

# "| 40 % | 47.4 ms | 10 | 1.27 |"
rows=0
while IFS='|' read -r _ headroom told; do
    game=com.example.reader
    [ "$headroom" = " off " ] || game+=":headroom=$(tr -dc 0-9 <<<"$headroom")"
    ./corvane replay replay/recordings/reader-60fps-stuffed.systrace.txt --game "$game" --repeat 5 \
        --json report.json >/dev/null 2>&1
    replayed=$(jq -r '.comparison.policies[0].figures[0] | [.latencyP50Ns / 1e6, .lateFrames, .waitingMean] | @tsv' \
        report.json | xargs printf ' %.1f ms | %d | %.2f |')
    if [ "$told" != "$replayed" ]; then
        echo "docs/tuning.md tells of a headroom of $headroom:$told the replay:$replayed" >&2
        exit 1
    fi
    rows=$((rows + 1))
done < <(grep -E '^\| (off|[0-9]+ %) \|' "$ROOT/docs/tuning.md")
[ "$rows" -gt 2 ] || { echo "only $rows rows found in the headroom table" >&2; exit 1; }
echo "The replay gives the $rows rows of the headroom table."
