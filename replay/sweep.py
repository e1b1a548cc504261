# Copyright 2026 The libcorvane Authors
# SPDX-License-Identifier: Apache-2.0
"""Replays a recording with every combination of some settings and ranks what a user would notice.

Each combination is one process of corvane-replay, in simulated time, and one file of results, so that a
grid can be spread over machines (--shard I/N) and a killed sweep goes on where it was.
"""

import argparse
import concurrent.futures
import copy
import csv
import glob
import hashlib
import itertools
import json
import math
import os
import shutil
import subprocess
import sys
import tempfile
from typing import Any, Dict, Iterator, List, Tuple

import figure_text  # beside this file
import sweep_page

KEYS = """settings (--set):
  headroom        headroom rate in vsync periods, for all display rates
  headroom.low    the same up to 60 Hz only; headroom.high above it
  target          target frame rate
  rescue          flag of frame rescue: 0, 1 or 2
  rescue.TUNABLE  one of its tunables, such as rescue.golden or rescue.dynamic
  property:NAME   a system property

KEY=FROM:TO:STEP counts up, TO included; KEY=A,B,C lists. headroom, target and rescue are those of the
scenario's first game.
"""
RESCUE_FLAGS = ("0", "1", "2")
MAX_COMBINATIONS = 1_000_000
# Of a scenario that does not say how often it is played: features come on after a few seconds only.
DEFAULT_REPEAT = 3
EXIT_USAGE, EXIT_FAILED, EXIT_INTERRUPTED = 2, 1, 130


class SweepError(Exception):
    """One sentence for the user."""


def parse_values(text: str) -> List[str]:
    parts = text.split(":")
    if len(parts) == 1:
        return [value for value in text.split(",") if value] or [""]
    try:
        begin, end, step = (float(part) for part in parts)
    except ValueError:
        raise SweepError(f"'{text}' is neither FROM:TO:STEP nor A,B,C") from None
    if not step > 0 or not end >= begin or (end - begin) / step > MAX_COMBINATIONS:
        raise SweepError(f"'{text}' needs a step above 0, and an end that is not before its begin")
    count = int((end - begin) / step + 1e-9) + 1
    return [format(begin + i * step, ".10g") for i in range(count)]


def parse_settings(texts: List[str]) -> List[Tuple[str, List[str]]]:
    settings = []
    for text in texts:
        key, equals, values = text.partition("=")
        if not equals or not key:
            raise SweepError(f"--set needs KEY=VALUES, not '{text}'")
        settings.append((key, parse_values(values)))
    return settings


def number(key: str, value: str) -> float:
    try:
        found = float(value)
    except ValueError:
        found = math.nan
    if not math.isfinite(found):
        raise SweepError(f"{key} needs numbers, not '{value}'")
    return found


def set_property(scenario: Dict[str, Any], name: str, value: str) -> None:
    properties = [p for p in scenario.get("properties", []) if p["name"] != name]
    scenario["properties"] = properties + [{"name": name, "value": value}]


def set_tunable(text: str, name: str, value: str) -> str:
    pairs = [pair for pair in text.split("_") if pair and not pair.startswith(name + "=")]
    return "_".join(pairs + [f"{name}={value}"])


def apply(scenario: Dict[str, Any], key: str, value: str) -> None:
    """Puts one setting into the scenario, with the switch that it needs."""
    if key.startswith("property:"):
        set_property(scenario, key[len("property:"):], value)
        return
    if not scenario.get("games"):
        raise SweepError(f"{key} is a game's setting, and the scenario has no game")
    game = scenario["games"][0]
    if key in ("headroom", "headroom.low", "headroom.high"):
        rates = game.setdefault("headroomRates", {})
        if key != "headroom.high":
            rates["upTo60Hz"] = number(key, value)
        if key != "headroom.low":
            rates["above60Hz"] = number(key, value)
        set_property(scenario, "vendor.perf.phr.enable", "1")
    elif key == "target":
        game["targetFps"] = number(key, value)
        set_property(scenario, "vendor.rdxe.enable.target_fps", "true")
    elif key == "rescue" or key.startswith("rescue."):
        rescue = game.setdefault("frameRescue", {"flag": 1, "tunables": "jank=1.3;1.6;1.9"})
        if key == "rescue":
            if value not in RESCUE_FLAGS:
                raise SweepError(f"rescue needs one of {', '.join(RESCUE_FLAGS)}, not '{value}'")
            rescue["flag"] = int(value)
        else:
            rescue["tunables"] = set_tunable(rescue["tunables"], key[len("rescue."):], value)
    else:
        raise SweepError(f"no setting is named '{key}' (--help lists them)")


