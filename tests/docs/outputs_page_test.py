#!/usr/bin/env python3
"""Holds docs/outputs.md against what the programs write.

usage: outputs_page_test.py KBAG KBAGKIT PAGE [unittest arguments]

Every file that comes out, and every column of it, has to stand in its section of the page; the page's examples
of header lines and of a point cloud have to be those of the files.
"""

import re
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

KBAG, KBAGKIT, PAGE = (Path(sys.argv.pop(1)).resolve() for _ in range(3))

TIME = re.compile(r"\d{10}\.\d{6}|\d{16}")
CAMERA = re.compile(r"camera_(left|right|center)(?=[._/])")


def sections(text):
    """The page's text by its headings of the second level."""
    parts = re.split(r"(?m)^## (.*)$", text)
    return {parts[i].replace("`", ""): parts[i + 1] for i in range(1, len(parts), 2)}


def placeholder(path):
    """The name under which the page speaks of a file: times and cameras are not spelled out."""
    return CAMERA.sub("CAMERA", TIME.sub("TIME", path))


class OutputsPage(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.folder = Path(folder.name)
        cls.page = sections(PAGE.read_text(encoding="utf-8"))
        project = cls.folder / "project"
        project.mkdir()
        bag = project / "2024-01-31-235959.kbin"
        cls.run_program(KBAGKIT, "simulate", bag, "--seconds", "1", "--points", "20")
        for command in ("export", "unpack"):
            (cls.folder / command).mkdir()
        cls.run_program(KBAG, "export", bag, "--dir", cls.folder / "export", "--images")
        cls.run_program(KBAG, "unpack", bag, "--dir", cls.folder / "unpack")
        cls.run_program(KBAGKIT, "batch", project, "--out", cls.folder / "batch", "--device")

    @staticmethod
    def run_program(*command):
        result = subprocess.run([str(word) for word in command], capture_output=True, text=True, check=False)
        assert result.returncode == 0, (command, result.stderr)

    def files(self, folder):
        root = self.folder / folder
        return [path.relative_to(root).as_posix() for path in sorted(root.rglob("*")) if path.is_file()]

    def tables(self, folder):
        """The files that are tables of ours: a recording may carry others."""
        return [path for path in self.files(folder) if path.endswith(".csv") and "project_data" not in path]

    def assert_named(self, section, path):
        name = placeholder(path)
        folder = name.rsplit("/", 1)[0] + "/"
        named = f"`{name}`" in section or f"`{folder}`" in section or path.endswith(".gitkeep")
        self.assertTrue(named, f"{name} is not in the page")

    def test_every_file_stands_in_its_section(self):
        for folder, section in (("export", "Output of export"), ("unpack", "Output of unpack")):
            files = self.files(folder)
            self.assertGreater(len(files), 30)
            for path in files:
                self.assert_named(self.page[section], path)

    def test_every_column_is_explained(self):
        for folder, section, separator in (("export", "Output of export", ","), ("unpack", "Output of unpack", " ")):
            self.assertGreaterEqual(len(self.tables(folder)), 4)
            for path in self.tables(folder):
                header = (self.folder / folder / path).read_text().splitlines()[0]
                for column in header.lstrip("#").split(separator):
                    self.assertIn(f"`{column}`", self.page[section], path)

    def test_examples_of_tables_are_those_of_the_files(self):
        examples = 0
        for folder, section in (("export", "Output of export"), ("unpack", "Output of unpack")):
            headers = {(self.folder / folder / path).read_text().splitlines()[0] for path in self.tables(folder)}
            for block in re.findall(r"```\n((?:seq,|#timestamp).*?)```", self.page[section], re.S):
                header, row = block.splitlines()
                self.assertIn(header, headers)
                self.assertEqual(len(re.split("[, ]", header)), len(re.split("[, ]", row)))
                examples += 1
        self.assertEqual(examples, 3)

    def test_example_of_a_cloud_is_that_of_the_files(self):
        block = re.search(r"```\n(# \.PCD.*?)```", self.page["Output of unpack"], re.S).group(1).splitlines()
        clouds = [path for path in self.files("unpack") if path.endswith(".pcd")]
        cloud = (self.folder / "unpack" / clouds[0]).read_text().splitlines()
        counted = [re.sub(r"^(WIDTH|POINTS) \d+$", r"\1 N", line) for line in cloud[:11]]
        self.assertEqual([re.sub(r"^(WIDTH|POINTS) \d+$", r"\1 N", line) for line in block[:11]], counted)
        for line in block[11:]:
            self.assertEqual([bool(re.match(r"-?\d+\.\d{6}$", word)) for word in line.split(" ")],
                             [bool(re.match(r"-?\d+\.\d{6}$", word)) for word in cloud[11].split(" ")])
        for field in block[2].split(" ")[1:]:
            self.assertIn(f"`{field}`", self.page["Output of unpack"])

    def test_device_form_differs_where_the_page_says(self):
        root = self.folder / "batch/project"
        ours = {path.relative_to(root).as_posix() for path in root.rglob("*") if path.is_file()}
        plain = set(self.files("unpack"))
        without_placeholders = {path for path in plain - ours if not path.endswith(".gitkeep")}
        self.assertEqual({path for path in without_placeholders if not path.startswith("calib/config/")}, {"motor.csv"})
        self.assertEqual({path for path in ours - plain if not path.startswith("log/")}, {"calib/config/imu_camera0.yaml"})
        self.assertEqual({path for path in ours if path.startswith("calib/config/")},
                         {"calib/config/camera.yaml", "calib/config/imu_camera0.yaml"})
        differing = {re.sub(TIME, "TIME", path) for path in ours & plain
                     if (root / path).read_bytes() != (self.folder / "unpack" / path).read_bytes()}
        self.assertEqual(differing, {"imu.csv", "lidar_points/TIME.pcd"})


if __name__ == "__main__":
    unittest.main(verbosity=2)
