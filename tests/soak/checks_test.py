"""The judgements of the soak: what it takes for growth, and which accounts it takes for wrong."""

import json
import random
import unittest

import growth
from recording_check import RecordingCheck
from stream_check import RowCheck, TableCheck

HEADER = b'{"type":"header","metadata":{"serial": "TSL-1"}}\n'


def frame(seq, stale=False, joints=20):
    return (
        json.dumps(
            {
                "type": "frame",
                "seq": seq,
                "t": 1.5,
                "q": [0.5] * joints,
                "touch": [0.25] * 30,
                "imu": [{"acc": [0, 0, 1], "gyro": [0, 0, 0]}] * 5,
                "stale": stale,
            }
        ).encode()
        + b"\n"
    )


def check_recording(data, piece=1000):
    check = RecordingCheck()
    for at in range(0, len(data), piece):
        check.feed(data[at : at + piece])
    check.end()
    return check


class MemoryGrowth(unittest.TestCase):
    def test_steady_memory_is_right(self):
        noise = random.Random(1)
        self.assertIsNone(growth.memory_fault([9000 + noise.randrange(60) for _ in range(300)], 1024))

    def test_growth_during_the_warm_up_is_right(self):
        self.assertIsNone(growth.memory_fault([100 * k for k in range(20)] + [2000] * 80, 1024))

    def test_a_single_rise_within_the_allowance_is_right(self):
        self.assertIsNone(growth.memory_fault([9000] * 150 + [11000] * 150, 4096))

    def test_a_rise_beyond_the_allowance_is_wrong(self):
        self.assertIn("grown by more than 1024 KiB", growth.memory_fault([9000] * 150 + [11000] * 150, 1024))

    def test_a_slow_leak_is_wrong_within_any_allowance(self):
        self.assertIn("keeps rising", growth.memory_fault([9000 + k // 2 for k in range(300)], 100000))

    def test_a_leak_shows_through_noise(self):
        noise = random.Random(1)
        samples = [9000 + 3 * k + noise.randrange(100) for k in range(300)]
        self.assertIn("keeps rising", growth.memory_fault(samples, 100000))

    def test_too_few_samples_are_wrong(self):
        self.assertEqual(growth.memory_fault([9000] * 12, 1024), "too few samples")


class ProcessorGrowth(unittest.TestCase):
    def test_a_busy_spell_is_right(self):
        self.assertIsNone(growth.cpu_fault([0.05] * 100 + [0.2] * 50 + [0.05] * 100))

    def test_work_that_takes_ever_longer_is_wrong(self):
        self.assertIn("keeps rising", growth.cpu_fault([0.05 + 0.001 * k for k in range(200)]))


class Counts(unittest.TestCase):
    def test_one_thread_too_many_is_wrong_however_short(self):
        self.assertIsNone(growth.count_fault([2, 2, 1], 2, "threads"))
        self.assertEqual(growth.count_fault([2, 3, 2], 2, "threads"), "3 threads, at most 2 expected")


class Recording(unittest.TestCase):
    def test_account_of_fresh_stale_and_missing_frames(self):
        check = check_recording(HEADER + frame(0) + frame(1) + frame(1, stale=True) + frame(5))
        self.assertEqual(check.problems, [])
        self.assertEqual((check.fresh, check.stale, check.dropped, check.span), (3, 1, 3, 6))

    def test_pieces_may_end_anywhere(self):
        data = HEADER + frame(0) + frame(1)
        for piece in range(1, 40):
            check = check_recording(data, piece)
            self.assertEqual((check.problems, check.frames), ([], 2))

    def test_what_is_wrong_is_named_with_its_line(self):
        for data, problem in [
            (frame(0), "line 1: not a header"),
            (HEADER + b"{nonsense\n", "line 2: not JSON"),
            (HEADER + b'{"type":"marker"}\n', "line 2: not a frame"),
            (HEADER + frame(0, joints=19), "line 2: wrong number of values"),
            (HEADER + frame(0) + frame(0), "line 3: cycle 0 after cycle 0"),
            (HEADER + frame(3) + frame(2), "line 3: cycle 2 after cycle 3"),
            (HEADER + frame(3) + frame(4, stale=True), "line 3: a repetition of cycle 4 after cycle 3"),
            (HEADER + frame(0) + frame(1)[:-1], "line 2: the last line has no end"),
        ]:
            self.assertEqual(check_recording(data).problems, [problem])


class Streams(unittest.TestCase):
    HEADING = b" " * 13 + b"t" + b" " * 6 + b"q[0]" + b" " * 6 + b"q[1]" + b"  touch[0]\n" + b"-" * 44 + b"\n"
    ROW = b"1795236754.3439   -0.1372    0.4587    0.1300\n"

    def table(self, before, number):
        fingers = [b"thumb", b"index", b"middl", b"ring ", b"pinky"]
        return (
            before
            + "── frame %d  t=1795226232.239  stale=no \n".encode() % number
            + b"  finger  |    MCPa    MCPf     PIP     DIP  (deg)  | pad0 pad1 pad2 pad3 pad4 pad5\n"
            + b"  " + b"-" * 81 + b"\n"
            + b"".join(
                b"  " + finger + " |    6.0°   71.8°  -78.2°   52.1°         | 0.00 0.00 0.00 0.00 0.22 0.00\n".encode()
                for finger in fingers
            )
        )

    def test_rows(self):
        check = RowCheck()
        check.feed(self.HEADING + self.ROW + self.ROW[:20])
        check.feed(self.ROW[20:])
        self.assertEqual((check.problems, check.shown), ([], 2))
        check.feed(b"1795236754.3439   -0.1372    0.45   0.1300\n")
        self.assertEqual(len(check.problems), 1)

    def test_tables(self):
        check = TableCheck()
        check.feed(b"Connecting to TSL-1...\n" + self.table(b"\x1b[1A\x1b[2K", 1) + self.table(b"\x1b[8A\x1b[J", 7))
        self.assertEqual((check.problems, check.shown, check.frame), ([], 2, 7))
        check.feed(self.table(b"\x1b[8A\x1b[J", 7))
        self.assertEqual(len(check.problems), 1)


if __name__ == "__main__":
    unittest.main()
