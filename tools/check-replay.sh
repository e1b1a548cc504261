#!/usr/bin/env bash
# Copyright 2026 The libcorvane Authors
# SPDX-License-Identifier: Apache-2.0
#
# Plays bundled recordings through the built library and fails unless the report says what a phone
# would have shown, in the form that its schema describes. Needs jq, jsonschema and a built
# corvane-replay in build/.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

report=$(mktemp)
text=$(mktemp)
trap 'rm -f "$report" "$text"' EXIT

# check WHAT FILTER: the jq filter must hold for the report.
check() {
    if ! jq -e "$2" "$report" >/dev/null; then
        echo "replay check failed: $1" >&2
        jq '{layers: [.layers[] | del(.features, .frameRecords, .latches)], serviceCalls}' "$report" >&2
        exit 1
    fi
    echo "  $1"
}

# play ARGUMENTS...
play() {
    ./corvane replay --json "$report" "$@" | tee "$text"
    head -n 1 "$text" | grep -q '^Recording ' || {
        echo "replay check failed: standard output holds more than the report" >&2
        exit 1
    }
    jsonschema -i "$report" replay/report.schema.json
}

play replay/recordings/reader-60fps-stuffed.systrace.txt
check "one layer is tracked, that of the reader" \
    '[.layers[] | select(.promotedNs != null) | .package] == ["com.example.reader"]'
check "it is promoted half a second after its first buffer" \
    '.layers[] | select(.promotedNs != null) | .promotedNs > 0.45e9 and .promotedNs < 0.75e9'
check "it reaches mode 60 within one pass" \
    '.layers[] | select(.promotedNs != null) | .fpsMode == 60'
check "the service is told once, of mode 60" \
    '[.serviceCalls[] | select(.entry == "perf_event" and .number == 4196) | .args] == [[0, 60]]'
check "the model gives back the recording" \
    '[.comparison.layers[] | select(.worthATable) | .fit.share] | length > 0 and all(. >= 0.95)'
play --open-loop replay/recordings/reader-60fps-stuffed.systrace.txt
check "every recorded vsync and buffer went through the hooks" \
    '.recording as $r | [.hooks[] | {(.name): .count}] | add
     | .corvaneTrackVsyncSignal == $r.vsyncs and .corvaneTrackBufferIncrement == $r.frames'

play --config replay/scenarios/reader-headroom.json
check "headroom control comes on for the reader as a game" \
    '.layers[] | select(.promotedNs != null) | .game and (.features.headroom.switches[0].on)'
check "buffers are held, and let go within one period before the vsync" \
    '.recording.vsyncPeriodNs as $p | .layers[] | select(.promotedNs != null) | .features.headroom
     | (.held | length) > 30 and .beforeVsyncSpread.p50Ns > 0.6 * $p
       and .beforeVsyncSpread.p50Ns < $p'
check "every frame that was held is so in its record" \
    '.layers[] | select(.promotedNs != null)
     | (.features.headroom.held | length) == ([.frameRecords[] | select(.heldNs > 0)] | length)'

play --config replay/scenarios/launcher-rescue.json
check "late frames of the launcher get boosts, at the times of their records" \
    '.layers[] | select(.promotedNs != null) | .frameRecords as $frames
     | (.features.frameRescue.boosts | length) > 10
       and all(.features.frameRescue.boosts[] | select(.level > 0);
               .sinceQueueNs == .atNs - $frames[.frame - 1].queueNs)'

play --config replay/scenarios/launcher-touch.json
check "touches make frames of the launcher instant" \
    '.application | .error == "" and (.instantNs | length) > 0 and .inputHeld > 0'

# Two processes, property writes, callbacks and boosts: the same twice, to the byte.
twice=$(mktemp -d)
for run in 1 2; do
    ./corvane replay --config replay/scenarios/launcher-touch.json --seed 7 \
        --json "$twice/$run.json" --trace "$twice/$run.pftrace" >"$twice/$run.txt" 2>/dev/null
done
cmp "$twice/1.json" "$twice/2.json" && cmp "$twice/1.pftrace" "$twice/2.pftrace" &&
    cmp "$twice/1.txt" "$twice/2.txt" || exit 1
rm -rf "$twice"
echo "  two runs write the same report, JSON and trace"

play --config replay/scenarios/reader-gpu-fences.json
check "unsignalled GPU fences get deadlines" '.fences | .told > 0 and .deadlinesSent > 0'

# A sweep in parts; the second run makes the other half only.
results=$(mktemp -d)
sweep=(./corvane sweep replay/recordings/reader-60fps-stuffed.systrace.txt --game com.example.reader
    --set headroom=0.4,0.8 --set rescue=0,1 --by latency-p50 --results "$results/kept"
    --csv "$results/all.csv" --report "$results/page.html")
"${sweep[@]}" --shard 1/2 | grep -q '2 of 4 combinations are left' || { echo "no shard" >&2; exit 1; }
kept=$(stat -c %Y-%i "$results/kept"/*)
"${sweep[@]}" >"$results/ranking"
for one in $kept; do
    stat -c %Y-%i "$results/kept"/* | grep -qx "$one" || { echo "a result was made twice" >&2; exit 1; }
done
[ "$(wc -l <"$results/all.csv")" -eq 5 ] && grep -q '<svg' "$results/page.html" &&
    grep -q 'notifyCallback(hint 4187, "com.example.reader", 0, 0, \[0, 40, 1, 40\])' "$results/ranking" ||
    { cat "$results/ranking" >&2; exit 1; }
echo "  a sweep runs in parts, keeps what it has, and ranks"

# A sweep that is killed midway, and goes on: what comes out is that of one that nothing disturbed.
sweep=(./corvane sweep replay/recordings/reader-60fps-stuffed.systrace.txt --game com.example.reader
    --set headroom=0.2:1.2:0.05 --jobs 1)
"${sweep[@]}" --results "$results/whole" --csv "$results/whole.csv" >/dev/null
"${sweep[@]}" --results "$results/killed" --csv "$results/killed.csv" >/dev/null &
killed=$!
count() { find "$results/killed" -name '*.json' 2>/dev/null | wc -l; }
until [ "$(count)" -ge 3 ] || ! kill -0 "$killed" 2>/dev/null; do sleep 0.02; done
kill -KILL "$killed"
wait "$killed" 2>/dev/null || [ $? -eq 137 ]
done_before=$(count)
if [ "$done_before" -lt 3 ] || [ "$done_before" -ge 21 ] || [ -e "$results/killed.csv" ]; then
    echo "the sweep was not killed midway: $done_before of 21 were done" >&2
    exit 1
fi
touch "$results/since"
"${sweep[@]}" --results "$results/killed" --csv "$results/killed.csv" >/dev/null
done_after=$(find "$results/killed" -name '*.json' -newer "$results/since" | wc -l)
if [ "$((done_before + done_after))" -ne 21 ]; then
    echo "$done_after of 21 were made after the kill, and $done_before before it" >&2
    exit 1
fi
cmp "$results/whole.csv" "$results/killed.csv" || exit 1
echo "  a sweep that was killed after $done_before of 21 goes on, with the same table"
rm -rf "$results"
echo "The replays show what they should."
