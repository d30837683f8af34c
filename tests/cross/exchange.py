#!/usr/bin/env python3
"""Exchanges recordings between two builds of the tools for different processors, and compares all that they make.

usage: exchange.py HERE THERE COMPARE_PICTURES WORK [--seconds S] [--points N] [--codecs C...] [--keep]

HERE and THERE are folders with kbag and kbagkit, or with scripts of these names that start them. Each side simulates a
recording with every codec. Every recording, a copy of it that is cut off and one with a flipped bit are then read by
both sides with all commands, and what the two made of it is compared: standard output, exit status and every file,
byte for byte. Left out or masked is only what differs between two runs of one program too, see `comparable`.

Decoded pictures (.jpg) may differ a little, since libraries convert colours with instructions of the processor, which
round differently. They are compared pixel by pixel, by the program COMPARE_PICTURES, and what a batch says of the bytes
that it wrote is left out.
"""

import argparse
import json
import re
import shutil
import struct
import subprocess
import sys
import zlib
from pathlib import Path

CODECS = ("none", "lz4", "zstd")
BAG_NAME = "2024-01-31-235959.kbin"
HEADER_BYTES = 4096
FAILED = 255  # exit status of kbag
# Of decoded pictures, in steps of 255 and dB; what is usual is far below.
LARGEST_DIFFERENCE = 16
SMALLEST_RATIO = 40.0

# What each side does with each recording; {bag} is the recording, in a folder "project" of the side's own.
COMMANDS = {
    "info": "kbag info {bag}",
    "pinfo": "kbag pinfo {bag}",
    "check": "kbag check {bag}",
    "view": "kbag view {bag}",
    "kit_info": "kbagkit info {bag} --json",
    "kit_topics": "kbagkit topics {bag} --json",
    "kit_messages": "kbagkit messages {bag} --json",
    "kit_cat": "kbagkit cat {bag} --scan",
    "kit_points": "kbagkit cat {bag} --scan --topic /lidar --points",
    "kit_doctor": "kbagkit doctor {bag} --json",
    "salvage": "kbagkit salvage {bag} salvaged.kbag --json",
    "batch": "kbagkit batch project --out plain --json",
    "batch_device": "kbagkit batch project --out device --device --json",
    # From here on by the rebuilt index, which recordings that were cut off need.
    "reindex": "kbag reindex {bag}",
    "reindexed_view": "kbag view {bag}",
    "export": "kbag export {bag} --dir export --images",
    "unpack": "kbag unpack {bag} --dir unpack",
    "reindexed_device": "kbagkit batch project --out reindexed_device --device --json",
}


class Side:
    def __init__(self, name, programs):
        self.name = name
        self.programs = programs.resolve()

    def run(self, command, folder):
        program, *arguments = command.split()
        return subprocess.run([self.programs / program, *arguments], cwd=folder, capture_output=True, check=False)


class Comparison:
    """Counts what was compared, and keeps what differs."""

    def __init__(self):
        self.counts = {}
        self.bytes = 0
        self.differences = []
        self.pictures = []  # that are not the same bytes

    def add(self, kind, name, here, there):
        """Of two results; `kind` says what they are."""
        self.counts[kind] = self.counts.get(kind, 0) + 1
        self.bytes += len(here)
        if here != there:
            place = next((i for i, (a, b) in enumerate(zip(here, there)) if a != b), min(len(here), len(there)))
            self.differences.append(f"{name}: {len(here)} and {len(there)} bytes, the first that differs is {place}")

    def add_picture(self, here, there):
        self.counts[".jpg"] = self.counts.get(".jpg", 0) + 1
        self.bytes += here.stat().st_size
        if here.read_bytes() != there.read_bytes():
            self.pictures.append((here, there))

    def look_at_pictures(self, program):
        """Says how much the pictures differ that do."""
        if not self.pictures:
            return "all pictures are the same bytes"
        pairs = "".join(f"{here}|{there}\n" for here, there in self.pictures)
        result = subprocess.run([program], input=pairs, capture_output=True, text=True, check=True)
        seen = [(int(difference), float(ratio)) for difference, ratio in map(str.split, result.stdout.splitlines())]
        for (here, _), (difference, ratio) in zip(self.pictures, seen, strict=True):
            if difference > LARGEST_DIFFERENCE or ratio < SMALLEST_RATIO:
                self.differences.append(f"{here}: pixels differ by up to {difference}, {ratio} dB")
        return (f"{len(seen)} pictures are not the same bytes: pixels differ by up to {max(seen)[0]} of 255, "
                f"PSNR {min(ratio for _, ratio in seen)} dB and better")


def record(side, codec, folder, options):
    folder.mkdir(parents=True)
    result = side.run(f"kbagkit simulate {BAG_NAME} --compression {codec} --seconds {options.seconds} "
                      f"--points {options.points} --cameras 2 --elevation 0.01 --truth truth.json", folder)
    if result.returncode != 0:
        sys.exit(f"{side.name}: simulate failed\n{result.stderr.decode()}")
    return folder / BAG_NAME


