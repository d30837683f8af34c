#!/usr/bin/env python3
"""The bag that docs/format.md shows byte by byte is a bag: format_page_test.py KBAG SOURCE_DIR."""
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

KBAG, SOURCE = sys.argv.pop(1), pathlib.Path(sys.argv.pop(1))
COLOUR = re.compile("\033\\[[0-9;]*m")


def bytes_of_dump(page):
    """Undoes hexdump -C: a "*" repeats the line above it up to the next offset."""
    content = bytearray()
    for line in re.search(r"```\n(00000000 .*?)\n```", page, re.S).group(1).splitlines():
        if line == "*":
            continue
        offset = int(line[:8], 16)
        while len(content) < offset:
            content += content[-16:]
        content += bytes.fromhex(line[10:58])
    return bytes(content)


def run(*command):
    done = subprocess.run(command, capture_output=True, text=True, check=True)
    return COLOUR.sub("", done.stdout)


class FormatPage(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.bag = self.folder / "page.kbag"
        self.page = (SOURCE / "docs/format.md").read_text()
        self.content = bytes_of_dump(self.page)
        self.bag.write_bytes(self.content)

    def test_dump_is_a_sound_bag(self):
        self.assertEqual(len(self.content), 8192)
        self.assertIn("ok.", run(KBAG, "check", self.bag))

    def test_program_reads_the_dump(self):
        info = run(KBAG, "info", self.bag, "--dir", self.folder)
        self.assertRegex(info, r'0 +1 +31 .*"/raw_gnss_log"')
        self.assertRegex(info, r'1 +1 +32 .*"/imu"')
        run(KBAG, "export", self.bag, "--dir", self.folder)
        self.assertEqual((self.folder / "raw_gnss_log.txt").read_bytes(), b"$GPTXT,hello\r\n")
        rows = (self.folder / "csv/imu.csv").read_text().splitlines()
        self.assertEqual(rows[1], "7,1700000000005000,0.012000,-0.034000,9.807000,0.001000,-0.002000,0.003000")

    def test_python_example_reads_the_dump(self):
        listing = run(sys.executable, SOURCE / "examples/read_bag.py", self.bag)
        self.assertEqual(
            listing,
            "/imu 1 samples, 1 messages, 32 bytes\n/raw_gnss_log 1 samples, 1 messages, 31 bytes\n",
        )

    def test_explanations_quote_the_dump(self):
        example = self.page[self.page.index("## A whole bag") :]
        rows = re.findall(r"^\| ([0-9a-f]{4}) \| (.*?) \|", example, re.M)
        self.assertGreater(len(rows), 20)
        for offset, text in rows:
            quoted = re.search(r"`([^`]*)`", text).group(1).replace("...", "").strip()
            expected = bytes.fromhex(quoted)
            start = int(offset, 16)
            self.assertEqual(self.content[start : start + len(expected)], expected, offset)


if __name__ == "__main__":
    unittest.main()
