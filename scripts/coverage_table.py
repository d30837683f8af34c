#!/usr/bin/env python3
"""Prints how many lines of each layer the tests reach, from gcovr's JSON report.

    scripts/coverage_table.py LINES.json [--missed FILE]

The exit status is 1 where a layer, or the whole, is below the share that docs/reliability.md promises.
"""

from __future__ import annotations

import argparse
import json
import pathlib
import sys

# What a damaged or hostile recording meets first is held to more than the rest.
LEAST = {"storage": 95.0, "bag": 95.0, "messages": 95.0}
LEAST_OF_ALL = 90.0


def layer_of(file: str) -> str:
    parts = pathlib.PurePath(file).parts
    return parts[1] if parts[0] == "src" else parts[0]


def lines_by_layer(report: dict) -> tuple[dict[str, list[int]], list[str]]:
    """[reached, all] lines of each layer, and "file:line" of each line that none reached."""
    layers: dict[str, list[int]] = {}
    missed = []
    for file in report["files"]:
        # A template's line appears once for each of its instances.
        counts: dict[int, int] = {}
        for line in file["lines"]:
            if not line.get("gcovr/noncode"):
                counts[line["line_number"]] = max(counts.get(line["line_number"], 0), line["count"])
        layer = layers.setdefault(layer_of(file["file"]), [0, 0])
        layer[0] += sum(count > 0 for count in counts.values())
        layer[1] += len(counts)
        missed += [f"{file['file']}:{number}" for number, count in sorted(counts.items()) if count == 0]
    return layers, missed


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("report", type=pathlib.Path)
    parser.add_argument("--missed", type=pathlib.Path, help="where the lines that none reached are listed")
    arguments = parser.parse_args()

    layers, missed = lines_by_layer(json.loads(arguments.report.read_text()))
    if arguments.missed:
        arguments.missed.write_text("".join(f"{place}\n" for place in missed))
    whole = [sum(layer[i] for layer in layers.values()) for i in (0, 1)]
    if not whole[1]:
        print("coverage: the report names no line", file=sys.stderr)
        return 1
    low = False
    print("| layer    |  lines | reached |  share | promised |")
    print("|----------|--------|---------|--------|----------|")
    for name, (reached, lines) in [*sorted(layers.items()), ("all", whole)]:
        least = LEAST_OF_ALL if name == "all" else LEAST.get(name)
        share = 100 * reached / lines if lines else 100.0
        low = low or (least is not None and share <= least)
        promised = f"> {least:.0f} %" if least else ""
        print(f"| {name:8} | {lines:6} | {reached:7} | {share:4.1f} % | {promised:8} |")
    return 1 if low else 0


if __name__ == "__main__":
    sys.exit(main())
