"""Runs one golden case of the command-line tool; exit status 1 when it differs.

usage: run_case.py CASE PROGRAM BAGS WORK
"""

import resource
import sys
from pathlib import Path

import golden

# No input of the tests comes near this, whatever its size words say. Sanitizers take a multiple of the memory.
LARGEST_MEMORY_KIB = 512 * 1024


def main():
    case, program, bags, work = (Path(argument).resolve() for argument in sys.argv[1:])
    problems = golden.compare(case, golden.run(case, program, bags, work))
    memory = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss
    if memory > LARGEST_MEMORY_KIB:
        problems.append(f"the program took {memory} KiB of memory")
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
