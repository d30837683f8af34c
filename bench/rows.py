"""The rows of the benchmark table, as data: what is run, against what, and the goal. run_table.py runs
them.

Texts may name places: {kbag} the program, {bin} the folder of the benchmarks' programs, {inputs} the
folder of the bags that bench_inputs makes (each named in a text is made before), {work} a scratch folder,
empty before each row.
"""

from __future__ import annotations

from dataclasses import dataclass, field

MIB = 1 << 20

# ------------------------------------------------------------------------------------------ kinds of work


@dataclass(frozen=True)
class Command:
    """A whole program, process start included."""

    argv: str  # split at spaces
    remove: tuple[str, ...] = ()  # files and folders removed before each run
    make: tuple[str, ...] = ()  # folders made, empty, before each run
    link: tuple[tuple[str, str], ...] = ()  # (existing file, new name) before each run: hard links


@dataclass(frozen=True)
class Limit:
    """Not measured: a figure that follows from the facts of an input (see bench_inputs)."""

    bag: str
    of: object  # function of the bag's facts, a dict


@dataclass(frozen=True)
class Kernel:
    """The entries "<work>/ours" and "<work>/peer" of a Google Benchmark program."""

    program: str  # a file of {bin}
    work: str


# -------------------------------------------------------------------------------------------------- goals


@dataclass(frozen=True)
class Times:
    """At most so many times the peer's figure."""

    most: float

    def text(self) -> str:
        return f"<= {self.most:g} x"

    def met(self, ours: float, peer: float) -> bool:
        return ours <= self.most * peer


@dataclass(frozen=True)
class More:
    """At most so much more than the peer's figure."""

    most: float

    def text(self) -> str:
        return f"<= +{self.most * 1e3:g} ms"

    def met(self, ours: float, peer: float) -> bool:
        return ours - peer <= self.most


# --------------------------------------------------------------------------------------------------- rows

# What a command's figure is: CPU seconds of all its threads, wall seconds, bytes of peak memory, or the CPU
# seconds of the part of its work that it prints as "measured_s: SECONDS".
CLOCKS = ("cpu", "wall", "memory", "told")


@dataclass(frozen=True)
class Line:
    """One line of the table; a row may have several."""

    row: int
    work: str
    against: str
    goal: Times | More
    ours: Command | None = None
    peer: Command | Limit | None = None
    clock: str = "cpu"
    pairs: int = 7  # measured runs of each, alternating
    same: tuple[str, str] | None = None  # files or folders that ours and the peer write: byte for byte alike
    kernel: Kernel | None = None  # instead of ours and peer


def check(bag: str) -> Command:
    return Command(f"{{kbag}} check {{inputs}}/{bag}.kbag")


def floor(bag: str, options: str = "") -> Command:
    return Command(f"{{bin}}/bench_floor {options} {{inputs}}/{bag}.kbag")


EMPTY = Command("{bin}/bench_empty")

LINES = [
    Line(1, "check mixed", "floor", Times(1.25), check("mixed-none"), floor("mixed-none")),
    Line(2, "check mixed, LZ4", "floor + LZ4", Times(1.2),
         check("mixed-lz4"), floor("mixed-lz4", "--decompress")),
    Line(2, "check mixed, Zstandard", "floor + Zstandard", Times(1.2),
         check("mixed-zstd"), floor("mixed-zstd", "--decompress")),
    Line(3, "check small", "floor", Times(2.0), check("small"), floor("small")),
    Line(6, "process start: --version", "empty program", More(0.010),
         Command("{kbag} --version"), EMPTY, pairs=31),
    Line(6, "process start: info of 100 messages", "empty program", More(0.010),
         Command("{kbag} info {inputs}/start.kbag"), EMPTY, pairs=31),
    *(Line(19, f"peak memory: check {bag}", "32 MiB + 2 messages", Times(1.0), check(bag),
           Limit(bag, lambda facts: 32 * MIB + 2 * facts["largest_message"]), clock="memory")
      for bag in ("mixed-none", "mixed-lz4", "mixed-zstd", "small")),
]
