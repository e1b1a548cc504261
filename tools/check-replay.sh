#!/usr/bin/env bash
# Copyright 2026 The libcorvane Authors
# SPDX-License-Identifier: Apache-2.0
#
# Plays bundled recordings through the built library and fails unless the report says what a phone
# would have shown. Needs jq and a built corvane-replay in build/.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

report=$(mktemp)
trap 'rm -f "$report"' EXIT

# check WHAT FILTER: the jq filter must hold for the report.
check() {
    if ! jq -e "$2" "$report" >/dev/null; then
        echo "replay check failed: $1" >&2
        jq '{layers: [.layers[] | del(.features)], service}' "$report" >&2
        exit 1
    fi
    echo "  $1"
}

./corvane replay --json "$report" replay/recordings/reader-60fps-stuffed.systrace.txt
check "one layer is tracked, that of the reader" \
    '[.layers[] | select(.promotedNs != null) | .package] == ["com.example.reader"]'
check "it is promoted half a second after its first buffer" \
    '.layers[] | select(.promotedNs != null) | .promotedNs > 0.45e9 and .promotedNs < 0.75e9'
check "it reaches mode 60 within one pass" \
    '.layers[] | select(.promotedNs != null) | .fpsMode == 60'
check "the service is told once, of mode 60" \
    '[.service.events[] | select(.number == 4196) | .args] == [[0, 60]]'
check "every recorded vsync and buffer went through the hooks" \
    '.recording as $r | [.hooks[] | {(.name): .count}] | add
     | .corvaneTrackVsyncSignal == $r.vsyncs and .corvaneTrackBufferIncrement == $r.frames'

./corvane replay --config replay/scenarios/reader-headroom.json --json "$report"
check "headroom control comes on for the reader as a game" \
    '.layers[] | select(.promotedNs != null) | .game and (.features.headroom.switches[0].on)'
check "buffers are held, and let go within one period before the vsync" \
    '.recording.vsyncPeriodNs as $p | .layers[] | select(.promotedNs != null) | .features.headroom
     | (.held | length) > 30 and .beforeVsyncSpread.p50Ns > 0.6 * $p
       and .beforeVsyncSpread.p50Ns < $p'
echo "The replays show what they should."
