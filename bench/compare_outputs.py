#!/usr/bin/env python3
"""Compares what two builds of kbag write: every output is to stay byte for byte as it was.

    bench/compare_outputs.py OLD_BIN NEW_BIN [--bag FILE]... [--seconds N]

OLD_BIN and NEW_BIN are folders with `kbag` and `kbagkit`. The bags are recordings that OLD_BIN's kbagkit
simulates with every codec, and those named. Each command runs on each of them with both builds; trees,
standard output and exit status are compared. Clouds that are corrected by the motor's turn may differ by a
tolerance: the order of their arithmetic is no promise.
"""

from __future__ import annotations

import argparse
import collections
import filecmp
import itertools
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

# Clouds are printed with six decimals.
RANGE_TOLERANCE = 2e-6
LEAST_TOLERANCE_M = 1e-5


PLACEHOLDER = ".gitkeep"


def first_difference(ours: pathlib.Path, peer: pathlib.Path, same=None) -> str:
    """What is the first to differ between two files or folders; empty where nothing does.

    `same` compares two files, by their bytes where it is not given; empty placeholders of folders do not
    count."""
    same = same or same_bytes
    if not ours.exists() or not peer.exists():
        return "one of them is missing"
    if ours.is_file():
        return "" if same(ours, peer) else "the bytes"
    names = [[name for name in files_of(tree) if not name.endswith(PLACEHOLDER)] for tree in (ours, peer)]
    if names[0] != names[1]:
        return f"only in one of them: {sorted(set(names[0]) ^ set(names[1]))[:3]}"
    if not names[0]:
        return "both are empty"
    return next((name for name in names[0]
                 if not name.endswith("/") and not same(ours / name, peer / name)), "")


def same_bytes(ours: pathlib.Path, peer: pathlib.Path) -> bool:
    return filecmp.cmp(ours, peer, shallow=False)


def files_of(tree: pathlib.Path) -> list[str]:
    """Paths below a folder; those of folders end in "/"."""
    return sorted(str(path.relative_to(tree)) + ("/" if path.is_dir() else "") for path in tree.rglob("*"))


