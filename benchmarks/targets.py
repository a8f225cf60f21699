"""What is compared with what, and how good it has to be. Names of measurements are those that the programs print."""

from dataclasses import dataclass
from typing import Callable, Optional

NANOSECONDS_PER = {"ns": 1.0, "us": 1e3, "ms": 1e6}


def as_time(unit: str) -> Callable[[float], str]:
    """Shows nanoseconds in a unit."""
    return lambda value: f"{value / NANOSECONDS_PER[unit]:,.{0 if unit == 'ns' else 1}f} {unit}"


def as_microseconds(value: float) -> str:
    return f"{value:,.0f} us"


def as_rate(value: float) -> str:
    return f"{value / 1e9:.2f} GB/s"


def as_percent(value: float) -> str:
    return f"{100 * value:.2f} %"


def as_number(value: float) -> str:
    return f"{value:.2f}"


@dataclass(frozen=True)
class Row:
    """One line of the table."""

    part: str
    path: str
    ours: str
    show: Callable[[float], str]
    against: str = ""
    # Of several, the best one counts.
    theirs: tuple[str, ...] = ()
    at_least: Optional[float] = None
    at_most: Optional[float] = None
    # A measurement and a factor: ours is good enough in any case when it takes no more than so many times that. Where the
    # floor is high, no program reaches a target that leaves it out.
    floor: Optional[tuple[str, float]] = None
    # What the target is about: "theirs/ours" of times says how many times faster this is, "ours/theirs" of times how many
    # times the cost of a floor, "ours/theirs" of rates how many times faster again; "ours" is the number itself.
    ratio: str = "theirs/ours"


def rows() -> list[Row]:
    return render() + write() + load() + memory() + decode() + garbage() + analysis() + whole()


def render() -> list[Row]:
    def row(against: str, theirs: str, at_least: Optional[float] = None) -> Row:
        return Row("render", "render a `tsl` line", "render_tsl/ours", as_time("ns"), against,
                   ("render_tsl/" + theirs,), at_least)

    return [
        row("`std::to_chars`, flat buffer", "to_chars", 9),
        row("`std::ostringstream`, used again", "ostringstream", 45),
        row("`snprintf`", "snprintf"),
        row("fmt, compiled formats", "fmt"),
        row("double-conversion", "double-conversion"),
        Row("render", "render a `csv` row", "render_csv/ours", as_time("ns")),
    ]


def write() -> list[Row]:
    return [
        Row("write", "write a `tsl` frame", "write_tsl/ours", as_time("ns"), "floor: `write` of a ready line",
            ("write_tsl/floor",), at_most=1.9, ratio="ours/theirs"),
        Row("write", "write a `tsl` frame", "write_tsl/ours", as_time("ns"), "`ostringstream`, `ofstream`, flush",
            ("write_tsl/ofstream",), at_least=17, floor=("write_tsl/floor", 1.9)),
        Row("write", "write a `csv` frame", "write_csv/ours", as_time("ns")),
    ]


SIMDJSON = ("simdjson, on demand, line by line", "simdjson, on demand, as a stream", "simdjson, as a tree")


def load() -> list[Row]:
    def row(against: str, theirs: tuple[str, ...], at_least: Optional[float] = None) -> Row:
        return Row("load", "load 200,000 frames", "load/ours", as_time("ms"), against,
                   tuple("load/" + name for name in theirs), at_least)

    return [
        row("simdjson, its fastest way", SIMDJSON, 2.6),
        *(row(name, (name,)) for name in SIMDJSON),
        row("RapidJSON, events in place", ("RapidJSON",)),
        row("`std::from_chars`", ("from_chars",)),
        Row("load", "load 200,000 frames", "load/ours", as_time("ms"), "floor: `read`, `memchr` of the line ends",
            ("load/floor",), ratio="ours/theirs"),
        Row("load", "load 200,000 frames", "load/ours", as_time("ms"), "floor: ready frames copied",
            ("load/ready frames",), ratio="ours/theirs"),
    ]