def combinations(settings: List[Tuple[str, List[str]]]) -> Iterator[Tuple[Tuple[str, str], ...]]:
    keys = [key for key, _ in settings]
    for values in itertools.product(*(values for _, values in settings)):
        yield tuple(zip(keys, values))


def name_of(combination: Tuple[Tuple[str, str], ...]) -> str:
    return " ".join(f"{key}={value}" for key, value in combination)


class Sweep:
    """The grid, and where its results are."""

    def __init__(self, options: argparse.Namespace):
        self.options = options
        settings = parse_settings(options.set)
        count = math.prod(len(values) for _, values in settings)
        if count > MAX_COMBINATIONS:
            raise SweepError(f"{count} combinations are more than {MAX_COMBINATIONS}")
        try:
            self.recording, self.scenario = self.load_scenario()
            for key, values in settings:
                for value in values:
                    self.scenario_of([(key, value)])  # what is wrong says so before anything runs
        except (AttributeError, KeyError, TypeError):
            raise SweepError(f"{options.config} is not usable; ./corvane replay --config tells "
                             "the place") from None
        self.grid = list(combinations(settings))
        self.inputs = self.fingerprint()
        self.results = options.results or os.path.join(
            tempfile.gettempdir(), "corvane-sweep-" + self.inputs[:16])
        os.makedirs(self.results, exist_ok=True)

    def load_scenario(self) -> Tuple[str, Dict[str, Any]]:
        scenario: Dict[str, Any] = {}
        if self.options.config:
            try:
                with open(self.options.config, encoding="utf-8") as file:
                    scenario = json.load(file)
            except (OSError, ValueError) as error:
                raise SweepError(f"cannot read {self.options.config}: {error}") from None
        if ":" in self.options.game:
            raise SweepError("--game takes a package alone; --set tells its features")
        if self.options.game:
            scenario.setdefault("games", []).insert(0, {"package": self.options.game, "weight": 2})
        recording = self.options.recording
        if not recording and "recording" in scenario:
            recording = os.path.join(os.path.dirname(self.options.config), scenario["recording"])
        if not recording:
            raise SweepError("no recording given, and the scenario names none")
        if not os.path.isfile(recording):
            raise SweepError(f"there is no recording {recording}")
        scenario.setdefault("repeat", DEFAULT_REPEAT)
        scenario["recording"] = os.path.abspath(recording)
        return recording, scenario

    def fingerprint(self) -> str:
        """Of everything that all results depend on; the same sweep finds its results again."""
        digest = hashlib.sha256(json.dumps([{**self.scenario, "recording": ""}, self.options.layer],
                                           sort_keys=True).encode())
        libraries = os.path.join(os.path.dirname(self.options.program), os.pardir, "*.so")
        for path in (self.recording, self.options.program, *sorted(glob.glob(libraries))):
            with open(path, "rb") as file:
                digest.update(hashlib.file_digest(file, "sha256").digest())
        return digest.hexdigest()

    def scenario_of(self, combination) -> Dict[str, Any]:
        scenario = copy.deepcopy(self.scenario)
        for key, value in combination:
            apply(scenario, key, value)
        return scenario

    def result_file(self, combination) -> str:
        digest = hashlib.sha256((self.inputs + json.dumps(combination)).encode())
        return os.path.join(self.results, digest.hexdigest()[:24] + ".json")

    def mine(self) -> List[Any]:
        index, count = self.options.shard
        return [c for i, c in enumerate(self.grid) if i % count == index - 1]

    def run_first(self, keys: List[str]) -> None:
        """So that a figure that is none says so before all the others run."""
        for combination in self.mine()[:1]:
            self.run_one(combination)
            with open(self.result_file(combination), encoding="utf-8") as file:
                ranking([json.load(file)], keys)

    def run_one(self, combination) -> None:
        target = self.result_file(combination)
        if os.path.exists(target):
            return
        with tempfile.TemporaryDirectory(prefix="corvane-sweep-") as folder:
            scenario = os.path.join(folder, "scenario.json")
            report = os.path.join(folder, "report.json")
            with open(scenario, "w", encoding="utf-8") as file:
                json.dump(self.scenario_of(combination), file)
            done = subprocess.run([self.options.program, "--config", scenario, "--json", report],
                                  stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                  stderr=subprocess.PIPE, check=False)
            if done.returncode != 0:
                raise SweepError(f"{name_of(combination)}: {done.stderr.decode(errors='replace').strip()}")
            with open(report, encoding="utf-8") as file:
                result = summary(json.load(file), combination, self.options.layer)
        # Complete or not there: a killed sweep leaves no half of a result.
        partial = f"{target}.{os.getpid()}.partial"
        with open(partial, "w", encoding="utf-8") as file:
            json.dump(result, file)
        os.replace(partial, target)

    def run(self) -> None:
        todo = self.mine()
        done = 0
        with concurrent.futures.ThreadPoolExecutor(self.options.jobs) as pool:
            running = [pool.submit(self.run_one, combination) for combination in todo]
            try:
                for future in concurrent.futures.as_completed(running):
                    future.result()
                    done += 1
                    show_progress(done, len(todo))
            except BaseException:
                pool.shutdown(wait=True, cancel_futures=True)
                raise
            finally:
                end_progress()

    def collect(self) -> Tuple[List[Dict[str, Any]], int]:
        """The results that are there, and how many combinations are missing (of other shards)."""
        found = []
        for combination in self.grid:
            path = self.result_file(combination)
            if os.path.exists(path):
                with open(path, encoding="utf-8") as file:
                    found.append(json.load(file))
        return found, len(self.grid) - len(found)


