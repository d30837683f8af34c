#!/usr/bin/env python3
"""Runs `kbagkit batch` over simulated projects: in parallel, killed, interrupted, in shards, on a terminal.

usage: batch_cli_test.py KBAGKIT [unittest arguments]
"""

import json
import os
import pty
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path

KBAGKIT = sys.argv.pop(1)

PROJECTS = 6
DAMAGED = "p3"


def kbagkit(*arguments, env=None):
    return subprocess.run([KBAGKIT, *map(str, arguments)], capture_output=True, text=True, timeout=300,
                          stdin=subprocess.DEVNULL, env=env)


def make_projects(root):
    """Six projects, one of them with a flipped bit in the middle of its bag."""
    for i in range(PROJECTS):
        folder = root / f"p{i}"
        folder.mkdir(parents=True)
        bag = folder / "2024-01-31-235959.kbin"
        result = kbagkit("simulate", bag, "--seconds", 1.5, "--points", 300, "--cameras", 1, "--seed", i)
        assert result.returncode == 0, result.stderr
    bag = root / DAMAGED / "2024-01-31-235959.kbin"
    data = bytearray(bag.read_bytes())
    data[len(data) // 2] ^= 1
    bag.write_bytes(data)


def tree(out):
    """Contents of every file under the output folders but logs and manifests."""
    files = {}
    for path in sorted(out.rglob("*")):
        name = path.relative_to(out)
        is_log = len(name.parts) > 1 and name.parts[1] == "log"
        if path.is_file() and not is_log and not name.name.startswith("manifest"):
            files[str(name)] = path.read_bytes()
    return files


def manifest(path):
    """A manifest's entries without their seconds."""
    document = json.loads(path.read_text())
    assert document["format"] == "kbagkit batch manifest", document
    for entry in document["projects"]:
        assert entry.pop("seconds") >= 0
    return document["projects"]


def wait_for(condition, process):
    """Waits until the condition holds; fails when the process ends before."""
    while not condition():
        if process.poll() is not None:
            raise AssertionError(f"ended too early: {process.communicate()}")
        time.sleep(0.001)


def entries_in(path):
    return len(manifest(path)) if path.exists() else 0


class Batch(unittest.TestCase):
    maxDiff = 2000

    @classmethod
    def setUpClass(cls):
        cls.root = Path(tempfile.mkdtemp(prefix="kbagkit-batch-")).resolve()
        cls.projects = cls.root / "projects"
        make_projects(cls.projects)
        cls.reference = cls.root / "reference"
        cls.result = kbagkit("batch", cls.projects, "--device", "--out", cls.reference)

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.root)

    def setUp(self):
        self.out = self.root / self.id().rsplit(".", 1)[1]

    def start(self, *arguments):
        return subprocess.Popen([KBAGKIT, "batch", str(self.projects), "--device", "--out", str(self.out),
                                 *arguments], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                                stdin=subprocess.DEVNULL)

    def assert_same_as_reference(self):
        ours, reference = tree(self.out), tree(self.reference)
        self.assertEqual(sorted(ours), sorted(reference))
        differing = [name for name in ours if ours[name] != reference[name]]
        self.assertEqual(differing, [])
        self.assertEqual(manifest(self.out / "manifest.json"), manifest(self.reference / "manifest.json"))

    def test_damaged_project_stands_out_and_the_others_are_done(self):
        self.assertEqual(self.result.returncode, 3, self.result.stderr)
        entries = manifest(self.reference / "manifest.json")
        self.assertEqual([Path(entry["project"]).name for entry in entries], [f"p{i}" for i in range(PROJECTS)])
        for entry in entries:
            damaged = entry["output"] == DAMAGED
            self.assertEqual(entry["result"], "losses" if damaged else "done", entry)
            self.assertEqual(entry["check_code"], 7 if damaged else 0)
            self.assertEqual(entry["error_code"], 0)
            self.assertEqual(entry["mode"], "device")
            self.assertEqual(entry["failed_topics"], [])
            self.assertEqual(entry["left_out_topics"], ["/camera_center/jpeg"])
            self.assertEqual(entry["bag"], "2024-01-31-235959.kbin")
            files = {name: data for name, data in tree(self.reference).items()
                     if name.startswith(entry["output"] + "/")}
            self.assertEqual(entry["files"], len(files))
            self.assertEqual(entry["bytes"], sum(map(len, files.values())))
        rows = self.result.stdout.splitlines()
        self.assertTrue(rows[0].startswith("result"), rows)
        self.assertEqual(len([row for row in rows if row.startswith("done")]), PROJECTS - 1)
        self.assertEqual(rows[-1], f"{PROJECTS} of {PROJECTS} projects are unpacked")
        self.assertNotIn("\033", self.result.stdout + self.result.stderr)

    def test_output_of_a_project_has_every_kind_of_file(self):
        names = {re.sub(r"\d{10}\.\d{6}", "TIME", name) for name in tree(self.reference) if name.startswith("p0/")}
        for name in ("calib/config/camera.yaml", "calib/config/imu_camera0.yaml", "imu.csv", "gnss.csv",
                     "magnetic.csv", "lidar_points/TIME.pcd", "images/camera_0/TIME.jpg"):
            self.assertIn("p0/" + name, names)
        self.assertNotIn("p0/motor.csv", names)

    def test_jobs_make_no_difference(self):
        process = self.start("--jobs", "2")
        _, log = process.communicate(timeout=300)
        self.assertEqual(process.returncode, 3, log)
        self.assert_same_as_reference()

    def test_killed_run_goes_on_where_it_was(self):
        process = self.start()
        path = self.out / "manifest.json"
        wait_for(lambda: entries_in(path) >= 2, process)
        process.kill()
        process.communicate()
        done = entries_in(path)
        self.assertLess(done, PROJECTS)

        result = kbagkit("batch", self.projects, "--device", "--out", self.out, "--json")
        self.assertEqual(result.returncode, 3, result.stderr)
        skipped = [entry["skipped"] for entry in json.loads(result.stdout)["projects"]]
        self.assertEqual(skipped, [True] * done + [False] * (PROJECTS - done))
        self.assert_same_as_reference()

    def test_interrupted_run_exits_130_and_goes_on_later(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            shutil.rmtree(self.out, ignore_errors=True)
            process = self.start("--jobs", "2")
            wait_for(lambda: entries_in(self.out / "manifest.json") >= 1, process)
            process.send_signal(number)
            stdout, log = process.communicate(timeout=300)
            self.assertEqual(process.returncode, 130, log)
            self.assertIn("not begun", stdout)
            for name in tree(self.out):
                self.assertRegex(name, r"\.(csv|pcd|jpg|yaml|json|txt|data|gitkeep|md|log|bin)$")

            result = kbagkit("batch", self.projects, "--device", "--out", self.out)
            self.assertEqual(result.returncode, 3, result.stderr)
            self.assert_same_as_reference()

    def test_shards_merged_are_the_whole(self):
        for i in range(3):
            result = kbagkit("batch", self.projects, "--device", "--out", self.out, "--shard", f"{i}/3")
            self.assertEqual(result.returncode, 3 if i == 0 else 0, result.stderr)  # p3 is in the first one
            self.assertEqual(len(manifest(self.out / f"manifest-{i}-of-3.json")), 2)
        self.assertFalse((self.out / "manifest.json").exists())
        result = kbagkit("batch", "--merge", self.out)
        self.assertEqual(result.returncode, 3, result.stderr)
        self.assert_same_as_reference()

    def test_more_shards_than_projects_can_be_merged(self):
        one = self.projects / "p0"
        for i in range(2):
            result = kbagkit("batch", one, "--out", self.out, "--shard", f"{i}/2")
            self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(manifest(self.out / "manifest-1-of-2.json"), [])
        self.assertEqual(kbagkit("batch", "--merge", self.out).returncode, 0)
        self.assertEqual(len(manifest(self.out / "manifest.json")), 1)

    def test_second_run_skips_and_force_redoes(self):
        arguments = ("batch", self.projects / "p0", self.projects / "p1", "--out", self.out, "--json")
        self.assertEqual(kbagkit(*arguments).returncode, 0)
        before = (self.out / "p0/imu.csv").stat().st_mtime_ns
        result = kbagkit(*arguments)
        self.assertEqual(result.returncode, 0)
        self.assertEqual([entry["skipped"] for entry in json.loads(result.stdout)["projects"]], [True, True])
        self.assertEqual((self.out / "p0/imu.csv").stat().st_mtime_ns, before)
        result = kbagkit(*arguments, "--force")
        self.assertEqual([entry["skipped"] for entry in json.loads(result.stdout)["projects"]], [False, False])
        self.assertNotEqual((self.out / "p0/imu.csv").stat().st_mtime_ns, before)

    def test_failed_project_makes_exit_1(self):
        result = kbagkit("batch", self.projects / "p0", self.root / "missing", "--out", self.out, "--json")
        self.assertEqual(result.returncode, 1)
        document = json.loads(result.stdout)
        self.assertEqual(document["exit_status"], 1)
        self.assertEqual(sorted(entry["result"] for entry in document["projects"]), ["done", "failed"])
        self.assertFalse((self.root / "missing").exists())

    def test_output_folder_that_cannot_be_made_makes_exit_1(self):
        self.out.write_text("in the way")
        result = kbagkit("batch", self.projects / "p0", "--out", self.out / "x")
        self.assertEqual(result.returncode, 1)
        self.assertIn("cannot be made", result.stderr)
        self.assertEqual(result.stdout, "")

    def test_usage_errors_make_exit_2(self):
        twin = self.root / "twins/p0"
        shutil.copytree(self.projects / "p0", twin)
        for arguments in ([], ["--jobs", "0", self.projects], ["--nonsense"], [self.projects, "--shard", "0/2"],
                          [self.projects, "--out", self.out, "--shard", "2/2"],
                          [self.projects, "--out", self.out, "--shard", "x"],
                          [self.projects, "--out", self.out, "--shard", "-1/2"],
                          [self.projects, "--merge", self.out],
                          [self.projects / "p0", twin, "--out", self.out],
                          [self.projects / "p0", self.projects / "p0"],
                          [self.projects / "p0", "--out", self.projects]):
            result = kbagkit("batch", *arguments)
            self.assertEqual(result.returncode, 2, arguments)
            self.assertEqual(result.stdout, "", arguments)
            self.assertNotEqual(result.stderr, "", arguments)
        self.assertFalse(self.out.exists())

    def test_merge_without_shards_makes_exit_1(self):
        self.out.mkdir()
        result = kbagkit("batch", "--merge", self.out)
        self.assertEqual(result.returncode, 1)
        self.assertIn("no manifests of shards", result.stderr)

    def on_terminal(self, *arguments, **environment):
        """What a run shows on a terminal that takes its standard output and error."""
        master, slave = pty.openpty()
        env = {key: value for key, value in os.environ.items() if key != "NO_COLOR"} | environment
        process = subprocess.Popen([KBAGKIT, "batch", *map(str, arguments)], stdin=subprocess.DEVNULL,
                                   stdout=slave, stderr=slave, env=env)
        os.close(slave)
        shown = b""
        while True:
            try:
                piece = os.read(master, 65536)
            except OSError:  # the other end is closed
                break
            if not piece:
                break
            shown += piece
        os.close(master)
        return process.wait(), shown.decode()

    def test_terminal_shows_lines_with_percent_rate_and_time_left(self):
        status, shown = self.on_terminal(self.projects, "--device", "--out", self.out)
        self.assertEqual(status, 3)
        self.assertRegex(shown, r"p\d: (checking|unpacking) \d+ %")
        self.assertRegex(shown, r"\d of 6 projects ended")
        self.assertIn("\033[A\r\033[K", shown)
        self.assertIn("\033[32mdone", shown)
        self.assertIn("\033[33mlosses", shown)

    def test_no_color_leaves_the_terminal_without_colours(self):
        _, shown = self.on_terminal(self.projects / "p0", self.projects / DAMAGED, "--out", self.out, NO_COLOR="1")
        self.assertNotRegex(shown, "\033\\[[0-9;]*m")
        self.assertIn("done", shown)

    def test_without_a_terminal_progress_is_plain_lines(self):
        result = kbagkit("batch", self.projects, "--out", self.out)
        self.assertRegex(result.stderr, r"(?m)^p\d: (checking|unpacking) \d+ %")
        self.assertNotIn("\033", result.stderr)
        self.assertNotIn("\r", result.stderr)

    def test_each_project_has_a_log_of_its_own(self):
        for i in range(PROJECTS):
            logs = list((self.reference / f"p{i}/log").iterdir())
            self.assertEqual(len(logs), 1)
            self.assertRegex(logs[0].name, r"^bagtool-\d{8}_\d{6}\.log$")
            self.assertIn("task finished.", logs[0].read_text())

    def test_without_out_each_project_has_its_output_and_manifest(self):
        folder = self.out / "p0"
        shutil.copytree(self.projects / "p0", folder)
        result = kbagkit("batch", self.out)
        self.assertEqual(result.returncode, 0, result.stderr)
        entries = manifest(folder / "output/manifest.json")
        self.assertEqual([entry["output"] for entry in entries], ["."])
        self.assertTrue((folder / "output/imu.csv").exists())


if __name__ == "__main__":
    unittest.main(verbosity=2)
