#!/usr/bin/env python3
"""NumPy reads what `kbag unpack` makes of real sensor data, and finds its source in it.

usage: numpy_test.py KBAG MAKE_REAL_RECORDING DATA_FOLDER

Nothing of the project's own readers takes part: clouds and tables are read by NumPy's text reader, and
so are their sources. Exit status 77 where NumPy or the data is missing.
"""

import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

SKIPPED = 77
SYSTEM_PYTHON = "/usr/bin/python3"  # the one that Debian's packages serve

try:
    import numpy as np
except ImportError:
    if os.path.realpath(sys.executable) != os.path.realpath(SYSTEM_PYTHON) and os.path.exists(SYSTEM_PYTHON):
        os.execv(SYSTEM_PYTHON, [SYSTEM_PYTHON, *sys.argv])
    print("NumPy is not installed (Debian: python3-numpy): skipped")
    sys.exit(SKIPPED)

# How the recording was made: integers per unit, and the constant that puts the lidar on its clock.
POINT_SCALE = 10000
IMU_SCALE = 100000
CLOCK_SHIFT_US = 1533226490000000 - 2666163099
PCD_HEADER_LINES = 11

POINT = np.dtype([("xyz", "<f4", 3), ("offset_us", "<i4"), ("ring", "<u2"), ("intensity", "<u2")])
SCAN = np.dtype([("t_us", "<i8"), ("first", "<u4"), ("count", "<u4")])


def tolerance(values, scale):
    """Half a quantum, what single precision rounds away, and half of the sixth printed decimal."""
    return 0.5 / scale + np.abs(values) * 2.0**-24 + 0.5e-6


def read_scans(path):
    """Yields the time (us) and the points of each scan of a source file."""
    content = path.read_bytes()
    scans, points = np.frombuffer(content, "<u4", 2, 12)
    table = np.frombuffer(content, SCAN, scans, 24)
    all_points = np.frombuffer(content, POINT, points, 24 + table.nbytes)
    for scan in table:
        yield int(scan["t_us"]) + CLOCK_SHIFT_US, all_points[scan["first"] : scan["first"] + scan["count"]]


class UnpackedRecording(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.out = pathlib.Path(folder.name)
        bag = cls.out / "real.kbag"
        subprocess.run([MAKE_RECORDING, bag, "zstd"], check=True, stdout=subprocess.DEVNULL)
        subprocess.run(
            [KBAG, "unpack", bag, "--dir", cls.out, "--topic", "/lidar", "/imu", "/lidar_to_platform"],
            check=True,
            stdout=subprocess.DEVNULL,
        )

    def assert_within(self, read, source, scale):
        np.testing.assert_array_less(np.abs(read - source), tolerance(source, scale))

    def test_clouds_hold_every_point(self):
        names = set()
        for t_us, source in read_scans(DATA / "lidar/vlp16_13frames.pts"):
            name = f"{t_us // 1000000}.{t_us % 1000000:06d}.pcd"
            names.add(name)
            cloud = np.loadtxt(self.out / "lidar_points" / name, skiprows=PCD_HEADER_LINES)
            self.assertEqual(cloud.shape, (len(source), 9))
            self.assert_within(cloud[:, 0:3], source["xyz"].astype(float), POINT_SCALE)
            self.assertFalse(cloud[:, 3:6].any())
            np.testing.assert_array_equal(cloud[:, 6], source["intensity"])
            # Whole microseconds, which a double of this size tells apart.
            times_us = np.rint(cloud[:, 7] * 1e6).astype(np.int64)
            np.testing.assert_array_equal(times_us, t_us + source["offset_us"].astype(np.int64))
            np.testing.assert_array_equal(cloud[:, 8], source["ring"])
        self.assertEqual({path.name for path in self.out.glob("lidar_points/*.pcd")}, names)
        self.assertEqual(len(names), 13)

    def test_imu_table_holds_every_sample(self):
        source = np.genfromtxt(DATA / "imu_mag/comma2k19_imu.csv", delimiter=",", names=True)
        table = np.genfromtxt(self.out / "imu.csv", names=True)
        self.assertEqual(table.dtype.names[0], "timestamp")
        self.assertEqual(len(table), len(source))
        np.testing.assert_array_equal(np.rint(table["timestamp"] * 1e6), source["t_us"])
        for axis in "xyz":
            self.assert_within(table["gyro_" + axis], source[f"g{axis}_radps"], IMU_SCALE)
            self.assert_within(table["acc_" + axis], source[f"a{axis}_mps2"], IMU_SCALE)

    def test_motor_table_holds_unit_quaternions_about_the_motor_axis(self):
        source = np.genfromtxt(DATA / "motor/vlp16_azimuth.csv", delimiter=",", names=True)
        table = np.genfromtxt(self.out / "motor.csv", names=True)
        np.testing.assert_array_equal(np.rint(table["timestamp"] * 1e6), source["t_us"] + CLOCK_SHIFT_US)
        angle_deg = np.degrees(2 * np.arctan2(table["qz"], table["qw"])) % 360
        difference = (angle_deg - source["angle_deg"] + 180) % 360 - 180
        # Half a quantum (5e-6) of both components turns the angle by up to 2 * 7.1e-6 rad.
        self.assertLess(np.abs(difference).max(), 0.001)


if __name__ == "__main__":
    KBAG, MAKE_RECORDING, DATA = sys.argv.pop(1), sys.argv.pop(1), pathlib.Path(sys.argv.pop(1))
    if not DATA.is_dir():
        print("no real sensor data beside the checkout: skipped")
        sys.exit(SKIPPED)
    print(f"NumPy {np.__version__} in {sys.executable}")
    unittest.main()