def summary(report: Dict[str, Any], combination, layer_part: str) -> Dict[str, Any]:
    """What a sweep keeps of a report: the chosen layer's figures, and the service's callbacks."""
    comparison = report["comparison"]
    layers = comparison["layers"]
    games = [i for i, layer in enumerate(report["layers"]) if layer["game"]]
    chosen = [i for i, layer in enumerate(layers) if layer_part and layer_part in layer["name"]]
    if layer_part and not chosen:
        raise SweepError(f"no layer of the recording is named like '{layer_part}'")
    by_frames = sorted(range(len(layers)), key=lambda i: -report["layers"][i]["frames"])
    layer = (chosen or games or by_frames)[0]
    policies = {policy["name"]: policy["figures"][layer] for policy in comparison["policies"]}
    return {
        "setting": dict(combination),
        "layer": layers[layer]["name"],
        "anyGame": bool(games),
        "goodFit": layers[layer]["fit"]["good"],
        "kinds": comparison["figureKinds"],
        "library": policies["library"],
        "none": policies["none"],
        "callbacks": [c for c in report["settings"]["callbacks"] if c["atNs"] is None],
        "properties": [p for p in report["settings"]["properties"] if p["from"] == "scenario"],
    }


def show_progress(done: int, total: int) -> None:
    if sys.stderr.isatty():
        columns = 40
        filled = columns * done // max(total, 1)
        sys.stderr.write(f"\r[{'#' * filled}{'.' * (columns - filled)}] {done} of {total}")
        sys.stderr.flush()


def end_progress() -> None:
    if sys.stderr.isatty():
        sys.stderr.write("\r" + " " * 70 + "\r")


def order(result: Dict[str, Any], policy: str, keys: List[str]) -> List[float]:
    """What a result is ranked by: less is better."""
    kinds = {kind["key"]: kind for kind in result["kinds"]}
    for key in keys:
        if key not in kinds:
            raise SweepError(f"no figure is named '{key}'; there are {', '.join(kinds)}")
    signs = {"higher": -1}
    return [signs.get(kinds[key]["better"], 1) * result[policy][kinds[key]["jsonKey"]] for key in keys]


def ranking(results: List[Dict[str, Any]], keys: List[str]) -> List[Dict[str, Any]]:
    return sorted(results, key=lambda result: order(result, "library", keys))


def remarks(ranked: List[Dict[str, Any]], keys: List[str]) -> List[str]:
    """What to know before the ranking is believed."""
    best = ranked[0]
    said = []
    if not best["goodFit"]:
        said.append("The model fits this recording badly: trust the figures little "
                    "(./corvane replay says why).")
    if not best["anyGame"]:
        said.append("The library took no layer for a game, so that no setting of a game came on.")
    if len({result["none"]["lateFrames"] for result in ranked}) > 1:
        said.append("Frames are late by each combination's own target, so that late frames of "
                    "different targets do not compare; --by fps,latency-p95 ranks by what does.")
    if order(best, "library", keys) >= order(best, "none", keys):
        said.append("No combination does better by these figures than the phone without the library.")
    return said


def table(results: List[Dict[str, Any]], keys: List[str], rows: int) -> str:
    kinds = {kind["key"]: kind for kind in results[0]["kinds"]}
    columns = list(dict.fromkeys(keys + ["late-frames", "latency-p50", "latency-p95", "fps", "boost-mhz-s"]))
    names = list(results[0]["setting"])
    lines = [[""] + names + [kinds[key]["label"] for key in columns]]
    for place, result in enumerate(results[:rows], 1):
        lines.append([str(place)] + list(result["setting"].values()) +
                     [figure_text.text(kinds[key], result["library"][kinds[key]["jsonKey"]]) for key in columns])
    lines.append(["without"] + ["" for _ in names] +
                 [figure_text.span(kinds[key], [result["none"][kinds[key]["jsonKey"]] for result in results])
                  for key in columns])
    return figure_text.table(lines)


