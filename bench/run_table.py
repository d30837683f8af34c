#!/usr/bin/env python3
"""Measures the rows of the benchmark table, prints the table and writes it as JSON.

    bench/run_table.py [--rows 1,4] [--pairs N] [--json FILE] [--page FILE] [--build DIR] [--out DIR]

Commands run in turn with their peers, files in page cache; figures are medians. What cannot be measured
here (a peer that is not installed) is said so. The exit status is 1 where a command failed, outputs that
must be alike are not, or a row could not be measured; a goal that is missed does not count as failure.
"""

from __future__ import annotations

import argparse
import contextlib
import json
import os
import pathlib
import platform
import re
import shutil
import statistics
import subprocess
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
import compare_outputs  # noqa: E402
import rows as table  # noqa: E402

ROOT = pathlib.Path(__file__).resolve().parent.parent
INPUTS_VERSION = "1"  # raise it when bench_inputs makes other bags: old ones are then made anew


WORK_BYTES = 6 << 30  # what a row may write


class Failure(Exception):
    """A row that cannot be measured, and why."""


def scratch_place(out: pathlib.Path) -> pathlib.Path:
    """Where commands write. In memory where there is room: how a disk keeps up is not what is measured."""
    memory = pathlib.Path("/dev/shm")
    if not memory.is_dir() or not os.access(memory, os.W_OK):
        return out / "work"
    available = re.search(r"^MemAvailable: +([0-9]+) kB", pathlib.Path("/proc/meminfo").read_text(), re.MULTILINE)
    free = min(shutil.disk_usage(memory).free, int(available[1]) << 10 if available else 0)
    return memory / f"kbag-bench-{os.getpid()}" if free > 2 * WORK_BYTES else out / "work"


class Bench:
    """Runs lines of the table, in the folders that it is given."""

    def __init__(self, build: pathlib.Path, out: pathlib.Path, pairs: int | None = None):
        self.bin = build / "bin"
        self.inputs = out / "inputs"
        self.work = scratch_place(out)
        self.links = out / "links"
        self.pairs = pairs

    def path(self, text: str) -> pathlib.Path:
        return pathlib.Path(self.fill(text))

    def fill(self, text: str) -> str:
        return text.format(kbag=self.bin / "kbag", bin=self.bin, inputs=self.inputs, work=self.work,
                           links=self.links)

    # ---------------------------------------------------------------------------------------- inputs

    def provide(self, bags: set[str]) -> None:
        """Has the named bags made, and read into the page cache."""
        stamp = self.inputs / "version"
        if self.inputs.exists() and (not stamp.exists() or stamp.read_text() != INPUTS_VERSION):
            shutil.rmtree(self.inputs)
        self.inputs.mkdir(parents=True, exist_ok=True)
        stamp.write_text(INPUTS_VERSION)
        ours = {bag for bag in bags if bag.endswith(".kbag")}
        ros = bags - ours
        ours |= {table.ROS_BAGS[bag] for bag in ros}
        self.make_inputs("bench_inputs", sorted(bag.removesuffix(".kbag") for bag in ours))
        self.make_inputs("bench_ros_inputs", sorted(ros))
        for bag in bags:
            read_through(self.inputs / bag)

    def make_inputs(self, maker: str, names: list[str]) -> None:
        if not names:
            return
        if not (self.bin / maker).exists():
            raise Failure(f"{maker} was not built here")
        subprocess.run([self.bin / maker, self.inputs, *names], check=True)

    def facts(self, bag: str) -> dict:
        return json.loads((self.inputs / f"{bag}.json").read_text())

    # -------------------------------------------------------------------------------------- commands

    def measure(self, line: table.Line) -> dict:
        """The figures of one line."""
        if line.kernel:
            return self.measure_kernel(line.kernel)
        ours, peer = [], []
        bags = {bag for command in (line.ours, line.peer) for bag in bags_of(command)}
        self.provide(bags)
        with self.scratch():
            for number in range(-1, self.pairs or line.pairs):  # the first pair warms up
                figures = (self.run(line.ours, line.clock), self.figure(line.peer, line.clock))
                if number < 0:
                    self.compare(line)
                    continue
                ours.append(figures[0])
                peer.append(figures[1])
        return {"ours_all": ours, "peer_all": peer}

    @contextlib.contextmanager
    def scratch(self):
        """Empty folders {work} and {links}, while it lasts."""
        for folder in (self.work, self.links):
            shutil.rmtree(folder, ignore_errors=True)
            folder.mkdir(parents=True)
        try:
            yield
        finally:
            for folder in (self.work, self.links):
                shutil.rmtree(folder, ignore_errors=True)

    def figure(self, peer: table.Command | table.Limit, clock: str) -> float:
        if isinstance(peer, table.Limit):
            return float(peer.of(self.facts(peer.bag)))
        return self.run(peer, clock)

    def run(self, command: table.Command, clock: str) -> float:
        """One figure of a command."""
        usage = self.usage(command)
        if clock != "told":
            return usage[clock]
        told = re.search(r"^measured_s: ([0-9.e+-]+)$", usage["output"], re.MULTILINE)
        if told is None:
            raise Failure(f"{command.argv} does not say what it measured")
        return float(told[1])

    def usage(self, command: table.Command) -> dict:
        """Runs a command. @return what bench_launch says that it cost, and its "output"."""
        self.prepare(command)
        argv = [self.fill(word) for word in command.argv.split()]
        program = shutil.which(argv[0])
        if program is None:
            raise Failure(f"{argv[0]} is not here")
        usage, output = launch(self.bin / "bench_launch", [program, *argv[1:]])
        if usage["exit"] != 0:
            raise Failure(f"{' '.join(argv)} failed ({usage['exit']}): {output[-500:]}")
        return {**usage, "output": output}

    def prepare(self, command: table.Command) -> None:
        for name in (*command.remove, *command.make, *(new for _, new in command.link)):
            remove(self.path(name))
        for name in command.make:
            self.path(name).mkdir(parents=True)
        for existing, new in command.link:
            os.link(self.path(existing), self.path(new))

    def compare(self, line: table.Line) -> None:
        for pair, difference in ((line.same, compare_outputs.first_difference),
                                 (line.close, compare_outputs.first_distant_cloud)):
            if pair is None:
                continue
            ours, peer = (self.path(name) for name in pair)
            different = difference(ours, peer)
            if different:
                raise Failure(f"the outputs {ours} and {peer} are not alike: {different}")

    # --------------------------------------------------------------------------------------- kernels

    def measure_kernel(self, kernel: table.Kernel) -> dict:
        program = self.bin / kernel.program
        if not program.exists():
            raise Failure(f"{kernel.program} was not built here")
        repetitions = max(self.pairs or 7, 2)
        result = subprocess.run(
            [program, f"--benchmark_filter=^{re.escape(kernel.work)}/(ours|peer)(/|$)",
             f"--benchmark_repetitions={repetitions}", "--benchmark_enable_random_interleaving=true",
             "--benchmark_format=json"],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=False)
        if result.returncode != 0 or not result.stdout:
            raise Failure(f"{kernel.program} failed: {result.stderr[-500:]}")
        return kernel_figures(kernel, json.loads(result.stdout))


