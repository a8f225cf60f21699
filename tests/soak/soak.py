"""Runs the tool on virtual gloves for a long time, beside a watch on what its processes use.

Four gloves at 1000 cycles a second, each with faults that a line has: one is recorded without a break into a pipe
that this program reads, one in recordings of a minute that are played back and deleted, two are shown by
`tarsil stream`, as a table and as rows, and vanish now and then. Needs the standard library of
Python 3.11 only.
"""

import argparse
import asyncio
import csv
import errno
import os
import re
import signal
import sys
import tempfile
import time
from contextlib import asynccontextmanager
from pathlib import Path
from statistics import median

import growth
from process_figures import read_figures
from recording_check import RecordingCheck
from stream_check import RowCheck, TableCheck

HZ = 1000
# Of these, every cycle is either in the recording or counted as missing. (Bits that flip in a cycle's number would be
# neither; the streams get those.)
COUNTED_FAULTS = [
    "lost-cycles=0.002", "garbage=0.002", "splits=0.01", "silence=0.0001+0.2",
    "unknown-types=0.002", "unknown-blocks=0.002", "truncated-blocks=0.002",
]
STREAM_FAULTS = [*COUNTED_FAULTS, "lost-bytes=0.001", "flipped-bits=0.001", "silence=0.00003+2"]

# One fault at the first or the last cycle of a glove hides this many at most.
MOST_UNSEEN_AT_THE_ENDS = 8
# A recorder's queue may fill up once in a busy moment: 4096 frames of about 600 bytes. The others hold eight.
MEMORY_ALLOWANCE_KIB = {"record": 6144, "segments": 2048, "table": 1024, "rows": 1024}
# main, reader; with reconnection also pump and watchdog.
MOST_THREADS = {"record": 2, "segments": 2, "table": 4, "rows": 4}
# The standard streams and the port; the recorders' file.
MOST_DESCRIPTORS = {"record": 5, "segments": 5, "table": 4, "rows": 4}
LONGEST_PAUSE = 20  # seconds without anything shown, on however busy a machine


class SoakError(Exception):
    """The soak cannot go on."""


def command_line():
    parser = argparse.ArgumentParser(description=__doc__.partition("\n")[0])
    parser.add_argument("--seconds", type=float, required=True)
    parser.add_argument("--binaries", type=Path, required=True, help="directory of the built programs")
    parser.add_argument("--output", type=Path, required=True, help="directory for the table of samples")
    return parser.parse_args()


async def open_stream(descriptor):
    """A reader of a pipe's end, and the transport that closes it."""
    reader = asyncio.StreamReader(limit=1 << 20)
    transport, _ = await asyncio.get_running_loop().connect_read_pipe(
        lambda: asyncio.StreamReaderProtocol(reader), os.fdopen(descriptor, "rb", 0)
    )
    return reader, transport


@asynccontextmanager
async def child(*command, **options):
    """A process that does not outlive the block."""
    process = await asyncio.create_subprocess_exec(*map(str, command), stdin=asyncio.subprocess.DEVNULL, **options)
    try:
        yield process
    finally:
        if process.returncode is None:
            process.kill()
            await process.wait()


class Glove:
    """A virtual glove behind a link of its own."""

    def __init__(self, process, port):
        self._process = process
        self.port = port

    async def wait_until_free(self):
        """Whoever is not root is kept out of a line until the glove has noticed that the last host left it."""
        while True:
            try:
                os.close(os.open(self.port, os.O_RDWR | os.O_NOCTTY | os.O_CLOEXEC))
                return
            except OSError as error:
                if error.errno != errno.EBUSY:
                    raise
            await asyncio.sleep(0.05)

    async def account(self):
        """Ends the glove, unless it has ended with its last cycle; what it says that it has done."""
        if self._process.returncode is None:
            self._process.terminate()
        output, _ = await self._process.communicate()
        lines = [line.split() for line in output.decode().splitlines()]
        return {words[0]: int(words[1]) for words in lines if len(words) == 2}


class Verdicts:
    """What has been found out, in the order in which it is printed."""

    def __init__(self):
        self.lines = []
        self.failed = False

    def add(self, what, faults, detail):
        faults = [fault for fault in faults if fault]
        self.failed = self.failed or bool(faults)
        self.lines.append(f"  {'FAIL' if faults else 'ok':4}  {what}: {'; '.join(faults) or detail}")


