#!/usr/bin/env bash
# Copyright 2026 The libcorvane Authors
# SPDX-License-Identifier: Apache-2.0
#
# Opens a page that the built corvane-replay writes in a headless browser, and fails on a script error,
# a request to anywhere, or a number that is not the JSON report's; and the page of a sweep. Keeps screenshots in build/page/, at
# desktop's and phone's width, light and dark. Needs python3 and tools/packages/page.txt.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

readonly OUT=build/page
readonly LATEST=3000 # milliseconds of the page's own time until it is looked at
rm -rf "$OUT"
mkdir -p "$OUT"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# browse PAGE ARGUMENTS...: PAGE#FRAGMENT as a browser without a past shows it.
browse() {
    local page=$1
    shift
    rm -rf "$work/profile"
    timeout 120 chromium-headless-shell --headless --no-sandbox --disable-gpu --disable-quic --no-first-run \
        --disable-background-networking --disable-component-update --disable-sync --hide-scrollbars \
        --user-data-dir="$work/profile" --virtual-time-budget="$LATEST" "$@" \
        "file://$PWD/$OUT/$page" 2>>"$OUT/browser.log"
}

# check NAME ARGUMENTS...: a replay's page against its JSON, as it stands and when it is used.
check() {
    local name=$1
    shift
    build/bin/corvane-replay --against none,interval,shallow --json "$OUT/$name.json" \
        --report "$OUT/$name.html" "$@" >/dev/null
    browse "$name.html" --dump-dom --log-net-log="$work/net.json" >"$OUT/$name.dom.html"
    python3 tools/check_page.py shown "$OUT/$name.json" "$OUT/$name.dom.html" "$work/net.json"
    python3 tools/check_page.py use "$OUT/$name.html" >"$OUT/$name.used.html"
    browse "$name.used.html" --dump-dom >"$OUT/$name.used.dom.html"
    python3 tools/check_page.py used "$OUT/$name.json" "$OUT/$name.used.dom.html"
}

# Layers may be named anything: markup, characters that turn or break lines, and what is not UTF-8.
name=$'</script><img src=http://nowhere.invalid/x><!--\u202e\u2028\xff%SCRIPT%#104'
env LC_ALL=C sed "s@com\\.example\\.wallpaper\\.LiveWallpaper#104@$name@" \
    replay/recordings/launcher-scroll-two-layers.systrace.txt >"$work/hostile.txt"

check hostile "$work/hostile.txt"
check reader --config replay/scenarios/reader-headroom.json
check launcher --config replay/scenarios/launcher-rescue.json
for view in desktop:1400,2900 phone:390,5200; do
    size=${view#*:}
    browse 'reader.html' --window-size="$size" --screenshot="$OUT/${view%:*}-light.png"
    browse 'launcher.html#from=1&to=1.6' --window-size="$size" --screenshot="$OUT/${view%:*}-dark.png" \
        --blink-settings=preferredColorScheme=0
done

# A sweep's page against its table.
python3 replay/sweep.py --program build/bin/corvane-replay --game com.example.reader --set headroom=0.2:1.2:0.2 \
    --set target=0,30,45 --by latency-p50,late-frames --results "$work/sweep" --csv "$OUT/sweep.csv" \
    --report "$OUT/sweep.html" replay/recordings/reader-60fps-stuffed.systrace.txt >/dev/null
browse sweep.html --dump-dom --log-net-log="$work/net.json" >"$OUT/sweep.dom.html"
python3 tools/check_page.py sweep "$OUT/sweep.csv" "$OUT/sweep.dom.html" "$work/net.json"
for view in desktop:1280,1300 phone:390,1400; do
    browse sweep.html --window-size="${view#*:}" --screenshot="$OUT/sweep-${view%:*}-light.png"
    browse sweep.html --window-size="${view#*:}" --screenshot="$OUT/sweep-${view%:*}-dark.png" \
        --blink-settings=preferredColorScheme=0
done
echo "The pages show what the reports say; screenshots are in $OUT/."
