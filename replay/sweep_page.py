# Copyright 2026 The libcorvane Authors
# SPDX-License-Identifier: Apache-2.0
"""A sweep's results as one page without scripts: the trade-off between two figures, and the ranking."""

import html
import math
import textwrap
from typing import Any, Dict, List

import figure_text  # beside this file

WIDTH, HEIGHT = 720, 440
# Room for the numbers beside the plot, in the larger letters that a phone gets.
LEFT, RIGHT, TOP, BOTTOM = 92, 40, 56, 72
WANTED_TICKS = 5
SHOWN_ROWS = 50
# So many places of the ranking have their number in the plot, and each takes this much room there.
NUMBERED = 5
NUMBER_WIDTH, NUMBER_HEIGHT = 130, 30

STYLE = """
:root { color-scheme: light dark; --ink: #1b1f24; --paper: #fff; --faint: #59636e; --line: #d1d9e0;
        --dot: #0550ae; --best: #a40e26; }
@media (prefers-color-scheme: dark) { :root { --ink: #e6edf3; --paper: #0d1117; --faint: #9198a1;
        --line: #3d444d; --dot: #79c0ff; --best: #ffa198; } }
body { font: 15px/1.45 system-ui, sans-serif; color: var(--ink); background: var(--paper);
       margin: 0 auto; max-width: 60rem; padding: 1rem; }
h1 { font-size: 1.5rem; margin: .5rem 0; } h2 { font-size: 1.15rem; margin: 1.5rem 0 .5rem; }
.layer { color: var(--faint); overflow-wrap: anywhere; margin: 0 0 1rem; }
svg { max-width: 100%; height: auto; } svg text { fill: var(--faint); font-size: 15px; }
svg .place { fill: var(--ink); } svg circle { r: 5px; }
.grid { stroke: var(--line); } .dot { fill: var(--paper); stroke: var(--dot); stroke-width: 2; }
.best { fill: var(--best); stroke: var(--best); } svg .best { r: 7px; }
.without { fill: none; stroke: var(--ink); stroke-width: 2; }
.key { display: flex; flex-wrap: wrap; gap: .2rem 1.2rem; padding: 0; margin: .3rem 0; list-style: none; }
.key svg { width: 18px; height: 18px; vertical-align: -4px; }
.table { overflow-x: auto; } table { border-collapse: collapse; font-variant-numeric: tabular-nums; }
th, td { padding: .2rem .7rem; text-align: right; border-bottom: 1px solid var(--line); }
td { white-space: nowrap; } th { vertical-align: bottom; min-width: 3.5rem; }
th:first-child { min-width: 0; }
th:first-child, td:first-child { position: sticky; left: 0; background: var(--paper); }
pre { white-space: pre-wrap; overflow-wrap: anywhere; border: 1px solid var(--line); padding: .6rem; }
@media (max-width: 40rem) { svg text { font-size: 26px; } svg circle { r: 9px; } svg .best { r: 12px; }
        .key svg circle { r: 5px; } th, td { padding: .2rem .5rem; } pre { font-size: 13px; } }
"""


def figure_of(kind: Dict[str, Any], figures: Dict[str, float]) -> float:
    return figure_text.scaled(kind, figures[kind["jsonKey"]])


def settings_text(result: Dict[str, Any]) -> str:
    return ", ".join(f"{key} {value}" for key, value in result["setting"].items())


class Axis:
    """Maps the values of one figure to the plot, between round numbers."""

    def __init__(self, kind: Dict[str, Any], values: List[float], begin: float, end: float):
        low, high = min(values), max(values)
        raw = max((high - low) / WANTED_TICKS, figure_text.scaled(kind, kind["resolution"]))
        power = 10.0 ** math.floor(math.log10(raw))
        self.step = next(n * power for n in (1, 2, 5, 10) if n * power >= raw * (1 - 1e-9))
        self.first = math.floor(low / self.step + 1e-9)
        self.last = max(math.ceil(high / self.step - 1e-9), self.first + 1)
        self.begin, self.end = begin, end

    def at(self, value: float) -> float:
        share = (value / self.step - self.first) / (self.last - self.first)
        return self.begin + share * (self.end - self.begin)

    def ticks(self) -> List[float]:
        return [i * self.step for i in range(self.first, self.last + 1)]

    def text(self, tick: float) -> str:
        return f"{tick:.{max(0, -math.floor(math.log10(self.step) + 1e-9))}f}"


def grid(x: Axis, y: Axis) -> List[str]:
    bottom = HEIGHT - BOTTOM
    parts = []
    for tick in x.ticks():
        at = f"{x.at(tick):.1f}"
        parts.append(f'<line class="grid" x1="{at}" x2="{at}" y1="{TOP}" y2="{bottom}"/>'
                     f'<text x="{at}" y="{bottom + 28}" text-anchor="middle">{x.text(tick)}</text>')
    for tick in y.ticks():
        at = y.at(tick)
        parts.append(f'<line class="grid" x1="{LEFT}" x2="{WIDTH - RIGHT}" y1="{at:.1f}" y2="{at:.1f}"/>'
                     f'<text x="{LEFT - 10}" y="{at + 6:.1f}" text-anchor="end">{y.text(tick)}</text>')
    return parts


