#!/usr/bin/env python3
"""Counts the instructions of the hot paths under callgrind. The counts are the same in every run of one build, on
whatever else the machine does, and are those of the process: the system's own work in its calls is not among them."""

import argparse
import concurrent.futures
import os
import pathlib
import re
import subprocess
import sys
import tempfile
from dataclasses import dataclass

import tables

HEADINGS = ("Path", "Unit", "Instructions per unit", "per number or byte")


@dataclass(frozen=True)
class Path:
    name: str
    title: str
    unit: str
    # Numbers or bytes that a unit has.
    parts: int
    # How often it is done in the two runs whose difference counts.
    few: int
    many: int


# A line has 20 angles, 30 pads, 30 axes, its number and its time; a packet the same without the time.
LINE = 82
READ = 4096
PATHS = (
    Path("render-tsl", "render a `tsl` line", "frame", LINE, 100, 600),
    Path("render-csv", "render a `csv` row", "frame", LINE, 100, 600),
    Path("write-tsl", "write a `tsl` frame", "frame", LINE, 100, 600),
    Path("load", "load a recording", "frame", LINE, 100, 600),
    Path("decode-packets", "decode and queue, packet by packet", "packet", 455, 100, 2100),
    Path("decode-full-reads", "decode and queue, full reads", "packet", 455, 100, 2100),
    Path("skip-random", "skip random bytes", "4096 bytes", READ, 10, 110),
    Path("skip-false-starts", "skip false starts", "4096 bytes", READ, 10, 110),
    Path("analyze", "analyse 500 frames x 20 joints", "analysis", 500 * 20, 1, 11),
)


def count(program: pathlib.Path, path: Path, times: int, scratch: pathlib.Path) -> int:
    """Instructions of a whole run."""
    recording = scratch / f"{path.name}-{times}.tsl"
    if path.name == "load":
        subprocess.run([program, "write-tsl", str(times), recording], stdout=subprocess.DEVNULL, check=True)
    output = scratch / f"{path.name}-{times}.callgrind"
    command = ["valgrind", "--quiet", "--tool=callgrind", f"--callgrind-out-file={output}", program, path.name,
               str(times), recording]
    subprocess.run(command, stdout=subprocess.DEVNULL, check=True)
    totals = re.search(r"^(?:totals|summary): (\d+)", output.read_text(encoding="utf-8"), re.MULTILINE)
    if not totals:
        raise RuntimeError(f"callgrind has counted nothing for {path.name}")
    return int(totals.group(1))


def row(program: pathlib.Path, path: Path, scratch: pathlib.Path) -> tuple[str, ...]:
    done = path.many - path.few
    per_unit = (count(program, path, path.many, scratch) - count(program, path, path.few, scratch)) / done
    return (path.title, path.unit, f"{per_unit:,.0f}", f"{per_unit / path.parts:.2f}")


def main() -> int:
    parser = argparse.ArgumentParser()
    parser.add_argument("--markdown", action="store_true")
    parser.add_argument("--update", type=pathlib.Path)
    parser.add_argument("build", type=pathlib.Path)
    arguments = parser.parse_args()

    program = arguments.build / "bin" / "tarsil_instruction_paths"
    with tempfile.TemporaryDirectory() as directory:
        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            counts = pool.map(lambda path: row(program, path, pathlib.Path(directory)), PATHS)
            table = [HEADINGS, *counts]
    numbers = (2, 3)
    markdown = tables.as_markdown(table, numbers)
    print("\n".join(markdown if arguments.markdown else tables.as_text(table, numbers)))
    if arguments.update:
        tables.update(arguments.update, "scripts/count-instructions", markdown)
    return 0


if __name__ == "__main__":
    sys.exit(main())
