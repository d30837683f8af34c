"""Checks that the number of workers does not show in what `kbag export` writes.

usage: compare_threads.py PROGRAM MAKE_CASES WORK

Exports one larger recording with one worker, with eight, and with one for each topic, and compares all files byte
for byte. Says nothing on standard error, so that a sanitizer's report fails it.
"""

import filecmp
import shutil
import subprocess
import sys
from pathlib import Path


def files_of(folder):
    return sorted(path.relative_to(folder) for path in folder.rglob("*"))


def export(program, bag, folder, threads):
    folder.mkdir()
    result = subprocess.run(
        [program, "export", bag, "--dir", folder, "--images", "-t", str(threads)],
        capture_output=True, text=True, check=False)
    if result.returncode != 0 or result.stderr:
        sys.exit(f"-t {threads}: exit status {result.returncode}\n{result.stderr}")
    if "success" not in result.stdout.splitlines()[-1]:
        sys.exit(f"-t {threads}: the last line is not the end of the export")


def main():
    program, make_cases, work = (Path(argument).resolve() for argument in sys.argv[1:])
    shutil.rmtree(work, ignore_errors=True)
    work.mkdir(parents=True)
    bag = work / "large.kbag"
    subprocess.run([make_cases, "--large", bag], check=True)
    one = work / "threads_1"
    export(program, bag, one, 1)
    names = files_of(one)
    if len(names) < 1000 or not (one / "csv/imu.csv").stat().st_size > 1000000:
        sys.exit("the recording is too small to show anything")
    for threads in (8, 0):
        other = work / f"threads_{threads}"
        export(program, bag, other, threads)
        if files_of(other) != names:
            sys.exit(f"-t 1 and -t {threads} write different files")
        different = [name for name in names
                     if (one / name).is_file() and not filecmp.cmp(one / name, other / name, shallow=False)]
        if different:
            sys.exit(f"-t 1 and -t {threads} write different bytes: {different[:10]}")
    shutil.rmtree(work)


if __name__ == "__main__":
    main()
