#!/usr/bin/env python3
"""Installs the project into a folder of its own and uses it as others would, also after moving that folder.

install_test.py CMAKE COMPILER BUILD_DIR
"""

import os
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

CMAKE, COMPILER, BUILD = sys.argv.pop(1), sys.argv.pop(1), sys.argv.pop(1)
OUTSIDE = Path(__file__).resolve().parent / "outside"
PEDANTIC = ["-std=c++17", "-Wall", "-Wextra", "-Wpedantic", "-Wshadow", "-Wconversion", "-Werror"]


def run(*command, expect=0, **environment):
    result = subprocess.run([str(word) for word in command], capture_output=True, text=True, check=False,
                            env={**os.environ, **environment})
    if result.returncode != expect:
        raise AssertionError(f"{command}: exit status {result.returncode}\n{result.stdout}{result.stderr}")
    return result.stdout


class Installed(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.folder = Path(folder.name)
        first = cls.folder / "first"
        run(CMAKE, "--install", BUILD, "--prefix", first)
        # Nothing may lean on the first place: all that follows happens in another one.
        cls.prefix = cls.folder / "moved" / "here"
        cls.prefix.parent.mkdir()
        first.rename(cls.prefix)
        cls.libraries = next(cls.prefix.rglob("libkbag.so.0")).parent

    def scratch(self):
        folder = tempfile.TemporaryDirectory(dir=self.folder)
        self.addCleanup(folder.cleanup)
        return Path(folder.name)

    def use(self, program, **environment):
        """Records, reads, exports and unpacks with the stranger's program."""
        out = self.scratch()
        project = out / "project"
        project.mkdir()
        bag = project / "2024-01-31-235959.kbin"
        self.assertIn("kbag 0.", run(program, "record", bag, **environment))
        self.assertEqual(run(program, "read", bag, **environment).splitlines()[1:], ["3 samples, 36 bytes"] * 4)
        run(program, "export", bag, out / "export", **environment)
        rows = (out / "export/csv/imu.csv").read_text(encoding="utf-8").splitlines()
        self.assertEqual(len(rows), 13)
        self.assertIn("9.81", rows[1])
        self.assertIn("100 %", run(program, "task", project, out / "task", **environment))
        self.assertEqual(len((out / "task/imu.csv").read_text(encoding="utf-8").splitlines()), 13)
        run(self.prefix / "bin/kbag", "check", bag)

        pictures = out / "pictures.kbag"
        run(self.prefix / "bin/kbagkit", "simulate", pictures, "--seconds", "0.5", "--points", "100",
            "--cameras", "1")
        run(program, "unpack", pictures, out / "unpacked", **environment)
        self.assertEqual(len(list((out / "unpacked/images/camera_0").glob("*.jpg"))), 5)
        return bag

    def test_tools_decode_pictures(self):
        out = self.scratch()
        bag = out / "x.kbag"
        run(self.prefix / "bin/kbagkit", "simulate", bag, "--seconds", "0.5", "--points", "100", "--cameras", "1")
        printed = run(self.prefix / "bin/kbag", "unpack", bag, "--dir", out, "--topic", "/camera_left/h264")
        self.assertNotIn("error", printed)
        self.assertEqual(len(list((out / "images/camera_0").glob("*.jpg"))), 5)

    def test_cmake_package(self):
        build = self.scratch()
        run(CMAKE, "-S", OUTSIDE, "-B", build, f"-DCMAKE_PREFIX_PATH={self.prefix}",
            f"-DCMAKE_CXX_COMPILER={COMPILER}", f"-DCMAKE_CXX_FLAGS={' '.join(PEDANTIC[1:])}")
        run(CMAKE, "--build", build, "--target", "outside")
        bag = self.use(build / "outside")
        # The program's own classes of the schema live beside those inside of the library.
        run(CMAKE, "--build", build, "--target", "decode")
        decoded = run(build / "decode", bag).splitlines()
        self.assertEqual(len(decoded), 12)
        self.assertEqual(decoded[0], "1 us: 981 / 100 m/s^2")

    def test_cmake_package_refuses_another_minor_version_and_unknown_components(self):
        for what in ("0.2", "0.1 COMPONENTS nonsense"):
            source = self.scratch()
            (source / "CMakeLists.txt").write_text(
                "cmake_minimum_required(VERSION 3.16)\nproject(x NONE)\n"
                f"find_package(kbag {what.split()[0]} CONFIG REQUIRED {' '.join(what.split()[1:])})\n",
                encoding="utf-8")
            result = subprocess.run(
                [CMAKE, "-S", source, "-B", source / "build", f"-DCMAKE_PREFIX_PATH={self.prefix}"],
                capture_output=True, text=True, check=False)
            self.assertNotEqual(result.returncode, 0, what)
            self.assertIn("kbag", result.stderr)

    def test_pkg_config(self):
        if shutil.which("pkg-config") is None:
            self.skipTest("no pkg-config here")
        paths = {"PKG_CONFIG_PATH": str(self.libraries / "pkgconfig")}
        flags = run("pkg-config", "--cflags", "--libs", "kbag", **paths).split()
        self.assertIn(f"-I{self.prefix}/include", [os.path.normpath(flag) for flag in flags])
        program = self.scratch() / "outside"
        run(COMPILER, *PEDANTIC, OUTSIDE / "outside.cpp", "-o", program, *flags)
        self.use(program, LD_LIBRARY_PATH=str(self.libraries))
        proto = Path(run("pkg-config", "--variable=protodir", "kbag", **paths).strip()) / "kbag_msgs.proto"
        self.assertIn("package protix.kbag_msgs;", proto.read_text(encoding="utf-8"))

    def test_nothing_names_the_place_of_the_installation_or_the_build(self):
        for path in self.prefix.rglob("*"):
            if path.is_file() and path.suffix in (".cmake", ".pc", ".h"):
                text = path.read_text(encoding="utf-8")
                for place in (str(self.folder), str(BUILD)):
                    self.assertNotIn(place, text, path)


if __name__ == "__main__":
    unittest.main(verbosity=2)
