#!/usr/bin/env python3
"""Runs every command of kbag and kbagkit that the documents show.

usage: commands_test.py PROJECT_DIR KBAG KBAGKIT

Of blocks of code with prompts ("$ ...") the lines with prompts are commands, of others every line; they run in the
order of the page, in one folder a page that holds recordings by the names that the documents use. A synopsis is no
command. A block behind a line "<!-- not run: REASON -->" is left out.

A page of TUTORIALS begins in an empty folder, and its commands have to print what it shows ("..." stands for any
lines). Its Python programs that begin with "# NAME.py" are saved by that name; they are run where NumPy is installed.
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
TUTORIALS = ("start.md",)
RUN = re.compile(r"(kbag|kbagkit|mkdir -p|ls|head|python3) ")
COLOUR = re.compile("\033\\[[0-9;]*m")
SIZE_AND_SECONDS = re.compile(r"\d{7,} +\d+\.\d ")  # of the batch table: the log's size differs, too


def python_with_numpy():
    for python in (sys.executable, "/usr/bin/python3"):
        if subprocess.run([python, "-c", "import numpy"], capture_output=True, check=False).returncode == 0:
            return python
    return None


def pages():
    return [PROJECT / "README.md", *sorted((PROJECT / "docs").rglob("*.md"))]


def commands_of(page):
    """The commands of a page, those that go on behind a backslash joined."""
    text = re.sub(r"^## Synopsis\n.*?(?=^## )", "", page.read_text(encoding="utf-8"), flags=re.MULTILINE | re.DOTALL)
    for block in BLOCK.finditer(text):
        lines = block["code"].replace("\\\n", " ").splitlines()
        prompted = [line[2:] for line in lines if line.startswith("$ ")]
        for line in prompted or lines:
            if RUN.match(line) and not block["marker"]:
                yield re.sub(r"(?<=\w)\.\.\.(?=\s|$)", "", line)  # "BAG..." is one or more


def programs_of(page):
    """Name and text of the Python programs that a page has its reader save."""
    return re.findall(r"^```python\n# (\w+\.py)\n(.*?)^```$", page.read_text(encoding="utf-8"), re.M | re.S)


def shown_output(page, command):
    """The lines that a page shows below a command, None where it shows none."""
    text = page.read_text(encoding="utf-8").replace("\\\n", " ")
    lines = text[text.index(f"$ {command}\n") :].splitlines()[1:]
    end = next(i for i, line in enumerate(lines) if line.startswith(("$ ", "```")))
    return lines[:end] or None


def as_pattern(lines):
    """What matches an output that is shown so."""
    return "".join("(.*\n)*" if line == "..." else re.escape(line) + "\n" for line in lines)


def comparable(text):
    return SIZE_AND_SECONDS.sub("BYTES SECONDS ", re.sub(" +", " ", COLOUR.sub("", text)))


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
        cls.python = python_with_numpy()
        if cls.python:
            (folder / "bin/python3").write_text(f'#!/bin/sh\nexec "{cls.python}" "$@"\n', encoding="utf-8")
            (folder / "bin/python3").chmod(0o755)
        cls.recording = folder / "recording"
        subprocess.run(
            [KBAGKIT, "simulate", cls.recording, "--seconds", "2", "--points", "50", "--cameras", "1"],
            check=True,
            stdout=subprocess.DEVNULL,
        )

    def folder_for(self, page):
        folder = Path(self.scratch.name) / page.stem
        folder.mkdir()
        if page.name in TUTORIALS:
            for name, text in programs_of(page):
                (folder / name).write_text(text, encoding="utf-8")
            return folder
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

    def run_command(self, command, folder):
        run = subprocess.run(
            ["bash", "-o", "pipefail", "-c", command],
            cwd=folder,
            env={**os.environ, "PATH": f"{self.scratch.name}/bin:{os.environ['PATH']}", "LC_ALL": "C.UTF-8"},
            capture_output=True,
            stdin=subprocess.DEVNULL,
            timeout=120,
        )
        self.assertEqual(run.returncode, 0, run.stderr.decode(errors="replace"))
        return run.stdout.decode(errors="replace")

    def test_they_succeed(self):
        for page in pages():
            commands = list(commands_of(page))
            folder = self.folder_for(page) if commands else None
            for command in commands:
                for names in made_by(command):
                    (folder / "".join(names)).unlink(missing_ok=True)
                with self.subTest(page=page.name, command=command):
                    if command.startswith("python3 ") and not self.python:
                        self.skipTest("NumPy is not installed (Debian: python3-numpy)")
                    printed = self.run_command(command, folder)
                    shown = shown_output(page, command) if page.name in TUTORIALS else None
                    if shown:
                        self.assertRegex(comparable(printed), rf"\A{as_pattern(comparable(line) for line in shown)}\Z")

    def test_tutorials_show_outputs(self):
        for name in TUTORIALS:
            page = PROJECT / "docs" / name
            shown = [command for command in commands_of(page) if shown_output(page, command)]
            self.assertGreater(len(shown), 8, name)
            self.assertTrue(programs_of(page), name)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