def callback_text(result: Dict[str, Any]) -> str:
    lines = [f"  setprop {p['name']} {p['value']}" for p in result["properties"]]
    for c in result["callbacks"]:
        values = ", ".join(str(value) for value in c["values"])
        lines.append(f"  notifyCallback(hint {c['hint']}, \"{c['package']}\", {c['arg1']}, {c['arg2']}, "
                     f"[{values}])")
    return "\n".join(lines)


def write_csv(path: str, results: List[Dict[str, Any]]) -> None:
    kinds = results[0]["kinds"]
    with open(path, "w", newline="", encoding="utf-8") as file:
        writer = csv.writer(file)
        writer.writerow(list(results[0]["setting"]) + [kind["jsonKey"] for kind in kinds])
        for result in results:
            writer.writerow(list(result["setting"].values()) +
                            [result["library"][kind["jsonKey"]] for kind in kinds])


def positive(text: str) -> int:
    value = int(text)
    if value < 1:
        raise ValueError
    return value


def parse_shard(text: str) -> Tuple[int, int]:
    try:
        index, count = (int(part) for part in text.split("/"))
    except ValueError:
        raise argparse.ArgumentTypeError("needs I/N, such as 2/8") from None
    if not 1 <= index <= count:
        raise argparse.ArgumentTypeError("needs I from 1 to N")
    return index, count


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="./corvane sweep", description=__doc__, epilog=KEYS,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--program", required=True, help=argparse.SUPPRESS)
    parser.add_argument("recording", nargs="?", default="", help="default: the scenario's")
    parser.add_argument("--config", default="", metavar="FILE", help="the scenario to vary")
    parser.add_argument("--game", default="", metavar="PACKAGE", help="this package is the game")
    parser.add_argument("--set", action="append", required=True, metavar="KEY=VALUES", help="see below")
    parser.add_argument("--layer", default="", metavar="PART",
                        help="whose figures count; default: the first game's layer")
    parser.add_argument("--by", default="late-frames,latency-p95", metavar="FIGURE[,FIGURE]",
                        help="what ranks first, second, ... (default: %(default)s)")
    parser.add_argument("--csv", default="", metavar="FILE", help="also write all results as a table")
    parser.add_argument("--report", default="", metavar="FILE.html",
                        help="also draw the trade-off between the first two figures of --by")
    parser.add_argument("--rows", type=positive, default=10, help="of the ranking (default: %(default)s)")
    parser.add_argument("--jobs", type=positive, default=len(os.sched_getaffinity(0)), help="processes at a time")
    parser.add_argument("--shard", type=parse_shard, default=(1, 1), metavar="I/N",
                        help="run only the I-th of N parts; with --results on a shared folder, whoever "
                             "is last ranks them all")
    parser.add_argument("--results", default="", metavar="FOLDER",
                        help="where results are kept (default: a folder of this sweep's own in the "
                             "system's temporary one)")
    return parser.parse_args()


def main() -> int:
    options = parse_arguments()
    keys = [key for key in options.by.split(",") if key]
    if not keys:
        raise SweepError("--by needs a figure")
    sweep = Sweep(options)
    sweep.run_first(keys)
    sweep.run()
    results, missing = sweep.collect()
    if missing:
        print(f"{missing} of {len(sweep.grid)} combinations are left to other shards; results are in "
              f"{sweep.results}")
        return 0
    ranked = ranking(results, keys)
    said = remarks(ranked, keys)
    layer = ranked[0]["layer"].encode("unicode_escape").decode()
    print(f"{len(ranked)} combinations for {layer}, ranked by {', '.join(keys)}")
    for remark in said:
        print(remark)
    print(table(ranked, keys, options.rows))
    print(f"Best: {name_of(ranked[0]['setting'].items())}, which a service sets with")
    print(callback_text(ranked[0]))
    if options.csv:
        write_csv(options.csv, ranked)
    if options.report:
        sweep_page.write(options.report, ranked, keys, said, callback_text(ranked[0]))
    if not options.results:
        shutil.rmtree(sweep.results, ignore_errors=True)  # another shard may be at it, too
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except SweepError as error:
        sys.stderr.write(f"corvane sweep: {error}\n")
        sys.exit(EXIT_USAGE)
    except OSError as error:
        sys.stderr.write(f"corvane sweep: {error}\n")
        sys.exit(EXIT_FAILED)
    except KeyboardInterrupt:
        sys.stderr.write("corvane sweep: interrupted; the same command goes on where it was\n")
        sys.exit(EXIT_INTERRUPTED)
