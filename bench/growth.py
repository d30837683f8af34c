#!/usr/bin/env python3
"""Measures how the cost of commands grows: with the size of a bag, with threads, with the number of topics.

    bench/growth.py [--runs N] [--json FILE] [--page FILE] [--build DIR] [--out DIR]

Prints tables, with a projection for 100 GB of the same messages, and writes the figures as JSON. Files are
in page cache; the projection adds no time for a disk.
"""

from __future__ import annotations

import argparse
import json
import pathlib
import statistics
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
import rows as table  # noqa: E402
import run_table  # noqa: E402

# Bags of the same messages, smallest first; the last two give the slope of the projection.
SIZES = ("mixed-1", "mixed-10", "mixed-100", "mixed-none")
TOPICS = {1: "small", 10: "topics-10", 100: "topics-100"}
THREADS = (1, 2, 4)
PROJECTED_BYTES = 100e9


def outputs(command: str, bag: str, options: str = "") -> table.Command:
    return table.kbag(command, bag, options)


def reindex(bag: str) -> table.Command:
    return table.Command("{kbag} reindex {links}/linked.kbag", remove=("{links}/linked.kbag.index",),
                         link=((f"{{inputs}}/{bag}.kbag", "{links}/linked.kbag"),))


def plain(command: str):
    return lambda bag: table.Command(f"{{kbag}} {command} {{inputs}}/{bag}.kbag")


SIZE_COMMANDS = {
    "info": plain("info"),
    "check": plain("check"),
    "reindex": reindex,
    "export": lambda bag: outputs("export", bag),
    "unpack": lambda bag: outputs("unpack", bag),
}
TOPIC_COMMANDS = {"info": plain("info"), "check": plain("check"), "reindex": reindex}
THREAD_COMMANDS = {
    "unpack, 60 s of everything": lambda threads: outputs("unpack", "recording", f"-t {threads}"),
    "export --images, the same": lambda threads: outputs("export", "recording", f"--images -t {threads}"),
    "unpack, two lidars": lambda threads: outputs("unpack", "lidar-two", f"-t {threads}"),
}


class Growth:
    """Runs commands and keeps medians."""

    def __init__(self, bench: run_table.Bench, runs: int):
        self.bench = bench
        self.runs = runs

    def figures(self, command: table.Command) -> dict[str, float]:
        """Medians of what a command costs: "cpu", "wall" and "memory"."""
        print(f"measuring {command.argv}", file=sys.stderr, flush=True)
        self.bench.provide(run_table.bags_of(command))
        with self.bench.scratch():
            usages = [self.bench.usage(command) for _ in range(self.runs + 1)][1:]
        return {name: statistics.median(usage[name] for usage in usages) for name in ("cpu", "wall", "memory")}

    def sizes(self) -> dict:
        bags = {}
        for bag in SIZES:
            measured = {name: self.figures(command(bag)) for name, command in SIZE_COMMANDS.items()}
            bags[bag] = {"bytes": (self.bench.inputs / f"{bag}.kbag").stat().st_size, "commands": measured}
        return bags

    def topics(self) -> dict:
        return {count: {name: self.figures(command(bag)) for name, command in TOPIC_COMMANDS.items()}
                for count, bag in TOPICS.items()}

    def threads(self) -> dict:
        return {name: {count: self.figures(command(count)) for count in THREADS}
                for name, command in THREAD_COMMANDS.items()}


def projection(sizes: dict, command: str, figure: str, to_bytes: float = PROJECTED_BYTES) -> float:
    """A figure at another size, along the line through those of the two largest bags."""
    (small, at_small), (large, at_large) = (
        (bag["bytes"], bag["commands"][command][figure]) for bag in list(sizes.values())[-2:])
    return at_large + max(at_large - at_small, 0.0) / (large - small) * (to_bytes - large)


def size_text(count: float) -> str:
    return f"{count / 1e9:.3g} GB" if count >= 1e9 else f"{count / 1e6:.3g} MB"


def size_tables(sizes: dict) -> list[str]:
    texts = []
    for figure, title in (("cpu", "CPU time"), ("memory", "peak memory")):
        clock = "memory" if figure == "memory" else "cpu"
        lines = [[command, *(run_table.figure_text(bag["commands"][command][figure], clock)
                             for bag in sizes.values()),
                  run_table.figure_text(projection(sizes, command, figure), clock)]
                 for command in SIZE_COMMANDS]
        headings = [title, *(size_text(bag["bytes"]) for bag in sizes.values()), "100 GB, projected"]
        texts.append(run_table.markdown(headings, lines))
    return texts


def topic_table(topics: dict) -> str:
    lines = [[command, *(run_table.figure_text(figures[command]["cpu"], "cpu") for figures in topics.values())]
             for command in TOPIC_COMMANDS]
    return run_table.markdown(["CPU time", *(f"{count} topics" if count > 1 else "1 topic" for count in topics)], lines)


def thread_table(threads: dict) -> str:
    lines = [[name, *(f"{run_table.figure_text(figures['wall'], 'wall')} "
                      f"({run_table.figure_text(figures['cpu'], 'cpu')})" for figures in counts.values())]
             for name, counts in threads.items()]
    return run_table.markdown(["wall time (CPU time)", *(f"-t {count}" for count in THREADS)], lines)


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--runs", type=int, default=5, help="runs of each command")
    parser.add_argument("--json", type=pathlib.Path, help="file to write (out/bench/growth.json)")
    parser.add_argument("--page", type=pathlib.Path, help="document whose tables are replaced by these")
    parser.add_argument("--build", type=pathlib.Path, default=run_table.ROOT / "build/bench")
    parser.add_argument("--out", type=pathlib.Path, default=run_table.ROOT / "out/bench")
    arguments = parser.parse_args()
    growth = Growth(run_table.Bench(arguments.build.resolve(), arguments.out.resolve()), arguments.runs)
    result = {"machine": run_table.machine(), "sizes": growth.sizes(), "topics": growth.topics(),
              "threads": growth.threads()}
    text = "\n\n".join([*size_tables(result["sizes"]), topic_table(result["topics"]),
                        thread_table(result["threads"])])
    print(text)
    if arguments.page:
        run_table.fill_page(arguments.page, "growth", f"{text}\n\n{run_table.measured_on(result['machine'])}")
    target = arguments.json or arguments.out / "growth.json"
    target.parent.mkdir(parents=True, exist_ok=True)
    target.write_text(json.dumps(result, indent=1) + "\n")
    print(f"\nwritten to {target}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