def memory() -> list[Row]:
    def value(path: str, name: str, at_most: float) -> Row:
        return Row("memory", path, name, as_number, at_most=at_most, ratio="ours")

    return [
        value("load, peak memory per memory of the frames", "peak of loading/ours", 1.06),
        Row("memory", "load, peak memory per memory of the frames", "peak of loading/ours", as_number,
            "simdjson, its leanest way", tuple("peak of loading/" + name for name in SIMDJSON)),
        # The file's buffer, the header's texts and the growing list are shared by all frames.
        value("allocations per loaded frame", "allocations/loaded frame", 3.001),
        value("allocations per decoded frame", "allocations/decoded frame", 3),
        value("allocations per written frame", "allocations/written frame", 0),
    ]


def decode() -> list[Row]:
    result = []
    for way, at_least in (("packet by packet", 2.2), ("full reads", 2.2)):
        name = f"decode/{way}/"
        path = f"decode and queue a packet, {way}"
        result += [
            Row("decode", path, name + "ours", as_time("ns"), "plain decoder", (name + "plain",), at_least),
            Row("decode", path, name + "ours", as_time("ns"), "plain decoder, blocks applied as met",
                (name + "plain as met",)),
            Row("decode", path, name + "ours", as_time("ns"), "floor: a ready frame copied into the queue",
                (name + "ready frames",), ratio="ours/theirs"),
            Row("decode", path, name + "ours", as_time("ns"), "floor: `memcpy`", (name + "floor",), ratio="ours/theirs"),
        ]
    return result


def garbage() -> list[Row]:
    quiet = "garbage/random, no magic/"
    result = [
        Row("decode", "skip bytes without a packet", quiet + "ours rate", as_rate, at_least=3e9, ratio="ours"),
        Row("decode", "skip bytes without a packet", quiet + "ours rate", as_rate, "floor: `memcpy`",
            ("garbage/floor rate",), ratio="ours/theirs"),
    ]
    for kind in ("random, no magic", "random", "first bytes", "false starts", "unknown packets"):
        name = f"garbage/{kind}/"
        path = f"5 MB of garbage: {kind}"
        result += [
            Row("decode", path, name + "ours rate", as_rate, "the same in streams of 1 KB", (name + "in short streams rate",),
                at_least=0.9, ratio="ours/theirs"),
            Row("decode", path, name + "ours rate", as_rate, "plain decoder", (name + "plain rate",), ratio="ours/theirs"),
        ]
    return result


def analysis() -> list[Row]:
    result = []
    for frames, unit, at_least in (("500", "us", 5), ("100,000", "ms", 7)):
        for hand in ("at rest", "in motion"):
            name = f"analysis/{frames} frames {hand}/"
            result.append(Row("analysis", f"analyse {frames} frames x 20 joints, {hand}", name + "ours", as_time(unit),
                              "plain analysis", (name + "plain",), at_least if hand == "at rest" else None))
    return result


def whole() -> list[Row]:
    def value(part: str, path: str, name: str, show: Callable[[float], str], at_most: Optional[float] = None) -> Row:
        return Row(part, path, name, show, at_most=at_most, ratio="ours")

    return [
        Row("startup", "`tarsil --help`, start to end", "startup/ours", as_microseconds,
            "floor: an empty program, linked alike", ("startup/floor",), at_most=1.3, ratio="ours/theirs"),
        value("latency", "line to `read_frame`, median", "latency/median", as_microseconds, 100),
        value("latency", "line to `read_frame`, 99th percentile", "latency/99th percentile", as_microseconds, 1000),
        value("latency", "line to `read_frame`, worst", "latency/worst", as_microseconds),
    ] + process()


def process() -> list[Row]:
    result = []
    for command, at_most in (("record", 0.05), ("stream", 0.03)):
        path, ours, floor = f"`{command}` at 1000 Hz, share of a core", f"process/{command}", f"process/{command} floor"
        result += [
            Row("process", path, ours, as_percent, at_most=at_most, floor=(floor, 1.5), ratio="ours"),
            Row("process", path, ours, as_percent, "floor: the same threads, woken", (floor,), ratio="ours/theirs"),
        ]
    return result
