#!/usr/bin/env python3
"""Plots live frames: reads the rows of `tarsil stream --raw` from a pipe.

    tarsil stream --raw | examples/python/live_plot.py
    tarsil stream --raw --count 500 | examples/python/live_plot.py --frames 500 --output live.png

Without --output a window follows the glove. With it, nothing is shown: the picture is saved when --frames rows have come
or the stream has ended, also by Ctrl+C.
"""

import argparse
import collections
import math
import os
import sys
import threading

NAMES = ("q[0]", "q[1]", "touch[0]")


def rows(lines):
    """The rows as tuples of the time and the values. Headings, rules and a row that was cut are passed over."""
    for line in lines:
        words = line.split()
        try:
            values = tuple(float(word) for word in words)
        except ValueError:
            continue
        if len(values) == 1 + len(NAMES) and line.endswith("\n"):
            yield values


def draw(pyplot, history):
    """A figure with two panels, and the function that redraws it from the history."""
    figure, (angles, pressure) = pyplot.subplots(2, 1, sharex=True, figsize=(9, 6), layout="constrained")
    lines = [angles.plot([], [], label=name)[0] for name in NAMES[:2]]
    lines += pressure.plot([], [], label=NAMES[2], color="tab:green")
    angles.set_ylabel("degrees")
    pressure.set_ylabel("pressure")
    pressure.set_xlabel("time (s)")
    for axis in (angles, pressure):
        axis.legend(loc="upper left")

    def redraw():
        taken = list(history)
        if not taken:
            return
        times = [row[0] - taken[0][0] for row in taken]
        for i, line in enumerate(lines):
            factor = 180 / math.pi if i < 2 else 1
            line.set_data(times, [row[i + 1] * factor for row in taken])
        for axis in (angles, pressure):
            axis.relim()
            axis.autoscale_view()

    return figure, redraw


def save(arguments, history):
    import matplotlib

    matplotlib.use("Agg")
    from matplotlib import pyplot

    try:
        for row in rows(sys.stdin):
            history.append(row)
            if arguments.frames and len(history) == arguments.frames:
                break
    except KeyboardInterrupt:
        pass
    if not history:
        sys.exit("live_plot.py: no rows on standard input; run: tarsil stream --raw | live_plot.py")
    figure, redraw = draw(pyplot, history)
    redraw()
    figure.savefig(arguments.output)
    print(f"{len(history)} rows, {history[-1][0] - history[0][0]:.2f} s")


def show(history):
    from matplotlib import pyplot
    from matplotlib.animation import FuncAnimation

    def read():
        for row in rows(sys.stdin):
            history.append(row)

    # Reading must not wait for drawing: the stream would drop frames.
    threading.Thread(target=read, daemon=True).start()
    figure, redraw = draw(pyplot, history)
    animation = FuncAnimation(figure, lambda _: redraw(), interval=50, cache_frame_data=False)
    pyplot.show()
    del animation
    # The reader may wait in a read that nothing ends.
    os._exit(0)


def main():
    parser = argparse.ArgumentParser(description="Plots the rows of tarsil stream --raw.")
    parser.add_argument("--frames", type=int, default=0, help="rows to plot; in a window, the rows in view (default 1000)")
    parser.add_argument("--output", help="save the picture there instead of showing a window")
    arguments = parser.parse_args()
    if arguments.output:
        save(arguments, [])
    else:
        show(collections.deque(maxlen=arguments.frames or 1000))


if __name__ == "__main__":
    try:
        main()
    except KeyboardInterrupt:
        pass
