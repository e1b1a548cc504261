#!/usr/bin/env python3
# Copyright 2026 The libcorvane Authors
# SPDX-License-Identifier: Apache-2.0
"""Compares a page of the replay, as a browser dumped it, with the JSON report.

check_page.py shown REPORT.json DUMP.html NETLOG.json   what the page shows when it is opened
check_page.py use PAGE.html                             prints the page with a script that uses it
check_page.py used REPORT.json DUMP.html                what the page showed when that had run
check_page.py sweep TABLE.csv DUMP.html NETLOG.json     a sweep's page against the table of its results
"""

import csv
import html.parser
import json
import re
import sys

NS_PER_MS = 1e6

# Presses keys and points as a reader would, and notes what the readouts say.
USE = """
<script>
// A browser that only dumps a page paints no frames.
window.requestAnimationFrame = (draw) => setTimeout(draw, 0);
(async () => {
  const notes = {};
  const frame = () => new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(done)));
  const plot = document.querySelector('.timeline');
  const readout = document.querySelector('#timeline .readout');
  const range = document.querySelector('.range');
  const press = async (name, key) => {
    plot.dispatchEvent(new KeyboardEvent('keydown', { key, cancelable: true }));
    await frame();
    notes[name] = readout.textContent;
    notes[`${name} range`] = range.textContent;
  };
  notes['at first range'] = range.textContent;
  await press('first', 'Home');
  await press('second', 'ArrowRight');
  await press('below', 'ArrowDown');
  await press('up', 'ArrowUp');
  await press('last', 'End');
  await press('late', 'l');
  await press('closer', '+');
  await press('all', '0');
  plot.dispatchEvent(new WheelEvent('wheel', { deltaY: -700, ctrlKey: true, cancelable: true,
    clientX: plot.getBoundingClientRect().left + 500 }));
  await frame();
  notes['wheel range'] = range.textContent;
  notes.overflow = document.documentElement.scrollWidth - document.documentElement.clientWidth;
  const bars = document.querySelector('#distributions .plot');
  bars.dispatchEvent(new KeyboardEvent('keydown', { key: 'End', cancelable: true }));
  notes.bars = bars.nextElementSibling.textContent;
  document.body.append(Object.assign(document.createElement('pre'),
    { id: 'notes', textContent: JSON.stringify(notes) }));
})();
</script>
"""


class Dump(html.parser.HTMLParser):
    """The elements of a dump: tag, attributes, and the text within each."""

    VOID = {"meta", "link", "input", "br", "img", "hr"}

    def __init__(self, path):
        super().__init__()
        self.elements = []
        self.open = []
        with open(path, encoding="utf-8") as file:
            self.feed(file.read())

    def handle_starttag(self, tag, attrs):
        element = {"tag": tag, "text": "", **dict(attrs)}
        self.elements.append(element)
        if tag not in self.VOID:
            self.open.append(element)

    def handle_endtag(self, tag):
        while self.open and self.open.pop()["tag"] != tag:
            pass

    def handle_data(self, data):
        for element in self.open:
            element["text"] += data

    def where(self, **wanted):
        return [e for e in self.elements if all(e.get(k.replace("_", "-")) == v for k, v in wanted.items())]


def expect(holds, what):
    if not holds:
        sys.exit(f"page check failed: {what}")


def number(text):
    """The number at a text's beginning, as the page writes it."""
    match = re.match(r"[+\u2212]?[\d\u202f]+(\.\d+)?", text)
    expect(match, f"no number in '{text}'")
    return float(match.group().replace("\u2212", "-").replace("\u202f", ""))


def check_ready(dump):
    root = dump.where(tag="html")[0]
    failure = dump.where(id="failure")[0]
    expect(root.get("data-state") == "ready", f"the page did not get ready: {failure['text'].strip()}")


def check_table(comparison, dump):
    policies = {policy["name"]: policy for policy in comparison["policies"]}
    layers = [i for i, layer in enumerate(comparison["layers"]) if layer["worthATable"]]
    expect(layers, "the report compares no layer")
    cells = 0
    for name, policy in policies.items():
        for layer in layers:
            for key, value in policy["figures"][layer].items():
                where = f"{key} of layer {layer} with {name}"
                found = dump.where(tag="td", data_layer=str(layer), data_policy=name, data_key=key)
                expect(len(found) == 1, f"{len(found)} cells for {where}")
                expect(float(found[0]["data-value"]) == value, f"{where}: {found[0]['data-value']}, not {value}")
                shown = number(found[0]["text"]) * (NS_PER_MS if found[0]["text"].endswith("ms") else 1)
                rounded = 0.005 * (NS_PER_MS if key.endswith("Ns") else 1)
                expect(abs(shown - value) <= rounded * 1.001, f"{where}: '{found[0]['text']}' for {value}")
                cells += 1
    all_cells = [e for e in dump.elements if e["tag"] == "td" and "data-key" in e]
    expect(len(all_cells) == cells, f"{len(all_cells)} cells, and {cells} figures")
    calls = dump.where(data_policy="library", data_key="serviceCalls")[0]
    expect(int(calls["data-value"]) == policies["library"]["serviceCalls"], "the calls to the service")
    return layers, cells


def check_fit(comparison, dump):
    for i, layer in enumerate(comparison["layers"]):
        for key in ("share", "queueP50Ns", "queueP95Ns"):
            cell = dump.where(tag="td", data_layer=str(i), data_fit=key)[0]
            expect(float(cell["data-value"]) == layer["fit"][key], f"the fit's {key} of layer {i}")