class Watch:
    """Samples the processes that are registered under a name."""

    def __init__(self, interval, table):
        self.samples = {}  # name: figures in order
        self.shares = {}  # name: shares of a processor between samples
        self.longest_delay = 0.0  # by which a sample came late: how busy the machine was
        self._interval = interval
        self._processes = {}
        self._last = {}
        self._table = csv.writer(table)
        self._file = table
        self._table.writerow(
            ["seconds", "process", "pid", "rss_kib", "pss_kib", "descriptors", "threads", "cpu_seconds"]
        )

    @asynccontextmanager
    async def on(self, name, process):
        self._processes[name] = process
        try:
            yield
        finally:
            del self._processes[name]

    async def run(self):
        start = due = time.monotonic()
        while True:
            for name, process in list(self._processes.items()):
                self._sample(name, process, time.monotonic() - start)
            self._file.flush()
            due += self._interval
            await asyncio.sleep(due - time.monotonic())
            self.longest_delay = max(self.longest_delay, time.monotonic() - due)
            due = max(due, time.monotonic() - self._interval)

    def _sample(self, name, process, seconds):
        figures = read_figures(process.pid)
        if figures is None:
            return  # it has just ended; its own task finds out why
        self._table.writerow(
            [f"{seconds:.1f}", name, process.pid, figures.rss_kib, figures.pss_kib]
            + [figures.descriptors, figures.threads, f"{figures.cpu_seconds:.2f}"]
        )
        self.samples.setdefault(name, []).append(figures)
        before = self._last.get(name)
        if before and before[0] == process.pid:
            self.shares.setdefault(name, []).append(
                (figures.cpu_seconds - before[2].cpu_seconds) / (seconds - before[1])
            )
        self._last[name] = (process.pid, seconds, figures)