def numbers(places: Dict[Any, List[int]]) -> List[str]:
    """The places of the first and of those that meet, as far as there is room, the better ones first."""
    parts = []
    taken: List[Any] = []
    for (cx, cy), members in places.items():
        crowded = any(abs(cx - x) < NUMBER_WIDTH and abs(cy - y) < NUMBER_HEIGHT for x, y in taken)
        if crowded or (members[0] >= NUMBERED and len(members) == 1):
            continue
        taken.append((cx, cy))
        side, anchor = (-16, "end") if cx > WIDTH * 0.8 else (16, "start")
        count = f" (\u00d7{len(members)})" if len(members) > 1 else ""
        parts.append(f'<text class="place" x="{cx + side}" y="{cy - 8}" text-anchor="{anchor}">'
                     f'{members[0] + 1}{count}</text>')
    return parts


def plot(ranked: List[Dict[str, Any]], across: Dict[str, Any], up: Dict[str, Any]) -> str:
    points = [(figure_of(across, r["library"]), figure_of(up, r["library"])) for r in ranked]
    without = (figure_of(across, ranked[0]["none"]), figure_of(up, ranked[0]["none"]))
    x = Axis(across, [p[0] for p in points] + [without[0]], LEFT, WIDTH - RIGHT)
    y = Axis(up, [p[1] for p in points] + [without[1]], HEIGHT - BOTTOM, TOP)
    # Many settings make no difference: their marks are one.
    places: Dict[Any, List[int]] = {}
    for place, (px, py) in enumerate(points):
        places.setdefault((round(x.at(px)), round(y.at(py))), []).append(place)
    name = f'{up["label"]} against {across["label"]}, a mark per combination'
    parts = [f'<svg viewBox="0 0 {WIDTH} {HEIGHT}" role="img" aria-label="{html.escape(name)}">',
             f'<text x="4" y="26">{html.escape(figure_text.heading(up))}, up</text>',
             f'<text x="{WIDTH - 4}" y="{HEIGHT - 8}" text-anchor="end">'
             f'{html.escape(figure_text.heading(across))}, across</text>', *grid(x, y)]
    for (cx, cy), members in reversed(places.items()):
        best = ranked[members[0]]
        more = f" and {len(members) - 1} more" if len(members) > 1 else ""
        parts.append(f'<circle class="{"best" if members[0] == 0 else "dot"}" cx="{cx}" cy="{cy}" r="5"><title>'
                     f'{html.escape(f"{members[0] + 1}: {settings_text(best)}{more}")}</title></circle>')
    parts += numbers(places)
    cx, cy = x.at(without[0]), y.at(without[1])
    parts.append(f'<rect class="without" x="{cx - 8:.1f}" y="{cy - 8:.1f}" width="16" height="16">'
                 f'<title>without the library</title></rect></svg>')
    return "".join(parts)


def key(keys: List[str]) -> str:
    def mark(shape: str, text: str) -> str:
        return f'<li><svg viewBox="0 0 18 18" aria-hidden="true">{shape}</svg> {html.escape(text)}</li>'

    return ('<ul class="key">' +
            mark('<circle class="best" cx="9" cy="9" r="5"/>', f"the best by {', '.join(keys)}") +
            mark('<circle class="dot" cx="9" cy="9" r="5"/>',
                 "others; numbers are places in the ranking and, where several meet, how many") +
            mark('<rect class="without" x="3" y="3" width="12" height="12"/>', "without the library") + "</ul>")


def rows(ranked: List[Dict[str, Any]], keys: List[str]) -> str:
    by_key = {kind["key"]: kind for kind in ranked[0]["kinds"]}
    kinds = [by_key[key] for key in keys] + [kind for name, kind in by_key.items() if name not in keys]
    settings = list(ranked[0]["setting"])

    def row(place: str, values: List[str], figures: Dict[str, float]) -> str:
        cells = [place] + values + [figure_text.bare(kind, figures[kind["jsonKey"]]) for kind in kinds]
        return "<tr>" + "".join(f"<td>{html.escape(cell)}</td>" for cell in cells) + "</tr>"

    head = "".join(f"<th>{html.escape(text)}</th>"
                   for text in [""] + settings + [figure_text.heading(kind) for kind in kinds])
    body = [row("\u2013", ["without"] + ["\u2013"] * (len(settings) - 1), ranked[0]["none"])]
    for place, result in enumerate(ranked[:SHOWN_ROWS], 1):
        body.append(row(str(place), list(result["setting"].values()), result["library"]))
    return f"<div class='table' tabindex='0'><table><tr>{head}</tr>{''.join(body)}</table></div>"


def write(path: str, ranked: List[Dict[str, Any]], keys: List[str], remarks: List[str], best: str) -> None:
    kinds = {kind["key"]: kind for kind in ranked[0]["kinds"]}
    pair = (keys + [key for key in ("latency-p95", "late-frames") if key not in keys])[:2]
    up, across = kinds[pair[0]], kinds[pair[1]]
    layer = html.escape(ranked[0]["layer"])
    text = f"""<!DOCTYPE html>
<html lang="en"><head><meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'">
<title>Sweep of {layer}</title><style>{STYLE}</style></head><body>
<h1>A sweep of {len(ranked)} combinations</h1>
<p class="layer">{layer}</p>
{"".join(f"<p>{html.escape(remark)}</p>" for remark in remarks)}
{plot(ranked, across, up)}
{key(keys)}
<h2>The best, as a service sets it</h2><pre>{html.escape(textwrap.dedent(best))}</pre>
<h2>Ranking{f", the first {SHOWN_ROWS}" if len(ranked) > SHOWN_ROWS else ""}</h2>{rows(ranked, keys)}
</body></html>
"""
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)
