#!/usr/bin/env bash
# Copyright 2026 The libcorvane Authors
# SPDX-License-Identifier: Apache-2.0
#
# Installs the packages that tools/packages/NAME.txt list and that are not installed yet: as root, or
# through sudo. Does nothing, silently, when all are there.
# usage: tools/install-packages.sh NAME...
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/packages"

say() { printf '%s\n' "corvane: $*" >&2; }

command -v dpkg-query >/dev/null || {
    say "this needs Debian 12 or a descendant (no dpkg here); tools/packages/*.txt lists what to install"
    exit 1
}
missing=()
for name in "$@"; do
    while read -r package; do
        case "$package" in '' | '#'*) continue ;; esac
        dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null | grep -qx installed ||
            missing+=("$package")
    done <"$name.txt"
done
[ "${#missing[@]}" -gt 0 ] || exit 0
say "installing: ${missing[*]}"
sudo=()
if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || {
        say "not root and no sudo here: install the packages above by hand"
        exit 1
    }
    sudo=(sudo)
fi
"${sudo[@]}" apt-get update
"${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${missing[@]}"
