"""What a running process uses, as /proc tells it: memory, descriptors, threads and processor time."""

import os
from dataclasses import dataclass

_TICKS = os.sysconf("SC_CLK_TCK")


@dataclass(frozen=True)
class Figures:
    rss_kib: int
    pss_kib: int | None  # None where the kernel does not show it
    descriptors: int
    threads: int
    cpu_seconds: float


def read_figures(pid):
    """The figures of a process, or None if there is none or it has ended."""
    try:
        status = _read_fields(f"/proc/{pid}/status")
        if "VmRSS" not in status:
            return None  # ended, and not waited for yet
        return Figures(
            rss_kib=status["VmRSS"],
            pss_kib=_read_pss(pid),
            descriptors=len(os.listdir(f"/proc/{pid}/fd")),
            threads=status["Threads"],
            cpu_seconds=_read_cpu_seconds(pid),
        )
    except (FileNotFoundError, ProcessLookupError):
        return None


def _read_fields(path):
    """The lines "Name:  123 ..." of a file, as numbers."""
    fields = {}
    with open(path, encoding="utf-8") as file:
        for line in file:
            name, _, rest = line.partition(":")
            words = rest.split()
            if words and words[0].isdigit():
                fields[name] = int(words[0])
    return fields


def _read_pss(pid):
    try:
        return _read_fields(f"/proc/{pid}/smaps_rollup").get("Pss")
    except PermissionError:
        return None


def _read_cpu_seconds(pid):
    with open(f"/proc/{pid}/stat", encoding="utf-8") as file:
        # The program's name, in parentheses, may hold blanks.
        words = file.read().rpartition(")")[2].split()
    user, system = words[11:13]
    return (int(user) + int(system)) / _TICKS
