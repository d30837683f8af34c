#!/usr/bin/env python3
"""A recorder is killed at random moments; every message that reached the file is exported afterwards.

kill_and_export.py KBAG KBAGKIT: kbagkit records a simulated device; what it left is counted here by walking the
bytes of the file, without any of the project's code, and compared with the rows that kbag export writes.
"""

import os
import random
import signal
import struct
import subprocess
import sys
import tempfile
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "support"))
import bag_chunks  # noqa: E402

KILLS = 20
TABLES = {
    "/imu": "csv/imu.csv",
    "/magnetic": "csv/magnetic.csv",
    "/lidar_to_platform": "csv/encoder.csv",
    "/gnss_data": "csv/gnss_data.csv",
    "/lidar": "csv/lidar.csv",
}


def whole_chunks(content):
    """Samples and messages by topic, of the chunks that are in the file whole."""
    names, samples, messages = {}, {}, 0
    for chunk in bag_chunks.whole_chunks(content):
        if chunk.kind == bag_chunks.DEFINITION:
            for topic_id, name in struct.iter_unpack("<I60s", chunk.data):
                names[topic_id] = name.split(b"\0")[0].decode()
        elif chunk.kind == bag_chunks.MESSAGE:
            (count,) = struct.unpack_from("<I", chunk.header, 12)
            (topic_id,) = struct.unpack_from("<I", chunk.header, 32)
            samples[names[topic_id]] = samples.get(names[topic_id], 0) + count
            messages += 1
        else:
            break
    return samples, messages


def record_and_kill(kbagkit, bag, chance):
    """Kills the recorder once its file has passed a random size."""
    wanted = chance.randrange(10_000, 6_000_000)
    command = [kbagkit, "simulate", bag, "--seconds", "3600", "--compression", "none", "--cameras", "0"]
    recorder = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    while recorder.poll() is None and (not bag.exists() or bag.stat().st_size < wanted):
        time.sleep(0.001)
    recorder.send_signal(signal.SIGKILL)
    return recorder.wait() == -signal.SIGKILL


def check_one(kbag, kbagkit, folder, chance):
    bag = folder / "killed.kbag"
    if not record_and_kill(kbagkit, bag, chance):
        return "the recorder ended by itself"
    samples, messages = whole_chunks(bag.read_bytes())
    if messages == 0:
        return f"no whole message in {bag.stat().st_size} bytes"
    for command in (["reindex", bag], ["export", bag, "--dir", folder]):
        if subprocess.run([kbag, *command], capture_output=True, check=False).returncode != 0:
            return f"kbag {command[0]} failed"
    for topic, table in TABLES.items():
        rows = (folder / table).read_text().count("\n") - 1 if (folder / table).exists() else 0
        if rows != samples.get(topic, 0):
            return f"{topic}: {rows} rows of {samples.get(topic, 0)} samples"
    print(f"{bag.stat().st_size} bytes, {messages} messages, {samples.get('/imu', 0)} IMU samples: all exported")
    return None


def main():
    kbag, kbagkit = (os.path.abspath(path) for path in sys.argv[1:3])
    chance = random.Random(20)
    failures = 0
    for kill in range(KILLS):
        with tempfile.TemporaryDirectory() as folder:
            problem = check_one(kbag, kbagkit, Path(folder), chance)
        if problem:
            print(f"kill {kill}: {problem}")
            failures += 1
    sys.exit(1 if failures else 0)


if __name__ == "__main__":
    main()
