#!/usr/bin/env python3
"""Without the module that decodes pictures, `kbag` starts and unpacks everything else, and says why not those.

no_picture_module.py KBAG KBAGKIT
"""

import os
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

KBAG, KBAGKIT = (os.path.abspath(sys.argv.pop(1)) for _ in range(2))


def run(*command):
    return subprocess.run([str(word) for word in command], capture_output=True, text=True, check=False)


class NoPictureModule(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.folder = Path(folder.name)
        cls.bag = cls.folder / "x.kbag"
        made = run(KBAGKIT, "simulate", cls.bag, "--seconds", "0.5", "--points", "100", "--cameras", "1")
        assert made.returncode == 0, made.stderr
        # A copy of the program alone: its module is sought beside it.
        (cls.folder / "bin").mkdir()
        cls.kbag = shutil.copy(KBAG, cls.folder / "bin/kbag")

    def unpack(self, program, *topics):
        out = tempfile.TemporaryDirectory()
        self.addCleanup(out.cleanup)
        result = run(program, "unpack", self.bag, "--dir", out.name, "--topic", *topics)
        return result, Path(out.name)

    def test_pictures_fail_with_a_reason_and_the_rest_is_unpacked(self):
        result, out = self.unpack(self.kbag, "/camera_left/h264", "/imu", "/lidar")
        self.assertEqual(result.returncode, 0)
        errors = result.stderr.splitlines()
        self.assertEqual(len(errors), 2, errors)
        self.assertRegex(errors[0], r"\[DataExporter::unpackCameraImage,L\d+\] pictures cannot be decoded: .*"
                                    r"kbag_pictures\.so.*!$")
        self.assertRegex(errors[1], r"unpack images error!$")
        self.assertIn("export topic[/camera_left/h264] error!", result.stdout)
        self.assertEqual([path.name for path in (out / "images/camera_0").iterdir()], [".gitkeep"])
        self.assertGreater((out / "imu.csv").stat().st_size, 1000)
        self.assertEqual(len(list((out / "lidar_points").glob("*.pcd"))), 5)

    def test_with_its_module_the_same_program_unpacks_pictures(self):
        result, out = self.unpack(KBAG, "/camera_left/h264")
        self.assertEqual(result.stderr, "")
        self.assertEqual(len(list((out / "images/camera_0").glob("*.jpg"))), 5)

    def test_program_itself_needs_no_picture_library(self):
        libraries = run("ldd", KBAG).stdout.lower()
        self.assertIn("libc.so", libraries)
        for name in ("opencv", "avcodec", "gdal"):
            self.assertNotIn(name, libraries)


if __name__ == "__main__":
    unittest.main(verbosity=2)
