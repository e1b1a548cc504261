# Copyright 2026 The libcorvane Authors
# SPDX-License-Identifier: Apache-2.0
"""How a figure's value is written, by its kind (an entry of a report's "figureKinds")."""

from typing import Any, Dict, List

# By the kind's unit: what a value is divided by, the unit that is written, and the digits.
UNITS = {"ns": (1e6, " ms", 2), "count": (1.0, "", 0), "per second": (1.0, "/s", 2)}
DEFAULT_UNIT = (1.0, "", 2)


def scaled(kind: Dict[str, Any], value: float) -> float:
    """In the unit that is written."""
    return value / UNITS.get(kind["unit"], DEFAULT_UNIT)[0]


def unit(kind: Dict[str, Any]) -> str:
    return UNITS.get(kind["unit"], DEFAULT_UNIT)[1].strip()


def bare(kind: Dict[str, Any], value: float, sign: str = "") -> str:
    """Without its unit, for columns and axes that name it."""
    return f"{scaled(kind, value):{sign}.{UNITS.get(kind['unit'], DEFAULT_UNIT)[2]}f}"


def text(kind: Dict[str, Any], value: float, sign: str = "") -> str:
    return bare(kind, value, sign) + UNITS.get(kind["unit"], DEFAULT_UNIT)[1]


def span(kind: Dict[str, Any], values: List[float]) -> str:
    """Their least and their greatest, where these differ."""
    low, high = text(kind, min(values)), text(kind, max(values))
    return low if low == high else f"{low} to {high}"


def heading(kind: Dict[str, Any]) -> str:
    """The figure's name and, in brackets, the unit of its bare values."""
    return kind["label"] + (f" ({unit(kind)})" if unit(kind) else "")


def change(kind: Dict[str, Any], before: float, after: float) -> str:
    """"=" where what is written does not differ; worse marked as worse."""
    difference = after - before
    if abs(difference) < kind["resolution"] / 2:
        return "="
    worse = {"lower": difference > 0, "higher": difference < 0}.get(kind["better"], False)
    return text(kind, difference, "+") + (" worse" if worse else "")


def table(lines: List[List[str]], left: int = 0) -> str:
    """Columns as wide as they need be; the first `left` of them begin at the same place."""
    widths = [max(len(line[i]) for line in lines) for i in range(len(lines[0]))]
    return "\n".join("  ".join(cell.ljust(width) if i < left else cell.rjust(width)
                               for i, (cell, width) in enumerate(zip(line, widths)))
                     for line in lines)