class Soak:
    def __init__(self, arguments, work):
        self._tool = arguments.binaries / "tarsil"
        self._glove_program = arguments.binaries / "tarsil-virtual-glove"
        self._seconds = arguments.seconds
        self._work = Path(work)
        self._over = asyncio.Event()
        self.verdicts = Verdicts()
        self.watch = None

    async def run(self, table):
        self.watch = Watch(min(2.0, max(0.25, self._seconds / 120)), table)
        try:
            async with asyncio.timeout(2 * self._seconds + 60):
                await self._run_roles()
        except TimeoutError:
            self.verdicts.add("end", ["the gloves did not send their cycles in twice the time"], "")

    async def _run_roles(self):
        try:
            async with asyncio.TaskGroup() as tasks:
                watching = tasks.create_task(self.watch.run())
                roles = [self._record(), self._segments(), self._table(), self._rows()]
                await asyncio.wait([tasks.create_task(role) for role in roles])
                watching.cancel()
        except* SoakError as group:
            for error in group.exceptions:
                self.verdicts.add("end", [str(error)], "")

    # One glove, one recorder, no break. The pipe keeps the disk free, and shows every line as it is written.
    async def _record(self):
        cycles = int(HZ * self._seconds)
        pipe = self._work / "record.tsl"
        os.mkfifo(pipe)
        reader, _ = await open_stream(os.open(pipe, os.O_RDONLY | os.O_NONBLOCK))
        check = RecordingCheck()
        async with self._glove("record", COUNTED_FAULTS, "--frames", cycles) as glove:
            async with self._recorder(pipe, glove) as record, self.watch.on("record", record):
                end = asyncio.create_task(record.communicate())
                reading = asyncio.create_task(self._read_recording(reader, check, cycles, record))
                # A recorder that fails before it opens its file never ends the reading.
                await asyncio.wait({end, reading}, return_when=asyncio.FIRST_COMPLETED)
                output, error = map(bytes.decode, await end)
                if check.lines == 0:
                    raise SoakError(f"record: {error or output}")
                await reading
            account = await glove.account()
        self._over.set()
        if record.returncode < 0:
            raise SoakError(f"record ended by signal {-record.returncode}")
        self._judge_record(check, account, output, error, cycles)

    async def _read_recording(self, reader, check, cycles, record):
        asked = False
        while data := await reader.read(1 << 16):
            check.feed(data)
            # The glove has nothing more to send; the recorder is asked to stop before it takes that for a loss.
            if not asked and check.stale_in_a_row >= 5 and check.span >= cycles - MOST_UNSEEN_AT_THE_ENDS:
                record.send_signal(signal.SIGINT)
                asked = True
        check.end()

    def _judge_record(self, check, account, output, error, cycles):
        unseen = account["cycles"] - check.span
        faults = list(check.problems)
        # On a busy machine the silence of the glove may come to the recorder's ears before the request to stop.
        if error != "Error: SerialSource stream closed\n" or unseen > MOST_UNSEEN_AT_THE_ENDS:
            faults += self._summary_faults(check, output, error)
        if account["cycles"] != cycles or account["cycles"] != account["packets"] + account["cycles_lost"]:
            faults.append(f"the glove's own account is wrong: {account}")
        if not 0 <= unseen <= min(MOST_UNSEEN_AT_THE_ENDS, account["cycles_lost"]):
            faults.append(f"{check.fresh} frames + {check.dropped} dropped are not the glove's {cycles} cycles")
        detail = (
            f"{check.fresh} frames + {check.dropped} dropped + {unseen} before the first or after the last"
            f" = {cycles} cycles of the glove, which lost {account['cycles_lost']} on purpose; {check.stale} repetitions"
        )
        self.verdicts.add("account of the long recording", faults, detail)

    @staticmethod
    def _summary_faults(check, output, error):
        """Compares what `record` says at its end with what is in the recording."""
        saved = re.search(r"^Saved (\d+) frames  -?\d+\.\d\d s$", output, re.MULTILINE)
        dropped = re.search(r"^WARNING: (\d+) hardware cycle", error)
        whole = "USB integrity: OK" in output
        if not saved or bool(dropped) == whole:
            return [f"record said: {output}{error}"]
        said = int(saved[1]), int(dropped[1]) if dropped else 0
        if said != (check.frames, check.dropped):
            return [f"record said {said[0]} frames and {said[1]} dropped, there are {check.frames} and {check.dropped}"]
        return []

    # One glove, one recorder after the other. Each recording is played back and deleted.
    async def _segments(self):
        length = min(60.0, max(3.0, self._seconds / 4))
        count = frames = dropped = 0
        faults = []
        async with self._glove("segments", COUNTED_FAULTS) as glove:
            while not self._over.is_set() and not faults:
                path = self._work / f"segment{count}.tsl"
                await glove.wait_until_free()
                # Recorders end in both ways by turns: at their limit, and on request.
                limit = int(HZ * length) if count % 2 == 0 else 0
                check = RecordingCheck()
                faults = await self._segment(path, glove, limit, length, check)
                path.unlink(missing_ok=True)
                count, frames, dropped = count + 1, frames + check.frames, dropped + check.dropped
        if frames == 0:
            faults.append("no frames")
        detail = f"{count} recordings, {frames} frames, {dropped} dropped; all that is missing was reported, all play back"
        self.verdicts.add("short recordings", faults, detail)

    async def _segment(self, path, glove, limit, length, check):
        async with self._recorder(path, glove, "--frames", limit) as record, self.watch.on("segments", record):
            # From its first line on it takes a request to stop.
            opening = await record.stdout.readline()
            end = asyncio.create_task(record.communicate())
            stop_at = time.monotonic() + length
            asked = False
            while not end.done():
                await asyncio.wait({end}, timeout=0.2)
                if not asked and (self._over.is_set() or (limit == 0 and time.monotonic() >= stop_at)):
                    record.send_signal(signal.SIGINT)
                    asked = True
            rest, error = await end
        output, error = (opening + rest).decode(), error.decode()
        if not path.exists():
            return [f"no recording: {error}"]
        # In pieces, so that this program's other tasks go on beside it.
        with open(path, "rb") as file:
            while data := file.read(1 << 15):
                check.feed(data)
                await asyncio.sleep(0)
        check.end()
        faults = check.problems + self._summary_faults(check, output, error)
        if record.returncode != 0:
            faults.append(f"status {record.returncode}: {error}")
        return faults or await self._playback_faults(path, check.frames)

    async def _playback_faults(self, path, frames):
        pipe = asyncio.subprocess.PIPE
        async with child(self._tool, "replay", path, "--speed", "0", stdout=pipe, stderr=pipe) as replay:
            output, error = map(bytes.decode, await replay.communicate())
        whole = f" — {frames} frames  " in output and output.endswith(f"\nReplayed {frames} frames.\n")
        return [] if whole else [f"replay of {frames} frames said: {output[:200]} ... {output[-200:]}{error}"]

    # The table ends on Ctrl+C.
    async def _table(self):
        await self._stream("table", TableCheck(), [], lambda process, transport: process.send_signal(signal.SIGINT), 0)

    # Rows end with whoever reads them.
    async def _rows(self):
        await self._stream(
            "rows", RowCheck(), ["--raw"], lambda process, transport: transport.close(), -signal.SIGPIPE
        )

    async def _stream(self, name, check, options, end, status):
        period = min(20.0, max(2.0, self._seconds / 5))
        ours, theirs = os.pipe()
        reader, transport = await open_stream(ours)
        async with self._glove(name, STREAM_FAULTS, "--replug", f"{period}:1") as glove:
            command = [self._tool, "stream", "--port", glove.port, *options]
            async with child(*command, stdout=theirs, stderr=asyncio.subprocess.PIPE) as stream:
                os.close(theirs)
                async with self.watch.on(name, stream):
                    reading = asyncio.create_task(self._read_stream(reader, check))
                    over = asyncio.create_task(self._over.wait())
                    await asyncio.wait({reading, over}, return_when=asyncio.FIRST_COMPLETED)
                    over.cancel()
                    if not self._over.is_set():
                        error = (await stream.communicate())[1].decode()
                        raise SoakError(f"stream ({name}) ended with status {stream.returncode}: {error}")
                    end(stream, transport)
                    _, error = await stream.communicate()
                reading.cancel()
            account = await glove.account()
        faults = list(check.problems)
        if stream.returncode != status or error:
            faults.append(f"status {stream.returncode}, not {status}: {error.decode()}")
        if check.longest_pause > LONGEST_PAUSE:
            faults.append(f"nothing shown for {check.longest_pause:.1f} s")
        if not 0 < account["replugs"] <= account["starts"]:
            faults.append(f"{account['replugs']} replugs, but started {account['starts']} times")
        detail = (
            f"{check.shown} {name if name == 'rows' else 'tables'}, longest pause {check.longest_pause:.1f} s; glove:"
            f" {account['cycles']} cycles, {account['replugs']} replugs, {account['starts']} starts,"
            f" {account['damaged']} damaged packets"
        )
        self.verdicts.add(f"stream ({name})", faults, detail)

    @staticmethod
    async def _read_stream(reader, check):
        while data := await reader.read(1 << 16):
            check.feed(data)

    @asynccontextmanager
    async def _glove(self, name, faults, *options):
        port = self._work / f"glove-{name}"
        command = [self._glove_program, "--link", port, "--hz", HZ, "--seed", len(name), *options]
        for fault in faults:
            command += ["--fault", fault]
        async with child(*command, stdout=asyncio.subprocess.PIPE) as process:
            if not (await process.stdout.readline()).startswith(b"port "):
                raise SoakError(f"the glove for {name} did not start")
            async with self.watch.on(f"glove-{name}", process):
                yield Glove(process, port)

    @asynccontextmanager
    async def _recorder(self, path, glove, *options):
        pipe = asyncio.subprocess.PIPE
        async with child(
            self._tool, "record", path, "--port", glove.port, *options, stdout=pipe, stderr=pipe
        ) as record:
            yield record


