# Copyright 2026 The libcorvane Authors
# SPDX-License-Identifier: Apache-2.0
"""A sweep's results as one page without scripts: the trade-off between two figures, and the ranking."""

import html
from typing import Any, Dict, List

WIDTH, HEIGHT, MARGIN = 720, 420, 64
SHOWN_ROWS = 50

STYLE = """
:root { color-scheme: light dark; --ink: #1b1f24; --paper: #fff; --faint: #59636e; --line: #d1d9e0;
        --dot: #0550ae; --best: #a40e26; }
@media (prefers-color-scheme: dark) { :root { --ink: #e6edf3; --paper: #0d1117; --faint: #9198a1;
        --line: #3d444d; --dot: #79c0ff; --best: #ffa198; } }
body { font: 15px/1.45 system-ui, sans-serif; color: var(--ink); background: var(--paper);
       margin: 0 auto; max-width: 60rem; padding: 1rem; }
svg { max-width: 100%; height: auto; } svg text { fill: var(--faint); font-size: 13px; }
.axis { stroke: var(--line); } .dot { fill: none; stroke: var(--dot); stroke-width: 1.5; }
.best { fill: var(--best); } .without { fill: none; stroke: var(--ink); stroke-width: 1.5; }
.table { overflow-x: auto; } table { border-collapse: collapse; font-variant-numeric: tabular-nums; }
th, td { padding: .2rem .7rem; text-align: right; border-bottom: 1px solid var(--line);
         white-space: nowrap; }
pre { overflow-x: auto; border: 1px solid var(--line); padding: .6rem; }
"""


def value_of(kind: Dict[str, str], figures: Dict[str, float]) -> float:
    return figures[kind["jsonKey"]] / (1e6 if kind["unit"] == "ns" else 1)


def unit_of(kind: Dict[str, str]) -> str:
    return {"ns": " (ms)", "per second": " (per second)"}.get(kind["unit"], "")


class Axis:
    """Maps the values of one figure to the plot, with room at both ends."""

    def __init__(self, values: List[float], begin: float, end: float):
        low, high = min(values), max(values)
        room = (high - low) * 0.08 or abs(high) * 0.08 or 1.0
        self.low, self.high = low - room, high + room
        self.begin, self.end = begin, end

    def at(self, value: float) -> float:
        return self.begin + (value - self.low) / (self.high - self.low) * (self.end - self.begin)

    def ticks(self) -> List[float]:
        return [self.low + (self.high - self.low) * i / 4 for i in range(5)]


def plot(ranked: List[Dict[str, Any]], across: Dict[str, str], up: Dict[str, str]) -> str:
    points = [(value_of(across, r["library"]), value_of(up, r["library"])) for r in ranked]
    without = (value_of(across, ranked[0]["none"]), value_of(up, ranked[0]["none"]))
    x = Axis([p[0] for p in points] + [without[0]], MARGIN, WIDTH - 12)
    y = Axis([p[1] for p in points] + [without[1]], HEIGHT - MARGIN + 16, 12)
    parts = [f'<svg viewBox="0 0 {WIDTH} {HEIGHT}" role="img" aria-label="{html.escape(up["label"])} against '
             f'{html.escape(across["label"])}, a mark per combination">']
    for tick in x.ticks():
        parts.append(f'<line class="axis" x1="{x.at(tick):.1f}" x2="{x.at(tick):.1f}" y1="12" '
                     f'y2="{HEIGHT - MARGIN + 16}"/><text x="{x.at(tick):.1f}" y="{HEIGHT - 28}" '
                     f'text-anchor="middle">{tick:.4g}</text>')
    for tick in y.ticks():
        parts.append(f'<line class="axis" x1="{MARGIN}" x2="{WIDTH - 12}" y1="{y.at(tick):.1f}" '
                     f'y2="{y.at(tick):.1f}"/><text x="{MARGIN - 6}" y="{y.at(tick) + 4:.1f}" '
                     f'text-anchor="end">{tick:.4g}</text>')
    parts.append(f'<text x="{WIDTH / 2}" y="{HEIGHT - 8}" text-anchor="middle">'
                 f'{html.escape(across["label"] + unit_of(across))}</text>')
    for result, (px, py) in list(zip(ranked, points))[::-1]:
        label = html.escape(", ".join(f"{k} {v}" for k, v in result["setting"].items()) +
                            f": {across['label']} {px:.4g}, {up['label']} {py:.4g}")
        best = result is ranked[0]
        parts.append(f'<circle class="{"best" if best else "dot"}" cx="{x.at(px):.1f}" cy="{y.at(py):.1f}" '
                     f'r="{6 if best else 4}"><title>{label}</title></circle>')
    cx, cy = x.at(without[0]), y.at(without[1])
    parts.append(f'<rect class="without" x="{cx - 5:.1f}" y="{cy - 5:.1f}" width="10" height="10">'
                 f'<title>without the library</title></rect></svg>')
    return "".join(parts)


def rows(ranked: List[Dict[str, Any]]) -> str:
    kinds = ranked[0]["kinds"]
    head = "".join(f"<th>{html.escape(text)}</th>" for text in
                   list(ranked[0]["setting"]) + [kind["label"] + unit_of(kind) for kind in kinds])
    body = []
    for result in ranked[:SHOWN_ROWS]:
        cells = list(result["setting"].values()) + [f"{value_of(k, result['library']):.2f}" for k in kinds]
        body.append("<tr>" + "".join(f"<td>{html.escape(cell)}</td>" for cell in cells) + "</tr>")
    return f"<div class='table'><table><tr>{head}</tr>{''.join(body)}</table></div>"


def write(path: str, ranked: List[Dict[str, Any]], keys: List[str], best: str) -> None:
    kinds = {kind["key"]: kind for kind in ranked[0]["kinds"]}
    pair = (keys + [key for key in ("latency-p95", "late-frames") if key not in keys])[:2]
    up, across = kinds[pair[0]], kinds[pair[1]]
    text = f"""<!DOCTYPE html>
<html lang="en"><head><meta charset="utf-8"><meta name="viewport" content="width=device-width">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'">
<title>Sweep of {html.escape(ranked[0]["layer"])}</title><style>{STYLE}</style></head><body>
<h1>{len(ranked)} combinations for {html.escape(ranked[0]["layer"])}</h1>
<p>{html.escape(up["label"])} upwards, {html.escape(across["label"])} across. The filled mark is the best by
{html.escape(", ".join(keys))}; the square is the phone without the library. Hold the pointer over a mark for
its settings.</p>{plot(ranked, across, up)}
<h2>The best, as a service sets it</h2><pre>{html.escape(best)}</pre>
<h2>Ranking{f", the first {SHOWN_ROWS}" if len(ranked) > SHOWN_ROWS else ""}</h2>{rows(ranked)}
</body></html>
"""
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)
