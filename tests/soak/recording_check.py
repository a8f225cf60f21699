"""Reads a tsl recording while it is being written, and keeps its account: nothing may be missing but what is counted."""

import json

_FRAME_KEYS = ["type", "seq", "t", "q", "touch", "imu", "stale"]
_LENGTHS = {"q": 20, "touch": 30, "imu": 5}
_MOST_PROBLEMS = 10


class RecordingCheck:
    """Takes the bytes of a recording in pieces of any size. What is wrong with them is listed in `problems`."""

    def __init__(self):
        self.problems = []
        self.lines = 0  # of any kind
        self.fresh = 0  # frames of a hardware cycle of their own
        self.stale = 0  # frames that repeat the one before
        self.dropped = 0  # cycles missing between frames
        self.stale_in_a_row = 0
        self.last_seq = None
        self._rest = b""

    @property
    def frames(self):
        return self.fresh + self.stale

    @property
    def span(self):
        """Hardware cycles from the first frame to the last one, both included."""
        return self.fresh + self.dropped

    def feed(self, data):
        *lines, self._rest = (self._rest + data).split(b"\n")
        for line in lines:
            self._take_line(line)

    def end(self):
        """To be called when the recording is complete."""
        if self._rest:
            self._complain("the last line has no end")

    def _take_line(self, line):
        self.lines += 1
        try:
            record = json.loads(line)
        except ValueError:
            self._complain("not JSON")
            return
        if self.lines == 1:
            if record.get("type") != "header" or "serial" not in record.get("metadata", {}):
                self._complain("not a header")
        elif list(record) != _FRAME_KEYS or record["type"] != "frame":
            self._complain("not a frame")
        else:
            self._take_frame(record)

    def _take_frame(self, frame):
        if any(len(frame[key]) != length for key, length in _LENGTHS.items()):
            self._complain("wrong number of values")
        seq = frame["seq"]
        if frame["stale"]:
            self.stale += 1
            self.stale_in_a_row += 1
            if seq != self.last_seq:
                self._complain(f"a repetition of cycle {seq} after cycle {self.last_seq}")
            return
        self.fresh += 1
        self.stale_in_a_row = 0
        if self.last_seq is not None:
            if seq <= self.last_seq:
                self._complain(f"cycle {seq} after cycle {self.last_seq}")
            else:
                self.dropped += seq - self.last_seq - 1
        self.last_seq = seq

    def _complain(self, text):
        if len(self.problems) < _MOST_PROBLEMS:
            self.problems.append(f"line {self.lines}: {text}")
