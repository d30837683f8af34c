"""The rows of the benchmark table, as data: what is run, against what, and the goal. run_table.py runs
them.

Texts may name places: {kbag} the program, {bin} the folder of the benchmarks' programs, {inputs} the
folder of the bags that bench_inputs makes (each named in a text is made before), {work} a scratch folder,
empty before each row, {links} one on the file system of {inputs}.
"""

from __future__ import annotations

from dataclasses import dataclass

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
        return f"<= {self.most:.3g} x"

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
    same: tuple[str, str] | None = None  # files or folders that both write: byte for byte alike
    close: tuple[str, str] | None = None  # folders of clouds that both write: within compare_outputs' tolerance
    kernel: Kernel | None = None  # instead of ours and peer


def check(bag: str) -> Command:
    return Command(f"{{kbag}} check {{inputs}}/{bag}.kbag")


def floor(bag: str, options: str = "") -> Command:
    return Command(f"{{bin}}/bench_floor {options} {{inputs}}/{bag}.kbag")


def kbag(command: str, bag: str, options: str = "", out: str = "ours") -> Command:
    """A command that writes into an empty folder of {work}."""
    return Command(f"{{kbag}} {command} {{inputs}}/{bag}.kbag --dir {{work}}/{out} {options}",
                   make=(f"{{work}}/{out}",))


def into_folder(program: str, bag: str) -> Command:
    return Command(f"{{bin}}/{program} {{inputs}}/{bag} {{work}}/peer", make=("{work}/peer",))


def reads(order: str) -> list[Line]:
    return [Line(8, f"read all messages, {name}, {order}", f"pread + checksum{plus}", Times(1.2),
                 Command(f"{{bin}}/bench_read_views {order} {{inputs}}/{bag}.kbag"),
                 Command(f"{{bin}}/bench_read_places {order} {{inputs}}/{bag}.kbag"), clock="told")
            for name, bag, plus in CODECS]


def unpack_limit(threads: int):
    return lambda facts: (64 * MIB + (threads + 1) * facts["index"] +
                          threads * (16 * MIB + 3 * facts["largest_decoded"]))


EMPTY = Command("{bin}/bench_empty")
INFO = "info of 100 messages"
CODECS = (("none", "mixed-none", ""), ("LZ4", "mixed-lz4", " + LZ4"),
          ("Zstandard", "mixed-zstd", " + Zstandard"))
REINDEX = Command("{kbag} reindex {links}/mixed.kbag", remove=("{links}/mixed.kbag.index",),
                  link=(("{inputs}/mixed-none.kbag", "{links}/mixed.kbag"),))

