#!/usr/bin/env python3
"""Checks that every header of the project compiles alone.

usage: check_headers.py BUILD_DIR [ROOT]

Takes the compile commands of the build in BUILD_DIR: a header is compiled with those of a source file of its
layer. Prints what the compiler says; exit status 1 if a header does not compile.
"""

import json
import os
import shlex
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

# The source folder whose compile commands serve the public headers.
PUBLIC_FOLDER = "src/bag"


def compile_commands(build):
    """One compile command for each source folder: arguments without input and output."""
    commands = {}
    for entry in json.loads((build / "compile_commands.json").read_text(encoding="utf-8")):
        folder = Path(entry["file"]).parent
        words = shlex.split(entry["command"])
        if Path(words[0]).name == "ccache":
            words = words[1:]
        arguments = []
        skip = False
        for word in words:
            if skip:
                skip = False
            elif word in ("-o", "-MF", "-MT", "-MQ", "-c"):
                skip = True
            elif word not in ("-MD", "-MMD"):
                arguments.append(word)
        commands.setdefault(folder, (arguments, entry["directory"]))
    return commands


def compile_alone(header, name, command):
    arguments, directory = command
    # Including it twice tells whether the guard works.
    text = f'#include "{name}"\n#include "{name}"\n'
    result = subprocess.run(
        [*arguments, "-fsyntax-only", "-x", "c++", "-"],
        input=text, capture_output=True, text=True, cwd=directory, check=False)
    return "" if result.returncode == 0 else f"{header} does not compile alone:\n{result.stderr}"


def jobs_of_tree(root, build):
    """(header, name in an include, compile command) of every header; folders that are not built are named."""
    commands = compile_commands(build)
    jobs = []
    for top in ("include", "src"):
        for header in sorted((root / top).rglob("*.h")):
            folder = root / PUBLIC_FOLDER if top == "include" else header.parent
            while folder not in commands and folder != root:
                folder = folder.parent
            if folder == root:
                print(f"{header}: nothing of its folder is built here, skipped")
                continue
            jobs.append((header, header.relative_to(root / top).as_posix(), commands[folder]))
    return jobs


def main():
    build = Path(sys.argv[1]).resolve()
    root = Path(sys.argv[2] if len(sys.argv) > 2 else Path(__file__).parent.parent).resolve()
    jobs = jobs_of_tree(root, build)
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        problems = [problem for problem in pool.map(lambda job: compile_alone(*job), jobs) if problem]
    print("\n".join(problems))
    print(f"{len(jobs)} headers, {len(problems)} of them do not compile alone")
    return 1 if problems or not jobs else 0


if __name__ == "__main__":
    sys.exit(main())
