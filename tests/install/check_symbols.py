"""Checks what the shared library shows to the programs that link it.

usage: check_symbols.py LIBRARY

Only the classes and functions of the public headers: nothing of the layers below, and nothing of the
libraries that are used inside.
"""

import re
import subprocess
import sys

# What programs link, as `c++filt` writes it.
PUBLIC = re.compile(r"(?:(?:vtable|typeinfo|typeinfo name) for )?"
                    r"morva::(?:MorvaBag|BagTool|DevBagTool|exportTopics|exportFile)\b")
EXPECTED = ("morva::MorvaBag::open(", "morva::MorvaBag::writeMessage(", "morva::MorvaBag::checkAll(",
            "morva::exportTopics(", "morva::exportFile(", "morva::BagTool::StartTask(",
            "vtable for morva::BagTool", "typeinfo for morva::DevBagTool")
# Never beside the shared library itself.
HEAVY = re.compile(r"lib(opencv|pcl|avcodec|avformat|turbojpeg)")


def output(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout


def main():
    library = sys.argv[1]
    lines = output("nm", "-D", "-C", "--defined-only", library).splitlines()
    symbols = [line.split(maxsplit=2)[2] for line in lines]
    problems = [f"shown, but not public: {name}" for name in symbols if not PUBLIC.match(name)]
    problems += [f"not shown: {name}" for name in EXPECTED if not any(s.startswith(name) for s in symbols)]
    dynamic = output("readelf", "--dynamic", "--wide", library)
    needed = re.findall(r"\(NEEDED\).*\[(.*)\]", dynamic)
    problems += [f"links {name}" for name in needed if HEAVY.match(name)]
    soname = re.findall(r"\(SONAME\).*\[(.*)\]", dynamic)
    if soname != ["libkbag.so.0"]:
        problems.append(f"the soname is {soname}")
    if re.search(r"\((RPATH|RUNPATH)\)", dynamic):
        problems.append("it has a path of its own for libraries")
    print(f"{len(symbols)} symbols; needs {', '.join(needed)}")
    print("\n".join(problems))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