def judge_figures(watch, verdicts):
    for name in MEMORY_ALLOWANCE_KIB:
        samples = watch.samples.get(name, [])
        if not samples:
            verdicts.add(f"figures of {name}", ["no samples"], "")
            continue
        faults = [
            growth.memory_fault([sample.rss_kib for sample in samples], MEMORY_ALLOWANCE_KIB[name]),
            growth.count_fault([sample.threads for sample in samples], MOST_THREADS[name], "threads"),
            growth.count_fault([sample.descriptors for sample in samples], MOST_DESCRIPTORS[name], "descriptors"),
            growth.cpu_fault(watch.shares.get(name, [])),
        ]
        verdicts.add(f"figures of {name}", faults, "no growth")


def print_figures(watch):
    print(f"{'process':16} {'figure':16} {'first':>9} {'median':>9} {'last':>9} {'max':>9}")
    for name, samples in sorted(watch.samples.items()):
        rows = {
            "rss KiB": [sample.rss_kib for sample in samples],
            "pss KiB": [sample.pss_kib for sample in samples if sample.pss_kib is not None],
            "descriptors": [sample.descriptors for sample in samples],
            "threads": [sample.threads for sample in samples],
            "processor %": [100 * share for share in watch.shares.get(name, [])],
        }
        for figure, values in rows.items():
            if not values:
                continue
            cells = [values[0], median(values), values[-1], max(values)]
            digits = 1 if figure.endswith("%") else 0
            print(f"{name:16} {figure:16} " + " ".join(f"{cell:9.{digits}f}" for cell in cells))


async def main():
    arguments = command_line()
    arguments.output.mkdir(parents=True, exist_ok=True)
    task = asyncio.current_task()
    # Ctrl+C and SIGTERM end the children first.
    asyncio.get_running_loop().add_signal_handler(signal.SIGTERM, task.cancel)
    samples = arguments.output / "samples.csv"
    print(f"soak: {arguments.seconds:.0f} s; samples go to {samples}", flush=True)
    began = time.monotonic()
    with open(samples, "w", encoding="utf-8", newline="") as table, tempfile.TemporaryDirectory(
        dir=arguments.output
    ) as work:
        soak = Soak(arguments, work)
        await soak.run(table)
    print_figures(soak.watch)
    judge_figures(soak.watch, soak.verdicts)
    print(f"\ntook {time.monotonic() - began:.0f} s; a sample came up to {soak.watch.longest_delay:.2f} s late")
    print("\n".join(soak.verdicts.lines))
    print("soak: FAILED" if soak.verdicts.failed else "soak: passed")
    return 1 if soak.verdicts.failed else 0


if __name__ == "__main__":
    try:
        sys.exit(asyncio.run(main()))
    except (KeyboardInterrupt, asyncio.CancelledError):
        sys.exit("soak: interrupted")
