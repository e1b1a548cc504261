#!/usr/bin/env bash
# Copyright 2026 The libcorvane Authors
# SPDX-License-Identifier: Apache-2.0
#
# tools/check-explore.sh [FAULT...]: plants each fault of explore/faults/ in a copy of the sources,
# builds, and fails unless its story finds it within 20,000 schedules.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
readonly SCHEDULES=20000
readonly ROOT=$PWD

copy=$(mktemp -d)
trap 'rm -rf "$copy"' EXIT
git ls-files -z --cached --others --exclude-standard | xargs -0 cp --parents -t "$copy"
cd "$copy"
cmake --preset explore >configure.log || { cat configure.log; exit 1; }

missed=0
for patch in "$ROOT"/explore/faults/${1:-*}.patch; do
    fault=$(basename "$patch" .patch)
    story=$(sed -n 's/^Story: //p' "$patch")
    patch --silent --strip=1 --input="$patch"
    cmake --build build-explore --target corvane-explore >build.log || { cat build.log; exit 1; }
    if build-explore/bin/corvane-explore "$story" --schedules "$SCHEDULES" >report.txt 2>&1; then
        printf '%-34s %-17s NOT FOUND in %d schedules\n' "$fault" "$story" "$SCHEDULES"
        missed=1
    else
        number=$(sed -n 's/.*: schedule \([0-9]*\) fails$/\1/p' report.txt)
        [ -n "$number" ] || { cat report.txt; exit 1; }
        printf '%-34s %-17s schedule %6d: %s\n' "$fault" "$story" "$number" \
            "$(sed -n 3p report.txt | cut -c 1-100)"
    fi
    patch --silent --strip=1 --reverse --input="$patch"
done
exit "$missed"
