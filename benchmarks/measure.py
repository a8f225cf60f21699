"""Runs what measures. Every function gives a dictionary from the name of a measurement to its value."""

import contextlib
import json
import os
import pathlib
import pty
import signal
import statistics
import subprocess
import threading
import time

NANOSECONDS_PER = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}

# Repetitions and shortest time of one, in seconds: enough that the median stands still.
EFFORT = {
    "render": (15, 0.05),
    "write": (15, 0.1),
    "load": (7, 0.01),
    "decode": (11, 0.03),
    "analysis": (11, 0.05),
}
QUICK_EFFORT = (1, 0.001)

GLOVE_HZ = 1000
# How long a command runs for its share of a core to be known.
PROCESS_SECONDS = 5.0
QUICK_PROCESS_SECONDS = 0.5
# How long a command may take to say that it is there, and to end.
PATIENCE_SECONDS = 60.0


def google_benchmark(part: str, build: pathlib.Path, quick: bool) -> dict[str, float]:
    """Median of the processor time over all repetitions, in nanoseconds, and of the bytes per second. The repetitions
    of all benchmarks of a program are mixed, so that a disturbance does not meet only one of them."""
    repetitions, seconds = QUICK_EFFORT if quick else EFFORT[part]
    command = [
        build / "bin" / f"tarsil_{part}_benchmark",
        f"--benchmark_repetitions={repetitions}",
        f"--benchmark_min_time={seconds}",
        "--benchmark_enable_random_interleaving=true",
        "--benchmark_format=json",
    ]
    report = json.loads(run(command, build))
    times: dict[str, list[float]] = {}
    rates: dict[str, list[float]] = {}
    for entry in report["benchmarks"]:
        if entry["run_type"] != "iteration":
            continue
        name = entry["run_name"].removesuffix("/process_time")
        if entry.get("error_occurred"):
            raise RuntimeError(f"{name}: {entry['error_message']}")
        times.setdefault(name, []).append(entry["cpu_time"] * NANOSECONDS_PER[entry["time_unit"]])
        if "bytes_per_second" in entry:
            rates.setdefault(name + " rate", []).append(entry["bytes_per_second"])
    return {name: statistics.median(values) for name, values in (times | rates).items()}


def own_program(part: str, build: pathlib.Path) -> dict[str, float]:
    return json.loads(run([build / "bin" / f"tarsil_{part}_benchmark"], build))


def run(command: list, build: pathlib.Path) -> str:
    """What a program prints. Its files go to the build directory: elsewhere, a temporary file may be none on a disk."""
    scratch = build / "tmp"
    scratch.mkdir(exist_ok=True)
    result = subprocess.run(command, env=os.environ | {"TMPDIR": str(scratch)}, stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE, text=True, check=False)
    if result.returncode != 0:
        raise RuntimeError(f"{command[0]} has failed:\n{result.stderr}")
    return result.stdout


def processes(build: pathlib.Path, quick: bool) -> dict[str, float]:
    """Share of one core that a whole command takes, its start included, while a glove sends 1000 cycles a second."""
    seconds = QUICK_PROCESS_SECONDS if quick else PROCESS_SECONDS
    scratch = build / "tmp"
    scratch.mkdir(exist_ok=True)
    return {
        "process/record": record(build, scratch, seconds),
        "process/record floor": hand_over(build, scratch, seconds, hops=1),
        "process/stream": stream(build, scratch, seconds),
        "process/stream floor": hand_over(build, scratch, seconds, hops=2),
    }


@contextlib.contextmanager
def glove(build: pathlib.Path, link: pathlib.Path):
    """A virtual glove behind `link`."""
    link.unlink(missing_ok=True)
    command = [build / "bin" / "tarsil-virtual-glove", "--hz", str(GLOVE_HZ), "--link", link]
    with subprocess.Popen(command, stdout=subprocess.PIPE, text=True) as process:
        try:
            process.stdout.readline()  # the port is there
            yield
        finally:
            process.send_signal(signal.SIGINT)
            process.communicate(timeout=PATIENCE_SECONDS)


def share_of_core(process: subprocess.Popen, begin: float) -> float:
    """Waits for the end of a command that must succeed."""
    guard = threading.Timer(PATIENCE_SECONDS, process.kill)
    guard.start()
    _, status, usage = os.wait4(process.pid, 0)
    wall = time.monotonic() - begin
    guard.cancel()
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        raise RuntimeError(f"{process.args[1]} has ended with {process.returncode}")
    return (usage.ru_utime + usage.ru_stime) / wall


def record(build: pathlib.Path, scratch: pathlib.Path, seconds: float) -> float:
    link = scratch / "recorded-glove"
    file = scratch / "recorded.tsl"
    frames = int(seconds * GLOVE_HZ)
    command = [build / "bin" / "tarsil", "record", file, "--port", link, "--frames", str(frames)]
    with glove(build, link):
        begin = time.monotonic()
        process = subprocess.Popen(command, stdout=subprocess.DEVNULL)
        share = share_of_core(process, begin)
    with open(file, encoding="utf-8") as lines:
        written = sum(1 for line in lines if line.startswith('{"type":"frame"'))
    file.unlink()
    if written != frames:
        raise RuntimeError(f"record has written {written} frames of {frames}")
    return share


def hand_over(build: pathlib.Path, scratch: pathlib.Path, seconds: float, hops: int) -> float:
    """What waking as many threads costs on this machine, without any work."""
    link = scratch / "floor-glove"
    command = [build / "bin" / "tarsil_hand_over_floor", link, str(int(seconds * GLOVE_HZ)), str(hops)]
    with glove(build, link):
        begin = time.monotonic()
        return share_of_core(subprocess.Popen(command), begin)


def stream(build: pathlib.Path, scratch: pathlib.Path, seconds: float) -> float:
    """On a terminal of its own, which takes everything at once."""
    link = scratch / "streamed-glove"
    terminal, line = pty.openpty()
    shown = threading.Event()

    def drain():
        with contextlib.suppress(OSError):  # the terminal's other side has been closed
            while b"frame" not in os.read(terminal, 65536):
                pass
            shown.set()
            while os.read(terminal, 65536):
                pass

    drainer = threading.Thread(target=drain)
    with glove(build, link):
        begin = time.monotonic()
        process = subprocess.Popen([build / "bin" / "tarsil", "stream", "--port", link], stdout=line)
        os.close(line)
        drainer.start()
        if not shown.wait(PATIENCE_SECONDS):
            process.kill()
        time.sleep(seconds)
        process.send_signal(signal.SIGINT)
        share = share_of_core(process, begin)
    drainer.join()
    os.close(terminal)
    return share
