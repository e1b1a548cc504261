#!/usr/bin/env bash
# Copyright 2026 The libcorvane Authors
# SPDX-License-Identifier: Apache-2.0
#
# Fails when the docs and the sources disagree where that can be compared:
#   - every text that the library prints, reads or looks up stands in the docs, and every log line and
#     trace slice that docs/debugging.md explains is one of these texts;
#   - properties, hooks, the service's numbers, the scene report's keys and the locks are all documented;
#   - relative links between Markdown files lead somewhere.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

readonly LIBRARY=(base timer perf features gfr phr layers hooks)
status=0
fail() {
    echo "$*" >&2
    status=1
}

# FILE<tab>TEXT of every string literal, adjacent ones joined, without newlines.
# shellcheck disable=SC2016
texts=$(find "${LIBRARY[@]}" -name '*.h' -o -name '*.cpp' | sort | xargs perl -0777 -ne '
    s/^\s*#.*$//mg;
    s{("(?:[^"\\]|\\.)*")|\x27(?:[^\x27\\]|\\.)\x27|//[^\n]*|/\*.*?\*/}{defined $1 ? $1 : " "}gse;
    while (/((?:"(?:[^"\\]|\\.)*"\s*)+)/g) {
        my ($parts, $text) = ($1, "");
        $text .= $1 while $parts =~ /"((?:[^"\\]|\\.)*)"/g;
        $text =~ s/\\n//g;
        print "$ARGV\t$text\n";
    }')
# Parts of no message: booleans and defaults, the JSON writer, the language of "extern".
readonly NO_MESSAGE=$'true\nfalse\n0.2\n1.0\nNone\ncommentStyle\nindentation'

documented=$(cat docs/*.md)
while IFS=$'\t' read -r file text; do
    # Short ones are separators and keys; those with a backslash are patterns.
    if [ "${#text}" -lt 3 ] || [[ $text == *\\* ]]; then continue; fi
    grep -qxF -e "$text" <<<"$NO_MESSAGE" && continue
    [[ $documented == *"$text"* ]] || fail "$file: no document has \"$text\""
done <<<"$texts"

# The first cell's code of each row, behind the heading of the log lines.
# shellcheck disable=SC2016
while read -r quoted; do
    text=${quoted:1:-1}
    [[ $text == 0x* || $texts == *"$text"* ]] || fail "docs/debugging.md: nothing prints \"$text\""
done < <(sed -n '/^## Log lines/,$ s/^| \(`[^|]*\) |.*/\1/p' docs/debugging.md | sed 's/` | .*/`/' | grep -o '`[^`]*`')

# Properties that the texts name, and the other way round.
while IFS=: read -r file property; do
    property=${property:1:-1}
    [[ $texts == *$'\t'"$property"$'\n'* ]] || fail "$file: nothing reads $property"
done < <(grep -oHE '`(vendor|debug)\.[a-z0-9_.]*[a-z]`' docs/*.md replay/README.md)
while IFS=$'\t' read -r file text; do
    [[ $text =~ ^(vendor|debug)(\.[a-z0-9_]+)+$ ]] || continue
    grep -qF "| \`$text\` |" docs/properties.md || fail "$file: docs/properties.md lacks $text"
done <<<"$texts"

hooks=$(sed -n 's/^ *\(a\?[cC]orvane[A-Za-z]*\);$/\1/p' hooks/libcorvane.map.txt)
for hook in $hooks; do
    type="${hook^}Fn"
    grep -qF "\`$hook" docs/integration.md || fail "docs/integration.md lacks the hook $hook"
    grep -qE "^using $type = decltype\($hook\);" include/corvane/hooks.h ||
        fail "include/corvane/hooks.h lacks the type $type"
done
for hook in $(grep -oE '\ba?[cC]orvane[A-Z][A-Za-z]*\(' docs/*.md | sed 's/.*:\(.*\)(/\1/' | sort -u); do
    grep -qxF "$hook" <<<"$hooks" || fail "the docs call $hook(), which is no hook"
done

# Hints, events and requests of the performance service, and the keys of its scene report.
for number in $(find "${LIBRARY[@]}" -name '*.cpp' -exec sed -nE 's/^constexpr int \w+ = ([0-9]{4});.*/\1/p' {} +); do
    grep -qE "\| $number \|" docs/integration.md docs/properties.md || fail "no document has the number $number"
done
for key in $(grep -oE 'app\["\w+"\] =' layers/SceneReport.cpp | sed 's/app\["\(.*\)"\] =/\1/'); do
    grep -qE "^\|.*\`$key\`.* \|" docs/integration.md || fail "docs/integration.md lacks the key $key"
done

while IFS=: read -r file declaration; do
    name=$(sed -E 's/.*Mutex&? (\w+).*/\1/' <<<"$declaration")
    class=$(basename "$file" .h)
    if [ "$name" = sLock ]; then
        grep -qE "^\|.* in \`$file\`" docs/architecture.md ||
            fail "docs/architecture.md lacks the lock $name of $file"
    else
        grep -E "^\| .*\`$class::" docs/architecture.md | grep -qE "^\| [^|]*[\`:]$name\`" ||
            fail "docs/architecture.md lacks the lock $class::$name"
    fi
done < <(grep -rHE '^ *(mutable |static )?(Mutex|std::mutex)&? \w+( = .*)?;' "${LIBRARY[@]}")

# FILE<tab>LINK of every relative link that leads nowhere.
# shellcheck disable=SC2016
broken=$(find . -name '*.md' -not -path './build*' -not -path './.git/*' | sort | xargs perl -MFile::Basename -e '
    sub headings {
        my ($file, %slugs) = @_;
        open my $in, "<", $file or return {};
        my $code = 0;
        while (<$in>) {
            $code = !$code if /^```/;
            next if $code || !/^#+ +(.*)/;
            my $slug = lc $1;
            $slug =~ s/[^a-z0-9 _-]//g;
            $slug =~ tr/ /-/;
            $slugs{$slug} = 1;
        }
        return \%slugs;
    }
    for my $file (@ARGV) {
        open my $in, "<", $file or die "$file: $!";
        my $code = 0;  # what programs print is no link
        while (<$in>) {
            $code = !$code if /^```/;
            next if $code;
            while (/\]\(([^)\s]+)\)/g) {
                my $link = $1;
                next if $link =~ /^[a-z]+:/;
                my ($path, $anchor) = $link =~ /^([^#]*)#?(.*)$/;
                my $target = $path eq "" ? $file : dirname($file) . "/$path";
                print "$file\t$link\n" if !-e $target || ($anchor ne "" && !headings($target)->{$anchor});
            }
        }
    }')
while IFS=$'\t' read -r file link; do
    [ -z "$file" ] || fail "$file: nothing at $link"
done <<<"$broken"

[ "$status" -eq 0 ] && echo "The docs name all that the library prints, reads and offers; their links lead somewhere."
exit "$status"
