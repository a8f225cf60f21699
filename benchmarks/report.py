#!/usr/bin/env python3
"""Measures, and prints one table: ours, the others, the floors, the ratios and what they have to be."""

import argparse
import datetime
import os
import pathlib
import platform
import re
import subprocess
import sys
from typing import Optional

import measure
import tables
import targets

PARTS = ("render", "write", "load", "memory", "decode", "analysis", "startup", "latency", "process")

# By how much a busy machine can worsen a ratio.
NOISE = 0.25

HEADINGS = ("Path", "Ours", "Against", "Theirs", "Ratio", "Target", "")

# Columns of numbers.
NUMBERS = (1, 3, 4)


class Comparison:
    """One row of the table with its numbers."""

    def __init__(self, row: targets.Row, values: dict[str, float]):
        self.row = row
        self.ours = values[row.ours]
        self.theirs = self.best_of(row, values)
        self.installed = not row.theirs or self.theirs is not None
        self.ratio = self.ratio_of()
        # The most that the floor allows, if there is one.
        self.ceiling = row.floor[1] * values[row.floor[0]] if row.floor else None

    @staticmethod
    def best_of(row: targets.Row, values: dict[str, float]) -> Optional[float]:
        found = [values[name] for name in row.theirs if name in values]
        return min(found) if found else None

    def ratio_of(self) -> Optional[float]:
        if self.row.ratio == "ours":
            return self.ours
        if self.theirs is None:
            return None
        return self.theirs / self.ours if self.row.ratio == "theirs/ours" else self.ours / self.theirs

    def verdict(self) -> str:
        if not self.installed:
            return "not installed"
        if self.row.at_least is None and self.row.at_most is None:
            return ""
        if self.reaches_target(0.0):
            return "pass"
        return "pass, by the floor" if self.holds(0.0) else "short"

    def holds(self, tolerance: float) -> bool:
        """Whether the target is reached, or missed by no more than that share of it, or the floor allows no better."""
        return self.reaches_target(tolerance) or (self.ceiling is not None and self.ours <= self.ceiling)

    def reaches_target(self, tolerance: float) -> bool:
        if self.ratio is None:
            return True
        if self.row.at_least is not None and self.ratio < self.row.at_least * (1 - tolerance):
            return False
        return self.row.at_most is None or self.ratio <= self.row.at_most * (1 + tolerance)

    def cells(self) -> tuple[str, ...]:
        row = self.row
        theirs = "" if self.theirs is None else row.show(self.theirs)
        ratio = "" if self.ratio is None or row.ratio == "ours" else f"{self.ratio:.2f}"
        return (row.path, row.show(self.ours), row.against, theirs, ratio, self.target(), self.verdict())

    def target(self) -> str:
        show = self.row.show if self.row.ratio == "ours" else lambda value: f"{value:g}"
        instead = f", or {self.row.floor[1]:g} floors" if self.row.floor else ""
        if self.row.at_least is not None:
            return "at least " + show(self.row.at_least) + instead
        if self.row.at_most is not None:
            return "at most " + show(self.row.at_most) + instead
        return ""


def measure_part(part: str, build: pathlib.Path, quick: bool) -> dict[str, float]:
    if part in measure.EFFORT:
        return measure.google_benchmark(part, build, quick)
    if part == "process":
        return measure.processes(build, quick)
    return measure.own_program(part, build)


def machine(build: pathlib.Path) -> list[str]:
    """What the numbers depend on."""
    cache = (build / "CMakeCache.txt").read_text(encoding="utf-8")

    def cached(name: str) -> str:
        found = re.search(rf"^{name}:\w+=(.*)$", cache, re.MULTILINE)
        return found.group(1) if found else ""

    compiler = subprocess.run([cached("CMAKE_CXX_COMPILER"), "--version"], stdout=subprocess.PIPE, text=True, check=True)
    processor = re.search(r"^model name\s*:\s*(.*)$", pathlib.Path("/proc/cpuinfo").read_text(encoding="utf-8"),
                          re.MULTILINE)
    system = ".".join(platform.release().split(".")[:2])
    return [
        f"Processor: {processor.group(1) if processor else platform.machine()}, {os.cpu_count()} cores; "
        f"Linux {system}; load {os.getloadavg()[0]:.1f} at the start",
        f"Compiler: {compiler.stdout.splitlines()[0]}; "
        f"{' '.join((cached('CMAKE_CXX_FLAGS') + ' ' + cached('CMAKE_CXX_FLAGS_RELEASE')).split())}",
        f"Date: {datetime.date.today()}",
    ]


def main() -> int:
    parser = argparse.ArgumentParser()
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--markdown", action="store_true")
    parser.add_argument("--update", type=pathlib.Path)
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("parts", nargs="*")
    arguments = parser.parse_args()
    parts = [part for part in PARTS if part in arguments.parts or not arguments.parts]

    heading = machine(arguments.build)
    values: dict[str, float] = {}
    for part in parts:
        print(f"measuring: {part}", file=sys.stderr)
        values |= measure_part(part, arguments.build, arguments.quick)

    comparisons = [Comparison(row, values) for row in targets.rows() if row.part in parts]
    table = [HEADINGS, *(comparison.cells() for comparison in comparisons)]
    markdown = [*(f"- {line}" for line in heading), "", *tables.as_markdown(table, NUMBERS)]
    print("\n".join(markdown if arguments.markdown else [*heading, "", *tables.as_text(table, NUMBERS)]))
    if arguments.update:
        tables.update(arguments.update, "scripts/bench", markdown)

    if arguments.quick:
        return 0
    missed = [comparison for comparison in comparisons if not comparison.holds(NOISE)]
    for comparison in missed:
        cells = comparison.cells()
        print(f"missed: {cells[0]}{' against ' + cells[2] if cells[2] else ''}: "
              f"{cells[4] or cells[1]}, {cells[5]}", file=sys.stderr)
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