def first_distant_cloud(ours: pathlib.Path, peer: pathlib.Path, most: int = 3) -> str:
    """Compares the first, the last and some clouds between of two folders, point by point."""
    names = [[name for name in files_of(tree) if name.endswith(".pcd")] for tree in (ours, peer)]
    if names[0] != names[1] or not names[0]:
        return f"the clouds in them ({len(names[0])} and {len(names[1])})"
    step = max((len(names[0]) - 1) // (most - 1), 1)
    for name in names[0][::step]:
        different = distant_point(ours / name, peer / name)
        if different:
            return f"{name}: {different}"
    return ""


def distant_point(ours: pathlib.Path, peer: pathlib.Path) -> str:
    """The first line in which two clouds differ by more than the tolerance; empty where none does."""
    with ours.open() as first, peer.open() as second:
        for number, (a, b) in enumerate(itertools.zip_longest(first, second, fillvalue=""), 1):
            if a != b and not is_near(a.split(), b.split()):
                return f"line {number}"
    return ""


def is_near(a: list[str], b: list[str]) -> bool:
    """Whether two rows of a cloud are the same point: coordinates close by, all else alike."""
    if len(a) < 3 or a[3:] != b[3:]:
        return False
    try:
        first, second = ([float(value) for value in row[:3]] for row in (a, b))
    except ValueError:
        return False
    tolerance = max(LEAST_TOLERANCE_M, RANGE_TOLERANCE * sum(value * value for value in second) ** 0.5)
    return all(abs(x - y) <= tolerance for x, y in zip(first, second))


# ----------------------------------------------------------------------------------------- two builds

# What changes from run to run: durations, the time of a line, the source line that it names.
CHANGING = ((rb"duration: [0-9.]+ Secs", b"duration"), (rb"[0-9-]{10} [0-9:.]{8,15}", b"time"),
            (rb",L[0-9]+\]", b"]"), (rb'"seconds": [0-9.]+', b"seconds"), (rb"^(done .*?) +[0-9]+\.[0-9]  ", rb"\1 "),
            (rb"^.*: (checking|unpacking) .*%.*\n", b""))


def unchanging(text: bytes, scratch: pathlib.Path) -> bytes:
    """A text without what may differ: the folder that it was made in, and CHANGING."""
    text = text.replace(str(scratch).encode(), b"")
    for pattern, name in CHANGING:
        text = re.sub(pattern, name, text, flags=re.MULTILINE)
    return text


def index_without_times(path: pathlib.Path) -> bytes:
    """A side index without the filler of its header, and without the time at which it was made."""
    header_bytes, private_size_at, private_at, time_at = 4096, 32, 36, 4096 + 8
    image = bytearray(path.read_bytes())
    used = private_at + int.from_bytes(image[private_size_at:private_at], "little")
    image[used:header_bytes] = b""
    del image[used + time_at - header_bytes:used + time_at - header_bytes + 8]
    return bytes(image)

# Words of each command; "{bag}" and "{out}" are filled in.
COMMANDS = {
    "info": "kbag info {bag}",
    "info --detail": "kbag info {bag} --detail",
    "pinfo": "kbag pinfo {bag}",
    "view": "kbag view {bag}",
    "check": "kbag check {bag}",
    "reindex": "kbag reindex {bag}",
    "export": "kbag export {bag} --dir {out}",
    "export --images -t 3": "kbag export {bag} --dir {out} --images -t 3",
    "unpack": "kbag unpack {bag} --dir {out}",
    "unpack -t 3": "kbag unpack {bag} --dir {out} -t 3",
    "batch": "kbagkit batch {folder}/project --device --out {out}",
}


class Build:
    """One of the two builds, with a scratch folder of its own."""

    def __init__(self, bin_dir: pathlib.Path, scratch: pathlib.Path):
        self.bin = bin_dir
        self.scratch = scratch

    def run(self, command: str, bag: pathlib.Path) -> tuple[int, bytes, pathlib.Path]:
        """@return exit status, what was printed, and the folder with all that was written."""
        shutil.rmtree(self.scratch, ignore_errors=True)
        out = self.scratch / "out"
        folder = self.scratch / "in" / "project"
        for path in (out, folder):
            path.mkdir(parents=True)
        link = folder / "2024-01-31-235959.kbin"  # as the batch command wants it named
        os.link(bag, link)
        words = [word.format(bag=link, out=out, folder=self.scratch / "in") for word in command.split()]
        result = subprocess.run([self.bin / words[0], *words[1:]], stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, check=False)
        link.unlink()
        for log in self.scratch.rglob("bagtool-*.log"):  # named after the time
            log.rename(log.with_name("bagtool.log"))
        return result.returncode, unchanging(result.stdout, self.scratch), self.scratch

    def content(self, path: pathlib.Path) -> bytes:
        if path.suffix == ".index":
            return index_without_times(path)
        return unchanging(path.read_bytes(), self.scratch)


def compare(command: str, bag: pathlib.Path, old: Build, new: Build) -> str:
    """What differs between the two builds; empty where nothing does."""
    old_status, old_text, old_tree = old.run(COMMANDS[command], bag)
    new_status, new_text, new_tree = new.run(COMMANDS[command], bag)
    if old_status != new_status:
        return f"the exit status ({old_status}, {new_status})"
    # Threads print as they come.
    old_lines, new_lines = (collections.Counter(text.splitlines()) for text in (old_text, new_text))
    if old_lines != new_lines:
        return f"what is printed: {[*(old_lines - new_lines)][:1]}, {[*(new_lines - old_lines)][:1]}"
    corrects = command == "batch"

    def same(ours: pathlib.Path, peer: pathlib.Path) -> bool:
        if same_bytes(ours, peer):
            return True
        if ours.suffix == ".pcd":
            return corrects and not distant_point(peer, ours)
        return ours.suffix in (".index", ".json", ".log") and old.content(ours) == new.content(peer)

    return first_difference(old_tree, new_tree, same)


def recordings(kbagkit: pathlib.Path, folder: pathlib.Path, seconds: float) -> list[pathlib.Path]:
    """Simulated recordings, one with each codec."""
    bags = []
    for number, codec in enumerate(("none", "lz4", "zstd")):
        bag = folder / f"simulated-{codec}.kbag"
        subprocess.run([kbagkit, "simulate", bag, "--seconds", str(seconds), "--compression", codec,
                        "--seed", str(number + 1), "--elevation", "0.01"],
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=True)
        bags.append(bag)
    return bags


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("old_bin", type=pathlib.Path)
    parser.add_argument("new_bin", type=pathlib.Path)
    parser.add_argument("--bag", type=pathlib.Path, action="append", default=[])
    parser.add_argument("--commands", nargs="+", choices=COMMANDS, default=[*COMMANDS], help="only these")
    parser.add_argument("--seconds", type=float, default=3.0, help="length of the simulated recordings")
    arguments = parser.parse_args()
    failures = 0
    with tempfile.TemporaryDirectory(prefix="kbag-compare-") as name:
        scratch = pathlib.Path(name)
        old = Build(arguments.old_bin.resolve(), scratch / "old")
        new = Build(arguments.new_bin.resolve(), scratch / "new")
        bags = recordings(old.bin / "kbagkit", scratch, arguments.seconds)
        for bag in arguments.bag:
            bags.append(pathlib.Path(shutil.copy(bag, scratch)))
        for bag, command in itertools.product(bags, arguments.commands):
            different = compare(command, bag, old, new)
            failures += bool(different)
            print(f"{bag.name:24} {command:24} {'DIFFERS: ' + different if different else 'same'}", flush=True)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
