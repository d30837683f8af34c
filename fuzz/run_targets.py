#!/usr/bin/env python3
"""Runs the fuzz targets under libFuzzer, and says in one table what came of it.

usage: run_targets.py SECONDS [TARGET...] [-j N] [--bin DIR] [--out DIR]

Every target (or every named one) runs SECONDS seconds, one after another, or N at a time with -j. The corpus
grows in OUT/corpus/<target> and is the beginning of the next run; OUT/seeds is made anew. What ends a run
early is kept in OUT/findings. The table is also written to OUT/report.json. Exit status 1 after a finding.
"""

import argparse
import concurrent.futures
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent

# What an input is allowed. Memory is far above what any sound input of this size takes, so that only a size
# that was believed reaches it.
MAX_INPUT_BYTES = 65536
TIMEOUT_S = 10
RSS_LIMIT_MB = 2048
MALLOC_LIMIT_MB = 256

COLUMNS = [
    ("target", "target", "{}"), ("executions", "executions", "{:,}"), ("exec/s", "executions_per_second", "{:,}"),
    ("coverage", "coverage", "{:,}"), ("corpus", "corpus_files", "{:,}"), ("corpus KB", "corpus_kb", "{:,}"),
    ("RSS MB", "peak_rss_mb", "{:,}"), ("CPU s", "cpu_seconds", "{:,.0f}"), ("findings", "findings", "{}"),
]


def main():
    parser = argparse.ArgumentParser(description="Runs the fuzz targets under libFuzzer.")
    parser.add_argument("seconds", type=int, help="of each target")
    parser.add_argument("targets", nargs="*", help="some targets; all, if none is named")
    parser.add_argument("-j", "--jobs", type=int, default=1, help="targets at a time")
    parser.add_argument("--bin", type=Path, default=ROOT / "build/fuzz/bin", help="where the programs are")
    parser.add_argument("--out", type=Path, default=ROOT / "out/fuzz", help="where results go")
    arguments = parser.parse_args()
    if arguments.seconds < 1:
        parser.error("SECONDS must be 1 or more")

    known = make_seeds(arguments.bin, arguments.out / "seeds")
    for target in arguments.targets:
        if target not in known:
            parser.error(f"no target '{target}'; there are: {' '.join(known)}")
    targets = [target for target in known if not arguments.targets or target in arguments.targets]

    rows = []
    memory = "/dev/shm" if os.path.isdir("/dev/shm") else None
    with tempfile.TemporaryDirectory(prefix="kbag-fuzz-", dir=memory) as scratch:
        with concurrent.futures.ThreadPoolExecutor(max(arguments.jobs, 1)) as pool:
            runs = [pool.submit(run_target, target, arguments, scratch) for target in targets]
            for run in runs:
                row = run.result()
                print("%(target)s: %(executions)s executions, %(findings)s findings" % row, flush=True)
                rows.append(row)

    print()
    print_table(rows)
    report = {
        "format": "kbag fuzz report", "version": 1, "seconds_of_each": arguments.seconds,
        "cpu_seconds": round(sum(row["cpu_seconds"] for row in rows), 1), "targets": rows,
    }
    (arguments.out / "report.json").write_text(json.dumps(report, indent=2) + "\n")
    found = sum(row["findings"] for row in rows)
    print(f"\n{report['cpu_seconds'] / 3600:.2f} CPU hours, {found} findings"
          + (f" in {arguments.out / 'findings'}" if found else ""))
    return 1 if found else 0


def make_seeds(bin_dir, seeds):
    """Names of the targets, in the order in which they are to be run."""
    shutil.rmtree(seeds, ignore_errors=True)
    seeds.mkdir(parents=True)
    made = subprocess.run([bin_dir / "fuzz_seeds", seeds], check=True, stdout=subprocess.PIPE, text=True)
    return made.stdout.split()


def run_target(target, arguments, scratch):
    corpus = arguments.out / "corpus" / target
    findings = arguments.out / "findings" / target
    log = arguments.out / "log" / f"{target}.log"
    for folder in (corpus, findings, log.parent):
        folder.mkdir(parents=True, exist_ok=True)
    before = set(findings.iterdir())
    files = Path(tempfile.mkdtemp(prefix=f"{target}-", dir=scratch))
    command = [
        arguments.bin / "kbag_fuzz", f"--target={target}", f"-max_total_time={arguments.seconds}",
        f"-max_len={MAX_INPUT_BYTES}", f"-timeout={TIMEOUT_S}", f"-rss_limit_mb={RSS_LIMIT_MB}",
        f"-malloc_limit_mb={MALLOC_LIMIT_MB}", "-print_final_stats=1", "-reload=0", "-len_control=20",
        f"-artifact_prefix={findings}/", corpus, arguments.out / "seeds" / target,
    ]
    environment = dict(os.environ, KBAG_FUZZ_DIR=str(files),
                       ASAN_OPTIONS="detect_stack_use_after_return=0:" + os.environ.get("ASAN_OPTIONS", ""))
    with open(log, "wb") as output:
        process = subprocess.Popen(command, stdout=output, stderr=output, env=environment)
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)  # it was waited for here
    shutil.rmtree(files, ignore_errors=True)

    text = log.read_text(errors="replace")
    new = set(findings.iterdir()) - before
    kept = list(corpus.iterdir())
    executions = number(r"stat::number_of_executed_units:\s*(\d+)", text) or number(r"^#(\d+)\s", text)
    # Stopped by hand is no finding, but any other end that is not the end of the time is one.
    failed = process.returncode not in (0, 72) and not new
    if process.returncode != 0:
        print(f"{target}: ended with {process.returncode}, see {log}", file=sys.stderr)
    return {
        "target": target,
        "executions": executions,
        "executions_per_second": round(executions / arguments.seconds),
        "coverage": number(r"cov: (\d+)", text),
        "features": number(r"ft: (\d+)", text),
        "corpus_files": len(kept),
        "corpus_kb": round(sum(file.stat().st_size for file in kept) / 1000),
        "peak_rss_mb": number(r"stat::peak_rss_mb:\s*(\d+)", text) or round(usage.ru_maxrss / 1024),
        "cpu_seconds": round(usage.ru_utime + usage.ru_stime, 1),
        "findings": len(new) + failed,
    }


def number(pattern, text):
    """The last number that the pattern finds; 0 where it finds none."""
    found = re.findall(pattern, text, re.MULTILINE)
    return int(found[-1]) if found else 0


def print_table(rows):
    cells = [[title for title, _, _ in COLUMNS]]
    cells += [[form.format(row[key]) for _, key, form in COLUMNS] for row in rows]
    total = {key: sum(row[key] for row in rows) for key in ("executions", "cpu_seconds", "findings")}
    cells.append([{"target": "all"}.get(key, form.format(total[key]) if key in total else "")
                  for _, key, form in COLUMNS])
    widths = [max(len(line[i]) for line in cells) for i in range(len(COLUMNS))]
    for line in cells:
        print("  ".join(cell.ljust(width) if i == 0 else cell.rjust(width)
                        for i, (cell, width) in enumerate(zip(line, widths))).rstrip())


if __name__ == "__main__":
    sys.exit(main())
