"""Reads what `tarsil stream` shows while it shows it: whole rows, whole tables, and never a long pause."""

import re
import time

_MOST_PROBLEMS = 10
# The time takes a column more than its heading in this century.
_ROW = re.compile(rb"\d{10}\.\d{4}(?=.{30}$)(?: +-?\d+\.\d{4}){3}")
_CONNECTING = re.compile(rb"Connecting to \S+\.\.\.")
_TABLE = [
    re.compile(rb"\x1b\[(?:1A\x1b\[2K|8A\x1b\[J)\xe2\x94\x80\xe2\x94\x80 frame (\d+)  t=\d+\.\d{3}  stale=(?:yes|no )"),
    re.compile(rb"  finger  \|.*pad5"),
    re.compile(rb"  -{81}"),
    *[
        re.compile(rb"  %b \|(?: *-?\d+\.\d\xc2\xb0){4} {9}\|(?: +-?\d+\.\d\d){6}" % finger)
        for finger in (b"thumb", b"index", b"middl", b"ring ", b"pinky")
    ],
]


class StreamCheck:
    """Takes output in pieces of any size. `shown` counts rows or tables, `problems` lists what is wrong with them."""

    def __init__(self):
        self.problems = []
        self.shown = 0
        self.longest_pause = 0.0  # seconds without anything new
        self._lines = 0
        self._rest = b""
        self._last_came = time.monotonic()

    def feed(self, data):
        now = time.monotonic()
        self.longest_pause = max(self.longest_pause, now - self._last_came)
        self._last_came = now
        *lines, self._rest = (self._rest + data).split(b"\n")
        for line in lines:
            self._lines += 1
            if not self._is_right(line) and len(self.problems) < _MOST_PROBLEMS:
                self.problems.append(f"line {self._lines}: {line!r}")


class RowCheck(StreamCheck):
    """The rows of `stream --raw`, behind two lines of heading."""

    def _is_right(self, line):
        if self._lines <= 2:
            return len(line) == 44
        self.shown += 1
        return _ROW.fullmatch(line) is not None


class TableCheck(StreamCheck):
    """The tables of `stream`, behind the line that says what is being connected to."""

    def __init__(self):
        super().__init__()
        self.frame = 0  # number in the newest heading

    def _is_right(self, line):
        if self._lines == 1:
            return _CONNECTING.fullmatch(line) is not None
        row = (self._lines - 2) % len(_TABLE)
        match = _TABLE[row].fullmatch(line)
        if row == 0 and match:
            frame, before = int(match[1]), self.frame
            self.frame = frame
            self.shown += 1
            return frame > before
        return match is not None
