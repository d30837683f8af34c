#!/usr/bin/env python3
"""Every command that writes is killed (SIGKILL) at random moments of its run, 20 times each.

kill_commands.py KBAG KBAGKIT KILL_AT_CALL [SEED]: twelve kills are spread over the calls that change files or
directories (KILL_AT_CALL is preloaded and counts them), eight come after a random part of the measured time.
After each: the input is as it was; outputs that get their name when they are whole are whole; all others hold
the beginning of what belongs there; a new run over the remains succeeds and leaves the tree of an undisturbed run.
"""

import hashlib
import json
import os
import random
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import time
import zlib
from fnmatch import fnmatch
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "support"))
import bag_chunks  # noqa: E402

KILLS_BY_CALL = 12
KILLS_BY_TIME = 8
PROJECT_BAG = "2024-01-31-235959.kbin"
MADE_BY_CLOCK = ("*/log/*", "log/*")  # named after the moment of the run


def chunks(content):
    """Type, header and data of every whole chunk; without the times of definition and index chunks."""
    found = []
    for chunk in bag_chunks.whole_chunks(content):
        header = chunk.header if chunk.kind == bag_chunks.MESSAGE else chunk.header[8:]
        found.append((chunk.kind, header, chunk.data))
        if chunk.kind == bag_chunks.INDEX:
            break
    return found


def unclosed(bag):
    """What a recorder leaves that is killed just before it closes."""
    (index_at,) = struct.unpack_from("<Q", bag, 24)
    header = bytearray(bag[:4092])
    header[16:32] = bytes(16)
    return bytes(header) + struct.pack("<I", zlib.crc32(header)) + bag[4096:index_at]


def normal(name, content):
    """A file's content without what differs between two undisturbed runs."""
    if name.endswith(".kbag"):
        return repr(chunks(content)).encode()
    if name.endswith(".index"):
        return content[:4104] + content[4112:]
    if Path(name).name.startswith("manifest") and content.endswith(b"}\n"):
        document = json.loads(content)
        for entry in document["projects"]:
            entry.pop("seconds", None)
        return json.dumps(document).encode()
    return content


def tree(folder):
    files = {}
    for path in sorted(folder.rglob("*")):
        name = str(path.relative_to(folder))
        if path.is_file() and not any(fnmatch(name, pattern) for pattern in MADE_BY_CLOCK):
            files[name] = path.read_bytes()
    return files


def normal_tree(folder):
    return {name: normal(name, content) for name, content in tree(folder).items()}


def digest(folder):
    return hashlib.sha256(repr(tree(folder)).encode()).hexdigest()


class Command:
    """One command: its words, given input and output folders, and the outputs that are whole or absent."""

    def __init__(self, name, words, whole=(), temporary=(), stays=(), expected=0, in_place=False, again=None):
        self.name, self.words, self.whole, self.temporary = name, words, whole, temporary
        self.stays, self.expected, self.in_place, self.again = stays, expected, in_place, again or words


def commands(kbag, kbagkit):
    def export(source, out):
        return [kbag, "export", source / "whole.kbag", "--dir", out, "-t", "2"]

    return [
        Command("kbag reindex", lambda s, o: [kbag, "reindex", o / "open.kbag"], in_place=True),
        Command("kbag export", export),
        Command("kbag export --images", lambda s, o: export(s, o) + ["--images"]),
        Command(
            "kbag unpack",
            lambda s, o: [kbag, "unpack", s / "whole.kbag", "--dir", o, "-t", "2"],
            whole=["images/*.jpg"],
            temporary=["images/*.part", "images/*.h264"],
        ),
        Command(
            "kbagkit simulate",
            lambda s, o: [kbagkit, "simulate", o / "new.kbag", "--seconds", "1", "--points", "500", "--cameras", "1",
                          "--flush-bytes", "50000", "--truth", o / "truth.json"],
            whole=["truth.json"],
            temporary=[".truth.json.tmp"],
        ),
        Command(
            "kbagkit salvage",
            lambda s, o: [kbagkit, "salvage", s / "damaged.kbag", o / "saved.kbag"],
            whole=["saved.kbag"],
            temporary=[".saved.kbag.*.tmp"],
            stays=[".saved.kbag.*.tmp"],
            expected=3,
            again=lambda s, o: [kbagkit, "salvage", "--force", s / "damaged.kbag", o / "saved.kbag"],
        ),
        Command(
            "kbagkit batch",
            lambda s, o: [kbagkit, "batch", s / "projects", "--out", o, "--jobs", "2"],
            whole=["*.jpg", "manifest*.json"],
            temporary=["*.part", "*.h264", ".manifest*"],
        ),
        Command(
            "kbagkit batch --device",
            lambda s, o: [kbagkit, "batch", "--device", s / "projects", "--out", o],
            whole=["*.jpg", "manifest*.json"],
            temporary=["*.part", "*.h264", ".manifest*"],
        ),
    ]