def check_histograms(comparison, layers, dump):
    # The page opens with the layer that has most frames.
    drawn = [sum(f["layer"] == layer for f in comparison["policies"][0]["frames"]) for layer in layers]
    layer = layers[drawn.index(max(drawn))]
    for policy in comparison["policies"]:
        frames = [f for f in policy["frames"] if f["layer"] == layer]
        bars = dump.where(tag="path", data_policy=policy["name"])
        counts = [sum(f["shownNs"] is not None for f in frames),
                  sum(f["intervalNs"] is not None for f in frames)]
        expect([int(b["data-frames"]) for b in bars] == counts,
               f"histograms of {policy['name']}: {[b['data-frames'] for b in bars]}, not {counts}")


def check_requests(netlog):
    with open(netlog, encoding="utf-8") as file:
        log = json.load(file)
    urls = {str(e.get("params", {}).get("url", "")) for e in log["events"]}
    asked = sorted(u for u in urls if u and not u.startswith(("file:", "data:")))
    expect(not asked, f"the page asked for {', '.join(asked)}")


def shown(report, dump, netlog):
    check_ready(dump)
    check_requests(netlog)
    layers, cells = check_table(report["comparison"], dump)
    check_fit(report["comparison"], dump)
    check_histograms(report["comparison"], layers, dump)
    print(f"  {cells} figures, the fit and the histograms are the report's; nothing was requested")


def seconds_of(text):
    first, last = re.match(r"([\d.]+)\s+s to ([\d.]+)", text).groups()
    return float(last) - float(first)


def used(report, dump):
    check_ready(dump)
    notes = json.loads(dump.where(id="notes")[0]["text"])
    comparison = report["comparison"]
    policies = comparison["policies"]

    def frames_of(name):
        policy = next(p for p in policies if p["name"] == name)
        largest = max(range(len(comparison["layers"])),
                      key=lambda i: sum(f["layer"] == i for f in policies[0]["frames"]))
        return [f for f in policy["frames"] if f["layer"] == largest]

    def expect_frame(note, name, frame):
        text = notes[note]
        expect(text.startswith(f"{name}, frame {frame['frame'] + 1} "), f"{note}: {text}")
        if frame["shownNs"] is not None:
            latency = re.search(r"Latency([\d.]+)", text)
            expect(latency and abs(float(latency[1]) - (frame["shownNs"] - frame["startNs"]) / NS_PER_MS) < 0.0051,
                   f"{note}: {text}")

    own = frames_of(policies[0]["name"])
    expect_frame("first", policies[0]["name"], own[0])
    expect_frame("second", policies[0]["name"], own[1])
    expect_frame("below", policies[1]["name"], frames_of(policies[1]["name"])[1])
    expect_frame("up", policies[0]["name"], own[1])
    expect_frame("last", policies[0]["name"], own[-1])
    expect_frame("late", policies[0]["name"], next(f for f in own if f["late"]))
    whole = seconds_of(notes["at first range"])
    expect(abs(seconds_of(notes["closer range"]) * 2 - seconds_of(notes["late range"])) < 0.002, "+ does not zoom in")
    expect(seconds_of(notes["all range"]) == whole, "0 does not show all")
    expect(seconds_of(notes["wheel range"]) < whole / 2, "the wheel does not zoom")
    expect("library" in notes["bars"] and "frame" in notes["bars"], f"no readout of bars: {notes['bars']}")
    expect(notes["overflow"] <= 0, f"the page is {notes['overflow']} pixels wider than its window")
    print("  keys and the wheel lead through it")


def sweep(table, dump, netlog):
    check_requests(netlog)
    with open(table, encoding="utf-8", newline="") as file:
        results = list(csv.DictReader(file))
    cells = [e["text"] for e in dump.elements if e["tag"] == "td"]
    headings = [e["text"] for e in dump.elements if e["tag"] == "th"]
    width = len(headings)
    expect(len(cells) == (len(results) + 1) * width, f"{len(cells)} cells for {len(results)} combinations")
    for place, result in enumerate(results, 1):
        row = cells[place * width:(place + 1) * width]
        values = dict(zip(headings, row))
        expect(row[0] == str(place), f"place {row[0]}, not {place}")
        for heading, column, scale in (("headroom", "headroom", 1), ("target", "target", 1),
                                       ("latency p50 (ms)", "latencyP50Ns", NS_PER_MS),
                                       ("frames late", "lateFrames", 1), ("frame rate (/s)", "fps", 1)):
            expect(abs(float(values[heading]) - float(result[column]) / scale) <= 0.00501,
                   f"{heading} of place {place}: {values[heading]} for {result[column]}")
    marks = [e for e in dump.elements if e["tag"] == "title"][1:]
    expect(marks and any("without the library" in mark["text"] for mark in marks), "the plot lacks marks")
    print(f"  a sweep's page ranks {len(results)} combinations as its table does")


def main():
    action, *paths = sys.argv[1:]
    if action == "use":
        with open(paths[0], encoding="utf-8") as file:
            print(file.read().replace("</body>", USE + "</body>"))
        return
    if action == "sweep":
        sweep(paths[0], Dump(paths[1]), paths[2])
        return
    with open(paths[0], encoding="utf-8") as file:
        report = json.load(file)
    if action == "shown":
        shown(report, Dump(paths[1]), paths[2])
    else:
        used(report, Dump(paths[1]))


main()