def bags_of(command: table.Command | table.Limit | None) -> set[str]:
    """File names of the inputs that a command names."""
    if command is None:
        return set()
    if isinstance(command, table.Limit):
        return {command.bag + ".kbag"}
    texts = [command.argv, *(existing for existing, _ in command.link)]
    return {name for text in texts for name in re.findall(r"\{inputs\}/([\w.-]+)", text)}


def launch(launcher: pathlib.Path, argv: list[str]) -> tuple[dict, str]:
    """Runs a program. @return what bench_launch says that it cost, and what it printed."""
    read_end, write_end = os.pipe()
    try:
        process = subprocess.Popen([launcher, str(write_end), *argv], stdin=subprocess.DEVNULL,
                                   stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                   pass_fds=(write_end,))
    finally:
        os.close(write_end)
    output = process.communicate()[0].decode(errors="replace")
    with os.fdopen(read_end) as report:
        text = report.read()
    if process.returncode != 0 or not text:
        raise Failure(f"{argv[0]} could not be started: {output}")
    return json.loads(text), output


def kernel_figures(kernel: table.Kernel, report: dict) -> dict:
    """Seconds an iteration of each repetition, from Google Benchmark's JSON."""
    seconds = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}
    figures: dict[str, list[float]] = {"ours": [], "peer": []}
    for entry in report["benchmarks"]:
        if entry["run_type"] != "iteration":
            continue
        if entry.get("error_occurred"):
            raise Failure(f"{entry['name']}: {entry.get('error_message')}")
        side = entry["name"][len(kernel.work) + 1:][:4]
        figures[side].append(entry["cpu_time"] * seconds[entry["time_unit"]])
    if not figures["ours"] or not figures["peer"]:
        raise Failure(f"{kernel.program} has no {kernel.work}/ours and {kernel.work}/peer")
    return {"ours_all": figures["ours"], "peer_all": figures["peer"]}


def remove(path: pathlib.Path) -> None:
    if path.is_dir() and not path.is_symlink():
        shutil.rmtree(path)
    else:
        path.unlink(missing_ok=True)


def read_through(path: pathlib.Path) -> None:
    with path.open("rb", buffering=0) as file:
        while file.read(1 << 20):
            pass



# ---------------------------------------------------------------------------------------------- results


def result_of(line: table.Line, figures: dict) -> dict:
    """One line of the result, as the JSON holds it."""
    ours = statistics.median(figures["ours_all"])
    peer = statistics.median(figures["peer_all"])
    return {
        "row": line.row, "work": line.work, "against": line.against,
        "clock": "cpu" if line.kernel else line.clock, "goal": line.goal.text(),
        "ours": ours, "peer": peer, "ratio": ours / peer if peer else None,
        "met": line.goal.met(ours, peer), **figures,
    }