LINES = [
    Line(1, "check mixed", "floor", Times(1.25), check("mixed-none"), floor("mixed-none")),
    *(Line(2, f"check mixed, {name}", f"floor{plus}", Times(1.2), check(bag), floor(bag, "--decompress"))
      for name, bag, plus in CODECS[1:]),
    Line(3, "check small", "floor", Times(2.0), check("small"), floor("small")),
    Line(4, "reindex mixed", "our check", Times(1.4), REINDEX, check("mixed-none")),
    Line(4, "reindex mixed", "rosbag reindex", Times(1 / 15), REINDEX,
         Command("rosbag reindex -q --output-dir={work}/ros {inputs}/mixed-unindexed.bag",
                 make=("{work}/ros",))),
    Line(5, "info mixed", "rosbag info", Times(0.06),
         Command("{kbag} info {inputs}/mixed-none.kbag"), Command("rosbag info {inputs}/mixed.bag")),
    Line(6, "start: --version", "empty program", More(0.010),
         Command("{kbag} --version"), EMPTY, pairs=31),
    Line(6, f"start: {INFO}", "empty program", More(0.010),
         Command("{kbag} info {inputs}/start.kbag"), EMPTY, pairs=31),
    Line(7, "open an index of 1,000,000", "protobuf arena", Times(1.1),
         kernel=Kernel("bench_index", "OpenIndex")),
    *reads("in-order"),
    *reads("shuffled"),
    *(Line(9, f"record mixed, {name}", f"write + checksum{plus}", Times(1.2),
           Command(f"{{bin}}/bench_record {codec} {{inputs}}/mixed-none.kbag {{work}}/ours.kbag",
                   remove=("{work}/ours.kbag",)),
           Command(f"{{bin}}/bench_write_messages {codec} {{inputs}}/mixed-none.kbag {{work}}/peer.kbag",
                   remove=("{work}/peer.kbag",)), clock="told")
      for codec, (name, _, plus) in zip(("none", "lz4", "zstd"), CODECS)),
    *(Line(10, f"text: {text}", "snprintf", Times(goal), kernel=Kernel("bench_numbers", work))
      for text, work, goal in (('float "%f"', "FloatSix", 0.10), ('seconds "%.6f"', "DoubleSix", 0.12),
                               ('degrees "%.9f"', "DoubleNine", 0.10))),
    Line(11, "decode lidar payload", "heap message", Times(0.4),
         kernel=Kernel("bench_lidar_decode", "LidarDecode")),
    Line(12, "export 200,000 IMU rows", "librosbag + fprintf", Times(0.3),
         kbag("export", "imu"),
         Command("{bin}/bench_ros_imu_table {inputs}/imu.bag {work}/peer.csv", remove=("{work}/peer.csv",)),
         same=("{work}/ours/csv/imu.csv", "{work}/peer.csv")),
    *(Line(13, f"export {options} {bag}".replace("  ", " "), "copy of the bag", Times(1.5),
           kbag("export", bag, options),
           Command(f"{{bin}}/bench_copy {{inputs}}/{bag}.kbag {{work}}/copy.kbag",
                   remove=("{work}/copy.kbag",)))
      for bag, options in (("pictures", "--images"), ("logs", ""))),
    Line(14, "unpack lidar", "protobuf + snprintf", Times(0.12),
         kbag("unpack", "lidar"), into_folder("bench_cloud_text", "lidar.kbag"),
         same=("{work}/ours/lidar_points", "{work}/peer")),
    Line(14, "unpack lidar", "PCL's ASCII writer", Times(0.08),
         kbag("unpack", "lidar"), into_folder("bench_cloud_pcl", "lidar.kbag")),
    Line(15, "correct points", "textbook form", Times(0.25),
         kernel=Kernel("bench_compensation", "Compensation")),
    Line(16, "corrected lidar", "textbook + snprintf", Times(0.15),
         Command("{bin}/bench_correct_clouds {inputs}/turning.kbag {work}/ours",
                 make=("{work}/ours/lidar_points",), remove=("{work}/ours",)),
         into_folder("bench_correct_clouds_textbook", "turning.kbag"),
         close=("{work}/ours/lidar_points", "{work}/peer")),
    *(Line(17, f"unpack camera, {kind}", "OpenCV, by file", Times(0.62),
           kbag("unpack", f"camera-{kind}"), into_folder("bench_pictures_opencv", f"camera-{kind}.kbag"),
           same=("{work}/ours/images/camera_0", "{work}/peer"))
      for kind in ("natural", "noisy")),
    *(Line(18, f"unpack {name}: -t 2", "-t 1", Times(0.65),
           kbag("unpack", bag, "-t 2"), kbag("unpack", bag, "-t 1", "peer"), clock="wall",
           same=("{work}/ours", "{work}/peer"))
      for name, bag in (("two lidars", "lidar-two"), ("60 s of everything", "recording"))),
    *(Line(19, f"memory: check {bag}", "32 MiB + 2 messages", Times(1.0), check(bag),
           Limit(bag, lambda facts: 32 * MIB + 2 * facts["largest_message"]), clock="memory")
      for bag in ("mixed-none", "mixed-lz4", "mixed-zstd", "small")),
    *(Line(19, f"memory: unpack {bag} -t {threads}", "see the text", Times(1.0),
           kbag("unpack", bag, f"-t {threads}"), Limit(bag, unpack_limit(threads)), clock="memory")
      for bag, threads in (("lidar", 1), ("lidar", 2), ("lidar-two", 1), ("lidar-two", 2))),
]

# Bags that bench_ros_inputs makes, and those that it makes them from.
ROS_BAGS = {"mixed.bag": "mixed-none.kbag", "mixed-unindexed.bag": "mixed-none.kbag", "imu.bag": "imu.kbag"}