def damaged_copies(bag):
    """The recording itself, and how it looks after a power cut and after a bit has flipped."""
    data = bag.read_bytes()
    cut = bytearray(data[:len(data) * 3 // 5])
    struct.pack_into("<QQ", cut, 16, 0, 0)
    flipped = bytearray(data)
    flipped[len(data) // 2] ^= 1
    return {"whole": data, "cut": with_header_sum(cut), "flipped": bytes(flipped)}


def with_header_sum(data):
    struct.pack_into("<I", data, HEADER_BYTES - 4, zlib.crc32(bytes(data[:HEADER_BYTES - 4])))
    return bytes(data)


def use(side, data, folder, is_whole):
    """Runs all commands on a recording, whose results are files of the folder too. A whole one fails nothing."""
    bag = Path("project") / BAG_NAME
    (folder / "project").mkdir(parents=True)
    (folder / bag).write_bytes(data)
    for name in ("export", "unpack"):
        (folder / name).mkdir()
    outputs = {}
    for name, command in COMMANDS.items():
        result = side.run(command.format(bag=bag), folder)
        crashed = result.returncode < 0 or result.returncode > 128 and result.returncode != FAILED
        if crashed or (is_whole and result.returncode != 0):
            sys.exit(f"{side.name}: {command} ended with {result.returncode}\n{result.stderr.decode()}")
        outputs[name] = comparable_output(result, folder)
        if COMMANDS[name].startswith("kbagkit batch"):
            outputs[name] = re.sub(rb'"bytes": *[0-9]+', b'"bytes": BYTES', outputs[name])
    return outputs


def comparable_output(result, folder):
    text = result.stdout.decode().replace(str(folder), "FOLDER")
    text = re.sub(r"duration: [0-9.]+ Secs", "duration: TIME", text)
    text = re.sub(r'("seconds"|"bag_time_us"): *[0-9.]+', r"\1: TIME", text)
    return f"exit status {result.returncode}\n{text}".encode()


def comparable(path):
    """A file's bytes without what differs between two runs of one program too."""
    data = path.read_bytes()
    if path.name == "manifest.json":
        document = json.loads(data)
        for project in document["projects"]:
            for key in ("project", "seconds", "bag_time_us", "bytes"):
                del project[key]
        return json.dumps(document).encode()
    if path.suffix in (".kbin", ".kbag", ".index"):
        return without_times(data)
    return data


def without_times(data):
    """A recording or side file without creation time, filler and the times at which its chunks were built."""
    if len(data) < HEADER_BYTES:
        return data
    masked = bytearray(data)
    index_offset, private_size = struct.unpack_from("<QI", data, 24)
    masked[8:16] = bytes(8)
    filler = 36 + private_size
    masked[filler:HEADER_BYTES] = bytes(HEADER_BYTES - filler)
    for chunk in (HEADER_BYTES, index_offset):
        if chunk and chunk + 16 <= len(data):
            masked[chunk + 8:chunk + 16] = bytes(8)
    return bytes(masked)


def compare_folders(name, here, there, comparison):
    """All files but logs, of which each line begins with the time."""
    files = {side: {path.relative_to(side): path for path in side.rglob("*")
                    if path.is_file() and path.parent.name != "log"} for side in (here, there)}
    only = {str(path) for path in files[here].keys() ^ files[there].keys()}
    if only:
        comparison.differences.append(f"{name}: on one side only: {sorted(only)[:5]}")
    for path in sorted(files[here].keys() & files[there].keys()):
        paths = files[here][path], files[there][path]
        if path.suffix == ".jpg":
            comparison.add_picture(*paths)
        else:
            comparison.add(path.suffix or "other", f"{name}/{path}", *map(comparable, paths))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    for name in ("here", "there", "compare_pictures", "work"):
        parser.add_argument(name, type=Path)
    parser.add_argument("--seconds", type=float, default=0.3)
    parser.add_argument("--points", type=int, default=500)
    parser.add_argument("--codecs", nargs="+", default=CODECS)
    parser.add_argument("--keep", action="store_true", help="leave all files in WORK")
    options = parser.parse_args()
    sides = (Side("here", options.here), Side("there", options.there))
    work = options.work.resolve()
    shutil.rmtree(work, ignore_errors=True)
    comparison = Comparison()

    for codec in options.codecs:
        bags = {side.name: record(side, codec, work / "recordings" / f"{codec}_{side.name}", options)
                for side in sides}
        compare_folders(f"recorded {codec}", *(bag.parent for bag in bags.values()), comparison)
        for writer, bag in bags.items():
            for state, data in damaged_copies(bag).items():
                name = f"{codec}_{writer}_{state}"
                folders = [work / "read" / name / side.name for side in sides]
                outputs = [use(side, data, folder, state == "whole") for side, folder in zip(sides, folders)]
                for command in COMMANDS:
                    comparison.add("output", f"{name}: {COMMANDS[command]}", *(each[command] for each in outputs))
                compare_folders(name, *folders, comparison)
                print(f"{name}: compared", flush=True)

    pictures = comparison.look_at_pictures(options.compare_pictures)
    counts = ", ".join(f"{count} {kind}" for kind, count in sorted(comparison.counts.items()))
    print(f"compared {sum(comparison.counts.values())} results, {comparison.bytes} bytes: {counts}")
    print(pictures)
    print(*comparison.differences, sep="\n")
    print(f"{len(comparison.differences)} differ")
    if not options.keep and not comparison.differences:
        shutil.rmtree(work)
    return 1 if comparison.differences else 0


if __name__ == "__main__":
    sys.exit(main())