def failed_result(line: table.Line, reason: str) -> dict:
    return {"row": line.row, "work": line.work, "against": line.against, "goal": line.goal.text(),
            "met": None, "error": reason}


def figure_text(value: float, clock: str) -> str:
    if clock == "memory":
        return f"{value / (1 << 20):.1f} MiB" if value < 1 << 30 else f"{value / (1 << 30):.1f} GiB"
    for unit, scale in (("s", 1.0), ("ms", 1e-3), ("us", 1e-6)):
        if value >= scale:
            return f"{value / scale:.3g} {unit}" if value < 100 * scale else f"{value / scale:.0f} {unit}"
    return f"{value * 1e9:.3g} ns"


HEADINGS = ("row", "work", "ours", "against", "its figure", "ratio", "goal", "met")


def cells(result: dict) -> tuple[str, ...]:
    start = (str(result["row"]), result["work"])
    if "error" in result:
        return (*start, "-", result["against"], "-", "-", result["goal"], "?")
    return (*start, figure_text(result["ours"], result["clock"]), result["against"],
            figure_text(result["peer"], result["clock"]), f"{result['ratio']:.3f}", result["goal"],
            "yes" if result["met"] else "NO")


def markdown(headings: tuple[str, ...], lines: list[tuple[str, ...]]) -> str:
    """A table that reads well as plain text too."""
    cells_of_all = [headings, *lines]
    widths = [max(len(line[column]) for line in cells_of_all) for column in range(len(headings))]
    texts = ["| " + " | ".join(cell.ljust(width) for cell, width in zip(line, widths)) + " |"
             for line in cells_of_all]
    return "\n".join([texts[0], "|" + "|".join("-" * (width + 2) for width in widths) + "|", *texts[1:]])


def fill_page(page: pathlib.Path, name: str, text: str) -> None:
    """Puts a text between the lines "<!-- name -->" and "<!-- /name -->" of a document."""
    start, end = f"<!-- {name} -->\n", f"<!-- /{name} -->"
    before, found, rest = page.read_text().partition(start)
    _, found_end, after = rest.partition(end)
    if not found or not found_end:
        raise Failure(f"{page} has no place for the {name}")
    page.write_text(f"{before}{start}\n{text}\n\n{end}{after}")


def measured_on(facts: dict) -> str:
    """A line about the machine, for documents."""
    return (f"Measured on {facts['processors']} processors ({facts['processor']}), {facts['system']}, on "
            f"{facts['date'][:10]}, at {facts['commit'] or 'an unknown commit'}.")


def machine() -> dict:
    model = re.search(r"^model name\s*: (.*)$", pathlib.Path("/proc/cpuinfo").read_text(), re.MULTILINE)
    release = platform.release().split("-")[0]
    commit = subprocess.run(["git", "-C", ROOT, "describe", "--always", "--dirty"], text=True,
                            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=False)
    return {"processor": model[1] if model else platform.machine(), "processors": os.cpu_count(),
            "system": f"{platform.system()} {release}, {platform.machine()}", "commit": commit.stdout.strip(),
            "date": time.strftime("%Y-%m-%d %H:%M:%S"), "load": os.getloadavg()[0]}


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--rows", help="only these, such as 1,4,10")
    parser.add_argument("--pairs", type=int, help="runs of each, instead of each row's own number")
    parser.add_argument("--json", type=pathlib.Path, help="file to write (out/bench/table.json)")
    parser.add_argument("--page", type=pathlib.Path, help="document whose table is replaced by this one")
    parser.add_argument("--build", type=pathlib.Path, default=ROOT / "build/bench")
    parser.add_argument("--out", type=pathlib.Path, default=ROOT / "out/bench")
    return parser.parse_args()


def main() -> int:
    arguments = parse_arguments()
    wanted = {int(row) for row in arguments.rows.split(",")} if arguments.rows else None
    bench = Bench(arguments.build.resolve(), arguments.out.resolve(), arguments.pairs)
    results = []
    for line in table.LINES:
        if wanted is not None and line.row not in wanted:
            continue
        print(f"measuring {line.row}: {line.work}", file=sys.stderr, flush=True)
        try:
            results.append(result_of(line, bench.measure(line)))
        except (Failure, subprocess.CalledProcessError) as reason:
            print(f"  {reason}", file=sys.stderr)
            results.append(failed_result(line, str(reason)))
    results.sort(key=lambda result: result["row"])
    text = markdown(HEADINGS, [cells(result) for result in results])
    print(text)
    facts = machine()
    if arguments.page:
        fill_page(arguments.page, "table", f"{text}\n\n{measured_on(facts)}")
    target = arguments.json or arguments.out / "table.json"
    target.parent.mkdir(parents=True, exist_ok=True)
    target.write_text(json.dumps({"machine": facts, "lines": results}, indent=1) + "\n")
    print(f"\nwritten to {target}")
    return 1 if any("error" in result for result in results) else 0


if __name__ == "__main__":
    sys.exit(main())
