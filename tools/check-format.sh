#!/usr/bin/env bash
# Copyright 2026 The libcorvane Authors
# SPDX-License-Identifier: Apache-2.0
#
# Fails when a source is not laid out as .clang-format says. It takes clang-format 14: other versions
# break some lines elsewhere.
# usage: tools/check-format.sh [--fix]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

mode=(--dry-run -Werror)
case "${1-}" in
    '') ;;
    --fix) mode=(-i) ;;
    *)
        echo "usage: tools/check-format.sh [--fix]" >&2
        exit 2
        ;;
esac
formatter=clang-format-14
command -v "$formatter" >/dev/null || formatter=clang-format
if ! "$formatter" --version 2>/dev/null | grep -q 'version 14\.'; then
    echo "clang-format 14 is needed (Debian's package clang-format-14)" >&2
    exit 1
fi
mapfile -d '' sources < <(find . \( -path './build*' -o -path './.*' \) -prune -o \
    \( -name '*.h' -o -name '*.cpp' \) -type f -print0)
[ "${#sources[@]}" -gt 0 ]
"$formatter" "${mode[@]}" "${sources[@]}"
echo "${#sources[@]} sources are laid out as .clang-format says."
