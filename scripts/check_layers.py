#!/usr/bin/env python3
"""Checks which header may be included where.

usage: check_layers.py [ROOT]

The layers of src/ depend one way: platform <- storage <- bag <- export <- {tool, task}, with messages beside
bag and kit, a host program, above task. Public headers (include/morva/) show nothing but the standard library
and each other, third-party headers stay in the layers that wrap them, and includes are written from src/ or
include/. Prints one line for each include that breaks a rule; exit status 1 if there is any.
"""

import re
import sys
from pathlib import Path

# The layers that a layer may include, besides itself.
BELOW = {
    "platform": set(),
    "messages": {"platform"},
    "storage": {"platform"},
    "bag": {"platform", "storage"},
    "export": {"platform", "storage", "bag", "messages"},
    "tool": {"platform", "storage", "bag", "messages", "export"},
    "task": {"platform", "storage", "bag", "messages", "export"},
    "kit": {"platform", "storage", "bag", "messages", "export", "task"},
}

# The layer that a public header belongs to; None: every layer may include it.
PUBLIC = {
    "morva/records.h": None,
    "morva/version.h": None,
    "morva/bag.h": "bag",
    "morva/export.h": "export",
    "morva/batch_task.h": "task",
}

# Generated from the message schema, which is a target of its own below storage and messages.
SCHEMA = "kbag_msgs.pb.h"

# Headers that not every layer may include, by how their names begin.
SYSTEM = r"(sys|arpa|netinet|linux)/|(dirent|dlfcn|fcntl|fnmatch|poll|pthread|sched|signal|spawn|termios|unistd)\.h$"
RESTRICTED = [
    ("headers of the operating system", SYSTEM, {"platform"}),
    ("codec headers", r"(lz4|lz4hc|lz4frame|zstd|libdeflate|zlib)\.h$", {"platform"}),
    ("formatting headers", r"fmt/", {"platform"}),
    ("YAML headers", r"yaml-cpp/", {"platform"}),
    ("OpenCV headers", r"opencv2/", {"export"}),
    ("PCL headers", r"pcl/", {"export"}),
    ("Eigen headers", r"Eigen/", {"export", "task", "kit"}),
    ("message schema headers", r"google/protobuf/|kbag_msgs\.pb\.h$", {"storage", "bag", "messages", "kit"}),
    ("video codec headers", r"(libav\w+|libsw\w+)/|turbojpeg\.h$|x264\.h$", {"export", "kit"}),
    ("command-line parser headers", r"CLI/", {"kit"}),
    ("JSON headers", r"nlohmann/", {"kit"}),
]

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')


def includes(path):
    """Line number, opening character and name of every include of a file."""
    for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
        match = INCLUDE.match(line)
        if match:
            yield number, match.group(1), match.group(2)


def check_public(root, quote, name):
    """What is wrong with an include of a public header, or None."""
    if name.startswith("morva/"):
        return None if (root / "include" / name).is_file() or name in PUBLIC else "there is no such public header"
    if quote == "<" and re.fullmatch(r"[a-z_]+", name):
        return None
    return "a public header shows only the standard library and public headers"


def check_layer(root, layer, quote, name):
    """What is wrong with an include of a file of a layer, or None."""
    for what, pattern, layers in RESTRICTED:
        if re.match(pattern, name) and layer not in layers:
            return f"{what} stay in {', '.join(sorted(layers))}"
    if quote == "<" or name == SCHEMA:
        return None
    if name.startswith("morva/"):
        if name not in PUBLIC:
            return "the layer of this public header is not known; name it in scripts/check_layers.py"
        owner = PUBLIC[name]
    else:
        owner = name.split("/", 1)[0]
        if not (root / "src" / name).is_file():
            return "there is no such file in src/ or include/"
    if owner is None or owner == layer or owner in BELOW[layer]:
        return None
    return f"{layer} does not depend on {owner}"


def check_guard(path, name):
    """What is wrong with a header's guard, or None."""
    guard = re.sub(r"[^A-Z0-9]", "_", ("morva/" + name.removeprefix("morva/")).upper()) + "_"
    if f"#ifndef {guard}\n#define {guard}\n" in path.read_text(encoding="utf-8"):
        return None
    return f"the guard is not {guard}"


def sources(directory):
    return sorted(path for path in directory.rglob("*") if path.suffix in {".h", ".cpp"})


def check_tree(root):
    """One line for each rule that a file of the tree breaks."""
    problems = []

    def report(path, number, problem, name=""):
        if problem:
            problems.append(f"{path.relative_to(root)}:{number}: {name + ': ' if name else ''}{problem}")

    for top in ("src", "include", "tests", "examples", "bench", "fuzz"):
        for path in sources(root / top):
            for number, quote, name in includes(path):
                parts = path.relative_to(root / top).parts
                if ".." in Path(name).parts:
                    report(path, number, 'includes are written from src/ or include/, without ".."', name)
                elif top == "include":
                    report(path, number, check_public(root, quote, name), name)
                elif top == "src":
                    if parts[0] not in BELOW:
                        report(path, number, "this folder is no layer", name)
                    else:
                        report(path, number, check_layer(root, parts[0], quote, name), name)
            if path.suffix == ".h" and top in ("src", "include"):
                report(path, 1, check_guard(path, path.relative_to(root / top).as_posix()))
    return problems


def main():
    root = Path(sys.argv[1] if len(sys.argv) > 1 else Path(__file__).parent.parent).resolve()
    problems = check_tree(root)
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
