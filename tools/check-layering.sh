#!/usr/bin/env bash
# Copyright 2026 The libcorvane Authors
# SPDX-License-Identifier: Apache-2.0
#
# Fails when a subsystem includes a header of one that stands above it. Dependencies point one way:
# hooks -> layers -> {gfr, phr} -> features -> perf -> timer -> base. One notification goes up, from the file
# named here; nothing in the library knows the host.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

declare -A allowed=(
    [base]="base"
    [timer]="timer base"
    [perf]="perf timer base"
    [features]="features perf timer base"
    [gfr]="gfr features perf timer base"
    [phr]="phr features perf timer base"
    [layers]="layers gfr phr features perf timer base"
    [hooks]="hooks layers gfr phr features perf timer base"
)
readonly UPWARD="perf/TFPSCallback.cpp:features"
status=0
for folder in "${!allowed[@]}"; do
    while IFS=: read -r file include; do
        [ -n "$file" ] || continue
        target=${include%%/*}
        case " ${allowed[$folder]} " in *" $target "*) continue ;; esac
        case "$target" in base | timer | perf | features | gfr | phr | layers | hooks | replay | tests) ;; *) continue ;; esac
        case " $UPWARD " in *" $file:$target "*) continue ;; esac
        echo "$file includes $include" >&2
        status=1
    done < <(grep -rHoE '^#include "[^"]+"' "$folder" --include='*.h' --include='*.cpp' |
        sed 's/#include "\(.*\)"/\1/')
    if grep -rn '#include.*corvane/host/' "$folder" >&2; then status=1; fi
done
# The device model knows neither the library nor the host.
if grep -rnE '#include "(replay|corvane|hooks|layers|features|perf|timer|gfr|phr|base)/' model >&2; then
    status=1
fi
[ "$status" -eq 0 ] && echo "The subsystems include only what stands below them."
exit "$status"
