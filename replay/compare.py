# Copyright 2026 The libcorvane Authors
# SPDX-License-Identifier: Apache-2.0
"""Shows the figures of two reports side by side, as ./corvane replay --json wrote them."""

import argparse
import json
import sys
from typing import Any, Dict

import figure_text  # beside this file

EXIT_USAGE = 2


class CompareError(Exception):
    """One sentence for the user."""


def load(path: str) -> Dict[str, Any]:
    try:
        with open(path, encoding="utf-8") as file:
            report = json.load(file)
    except (OSError, ValueError) as error:
        raise CompareError(f"cannot read {path}: {error}") from None
    if not isinstance(report, dict) or not report.get("comparison"):
        raise CompareError(f"{path} is no report with a comparison (--open-loop and --realtime have none)")
    return report


def figures_of(report: Dict[str, Any], policy: str) -> Dict[str, Dict[str, float]]:
    """By the layer's name; the first of those with one name."""
    comparison = report["comparison"]
    for run in comparison["policies"]:
        if run["name"] == policy:
            named: Dict[str, Dict[str, float]] = {}
            for layer, figures in zip(comparison["layers"], run["figures"]):
                if layer["worthATable"]:
                    named.setdefault(layer["name"], figures)
            return named
    raise CompareError(f"a report has no policy {policy} (--against adds it)")


def main() -> int:
    parser = argparse.ArgumentParser(prog="./corvane compare", description=__doc__)
    parser.add_argument("a", metavar="A.json")
    parser.add_argument("b", metavar="B.json")
    parser.add_argument("--policy", default="library", help="whose figures (default: %(default)s)")
    options = parser.parse_args()
    first, second = load(options.a), load(options.b)
    before, after = figures_of(first, options.policy), figures_of(second, options.policy)
    common = [name for name in before if name in after]
    if not common:
        raise CompareError("the two reports have no layer in common")
    for name in common:
        print(name.encode("unicode_escape").decode())
        lines = [["", "A", "B", "B's change"]]
        for kind in first["comparison"]["figureKinds"]:
            a, b = before[name][kind["jsonKey"]], after[name].get(kind["jsonKey"])
            if b is not None and (a or b):
                lines.append(["  " + kind["label"], figure_text.text(kind, a), figure_text.text(kind, b),
                              figure_text.change(kind, a, b)])
        print(figure_text.table(lines, left=1))
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except (AttributeError, IndexError, KeyError, TypeError):
        sys.stderr.write("corvane compare: these are no reports that ./corvane replay --json wrote\n")
        sys.exit(EXIT_USAGE)
    except CompareError as error:
        sys.stderr.write(f"corvane compare: {error}\n")
        sys.exit(EXIT_USAGE)
