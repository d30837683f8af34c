#!/usr/bin/env python3
"""No file may grow beyond a limit, as on a full disk: nothing is lost without a word.

full_disk.py KBAG KBAGKIT
"""

import os
import resource
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

KBAG, KBAGKIT = (os.path.abspath(sys.argv.pop(1)) for _ in range(2))
LIMIT = 20_000


def run(*command, limit=None):
    def set_limit():
        resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit))

    # Python ignores the signal that a write beyond the limit sends, and so do its children here.
    return subprocess.run(
        command, capture_output=True, text=True, check=False, restore_signals=False,
        preexec_fn=set_limit if limit else None)


class FullDisk(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.bag = Path(cls.folder.name) / "x.kbag"
        made = run(KBAGKIT, "simulate", cls.bag, "--seconds", "5", "--points", "500")
        assert made.returncode == 0, made.stderr

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    def setUp(self):
        out = tempfile.TemporaryDirectory()
        self.addCleanup(out.cleanup)
        self.out = Path(out.name)

    def assert_every_cut_file_is_named(self, command, topics_by_file):
        whole = self.out / "whole"
        cut = self.out / "cut"
        whole.mkdir()
        cut.mkdir()
        arguments = [KBAG, command, self.bag, "--topic", *topics_by_file.values(), "--dir"]
        self.assertEqual(run(*arguments, whole).stderr, "")
        result = run(*arguments, cut, limit=LIMIT)
        self.assertEqual(result.returncode, 0)
        for file, topic in topics_by_file.items():
            size = (whole / file).stat().st_size
            failed = f"topic[{topic}] error!" in result.stdout
            self.assertEqual(failed, size > LIMIT, file)
            self.assertLessEqual((cut / file).stat().st_size, LIMIT)
            if failed:
                self.assertIn("error: -1!", result.stderr)

    def test_export_names_every_topic_that_lost_rows(self):
        self.assert_every_cut_file_is_named(
            "export",
            {"csv/imu.csv": "/imu", "csv/encoder.csv": "/lidar_to_platform", "csv/lidar.csv": "/lidar",
             "csv/gnss_data.csv": "/gnss_data", "csv/magnetic.csv": "/magnetic"})

    def test_unpack_names_every_topic_that_lost_rows(self):
        self.assert_every_cut_file_is_named(
            "unpack", {"imu.csv": "/imu", "motor.csv": "/lidar_to_platform", "gnss.csv": "/gnss_data"})

    def test_unpack_leaves_no_cloud_that_is_cut(self):
        result = run(KBAG, "unpack", self.bag, "--dir", self.out, "--topic", "/lidar", limit=LIMIT)
        self.assertEqual(result.returncode, 0)
        self.assertEqual(result.stderr.count("save pcd error"), 50)
        self.assertEqual(list((self.out / "lidar_points").glob("*.pcd")), [])

    def test_reindex_fails(self):
        bag = self.out / "cut.kbag"
        content = self.bag.read_bytes()
        bag.write_bytes(content[: len(content) - 8192])
        result = run(KBAG, "reindex", bag, limit=LIMIT)
        self.assertEqual(result.returncode, 255)
        self.assertIn("reindex bag file", result.stderr)

    def test_simulate_fails_and_leaves_nothing(self):
        result = run(KBAGKIT, "simulate", self.out / "y.kbag", "--seconds", "2", limit=LIMIT)
        self.assertEqual(result.returncode, 1)
        self.assertNotEqual(result.stderr, "")
        self.assertEqual(list(self.out.iterdir()), [])


if __name__ == "__main__":
    unittest.main()
