#!/usr/bin/env python3
"""Runs every command of kbag and kbagkit that the documents show.

usage: commands_test.py PROJECT_DIR KBAG KBAGKIT

Of blocks of code with prompts ("$ ...") the lines with prompts are commands, of others every line; they run in the
order of the page, in one folder a page that holds recordings by the names that the documents use. A synopsis is no
command. A block behind a line "<!-- not run: REASON -->" is left out.
"""

import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

PROJECT, KBAG, KBAGKIT = Path(sys.argv[1]), Path(sys.argv[2]), Path(sys.argv[3])
BLOCK = re.compile(r"(?P<marker><!-- not run: \S.*-->\n+)?^```\w*\n(?P<code>.*?)^```$", re.MULTILINE | re.DOTALL)
RECORDINGS = ("room.kbag", "REC.kbag")
BATCHES = ("recordings", "RECORDINGS")


def pages():
    return [PROJECT / "README.md", *sorted((PROJECT / "docs").rglob("*.md"))]


def commands_of(page):
    """The commands of a page, those that go on behind a backslash joined."""
    text = re.sub(r"^## Synopsis\n.*?(?=^## )", "", page.read_text(encoding="utf-8"), flags=re.MULTILINE | re.DOTALL)
    for block in BLOCK.finditer(text):
        lines = block["code"].replace("\\\n", " ").splitlines()
        prompted = [line[2:] for line in lines if line.startswith("$ ")]
        for line in prompted or lines:
            if re.match(r"(kbag|kbagkit) ", line) and not block["marker"]:
                yield re.sub(r"(?<=\w)\.\.\.(?=\s|$)", "", line)  # "BAG..." is one or more


def made_by(command):
    """Files that a command makes, and that must not be there before."""
    if command.startswith("kbagkit simulate "):
        return re.findall(r"simulate (\S+)|--truth (\S+)", command)
    if command.startswith("kbagkit salvage "):
        return [(command.split()[3], "")]
    return []


class Commands(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.scratch = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.scratch.cleanup)
        folder = Path(cls.scratch.name)
        (folder / "bin").mkdir()
        for program in (KBAG, KBAGKIT):
            (folder / "bin" / program.name).symlink_to(program)
        cls.recording = folder / "recording"
        subprocess.run(
            [KBAGKIT, "simulate", cls.recording, "--seconds", "2", "--points", "50", "--cameras", "1"],
            check=True,
            stdout=subprocess.DEVNULL,
        )

    def folder_for(self, page):
        folder = Path(self.scratch.name) / page.stem
        folder.mkdir()
        for name in RECORDINGS:
            shutil.copy(self.recording, folder / name)
        for name in BATCHES:
            for project in ("p0", "p1"):
                (folder / name / project).mkdir(parents=True)
                shutil.copy(self.recording, folder / name / project / "2024-01-31-235959.kbin")
        (folder / "out").mkdir()
        return folder

    def test_there_are_commands(self):
        self.assertGreater(sum(1 for page in pages() for _ in commands_of(page)), 30)

    def test_they_succeed(self):
        environment = {**os.environ, "PATH": f"{self.scratch.name}/bin:{os.environ['PATH']}"}
        for page in pages():
            commands = list(commands_of(page))
            folder = self.folder_for(page) if commands else None
            for command in commands:
                for names in made_by(command):
                    (folder / "".join(names)).unlink(missing_ok=True)
                with self.subTest(page=page.name, command=command):
                    run = subprocess.run(
                        ["bash", "-o", "pipefail", "-c", command],
                        cwd=folder,
                        env=environment,
                        capture_output=True,
                        stdin=subprocess.DEVNULL,
                        timeout=120,
                    )
                    self.assertEqual(run.returncode, 0, run.stderr.decode(errors="replace"))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
