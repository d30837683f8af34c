"""Checks that the number of workers does not show in what `kbag export` and `kbag unpack` write.

usage: compare_threads.py PROGRAM MAKE_CASES KBAGKIT WORK

Exports and unpacks a larger recording with one worker, with eight, and with one for each topic, and compares all
files byte for byte. Says nothing on standard error, so that a sanitizer's report fails it.
"""

import filecmp
import shutil
import subprocess
import sys
from pathlib import Path


def files_of(folder):
    return sorted(path.relative_to(folder) for path in folder.rglob("*"))


def convert(program, command, options, bag, folder, threads):
    folder.mkdir()
    result = subprocess.run([program, command, bag, "--dir", folder, "-t", str(threads), *options],
                            capture_output=True, text=True, check=False)
    where = f"{command} -t {threads}"
    if result.returncode != 0 or result.stderr:
        sys.exit(f"{where}: exit status {result.returncode}\n{result.stderr}")
    if "success" not in result.stdout.splitlines()[-1]:
        sys.exit(f"{where}: the last line is not the end")


def compare(program, command, options, bag, work, files, table):
    """Runs a command with each number of workers. There have to be some files, and a table of some size."""
    one = work / f"{command}_1"
    convert(program, command, options, bag, one, 1)
    names = files_of(one)
    if len(names) < files or not (one / table).stat().st_size > 100_000:
        sys.exit("the recording is too small to show anything")
    for threads in (8, 0):
        other = work / f"{command}_{threads}"
        convert(program, command, options, bag, other, threads)
        if files_of(other) != names:
            sys.exit(f"{command}: -t 1 and -t {threads} write different files")
        different = [name for name in names
                     if (one / name).is_file() and not filecmp.cmp(one / name, other / name, shallow=False)]
        if different:
            sys.exit(f"{command}: -t 1 and -t {threads} write different bytes: {different[:10]}")


def main():
    program, make_cases, kbagkit, work = (Path(argument).resolve() for argument in sys.argv[1:])
    shutil.rmtree(work, ignore_errors=True)
    work.mkdir(parents=True)
    large = work / "large.kbag"
    subprocess.run([make_cases, "--large", large], check=True)
    compare(program, "export", ["--images"], large, work, files=1000, table="csv/imu.csv")
    # Clouds of one time that differ, and share their files.
    clouds = work / "clouds"
    clouds.mkdir()
    lidars = ["/imu", "/hesai/pandar", "/livox/lidar", "/lidar"]
    compare(program, "unpack", ["--topic", *lidars], large, clouds, files=200, table="imu.csv")

    # Pictures have to be real here. The topics are those that have an output, of two cameras.
    room = work / "room.kbag"
    subprocess.run([kbagkit, "simulate", room, "--seconds", "10", "--points", "300", "--cameras", "2"],
                   check=True, capture_output=True)
    topics = ["/imu", "/magnetic", "/lidar_to_platform", "/gnss_data", "/lidar", "/camera_left/h264",
              "/camera_right/h264", "/config_file", "/project_data", "/raw_gnss_log", "/raw_ntrip_log",
              "/raw_ppk_log"]
    compare(program, "unpack", ["--topic", *topics], room, work, files=300, table="motor.csv")
    shutil.rmtree(work)


if __name__ == "__main__":
    main()