def run(words, **environment):
    return subprocess.run(list(map(str, words)), capture_output=True, stdin=subprocess.DEVNULL, check=False,
                          timeout=120, env={**os.environ, **environment})


def kill_after(words, seconds):
    """Kills the command after that time. False when it had ended by then."""
    process = subprocess.Popen(list(map(str, words)), stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                               stderr=subprocess.DEVNULL)
    time.sleep(seconds)
    process.send_signal(signal.SIGKILL)
    return process.wait() == -signal.SIGKILL


class Test:
    def __init__(self, kbag, kbagkit, shim, seed):
        self.kbag, self.kbagkit, self.shim = kbag, kbagkit, shim
        self.chance = random.Random(seed)
        self.root = Path(tempfile.mkdtemp(prefix="kill-"))
        self.source = self.root / "source"
        self.failures = 0

    def make_inputs(self):
        self.source.mkdir()
        bag = self.source / "whole.kbag"
        made = run([self.kbagkit, "simulate", bag, "--seconds", "1", "--points", "300", "--cameras", "1"])
        assert made.returncode == 0, made.stderr
        content = bag.read_bytes()
        (self.source / "open.kbag").write_bytes(unclosed(content))
        damaged = bytearray(content)
        damaged[len(damaged) // 2] ^= 1
        (self.source / "damaged.kbag").write_bytes(damaged)
        for project in ("p0", "p1"):
            folder = self.source / "projects" / project
            folder.mkdir(parents=True)
            shutil.copy(bag, folder / PROJECT_BAG)

    def fresh(self, command, name):
        out = self.root / name
        shutil.rmtree(out, ignore_errors=True)
        out.mkdir()
        if command.in_place:
            shutil.copy(self.source / "open.kbag", out)
        return out

    def measure(self, command):
        """An undisturbed run: its tree, its number of calls, its time."""
        out = self.fresh(command, "reference")
        count = self.root / "count"
        result = run(command.words(self.source, out), LD_PRELOAD=self.shim, KILL_CALL_COUNT=str(count))
        assert result.returncode == command.expected, (command.name, result.returncode, result.stderr)
        reference, raw = normal_tree(out), tree(out)
        out = self.fresh(command, "reference")
        start = time.monotonic()
        run(command.words(self.source, out))
        seconds = time.monotonic() - start
        assert normal_tree(out) == reference, f"{command.name}: two undisturbed runs differ"
        return reference, raw, int(count.read_text()), seconds

    def remains_are_right(self, command, out, reference):
        for name, content in tree(out).items():
            if any(fnmatch(name, pattern) for pattern in command.temporary):
                continue
            if name not in reference:
                return f"{name} does not belong there"
            if any(fnmatch(name, pattern) for pattern in command.whole):
                if Path(name).name.startswith("manifest"):
                    json.loads(content)  # projects are added to it one by one
                elif normal(name, content) != reference[name]:
                    return f"{name} is not whole ({len(content)} bytes)"
            elif name.endswith(".kbag"):
                here = chunks(content)
                if name == "new.kbag" and here != self.reference_chunks[: len(here)]:
                    return f"{name}: other messages than an undisturbed run's"
                if name == "open.kbag" and content != (self.source / name).read_bytes():
                    return f"{name} was changed"
            elif name.endswith(".index"):
                if not reference[name].startswith(content[:4104]) or len(content) > len(reference[name]) + 8:
                    return f"{name} is not the beginning of an index"
            elif not reference[name].startswith(content):
                return f"{name} is not the beginning of what belongs there"
        return None

    def mend_recording(self, out):
        """A killed recorder's bag: refused as an output, repaired by reindex; then it makes room."""
        bag = out / "new.kbag"
        if not bag.exists():
            return None
        before = bag.read_bytes()
        again = run(self.simulate.words(self.source, out))
        if again.returncode != 1 or bag.read_bytes() != before:
            return "a new run did not leave the recording alone"
        whole = [chunk for chunk in chunks(before) if chunk[0] == 1]
        if chunks(before):
            if run([self.kbag, "reindex", bag]).returncode != 0:
                return "reindex failed"
            listed = run([self.kbag, "info", bag])
            if listed.returncode != 0:
                return "the recording cannot be opened after reindex"
            self.recorded += len(whole)
            (out / "new.kbag.index").unlink()
        bag.unlink()
        (out / "truth.json").unlink(missing_ok=True)
        return None

    @staticmethod
    def without_remains(command, out):
        """The tree, but for temporary files whose names no other run uses again."""
        files = normal_tree(out)
        return {name: files[name] for name in files if not any(fnmatch(name, p) for p in command.stays)}

    def kill_once(self, command, reference, number, calls, seconds):
        out = self.fresh(command, "out")
        words = command.words(self.source, out)
        if number < KILLS_BY_CALL:
            low = 1 + number * calls // KILLS_BY_CALL
            at = self.chance.randint(low, max(low, (number + 1) * calls // KILLS_BY_CALL))
            result = run(words, LD_PRELOAD=self.shim, KILL_AT_CALL=str(at))
            killed, moment = result.returncode == -signal.SIGKILL, f"at call {at} of {calls}"
        else:
            killed, moment = False, ""
            while not killed:
                after = seconds * self.chance.random()
                out = self.fresh(command, "out")
                killed, moment = kill_after(words, after), f"after {after:.3f} of {seconds:.3f} s"
        problem = None if killed else "it was not killed"
        problem = problem or self.remains_are_right(command, out, reference)
        if not problem and command is self.simulate:
            problem = self.mend_recording(out)
        if not problem:
            again = run(command.again(self.source, out))
            if again.returncode != command.expected:
                problem = f"the next run failed ({again.returncode}): {again.stderr.decode()[-500:]}"
            elif (after := self.without_remains(command, out)) != reference:
                names = [name for name in {**after, **reference} if after.get(name) != reference.get(name)]
                problem = f"the next run left another tree: {sorted(names)[:5]}"
        if not problem and digest(self.source) != self.source_digest:
            problem = "the input was changed"
        if problem:
            print(f"{command.name}, killed {moment}: {problem}")
            self.failures += 1

    def run_all(self):
        self.make_inputs()
        self.source_digest = digest(self.source)
        self.recorded = 0
        everything = commands(self.kbag, self.kbagkit)
        self.simulate = next(command for command in everything if command.name == "kbagkit simulate")
        kills = 0
        for command in everything:
            start = time.monotonic()
            reference, raw, calls, seconds = self.measure(command)
            if command is self.simulate:
                self.reference_chunks = chunks(raw["new.kbag"])
            for number in range(KILLS_BY_CALL + KILLS_BY_TIME):
                self.kill_once(command, reference, number, calls, seconds)
                kills += 1
            print(f"{command.name}: {KILLS_BY_CALL + KILLS_BY_TIME} kills, {calls} calls and {seconds:.2f} s a run, "
                  f"{len(reference)} files; {time.monotonic() - start:.1f} s", flush=True)
        print(f"{kills} kills, {self.failures} failures; {self.recorded} messages of killed recordings read back")


def main():
    kbag, kbagkit, shim = (os.path.abspath(path) for path in sys.argv[1:4])
    seed = int(sys.argv[4]) if len(sys.argv) > 4 else random.randrange(1_000_000)
    print(f"seed {seed}", flush=True)
    test = Test(kbag, kbagkit, shim, seed)
    try:
        test.run_all()
    finally:
        shutil.rmtree(test.root, ignore_errors=True)
    sys.exit(1 if test.failures else 0)


if __name__ == "__main__":
    main()
