#!/usr/bin/env python3
"""Loads a tsl recording into NumPy and pandas, and plots it with matplotlib into a file.

    examples/python/read_recording.py take1.tsl --output take1.png

The functions are meant to be imported, too: load() gives a table with a row for each frame.
"""

import argparse
import json
import math
import re
import sys

import numpy
import pandas

FINGERS = ("thumb", "index", "middle", "ring", "pinky")
JOINTS = ("MCP abduction", "MCP flexion", "PIP", "DIP")
KEYS = {
    "header": ("metadata",),
    "frame": ("seq", "t", "q", "touch", "imu", "stale"),
    "marker": ("t", "name", "data"),
}


def parse_line(line):
    """A line as a dictionary, or None for what a crash has left of the last one."""
    try:
        return json.loads(line, strict=False)
    except json.JSONDecodeError:
        pass
    # Values that are no numbers are not JSON; Python reads them in its own spelling. Frames contain no other text.
    if line.startswith('{"type":"frame"'):
        line = re.sub("-?nan", "NaN", line).replace("inf", "Infinity")
    try:
        return json.loads(line, strict=False)
    except json.JSONDecodeError:
        return None


def is_whole(record):
    """Whether a line has what its type needs."""
    keys = KEYS.get(str(record.get("type"))) if isinstance(record, dict) else None
    if keys is None or any(key not in record for key in keys):
        return False
    return all("acc" in unit and "gyro" in unit for unit in record.get("imu", ()))


def load(path):
    """Returns metadata (a dictionary), frames and markers (tables).

    The frames' index is the time in seconds from the first frame on. Columns: seq, t, stale, q_0, ..., touch_0, ... and
    acc_0_x, ... and gyro_0_x, ... for each inertial unit.
    """
    metadata, frames, markers, skipped, timeless = {}, [], [], 0, 0
    with open(path, encoding="utf-8", errors="replace", newline="\n") as file:
        for line in file:
            record = parse_line(line)
            if not is_whole(record):
                skipped += 1
            elif record["type"] == "header":
                metadata = record["metadata"]
            elif not math.isfinite(record["t"]):
                timeless += 1
            elif record["type"] == "frame":
                frames.append(record)
            else:
                markers.append(record)
    if not frames:
        raise ValueError(f"no frames in {path}")
    if skipped:
        print(f"{path}: {skipped} lines are damaged", file=sys.stderr)
    if timeless:
        print(f"{path}: {timeless} lines have a time that is no number", file=sys.stderr)
    table = to_table(frames)
    marker_table = pandas.DataFrame(
        {"name": [m["name"] for m in markers], "data": [m["data"] for m in markers]},
        index=[m["t"] - frames[0]["t"] for m in markers],
    )
    return metadata, table, marker_table


def to_table(frames):
    """One row for each frame. Frames with fewer values than others have NaN in their place."""

    def block(name, rows):
        width = max(len(row) for row in rows)
        values = numpy.full((len(rows), width), numpy.nan)
        for target, row in zip(values, rows):
            target[: len(row)] = row
        return {name(i): values[:, i] for i in range(width)}

    columns = {
        "seq": numpy.array([frame["seq"] for frame in frames], dtype=numpy.uint64),
        "t": numpy.array([frame["t"] for frame in frames]),
        "stale": numpy.array([frame["stale"] for frame in frames]),
    }
    columns |= block("q_{}".format, [frame["q"] for frame in frames])
    columns |= block("touch_{}".format, [frame["touch"] for frame in frames])
    for kind in ("acc", "gyro"):
        rows = [[value for unit in frame["imu"] for value in unit[kind]] for frame in frames]
        columns |= block(lambda i, kind=kind: f"{kind}_{i // 3}_{'xyz'[i % 3]}", rows)
    return pandas.DataFrame(columns, index=columns["t"] - columns["t"][0])


def missing_frames(table):
    """How many numbers are missing between the frames."""
    # Compared before they are subtracted: these numbers have no sign.
    before, after = table["seq"].to_numpy()[:-1], table["seq"].to_numpy()[1:]
    return int(sum(int(b) - int(a) - 1 for a, b in zip(before, after) if b > a))


def plot(table, markers, title, output):
    import matplotlib

    matplotlib.use("Agg")  # into a file: no window, no display
    from matplotlib import pyplot

    figure, axes = pyplot.subplots(len(FINGERS) + 1, 1, sharex=True, figsize=(10, 12), layout="constrained")
    for finger, (axis, name) in enumerate(zip(axes, FINGERS)):
        for joint, joint_name in enumerate(JOINTS):
            column = f"q_{finger * len(JOINTS) + joint}"
            if column in table:
                axis.plot(table.index, numpy.degrees(table[column]), label=joint_name, linewidth=0.8)
        axis.set_ylabel(f"{name} (deg)")
    if axes[0].lines:
        axes[0].legend(loc="upper right", ncols=len(JOINTS), fontsize="small")
    pads = table.filter(regex="^touch_").to_numpy().T
    if pads.size:
        axes[-1].pcolormesh(table.index, numpy.arange(len(pads)), pads, shading="nearest", vmin=0, vmax=1)
    axes[-1].set_ylabel("pad")
    axes[-1].set_xlabel("time (s)")
    for axis in axes:
        low, high = 0, 1
        axis.fill_between(table.index, low, high, where=table["stale"], color="gray", alpha=0.3,
                          transform=axis.get_xaxis_transform())
        for time in markers.index:
            axis.axvline(time, color="black", linestyle="--", linewidth=0.8)
    # A dollar sign would begin a formula.
    figure.suptitle(title.replace("$", r"\$"))
    figure.savefig(output)


def report(metadata, table):
    print(f"{metadata.get('serial', 'unknown glove')}, {metadata.get('side', 'unknown')} hand")
    seconds = table.index[-1]
    print(f"{len(table)} frames in {seconds:.2f} s, {missing_frames(table)} missing, {int(table['stale'].sum())} stale")
    joints = numpy.degrees(table.filter(regex="^q_"))
    if not joints.empty:
        print(joints.describe().loc[["min", "mean", "max"]].round(1).to_string(max_cols=6))


def main():
    parser = argparse.ArgumentParser(description="Loads a tsl recording and plots it into a file.")
    parser.add_argument("recording", help="a .tsl file")
    parser.add_argument("--output", help="the picture: .png, .svg or .pdf")
    arguments = parser.parse_args()
    try:
        metadata, table, markers = load(arguments.recording)
        report(metadata, table)
        if arguments.output:
            plot(table, markers, arguments.recording, arguments.output)
    except (OSError, ValueError) as error:
        sys.exit(f"read_recording.py: {error}")


if __name__ == "__main__":
    main()
