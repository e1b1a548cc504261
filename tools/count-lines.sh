#!/usr/bin/env bash
# Copyright 2026 The libcorvane Authors
# SPDX-License-Identifier: Apache-2.0
#
# Counts the lines of C++ that are neither blank nor a comment, tests beside everything else, and fails
# when the tests are more than a third of all.
# usage: tools/count-lines.sh
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# count PATHSPEC...: over the C++ files that git tracks there.
count() { git ls-files -z -- "$@" | xargs -0 -r cat | grep -cvE '^[[:space:]]*(//.*)?$' || true; }
tests=$(count 'tests/*.cpp' 'tests/*.h')
rest=$(count '*.cpp' '*.h' ':!tests/')
printf 'Lines of C++ without blanks and comments: tests %d, everything else %d: %d %% of that, %d %% of all.\n' \
    "$tests" "$rest" $((100 * tests / rest)) $((100 * tests / (tests + rest)))
if [ $((3 * tests)) -gt $((tests + rest)) ]; then
    echo "The tests are more than a third of all." >&2
    exit 1
fi
