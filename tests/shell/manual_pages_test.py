#!/usr/bin/env python3
"""Renders the manual pages as `man` does, and looks at what comes out.

usage: manual_pages_test.py MAN_DIR
"""

import functools
import os
import re
import subprocess
import sys
import unittest
from pathlib import Path

MAN = Path()
WIDTH = 80
SECTIONS = ("NAME", "SYNOPSIS", "DESCRIPTION", "OPTIONS", "OUTPUT", "EXIT STATUS", "EXAMPLE", "SEE ALSO")


def pages():
    return sorted(MAN.glob("man1/*.1"))


@functools.cache
def rendered(page):
    environment = {**os.environ, "MANWIDTH": str(WIDTH), "LC_ALL": "C.UTF-8", "MANROFFOPT": ""}
    run = subprocess.run(["man", "-l", page], check=True, capture_output=True, text=True, env=environment)
    return run.stdout


def text_of(page):
    """All lines but those of examples, which stand there as a terminal shows them."""
    sections = re.split(r"^(?=[A-Z])", rendered(page), flags=re.MULTILINE)
    return [line for section in sections if not section.startswith("EXAMPLE") for line in section.splitlines()]


class ManualPages(unittest.TestCase):
    def test_there_is_one_for_each_command(self):
        names = {page.name for page in pages()}
        commands = ("info", "topics", "messages", "cat", "doctor", "salvage", "batch", "simulate")
        self.assertEqual(names, {"kbag.1", "kbagkit.1", *(f"kbagkit-{name}.1" for name in commands)})

    def test_they_are_well_formed(self):
        for page in pages():
            for device in ("utf8", "ps"):
                run = subprocess.run(
                    ["groff", "-k", "-t", "-man", "-ww", "-rLL=80n", f"-T{device}", page],
                    capture_output=True,
                    check=True,
                )
                self.assertEqual(run.stderr, b"", page.name)

    def test_they_have_the_sections_that_one_looks_for(self):
        for page in pages():
            found = re.findall(r"^([A-Z].*)$", rendered(page), re.MULTILINE)
            for section in SECTIONS:
                self.assertIn(section, found, page.name)

    def test_nothing_of_their_source_is_left(self):
        for page in pages():
            for line in text_of(page):
                self.assertNotRegex(line, r"\]\(|\*\*|\\f[BIR]|\\\(|^\s*\.(PP|TP|RS|RE|EX|EE)\b|T[{}]", page.name)

    def test_text_fits_the_width(self):
        for page in pages():
            for line in text_of(page):
                self.assertLessEqual(len(line), WIDTH, f"{page.name}: {line}")

    def test_pages_that_are_named_exist(self):
        names = {page.stem for page in pages()}
        for page in pages():
            named = set(re.findall(r"(kbag[a-z-]*)\(1\)", rendered(page)))
            self.assertLessEqual(named, names, page.name)
            self.assertTrue(named - {page.stem}, page.name)

    def test_options_can_be_copied(self):
        page = rendered(MAN / "man1/kbagkit-cat.1")
        self.assertIn("kbagkit cat room.kbag --topic /gnss_data --csv --from +10s", page)
        self.assertIn("'.data_base64 | @base64d'", page)


if __name__ == "__main__":
    MAN = Path(sys.argv.pop(1))
    unittest.main()
